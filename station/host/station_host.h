#pragma once

#include <functional>
#include <string>

#include "host/host_app.h"
#include "station/host/gnss_devices.h"
#include "station/host/station_data.h"

namespace station {

struct StationHostOptions {
    double sampleRate = MasterClock::defaultSampleRate;  ///< of the acquisition, samples a second
    double historySeconds = StationData::defaultHistorySeconds;
    double bufferSeconds = 2.0;  ///< room in each channel's buffers
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

    MasterClock& clock() { return *masterClock; }
    StationData& data() { return *stationData; }
    ChannelList& channels() { return *channelList; }
    GnssDeviceList& gnssDevices() { return *deviceList; }
    GnssDeviceCollection& gnssPlaces() { return *deviceCollection; }

    /// Live values of the setup in place of a measurement.
    void setSetupMode(bool setup) { setupMode = setup; }
    /// Other than 0 the plug-in's clocks hold all data back when a measurement is prepared.
    void setHoldValue(std::int32_t value) { holdValue = value; }
    /// Whether a clock came, went or changed its name since the last call.
    bool takeDevicesChanged() { return std::exchange(devicesChanged, false); }

    /// Also finds the `RuntimeLibrary`.
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;
    HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                          std::int32_t* unusedB, std::int32_t* unusedC) override;
    HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                std::int32_t* third) override;
    HostResult writeError(const wchar_t* text) override;
    HostResult getData(HostData** result) override;
    HostResult isSetupMode(HostBool* result) override;
    HostResult getHoldValue(std::int32_t* value) override;
    HostResult getMasterClock(HostMasterClock** result) override;
    HostResult getGnssDeviceList(HostGnssDeviceList** devices) override;
    HostResult notifyDevicesChanged() override;
    /// `HostCode::notImplemented` if the owner gave none.
    HostResult getDocumentFactory(HostDocumentFactory** factory) override;

  private:
    const StationHostOptions options;
    const CountedRef<MasterClock> masterClock;
    const CountedRef<ChannelList> channelList;
    const CountedRef<StationData> stationData;
    const CountedRef<GnssDeviceList> deviceList;
    const CountedRef<GnssDeviceCollection> deviceCollection;
    bool setupMode = false;
    std::int32_t holdValue = 1;
    bool devicesChanged = false;
};

}  // namespace station
