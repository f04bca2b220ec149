#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/host_clock.h"
#include "tests/support/scripted_object.h"

class ScriptedMasterClock final : public Scripted<HostMasterClock> {
  public:
    explicit ScriptedMasterClock(CallScript& callScript)
        : Scripted(callScript, "HostMasterClock") {}

    /// Each reading adds `stepPerReading` to the time afterwards.
    HostResult getTimeSeconds(double* out) override;

    double seconds = 0.0;
    double stepPerReading = 0.0;
};

class ScriptedGnssDevice final : public Scripted<HostGnssDevice> {
  public:
    explicit ScriptedGnssDevice(CallScript& callScript, std::int32_t mode)
        : Scripted(callScript, "HostGnssDevice"), syncMode(mode) {}

    SCRIPTED_WRITER(HostGnssDevice, setDefaultSyncMode, std::int32_t, defaultSyncMode)
    HostResult addSyncMode(std::int32_t mode) override;
    SCRIPTED_PROPERTY(HostGnssDevice, SyncMode, std::int32_t, std::int32_t, syncMode)
    SCRIPTED_PROPERTY(HostGnssDevice, ClockSource, HostBool, HostBool, clockSource)

    std::int32_t defaultSyncMode = 0;
    std::vector<std::int32_t> syncModes;
    std::int32_t syncMode;
    HostBool clockSource = hostFalse;
};

class ScriptedGnssDeviceList final : public Scripted<HostGnssDeviceList> {
  public:
    explicit ScriptedGnssDeviceList(CallScript& callScript)
        : Scripted(callScript, "HostGnssDeviceList") {}

    HostResult getCount(std::int32_t* count) override;
    /// Fails for an index outside the list.
    HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) override;
    HostResult createDevice(HostGnssDevice** device) override;

    std::vector<HostGnssDeviceInfo> infos;
    std::int32_t newDeviceMode = HostGnssDevice::syncModeSoft;
    std::vector<ScriptedGnssDevice*> devices;  ///< all that were made, in order
};

class ScriptedGnssDeviceHandle final : public Scripted<HostGnssDeviceHandle> {
  public:
    explicit ScriptedGnssDeviceHandle(CallScript& callScript)
        : Scripted(callScript, "HostGnssDeviceHandle") {}

    HostResult attach(HostGnssDevice* newDevice) override;

    /// What the device gets when it is attached, where a test has chosen something.
    std::optional<std::int32_t> chosenMode;
    std::optional<HostBool> chosenSource;
    ScriptedGnssDevice* device = nullptr;
};

class ScriptedGnssDeviceCollection final : public Scripted<HostGnssDeviceCollection> {
  public:
    explicit ScriptedGnssDeviceCollection(CallScript& callScript)
        : Scripted(callScript, "HostGnssDeviceCollection") {}

    HostResult open(const wchar_t* name, HostGnssDeviceHandle** handle) override;

    /// The place of that name, made if there is none.
    ScriptedGnssDeviceHandle& place(const std::wstring& name);

    std::map<std::wstring, ScriptedGnssDeviceHandle*> handles;
};
