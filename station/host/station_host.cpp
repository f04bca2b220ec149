#include "station/host/station_host.h"

#include "core/string_helper.h"
#include "station/runtime/runtime_exports.h"

namespace station {

StationHost::StationHost(const PerformanceCounter& counter, StationHostOptions hostOptions)
    : options(std::move(hostOptions)),
      masterClock(makeObject<MasterClock>(counter, options.sampleRate)),
      channelList(
          makeObject<ChannelList>(ChannelEnvironment{options.sampleRate, options.documentFactory})),
      stationData(makeObject<StationData>(masterClock, channelList)),
      deviceList(makeObject<GnssDeviceList>()),
      deviceCollection(makeObject<GnssDeviceCollection>()) {}

HostResult StationHost::queryInterface(const InterfaceId& interfaceId, void** result) {
    return interfaceId == RuntimeLibrary::id ? kvRtGetLibrary()->queryInterface(interfaceId, result)
                                             : Counted::queryInterface(interfaceId, result);
}

HostResult StationHost::getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                                   std::int32_t* unusedB, std::int32_t* unusedC) {
    *unusedA = 0;
    *major = majorVersion;
    *minor = minorVersion;
    *unusedB = 0;
    *unusedC = 0;
    return HostCode::success;
}

HostResult StationHost::getVersionTriple(std::int32_t* first, std::int32_t* second,
                                         std::int32_t* third) {
    *first = majorVersion;
    *second = minorVersion;
    *third = 0;
    return HostCode::success;
}

HostResult StationHost::writeError(const wchar_t* text) {
    return guarded([&] {
        if (options.onError) {
            options.onError(Kestrova::Utils::Kcom::StringHelper::ToUtf8(text));
        }
        return HostCode::success;
    });
}

HostResult StationHost::getDocumentFactory(HostDocumentFactory** factory) {
    return options.documentFactory
               ? handOver(options.documentFactory, factory)
               : fail(HostCode::notImplemented, "this station makes no documents");
}

}  // namespace station
