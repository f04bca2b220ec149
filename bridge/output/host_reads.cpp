#include "bridge/output/host_reads.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "bridge/output/channel_id_text.h"

namespace Kestrova::Utils::Kcom {

using OutputChannel::OutputChannelType;
using OutputChannel::SampleRateKind;

std::int64_t getAcquisitionPosition(const CountedRef<HostApp>& app) {
    std::int32_t size = 0;
    std::int32_t position = 0;
    callHost(getHostData(app), &HostData::getBufferState, &size, &position);
    const std::int64_t wraps = hostValue(getHostData(app), &HostData::getWrapCount);
    return wraps * size + position;
}

double samplesToSeconds(const CountedRef<HostApp>& app, std::int64_t count) {
    return static_cast<double>(count) / hostValue(getHostData(app), &HostData::getSampleRate);
}

std::string getChannelIdText(const CountedRef<HostChannel>& channel) {
    return ChannelIdText::format(hostValue(channel, &HostChannel::getIndices));
}

SampleRateKind getRateKind(const CountedRef<HostChannel>& channel) {
    if (hostFlagOf(channel, &HostChannel::isSingleValue)) {
        return SampleRateKind::SingleValue;
    }
    return hostFlagOf(channel, &HostChannel::isAsync) ? SampleRateKind::Asynchronous
                                                      : SampleRateKind::Synchronous;
}

OutputChannelType getChannelType(const CountedRef<HostChannel>& channel) {
    const std::int32_t dataType = hostValue(channel, &HostChannel::getDataType);
    return {dataType, getRateKind(channel)};
}

std::int32_t getDimensionCount(const CountedRef<HostChannel>& channel) {
    return hostFlagOf(channel, &HostChannel::isArray)
               ? hostValue(hostObject(channel, &HostChannel::getArrayInfo),
                           &HostArrayInfo::getDimensionCount)
               : 1;
}

std::int32_t getFirstDimensionSize(const CountedRef<HostChannel>& channel) {
    return hostFlagOf(channel, &HostChannel::isArray)
               ? hostValue(hostObject(channel, &HostChannel::getArrayInfo),
                           &HostArrayInfo::getDimensionSize, 0)
               : 1;
}

std::int32_t getSecondDimensionSize(const CountedRef<HostChannel>& channel) {
    return getDimensionCount(channel) >= 2
               ? hostValue(hostObject(channel, &HostChannel::getArrayInfo),
                           &HostArrayInfo::getDimensionSize, 1)
               : 1;
}

std::optional<std::uint32_t> parseSetupId(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    std::uint32_t number = 0;
    const std::errc error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

}  // namespace Kestrova::Utils::Kcom
