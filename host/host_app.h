#pragma once

#include <cstdint>

#include "host/host_object.h"

class HostData;
class HostDocumentFactory;
class HostGnssDeviceList;
class HostMasterClock;

/// The host application, the one object from which a plug-in reaches all others. The plug-in gets
/// it with `IPlugin2::onConnectHost` and keeps it to its own end.
class HostApp : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x0245E977, 0xC56C, 0x4A54, {0x83, 0x1C, 0xAB, 0x7B, 0x34, 0x45, 0xDB, 0x48}};

    /// Five numbers of which the second and third are the host's major and minor version. Asked
    /// once at the connection, to refuse a host that is too old.
    virtual HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                                  std::int32_t* unusedB, std::int32_t* unusedC) = 0;
    /// Asked once at the connection; only a failure counts.
    virtual HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                        std::int32_t* third) = 0;
    /// Shows a failure to the user.
    virtual HostResult writeError(const wchar_t* text) = 0;
    /// The measurement: sample rate, positions and channels.
    virtual HostResult getData(HostData** data) = 0;
    /// Whether the host is in setup, showing live values, and not in a measurement.
    virtual HostResult isSetupMode(HostBool* setupMode) = 0;
    /// 0 if the plug-in's clocks may release data as soon as a measurement is prepared.
    virtual HostResult getHoldValue(std::int32_t* value) = 0;
    virtual HostResult getMasterClock(HostMasterClock** clock) = 0;
    virtual HostResult getGnssDeviceList(HostGnssDeviceList** devices) = 0;
    /// Notifies the host that a clock of the plug-in came, went or changed its name.
    virtual HostResult notifyDevicesChanged() = 0;
    virtual HostResult getDocumentFactory(HostDocumentFactory** factory) = 0;

  protected:
    ~HostApp() = default;
};
