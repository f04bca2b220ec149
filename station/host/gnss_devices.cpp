#include "station/host/gnss_devices.h"

#include <fmt/format.h>

#include "core/string_helper.h"

namespace station {
namespace {

/// A place in the collection, which it keeps.
class DeviceHandle final : public Counted<HostGnssDeviceHandle> {
  public:
    DeviceHandle(CountedRef<GnssDeviceCollection> owner, std::wstring placeName)
        : collection(std::move(owner)), name(std::move(placeName)) {}

    HostResult attach(HostGnssDevice* device) override { return collection->attach(name, device); }

  private:
    const CountedRef<GnssDeviceCollection> collection;
    const std::wstring name;
};

}  // namespace

HostResult GnssDevice::setDefaultSyncMode(std::int32_t mode) {
    defaultSyncMode = mode;
    return HostCode::success;
}

HostResult GnssDevice::addSyncMode(std::int32_t mode) {
    syncModes.insert(mode);
    return HostCode::success;
}

HostResult GnssDevice::getSyncMode(std::int32_t* mode) {
    *mode = choice.syncMode;
    return HostCode::success;
}

HostResult GnssDevice::setSyncMode(std::int32_t mode) {
    choice.syncMode = mode;
    return HostCode::success;
}

HostResult GnssDevice::getClockSource(HostBool* isSource) {
    *isSource = toHostBool(choice.isSource);
    return HostCode::success;
}

HostResult GnssDevice::setClockSource(HostBool isSource) {
    choice.isSource = isTrue(isSource);
    return HostCode::success;
}

HostResult GnssDeviceList::getCount(std::int32_t* count) {
    *count = ownSource.empty() ? 0 : 1;
    return HostCode::success;
}

HostResult GnssDeviceList::getInfo(std::int32_t index, HostGnssDeviceInfo* info) {
    if (index != 0 || ownSource.empty()) {
        return fail(HostCode::invalidArgument, "there is no such source of satellite time");
    }
    *info = {0, ownSource};
    return HostCode::success;
}

HostResult GnssDeviceList::createDevice(HostGnssDevice** device) {
    return handOver(makeCounted<GnssDevice>(), device);
}

std::vector<std::wstring> GnssDeviceCollection::getChoicesWithoutDevice() const {
    std::vector<std::wstring> names;
    for (const auto& [name, choice] : choices) {
        if (!devices.contains(name)) {
            names.push_back(name);
        }
    }
    return names;
}

HostResult GnssDeviceCollection::open(const wchar_t* name, HostGnssDeviceHandle** handle) {
    return handOver(makeCounted<DeviceHandle>(CountedRef<GnssDeviceCollection>(this),
                                              name == nullptr ? L"" : name),
                    handle);
}

HostResult GnssDeviceCollection::attach(const std::wstring& name, HostGnssDevice* device) {
    auto* const own = dynamic_cast<GnssDevice*>(device);
    if (own == nullptr) {
        return fail(HostCode::invalidArgument, "a clock was attached that is none of this host's");
    }
    const auto choice = choices.find(name);
    if (choice != choices.end()) {
        if (!own->getSyncModes().contains(choice->second.syncMode)) {
            return fail(HostCode::invalidArgument,
                        fmt::format("the clock \"{}\" has no sync mode {}",
                                    Kestrova::Utils::Kcom::StringHelper::ToUtf8(name),
                                    choice->second.syncMode));
        }
        own->setSyncMode(choice->second.syncMode);
        own->setClockSource(toHostBool(choice->second.isSource));
    }
    devices[name] = CountedRef<GnssDevice>(own);
    return HostCode::success;
}

}  // namespace station
