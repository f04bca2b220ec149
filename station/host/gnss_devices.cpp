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

HostResult GnssDevice::setDefaultSyncMode(std::int32_t mode) {
    defaultSyncMode = mode;
    return HostCode::success;
}

HostResult GnssDevice::addSyncMode(std::int32_t mode) {
    syncModes.insert(mode);
    return HostCode::success;
}

HostResult GnssDevice::getSyncMode(std::int32_t* mode) {
    *mode = choice.syncMode;
    return HostCode::success;
}

HostResult GnssDevice::setSyncMode(std::int32_t mode) {
    choice.syncMode = mode;
    return HostCode::success;
}

HostResult GnssDevice::getClockSource(HostBool* isSource) {
    *isSource = toHostBool(choice.isSource);
    return HostCode::success;
}

HostResult GnssDevice::setClockSource(HostBool isSource) {
    choice.isSource = isTrue(isSource);
    return HostCode::success;
}

HostResult GnssDeviceList::getCount(std::int32_t* count) {
    *count = ownSource.empty() ? 0 : 1;
    return HostCode::success;
}

HostResult GnssDeviceList::getInfo(std::int32_t index, HostGnssDeviceInfo* info) {
    if (index != 0 || ownSource.empty()) {
        return fail(HostCode::invalidArgument, "there is no such source of satellite time");
    }
    *info = {0, ownSource};
    return HostCode::success;
}

HostResult GnssDeviceList::createDevice(HostGnssDevice** device) {
    return handOver(makeObject<GnssDevice>(), device);
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
