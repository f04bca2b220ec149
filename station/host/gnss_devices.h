#pragma once

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

    friend bool operator==(const ClockChoice&, const ClockChoice&) = default;
};

/// The host's side of one clock of the plug-in. In soft sync until somebody chooses otherwise: it
/// works with any module, while PPS needs a cable.
class GnssDevice final : public Counted<HostGnssDevice> {
  public:
    /// This host has a default of its own.
    HostResult setDefaultSyncMode(std::int32_t) override { return HostCode::success; }
    HostResult addSyncMode(std::int32_t mode) override;
    HostResult getSyncMode(std::int32_t* mode) override { return give(mode, choice.syncMode); }
    HostResult setSyncMode(std::int32_t mode) override { return put(choice.syncMode, mode); }
    HostResult getClockSource(HostBool* isSource) override {
        return give(isSource, toHostBool(choice.isSource));
    }
    HostResult setClockSource(HostBool isSource) override {
        return put(choice.isSource, isTrue(isSource));
    }

    const ClockChoice& getChoice() const { return choice; }
    /// Takes effect when the plug-in looks at it again, with event 177.
    void choose(ClockChoice newChoice) { choice = newChoice; }
    const std::set<std::int32_t>& getSyncModes() const { return syncModes; }

  private:
    ClockChoice choice;
    std::set<std::int32_t> syncModes;
};

/// Makes devices. The station has no source of satellite time of its own, unless it is given one.
class GnssDeviceList final : public Counted<HostGnssDeviceList> {
  public:
    /// Empty: none.
    void setOwnSource(std::wstring name) { ownSource = std::move(name); }

    HostResult getCount(std::int32_t* count) override {
        return give(count, ownSource.empty() ? 0 : 1);
    }
    HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) override;
    HostResult createDevice(HostGnssDevice** device) override {
        return handOver(makeObject<GnssDevice>(), device);
    }

  private:
    std::wstring ownSource;
};

/// Where the plug-in shows its clocks to the host, each under a name of its own. The names, which
/// are for a user of a list, aren't shown by this host: so it is itself the place for any of them.
class GnssDeviceCollection final : public Counted<HostGnssDeviceCollection, HostGnssDeviceHandle> {
  public:
    /// To be called before the plug-in comes with its clocks again.
    void clear() { devices.clear(); }
    /// In the order in which they came: that of the plug-in's list of clocks.
    const std::vector<CountedRef<GnssDevice>>& getDevices() const { return devices; }

    HostResult open(const wchar_t*, HostGnssDeviceHandle** handle) override {
        return handOver(CountedRef<GnssDeviceCollection>(this), handle);
    }
    HostResult attach(HostGnssDevice* device) override;

  private:
    std::vector<CountedRef<GnssDevice>> devices;
};

}  // namespace station
