#include "bridge/output/add_data.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "bridge/output/host_reads.h"
#include "bridge/output/sample_bytes.h"
#include "bridge/output/sample_value.h"

namespace Kestrova::Utils::Kcom::OutputChannel {
namespace {

/// Sizes and places in a buffer are formed in 32 bits and wrap there.
std::int32_t times32(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

void copy(std::byte* to, const void* data, std::uint64_t size) {
    if (size != 0) {
        std::memcpy(to, data, size);
    }
}

/// The smaller of the two; a negative limit leaves nothing.
std::uint64_t clamped(std::uint64_t size, std::int32_t limit) {
    return std::min(size, static_cast<std::uint64_t>(std::max(limit, 0)));
}

}  // namespace

void AddDataDirect::setValueRaw(const void* data, std::uint64_t size) {
    copy(dataBuffer(), data, size);
}

void AddDataDirect::setValueRawClamped(const void* data, std::uint64_t size) {
    copy(dataBuffer(), data, clamped(size, sampleSize()));
}

void AddDataDirect::addSynchronousSample(const void* data, std::uint64_t size) {
    const std::int32_t position = hostValue(channel, &HostChannel::getWritePosition);
    const std::int32_t element = hostValue(channel, &HostChannel::getElementSize);
    copy(dataBuffer() + times32(element, position), data, size);
    callHost(channel, &HostChannel::advanceWritePosition, 1);
}

void AddDataDirect::addAsynchronousSample(const void* data, std::uint64_t size, double time) {
    const std::int32_t position = hostValue(channel, &HostChannel::getWritePosition);
    const std::int32_t element = hostValue(channel, &HostChannel::getElementSize);
    copy(dataBuffer() + times32(element, position), data, size);
    writeTime(position, time);
    callHost(channel, &HostChannel::advanceWritePosition, 1);
}

void AddDataDirect::addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) {
    const std::int32_t position = hostValue(channel, &HostChannel::getWritePosition);
    const std::int32_t block = sampleSize();
    copy(dataBuffer() + std::int64_t{position} * block, data, clamped(size, block));
    writeTime(position, time);
    callHost(channel, &HostChannel::advanceWritePosition, 1);
}

void AddDataDirect::addVariantSample(const void* data, std::uint64_t size, double time) {
    const auto bytes = orOutOfMemory([&] { return SampleBytes::make(data, size); });
    HostVariant value;
    value.type = HostVariantType::ByteArray;
    value.bytes = bytes.get();
    callHost(channel, &HostChannel::addVariantValue, time, value);
}

std::byte* AddDataDirect::dataBuffer() const {
    void* const buffer = hostValue(channel, &HostChannel::getDataBuffer);
    if (buffer == nullptr) {
        raiseHostError(HostCode::invalidPointer);
    }
    return static_cast<std::byte*>(buffer);
}

void AddDataDirect::writeTime(std::int32_t position, double time) const {
    double* const times = hostValue(channel, &HostChannel::getTimeBuffer);
    if (times == nullptr) {
        raiseHostError(HostCode::invalidPointer);
    }
    times[position] = time;
}

std::int32_t AddDataDirect::sampleSize() const {
    return times32(hostValue(channel, &HostChannel::getArraySize),
                   hostValue(channel, &HostChannel::getElementSize));
}

bool AddDataInSetup::takeLiveValue(const void* data, std::uint64_t size) {
    const double raw = sampleValue(hostValue(channel, &HostChannel::getDataType), data, size);
    lastValue = hostValue(channel, &HostChannel::scaleValue, raw);
    return hostFlagOf(channel, &HostChannel::isUsed);
}

void AddDataInSetup::setValueRaw(const void* data, std::uint64_t size) {
    if (takeLiveValue(data, size)) {
        direct.setValueRaw(data, size);
    }
}

void AddDataInSetup::setValueRawClamped(const void* data, std::uint64_t size) {
    if (takeLiveValue(data, size)) {
        direct.setValueRawClamped(data, size);
    }
}

void AddDataInSetup::addSynchronousSample(const void* data, std::uint64_t size) {
    if (takeLiveValue(data, size)) {
        direct.addSynchronousSample(data, size);
    }
}

void AddDataInSetup::addAsynchronousSample(const void* data, std::uint64_t size, double time) {
    if (takeLiveValue(data, size)) {
        direct.addAsynchronousSample(data, size, time);
    }
}

void AddDataInSetup::addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) {
    if (takeLiveValue(data, size)) {
        direct.addAsynchronousBlockSample(data, size, time);
    }
}

void AddDataInSetup::addVariantSample(const void* data, std::uint64_t size, double time) {
    if (takeLiveValue(data, size)) {
        direct.addVariantSample(data, size, time);
    }
}

std::unique_ptr<IAddData> selectAddData(const CountedRef<HostChannel>& channel,
                                        const CountedRef<HostApp>& app) {
    if (!channel) {
        return nullptr;
    }
    if (hostFlagOf(app, &HostApp::isSetupMode)) {
        return std::make_unique<AddDataInSetup>(channel);
    }
    if (hostFlagOf(channel, &HostChannel::isUsed)) {
        return std::make_unique<AddDataDirect>(channel);
    }
    return std::make_unique<AddDataEmpty>(channel);
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
