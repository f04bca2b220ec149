#pragma once

#include "sync/gnss_sync_manager_impl.h"
#include "tests/support/manual_counter.h"
#include "tests/support/scripted_host.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// A manager under a scripted host.
class SyncRig : public testing::Test {
  protected:
    static constexpr std::int32_t soft = HostGnssDevice::syncModeSoft;
    static constexpr std::int32_t pps = HostGnssDevice::syncModePps;

    SyncRig() {
        counter.onCount = [this] {
            counter.count += 50;
        };  // as on a computer, a look takes a moment
        manager.SetHost(&host.app);
    }
    /// A clock whose device has this mode and source. Device week 0 is a slave's zero.
    GNSSClockSwitchable& makeClock(std::int32_t mode, HostBool source = hostFalse) {
        auto& clock = dynamic_cast<GNSSClockSwitchable&>(*manager.CreateClock());
        host.gnssDevices.devices.back()->syncMode = mode;
        host.gnssDevices.devices.back()->clockSource = source;
        clock.Rebuild();
        host.data.startTime = GNSSTime().ToDayCount();
        return clock;
    }
    static GNSSTimeStatus statusAt(GNSSClock& clock, double secondOfWeek0) {
        return clock.GetTime(GNSSTime(0, secondOfWeek0)).status;
    }

    ScriptedHost host;
    ManualCounter counter{1000000000, 5000000000};
    GNSSSyncManagerImpl manager{counter};
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
