#include "station/host/station_channel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace station {
namespace {

/// Bytes of an element by data type code; 0: there is no such type.
constexpr std::array<std::int32_t, 15> elementSizes = {
    1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 16, 0, 1, 0, StationChannel::recordSize};

constexpr double leastSeconds = 2.0;
constexpr std::size_t leastBytes = std::size_t{64} << 10;
constexpr std::size_t mostBytes = std::size_t{128} << 20;  // with the times
/// What a sample of any size is expected to take.
constexpr std::size_t variantBytes = 16;
/// Of the two classes that count as active, the one for channels that a plug-in fills.
constexpr std::int32_t pluginChannelClass = 1;
/// Indices that say whose channel it is.
constexpr std::size_t ownerIndices = 2;

std::int32_t elementSize(std::int32_t type) {
    return type >= 0 && static_cast<std::size_t>(type) < elementSizes.size()
               ? elementSizes[static_cast<std::size_t>(type)]
               : 0;
}

}  // namespace

StationChannel::StationChannel(std::vector<std::int32_t> channelIndices,
                               ChannelEnvironment surroundings)
    : environment(std::move(surroundings)),
      arrayInfo(makeObject<ArrayInfo>()),
      valueList(makeObject<ValueList>()),
      propertySet(makeObject<PropertySet>(environment.documentFactory)),
      place(std::move(channelIndices)) {}

std::int32_t StationChannel::arrayElements() const {
    return array ? arrayInfo->getElements() : 1;
}

std::size_t StationChannel::sampleBytes() const {
    return static_cast<std::size_t>(elementSize(type)) * static_cast<std::size_t>(arrayElements());
}

std::size_t StationChannel::samplesOfRoom() const {
    const std::size_t bytes = type == variantType ? variantBytes : sampleBytes();
    const double wanted = std::ceil(std::max(environment.bufferSeconds, leastSeconds) *
                                    static_cast<double>(expectedRate));
    const std::size_t least = (leastBytes + bytes - 1) / bytes;
    const std::size_t most = std::max<std::size_t>(mostBytes / (bytes + sizeof(double)), 1);
    const auto limited = static_cast<std::size_t>(std::min(wanted, static_cast<double>(most)));
    return std::clamp(limited, std::min(least, most), most);
}

void StationChannel::allocate() {
    const std::size_t samples = samplesOfRoom();
    if (type == variantType) {
        ring.release();
        variants.allocate(samples, samples * variantBytes);
    } else {
        variants.release();
        ring.allocate(samples, sampleBytes(), async);
    }
    allocated = true;
    seenVersion = arrayInfo->getVersion();
}

void StationChannel::beginMeasurement() {
    isClaimed = false;
    ensureBuffers();
    ring.clear();
    variants.clear();
}

void StationChannel::takeNew(ChannelSink& sink) {
    if (type == variantType) {
        variants.takeNew(sink);
        return;
    }
    if (async) {
        ring.takeNew(sink);
        return;
    }
    class Timed final : public ChannelSink {
      public:
        Timed(ChannelSink& receiver, const StationChannel& source)
            : target(receiver), channel(source) {}
        void onSample(const ChannelSample& sample) override {
            const double position = sample.time + static_cast<double>(channel.offset);
            target.onSample(
                {sample.data, sample.size, position / channel.environment.acquisitionRate});
        }

      private:
        ChannelSink& target;
        const StationChannel& channel;
    };
    Timed timed(sink, *this);
    ring.takeNew(timed);
}

HostResult StationChannel::setIndices(const std::int32_t* values, std::int32_t count) {
    return guarded([&] {
        if (count < 0) {
            return fail(HostCode::invalidArgument, "the number of indices is negative");
        }
        place.resize(std::min(place.size(), ownerIndices));
        place.insert(place.end(), values, values + count);
        return HostCode::success;
    });
}

HostResult StationChannel::setDataType(std::int32_t newType) {
    if (elementSize(newType) == 0) {
        return fail(HostCode::invalidArgument, fmt::format("there is no data type {}", newType));
    }
    if (newType != type) {
        type = newType;
        dropBuffers();
    }
    return HostCode::success;
}

