#include "station/host/gnss_devices.h"

namespace station {
namespace {

/// A place in the collection, which it keeps.
class DeviceHandle final : public Counted<HostGnssDeviceHandle> {
  public:
    explicit DeviceHandle(CountedRef<GnssDeviceCollection> owner) : collection(std::move(owner)) {}

    HostResult attach(HostGnssDevice* device) override { return collection->attach(device); }

  private:
    const CountedRef<GnssDeviceCollection> collection;
};

}  // namespace

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

/// The names, which are for a user of a list, aren't shown by this host.
HostResult GnssDeviceCollection::open(const wchar_t*, HostGnssDeviceHandle** handle) {
    return handOver(makeObject<DeviceHandle>(CountedRef<GnssDeviceCollection>(this)), handle);
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
