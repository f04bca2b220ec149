#include "sync/gnss_clock_switchable.h"

#include <utility>

#include "host/host_error.h"
#include "setup/node_values.h"
#include "sync/gnss_clock_gps_pps.h"
#include "sync/gnss_clock_soft_sync.h"

namespace Kestrova::Utils::Kcom::Synchronization {
namespace {

constexpr std::int32_t soft = HostGnssDevice::syncModeSoft;
constexpr std::int32_t pps = HostGnssDevice::syncModePps;

constexpr const char* syncModeKey = "SyncMode";
constexpr const char* clockSourceKey = "ClockSource";

}  // namespace

GNSSClockSwitchable::GNSSClockSwitchable(CountedRef<HostApp> hostApp,
                                         const PerformanceCounter& performanceCounter,
                                         bool notifyOnChange)
    : host(std::move(hostApp)), counter(performanceCounter), notifyHost(notifyOnChange) {
    const auto devices = hostObject(host, &HostApp::getGnssDeviceList);
    device = hostObject(devices, &HostGnssDeviceList::createDevice);
    callHost(device, &HostGnssDevice::setDefaultSyncMode, pps);
    callHost(device, &HostGnssDevice::addSyncMode, pps);
    callHost(device, &HostGnssDevice::addSyncMode, soft);
    Rebuild();
    if (notifyHost) {
        callHost(host, &HostApp::notifyDevicesChanged);
    }
}

GNSSClockSwitchable::~GNSSClockSwitchable() {
    if (notifyHost) {
        host->notifyDevicesChanged();
    }
}

void GNSSClockSwitchable::SetTime(const GNSSTime deviceTime) {
    const LockGuard guard(activeLock);
    timed->SetTime(deviceTime);
}

void GNSSClockSwitchable::SetDeviceName(const std::string& name) {
    deviceName = name;
    if (notifyHost) {
        callHost(host, &HostApp::notifyDevicesChanged);
    }
}

std::int32_t GNSSClockSwitchable::GetSyncMode() const {
    return hostValue(device, &HostGnssDevice::getSyncMode);
}

bool GNSSClockSwitchable::IsClockSource() const {
    return isTrue(hostValue(device, &HostGnssDevice::getClockSource));
}

void GNSSClockSwitchable::Load(const Serialization::Node& node) {
    const bool pulse = Serialization::ReadWithDefault(node, syncModeKey, soft) == pps;
    const bool source = Serialization::ReadWithDefault(node, clockSourceKey, false);
    callHost(device, &HostGnssDevice::setSyncMode, pulse ? pps : soft);
    callHost(device, &HostGnssDevice::setClockSource, toHostBool(pulse && source));
    Rebuild();
}

void GNSSClockSwitchable::Save(Serialization::Node& node) const {
    Serialization::WriteWithDefault(node, syncModeKey, GetSyncMode() == pps ? pps : soft, soft);
    Serialization::WriteWithDefault(node, clockSourceKey, IsClockSource(), false);
}

void GNSSClockSwitchable::AttachTo(HostGnssDeviceHandle* handle) {
    callHost(handle, &HostGnssDeviceHandle::attach, device.get());
    Rebuild();
}

void GNSSClockSwitchable::Rebuild() {
    auto strategy = MakeStrategy();
    {
        const LockGuard guard(activeLock);
        timed = strategy.get();
    }
    active = std::move(strategy);
}

std::unique_ptr<GNSSClockBase> GNSSClockSwitchable::MakeStrategy() const {
    if (GetSyncMode() != pps) {
        return std::make_unique<GNSSClockSoftSync>(host, counter);
    }
    if (IsClockSource()) {
        return std::make_unique<GNSSClockGPSPPSMaster>(host, counter);
    }
    return std::make_unique<GNSSClockGPSPPSSlave>(host, counter);
}

}  // namespace Kestrova::Utils::Kcom::Synchronization
