#include "tests/support/scripted_clock.h"

HostResult ScriptedMasterClock::getTimeSeconds(double* out) {
    const HostResult code = get("HostMasterClock::getTimeSeconds", out, seconds);
    if (code >= 0) {
        seconds += stepPerReading;
    }
    return code;
}

HostResult ScriptedGnssDevice::addSyncMode(std::int32_t mode) {
    const HostResult code = call("HostGnssDevice::addSyncMode", mode);
    if (code >= 0) {
        syncModes.push_back(mode);
    }
    return code;
}

HostResult ScriptedGnssDeviceList::getCount(std::int32_t* count) {
    return get("HostGnssDeviceList::getCount", count, static_cast<std::int32_t>(infos.size()));
}

HostResult ScriptedGnssDeviceList::getInfo(std::int32_t index, HostGnssDeviceInfo* info) {
    const HostResult code = call("HostGnssDeviceList::getInfo", index);
    if (code < 0) {
        return code;
    }
    if (index < 0 || static_cast<std::size_t>(index) >= infos.size()) {
        return HostCode::invalidArgument;
    }
    *info = infos[static_cast<std::size_t>(index)];
    return code;
}

HostResult ScriptedGnssDeviceList::createDevice(HostGnssDevice** device) {
    const auto create = [&] {
        devices.push_back(&script.make<ScriptedGnssDevice>(newDeviceMode));
        return devices.back();
    };
    return hand("HostGnssDeviceList::createDevice", device, create);
}

HostResult ScriptedGnssDeviceHandle::attach(HostGnssDevice* newDevice) {
    const HostResult code = call("HostGnssDeviceHandle::attach", newDevice);
    auto* const given = dynamic_cast<ScriptedGnssDevice*>(newDevice);
    if (code < 0 || given == nullptr) {
        return code < 0 ? code : HostCode::invalidPointer;
    }
    device = given;
    device->syncMode = chosenMode.value_or(device->syncMode);
    device->clockSource = chosenSource.value_or(device->clockSource);
    return code;
}

HostResult ScriptedGnssDeviceCollection::open(const wchar_t* name, HostGnssDeviceHandle** handle) {
    const auto find = [&] { return &place(name == nullptr ? L"" : name); };
    return hand("HostGnssDeviceCollection::open", handle, find, name);
}

ScriptedGnssDeviceHandle& ScriptedGnssDeviceCollection::place(const std::wstring& name) {
    auto& handle = handles[name];
    if (handle == nullptr) {
        handle = &script.make<ScriptedGnssDeviceHandle>();
    }
    return *handle;
}
