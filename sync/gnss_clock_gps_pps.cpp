#include "sync/gnss_clock_gps_pps.h"

#include <cmath>

#include "host/host_clock.h"
#include "host/host_data.h"
#include "host/host_error.h"

namespace Kestrova::Utils::Kcom::Synchronization {

void GNSSClockGPSPPSMaster::OnStart(bool hostHasSource) {
    const GNSSTime start = hostHasSource ? DeviceTimeOfHostZero() : GetFirstTime();
    const double second = start.GetSecondOfWeek();
    origin = GNSSTime(start.GetWeek(), hostHasSource ? std::round(second) : std::ceil(second));
    callHost(hostObject(host, &HostApp::getData), &HostData::setStartTime, origin.ToDayCount());
}

GNSSTime GNSSClockGPSPPSMaster::DeviceTimeOfHostZero() const {
    const auto hostClock = hostObject(host, &HostApp::getMasterClock);
    GNSSTime time = Now().time;
    time.AddSeconds(-hostValue(hostClock, &HostMasterClock::getTimeSeconds));
    return time;
}

void GNSSClockGPSPPSSlave::OnWindowChanged() {
    const auto data = hostObject(host, &HostApp::getData);
    origin = GNSSTime::FromDayCount(hostValue(data, &HostData::getStartTime));
}

}  // namespace Kestrova::Utils::Kcom::Synchronization
