#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/host_clock.h"
#include "station/host/counted.h"

namespace station {

/// How a clock follows the host's.
struct ClockChoice {
    std::int32_t syncMode = HostGnssDevice::syncModeSoft;
    bool isSource = false;
};

/// The host's side of one clock of the plug-in. In soft sync until somebody chooses otherwise: it
/// works with any module, while PPS needs a cable.
class GnssDevice final : public Counted<HostGnssDevice> {
  public:
    HostResult setDefaultSyncMode(std::int32_t mode) override;
    HostResult addSyncMode(std::int32_t mode) override;
    HostResult getSyncMode(std::int32_t* mode) override;
    HostResult setSyncMode(std::int32_t mode) override;
    HostResult getClockSource(HostBool* isSource) override;
    HostResult setClockSource(HostBool isSource) override;

    const ClockChoice& getChoice() const { return choice; }
    std::int32_t getDefaultSyncMode() const { return defaultSyncMode; }
    const std::set<std::int32_t>& getSyncModes() const { return syncModes; }

  private:
    ClockChoice choice;
    std::int32_t defaultSyncMode = HostGnssDevice::syncModeSoft;
    std::set<std::int32_t> syncModes;
};

/// Makes devices. The station has no source of satellite time of its own, unless told of one.
class GnssDeviceList final : public Counted<HostGnssDeviceList> {
  public:
    /// Empty: none.
    void setOwnSource(std::wstring name) { ownSource = std::move(name); }

    HostResult getCount(std::int32_t* count) override;
    HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) override;
    HostResult createDevice(HostGnssDevice** device) override;

  private:
    std::wstring ownSource;
};

/// The places for the plug-in's clocks, by the name under which each is shown. The user's choice
/// for a place is made before the plug-in comes with its device; without one the device keeps what
/// it has from the plug-in's own settings.
class GnssDeviceCollection final : public Counted<HostGnssDeviceCollection> {
  public:
    void choose(const std::wstring& name, ClockChoice choice) { choices[name] = choice; }
    /// Names for which there is a choice, but where no device was attached yet: a misspelt one.
    std::vector<std::wstring> getChoicesWithoutDevice() const;
    /// The devices by name.
    const std::map<std::wstring, CountedRef<GnssDevice>>& getDevices() const { return devices; }

    HostResult open(const wchar_t* name, HostGnssDeviceHandle** handle) override;
    /// What the handle of that name does. Fails for a mode that the device doesn't offer.
    HostResult attach(const std::wstring& name, HostGnssDevice* device);

  private:
    std::map<std::wstring, ClockChoice> choices;
    std::map<std::wstring, CountedRef<GnssDevice>> devices;
};

}  // namespace station
