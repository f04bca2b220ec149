#pragma once

#include "station/host/counted.h"
#include "station/host/station_channel.h"
#include "tests/support/manual_counter.h"

namespace station {

class Bytes final : public Counted<HostByteArray> {
  public:
    explicit Bytes(std::string text) : content(std::move(text)) {}
    HostResult getBytes(const std::uint8_t** data, std::uint64_t* size) override {
        *data = reinterpret_cast<const std::uint8_t*>(content.data());
        *size = content.size();
        return HostCode::success;
    }

  private:
    const std::string content;
};

inline HostResult addBytes(StationChannel& channel, const std::string& text, double time) {
    const auto bytes = makeObject<Bytes>(text);
    HostVariant value;
    value.type = HostVariantType::ByteArray;
    value.bytes = bytes.get();
    return channel.addVariantValue(time, value);
}

/// Adds a sample as a plug-in does: at the write position of the buffers.
inline void addSample(StationChannel& channel, const void* sample, std::size_t size, double time) {
    void* data = nullptr;
    double* times = nullptr;
    std::int32_t position = -1;
    channel.getDataBuffer(&data);
    channel.getTimeBuffer(&times);
    channel.getWritePosition(&position);
    const auto place = static_cast<std::size_t>(position);
    std::memcpy(static_cast<std::uint8_t*>(data) + place * size, sample, size);
    if (times != nullptr) {
        times[place] = time;
    }
    channel.advanceWritePosition(1);
}

}  // namespace station
