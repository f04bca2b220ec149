#include "sync/gnss_clock_soft_sync.h"

#include <cmath>

#include "host/host_clock.h"
#include "host/host_error.h"

namespace Kestrova::Utils::Kcom::Synchronization {

void GNSSClockSoftSync::OnStart(bool) {
    origin = Now().time;
    jumps = 0;
    former.reset();
    algorithm.Initialize();
    TakeReading();
}

void GNSSClockSoftSync::OnWindowChanged() {
    const auto hostClock = hostObject(host, &HostApp::getMasterClock);
    const double hostTime = hostValue(hostClock, &HostMasterClock::getTimeSeconds);
    if (std::abs(algorithm.MasterToSlave(hostTime) - Now().elapsed) > largestError) {
        if (hasFollowed && algorithm.IsPlaced()) {
            former = {algorithm, origin, hostTime + formerKept};
            ++jumps;
        }
        origin = Now().time;
        algorithm.Reset();
    } else if (former && hostTime > former->until) {
        former.reset();
    }
    TakeReading();
}

GNSSClockState GNSSClockSoftSync::GetState() const {
    constexpr double million = 1e6;
    GNSSClockState state = BasicState(GNSSClockMode::SoftSync);
    state.isPlaced = state.hasTime && algorithm.IsPlaced();
    if (state.isPlaced) {
        state.offset += algorithm.MasterToSlave(0.0);
        state.ratePpm = (1.0 / algorithm.GetSlope() - 1.0) * million;
        state.residual = algorithm.GetResidual();
    }
    state.jumps = jumps;
    return state;
}

void GNSSClockSoftSync::TakeReading() {
    // The host's clock is fetched first, so that as little as can be lies between the readings.
    const auto hostClock = hostObject(host, &HostApp::getMasterClock);
    const double elapsed = Now().elapsed;
    const double hostTime = hostValue(hostClock, &HostMasterClock::getTimeSeconds);
    algorithm.Update(hostTime, elapsed);
    hasFollowed = HasTime();
}

}  // namespace Kestrova::Utils::Kcom::Synchronization
