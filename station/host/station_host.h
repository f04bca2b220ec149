#pragma once

#include <functional>
#include <string>

#include "host/host_app.h"
#include "station/host/gnss_devices.h"
#include "station/host/station_data.h"

namespace station {

struct StationHostOptions {
    double sampleRate = MasterClock::defaultSampleRate;  ///< of the acquisition, samples a second
    CountedRef<HostDocumentFactory> documentFactory;
    /// Gets each text that the plug-in has for the user, UTF-8.
    std::function<void(const std::string&)> onError;
};

/// The station as the host application, from which a plug-in reaches everything else. Makes and
/// owns the other objects; the counter isn't owned and outlives all of them.
///
/// Called on the host's thread.
class StationHost final : public Counted<HostApp> {
  public:
    static constexpr std::int32_t majorVersion = 4;
    static constexpr std::int32_t minorVersion = 0;

    /// Throws `std::invalid_argument` for a sample rate that `MasterClock` refuses.
    StationHost(const PerformanceCounter& counter, StationHostOptions hostOptions);

    MasterClock& getClock() { return *masterClock; }
    StationData& data() { return *stationData; }
    ChannelList& getChannels() { return *channelList; }
    GnssDeviceList& getGnssDevices() { return *deviceList; }
    GnssDeviceCollection& gnssPlaces() { return *deviceCollection; }

    /// Whether a clock came, went or changed its name since the last call.
    bool takeDevicesChanged() { return std::exchange(devicesChanged, false); }

    /// Also finds the `RuntimeLibrary`.
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;
    HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                          std::int32_t* unusedB, std::int32_t* unusedC) override;
    HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                std::int32_t* third) override;
    HostResult writeError(const wchar_t* text) override;
    HostResult getData(HostData** result) override { return handOver(stationData, result); }
    /// There are no live values of the setup in place of a measurement.
    HostResult isSetupMode(HostBool* result) override { return give(result, hostFalse); }
    /// Not 0, so the plug-in's clocks hold all data back when a measurement is prepared.
    HostResult getHoldValue(std::int32_t* value) override { return give(value, 1); }
    HostResult getMasterClock(HostMasterClock** result) override {
        return handOver(masterClock, result);
    }
    HostResult getGnssDeviceList(HostGnssDeviceList** devices) override {
        return handOver(deviceList, devices);
    }
    HostResult notifyDevicesChanged() override { return put(devicesChanged, true); }
    /// `HostCode::notImplemented` if the owner gave none.
    HostResult getDocumentFactory(HostDocumentFactory** factory) override;

  private:
    const StationHostOptions options;
    const CountedRef<MasterClock> masterClock;
    const CountedRef<ChannelList> channelList;
    const CountedRef<StationData> stationData;
    const CountedRef<GnssDeviceList> deviceList;
    const CountedRef<GnssDeviceCollection> deviceCollection;
    bool devicesChanged = false;
};

}  // namespace station
