#include "bridge/input/input_channel_impl.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Kestrova::Utils::Kcom::InputChannel {

struct InputChannelImpl::View {
    const std::byte* data = nullptr;
    std::int64_t samples = 0;  ///< that the buffers have room for
    std::size_t elements = 0;  ///< in one sample
    std::size_t elementBytes = 0;
    std::int32_t dataType = 0;

    /// The position of the acquisition's time counts on, the buffers are rings.
    std::size_t placeOf(std::int64_t position) const {
        return static_cast<std::size_t>(position % samples);
    }
    std::span<const std::byte> sampleAt(std::int64_t position) const {
        const std::size_t bytes = elements * elementBytes;
        return {data + placeOf(position) * bytes, bytes};
    }
    /// Empty where a sample has no such element.
    std::span<const std::byte> elementAt(std::int64_t position, std::size_t element) const {
        return element < elements ? sampleAt(position).subspan(element * elementBytes, elementBytes)
                                  : std::span<const std::byte>();
    }
};

InputChannelImpl::InputChannelImpl(CountedRef<HostApp> hostApp, CountedRef<HostChannel> channel)
    : app(std::move(hostApp)) {
    attachHostChannel(std::move(channel));
}

void InputChannelImpl::attachHostChannel(CountedRef<HostChannel> channel) {
    hostChannel = std::move(channel);
    dropBuffers();
    if (hostChannel) {
        properties.attachSet(hostObject(hostChannel, &HostChannel::getPropertySet));
    } else {
        properties.detachSet();
    }
}

void InputChannelImpl::update() {
    dropBuffers();
    if (hostChannel && isUsed()) {
        void* const buffer = hostValue(hostChannel, &HostChannel::getDataBuffer);
        if (hostFlagOf(hostChannel, &HostChannel::isAsync)) {
            times = hostValue(hostChannel, &HostChannel::getTimeBuffer);
        }
        line = {get(&HostChannel::getScale), get(&HostChannel::getOffset)};
        data = static_cast<const std::byte*>(buffer);
    }
}

void InputChannelImpl::dropBuffers() {
    line = {};
    data = nullptr;
    times = nullptr;
}

double InputChannelImpl::getSampleRate() const {
    return hostValue(getHostData(app), &HostData::getSampleRate) /
           get(&HostChannel::getRateDivider);
}

std::int64_t InputChannelImpl::secondsToSamples(double seconds) const {
    return nearest<std::int64_t>(seconds * getSampleRate());
}

double InputChannelImpl::samplesToSeconds(std::int64_t count) const {
    return static_cast<double>(count) / getSampleRate();
}

std::int64_t InputChannelImpl::acquisitionToSamples(std::int64_t position) const {
    const std::int32_t divider = get(&HostChannel::getRateDivider);
    if (divider < 1) {
        raiseHostError(HostCode::invalidArgument);
    }
    return position / divider;
}

CountedRef<HostAxisInfo> InputChannelImpl::getAxis(std::int32_t dimension) const {
    return hostObject(hostObject(hostChannel, &HostChannel::getArrayInfo), &HostArrayInfo::getAxis,
                      dimension);
}

InputChannelImpl::View InputChannelImpl::view(SampleRange range) const {
    if (data == nullptr) {
        raiseHostError(HostCode::invalidPointer);
    }
    const std::int32_t samples = get(&HostChannel::getBufferSize);
    if (range.first < 0 || range.count < 0 || range.count > samples ||
        range.first > std::numeric_limits<std::int64_t>::max() - range.count) {
        throw std::out_of_range("Sample range out of bounds");
    }
    return {data, samples, static_cast<std::size_t>(std::max(getArraySize(), 0)),
            static_cast<std::size_t>(std::max(getElementSize(), 0)), getDataType()};
}

std::vector<std::uint8_t> InputChannelImpl::readBytes(std::int64_t first, std::int64_t end) const {
    return readBytes({first, first < 0 || end < first ? -1 : end - first});
}

std::vector<std::uint8_t> InputChannelImpl::readBytes(SampleRange range) const {
    const View buffers = view(range);
    std::vector<std::uint8_t> bytes;
    for (std::int64_t i = 0; i < range.count; ++i) {
        const auto sample = buffers.sampleAt(range.first + i);
        const auto* const start = reinterpret_cast<const std::uint8_t*>(sample.data());
        bytes.insert(bytes.end(), start, start + sample.size());
    }
    return bytes;
}

void InputChannelImpl::readRange(SampleRange range,
                                 std::vector<std::vector<std::uint8_t>>& values) const {
    const View buffers = view(range);
    values.clear();
    for (std::int64_t i = 0; i < range.count; ++i) {
        const auto sample = buffers.sampleAt(range.first + i);
        const auto* const start = reinterpret_cast<const std::uint8_t*>(sample.data());
        values.emplace_back(start, start + sample.size());
    }
}

template <typename T>
T InputChannelImpl::readOne(std::int64_t position) const {
    const View buffers = view({position, 1});
    return nearest<T>(readRawNumber(buffers.dataType, buffers.elementAt(position, 0), line));
}
template float InputChannelImpl::readOne(std::int64_t) const;
template double InputChannelImpl::readOne(std::int64_t) const;
template std::int64_t InputChannelImpl::readOne(std::int64_t) const;

template <typename T>
void InputChannelImpl::readNumbers(SampleRange range, std::vector<T>& values) const {
    const View buffers = view(range);
    values.clear();
    for (std::int64_t i = 0; i < range.count; ++i) {
        for (std::size_t element = 0; element < buffers.elements; ++element) {
            const auto bytes = buffers.elementAt(range.first + i, element);
            values.push_back(nearest<T>(readRawNumber(buffers.dataType, bytes, line)));
        }
    }
}

template <typename T>
void InputChannelImpl::readTimedNumbers(SampleRange range,
                                        std::vector<TimedValue<T>>& values) const {
    const View buffers = view(range);
    std::vector<T> numbers;
    readNumbers(range, numbers);
    values.clear();
    for (std::size_t place = 0; place < numbers.size(); ++place) {
        const auto position = range.first + static_cast<std::int64_t>(place / buffers.elements);
        const double time =
            times != nullptr ? times[buffers.placeOf(position)] : samplesToSeconds(position);
        values.push_back({time, numbers[place]});
    }
}

// NOLINTBEGIN(bugprone-macro-parentheses): T is a type
#define KESTROVA_MAKE_READER(T)                                                                \
    template void InputChannelImpl::readNumbers(SampleRange, std::vector<T>&) const;           \
    template void InputChannelImpl::readTimedNumbers(SampleRange, std::vector<TimedValue<T>>&) \
        const;
KESTROVA_INPUT_NUMBERS(KESTROVA_MAKE_READER)
#undef KESTROVA_MAKE_READER
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace Kestrova::Utils::Kcom::InputChannel
