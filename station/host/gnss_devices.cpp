#include "station/host/gnss_devices.h"

namespace station {

HostResult GnssDevice::addSyncMode(std::int32_t mode) {
    syncModes.insert(mode);
    return HostCode::success;
}

HostResult GnssDeviceList::getInfo(std::int32_t index, HostGnssDeviceInfo* info) {
    if (index != 0 || ownSource.empty()) {
        return fail(HostCode::invalidArgument, "there is no such source of satellite time");
    }
    *info = {0, ownSource};
    return HostCode::success;
}

HostResult GnssDeviceCollection::attach(HostGnssDevice* device) {
    auto* const own = dynamic_cast<GnssDevice*>(device);
    if (own == nullptr) {
        return fail(HostCode::invalidArgument, "a clock was attached that is none of this host's");
    }
    devices.emplace_back(own);
    return HostCode::success;
}

}  // namespace station
