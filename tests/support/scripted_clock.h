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
    SCRIPTED_PROPERTY(SyncMode, std::int32_t, std::int32_t, syncMode, syncModeSoft)
    SCRIPTED_PROPERTY(ClockSource, HostBool, HostBool, clockSource, hostFalse)
};

class ScriptedGnssDeviceList final : public Scripted<HostGnssDeviceList> {
  public:
    using Scripted::Scripted;

    SCRIPTED_COUNT(getCount, infos)
    /// Throws for an index outside the list.
    HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) override {
        return get({"getInfo", index}, info, infos.at(static_cast<std::size_t>(index)));
    }
    SCRIPTED_OBJECT(createDevice, HostGnssDevice,
                    devices.emplace_back(&script.make<ScriptedGnssDevice>()))

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

    HostResult open(const wchar_t* name, HostGnssDeviceHandle** out) override {
        return hand({"open", name}, out, [&] { return &handle; });
    }

  private:
    ScriptedGnssDeviceHandle& handle = script.make<ScriptedGnssDeviceHandle>();
};
