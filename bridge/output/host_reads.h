#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "bridge/output/output_channel.h"
#include "core/string_helper.h"
#include "host/host_app.h"
#include "host/host_channel.h"
#include "host/host_data.h"
#include "host/host_error.h"

/// What the writing and the reading side of the bridge both ask of the host. All of it raises as
/// `callHost` does; nothing is cached.
namespace Kestrova::Utils::Kcom {

/// What `make` gives; raises `HostCode::outOfMemory` where it finds no memory.
template <typename Make>
auto orOutOfMemory(Make make) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        raiseHostError(HostCode::outOfMemory);
    }
}

/// A text for the host.
inline std::wstring toHostText(const std::string& utf8) {
    return orOutOfMemory([&] { return StringHelper::ToWide(utf8); });
}

/// A text of the host: `hostTextOf(channel, &HostChannel::getName)`.
template <typename Ref, typename Interface>
std::string hostTextOf(const Ref& object, HostResult (Interface::*getter)(std::wstring*)) {
    const std::wstring text = hostValue(object, getter);
    return orOutOfMemory([&] { return StringHelper::ToUtf8(text); });
}

/// A flag of the host.
template <typename Ref, typename Interface>
bool hostFlagOf(const Ref& object, HostResult (Interface::*getter)(HostBool*)) {
    return isTrue(hostValue(object, getter));
}

/// Empty if the host has none.
inline CountedRef<HostData> getHostData(const CountedRef<HostApp>& app) {
    return hostObject(app, &HostApp::getData);
}

/// The samples of the acquisition since its start.
std::int64_t getAcquisitionPosition(const CountedRef<HostApp>& app);

/// The time that so many samples of the acquisition take, in seconds.
double samplesToSeconds(const CountedRef<HostApp>& app, std::int64_t count);

std::string getChannelIdText(const CountedRef<HostChannel>& channel);
OutputChannel::SampleRateKind getRateKind(const CountedRef<HostChannel>& channel);
OutputChannel::OutputChannelType getChannelType(const CountedRef<HostChannel>& channel);
/// The shape of an array; 1 for a channel that is none, and for a dimension that it hasn't.
std::int32_t getDimensionCount(const CountedRef<HostChannel>& channel);
std::int32_t getFirstDimensionSize(const CountedRef<HostChannel>& channel);
std::int32_t getSecondDimensionSize(const CountedRef<HostChannel>& channel);

/// The number at the start of a setup's "Id", behind white space; what follows it doesn't count.
/// Empty if there is none, or if it is negative or beyond 32 bits.
std::optional<std::uint32_t> parseSetupId(std::string_view text);

}  // namespace Kestrova::Utils::Kcom