HostResult StationChannel::setAsync(HostBool newAsync) {
    if (isTrue(newAsync) != async) {
        async = isTrue(newAsync);
        dropBuffers();
    }
    return HostCode::success;
}

HostResult StationChannel::getChannelClass(std::int32_t* channelClass) {
    *channelClass = pluginChannelClass;
    return HostCode::success;
}

HostResult StationChannel::setExpectedRate(float samplesPerSecond) {
    if (!(samplesPerSecond >= 0.0F && std::isfinite(samplesPerSecond))) {
        return fail(HostCode::invalidArgument, "an expected rate is a number of 0 or above");
    }
    if (samplesPerSecond != expectedRate) {
        expectedRate = samplesPerSecond;
        dropBuffers();
    }
    return HostCode::success;
}

HostResult StationChannel::setIsArray(HostBool newArray) {
    if (isTrue(newArray) != array) {
        array = isTrue(newArray);
        dropBuffers();
    }
    return HostCode::success;
}

HostResult StationChannel::getArraySize(std::int32_t* elements) {
    *elements = arrayElements();
    return HostCode::success;
}

HostResult StationChannel::getDataBuffer(void** data) {
    return guarded([&] {
        ensureBuffers();
        *data = ring.getData();
        return HostCode::success;
    });
}

HostResult StationChannel::getTimeBuffer(double** times) {
    return guarded([&] {
        ensureBuffers();
        *times = ring.getTimes();
        return HostCode::success;
    });
}

HostResult StationChannel::getBufferSize(std::int32_t* samples) {
    return guarded([&] {
        ensureBuffers();
        *samples = static_cast<std::int32_t>(ring.getSize() + variants.getSize());
        return HostCode::success;
    });
}

HostResult StationChannel::getElementSize(std::int32_t* bytes) {
    *bytes = elementSize(type);
    return HostCode::success;
}

HostResult StationChannel::getWritePosition(std::int32_t* position) {
    return guarded([&] {
        ensureBuffers();
        *position = static_cast<std::int32_t>(ring.getWritePosition());
        return HostCode::success;
    });
}

HostResult StationChannel::advanceWritePosition(std::int32_t samples) {
    if (samples < 0 || layoutMoved() || type == variantType) {
        return fail(HostCode::invalidArgument, "there is nothing written that could be committed");
    }
    ring.advance(static_cast<std::size_t>(samples));
    if (onFull && ring.isFull()) {
        onFull();
    }
    return HostCode::success;
}

HostResult StationChannel::getRateDivider(std::int32_t* divider) {
    *divider = 1;
    return HostCode::success;
}

HostResult StationChannel::addVariantValue(double seconds, const HostVariant& value) {
    return guarded([&] {
        if (type != variantType || value.type != HostVariantType::ByteArray) {
            return fail(HostCode::invalidArgument,
                        "only a byte array, and only to a channel of data type 12, can be added");
        }
        const std::uint8_t* bytes = nullptr;
        std::uint64_t size = 0;
        callHost(value.bytes, &HostByteArray::getBytes, &bytes, &size);
        ensureBuffers();
        if (onFull && variants.isFullFor(static_cast<std::size_t>(size))) {
            onFull();
        }
        if (!variants.add(bytes, static_cast<std::size_t>(size), seconds)) {
            return fail(HostCode::outOfMemory,
                        fmt::format("a sample of {} bytes is too large for its channel", size));
        }
        return HostCode::success;
    });
}

HostResult StationChannel::scaleValue(double raw, double* scaled) {
    *scaled = raw;
    return HostCode::success;
}

HostResult StationChannel::getScale(double* scale) {
    *scale = 1.0;
    return HostCode::success;
}

HostResult StationChannel::getOffset(double* result) {
    *result = 0.0;
    return HostCode::success;
}

HostResult StationChannel::allocateBuffers(HostBool) {
    return guarded([&] {
        ensureBuffers();
        return HostCode::success;
    });
}

HostResult StationChannel::releaseBuffers() {
    ring.release();
    variants.release();
    allocated = false;
    return HostCode::success;
}

}  // namespace station
