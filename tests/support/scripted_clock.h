#pragma once

#include "host/host_clock.h"
#include "tests/support/scripted_object.h"

class ScriptedMasterClock final : public Scripted<HostMasterClock> {
  public:
    using Scripted::Scripted;

    SCRIPTED_READ(getTimeSeconds, double, seconds, 0.0)
};

class ScriptedGnssDevice final : public Scripted<HostGnssDevice> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(setDefaultSyncMode, std::int32_t)
    SCRIPTED_TAKE(addSyncMode, std::int32_t)
    SCRIPTED_PROPERTY(SyncMode, std::int32_t, syncMode, syncModeSoft)
    SCRIPTED_PROPERTY(ClockSource, HostBool, clockSource, hostFalse)
};

class ScriptedGnssDeviceList final : public Scripted<HostGnssDeviceList> {
  public:
    using Scripted::Scripted;

    SCRIPTED_COUNT(getCount, infos)
    /// Fails for an index outside the list.
    HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) override {
        const HostResult code = call("getInfo", index);
        if (code < 0) {
            return code;
        }
        if (index < 0 || static_cast<std::size_t>(index) >= infos.size()) {
            return HostCode::invalidArgument;
        }
        *info = infos[static_cast<std::size_t>(index)];
        return code;
    }
    HostResult createDevice(HostGnssDevice** device) override {
        const auto create = [&] {
            devices.push_back(&script.make<ScriptedGnssDevice>());
            return devices.back();
        };
        return hand("createDevice", device, create);
    }

    std::vector<HostGnssDeviceInfo> infos;
    std::vector<ScriptedGnssDevice*> devices;  ///< all that were made, in order
};

class ScriptedGnssDeviceHandle final : public Scripted<HostGnssDeviceHandle> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(attach, HostGnssDevice*)
};

class ScriptedGnssDeviceCollection final : public Scripted<HostGnssDeviceCollection> {
  public:
    using Scripted::Scripted;

    HostResult open(const wchar_t* name, HostGnssDeviceHandle** handle) override {
        const auto place = [&] {
            auto& known = handles[orEmpty(name)];
            return known = known != nullptr ? known : &script.make<ScriptedGnssDeviceHandle>();
        };
        return hand("open", handle, place, name);
    }

  private:
    std::map<std::wstring, ScriptedGnssDeviceHandle*> handles;
};
