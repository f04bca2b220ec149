#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "station/recording/recording.h"
#include "station/view/message_store.h"

namespace station {

/// A message as it is shown.
struct BusMessage {
    static constexpr std::size_t mostData = 64;

    std::size_t channel = 0;  ///< position in `LiveFeed::getChannels`
    std::int64_t utc = 0;     ///< nanoseconds since 1970
    BusType bus = BusType::Can;
    std::uint32_t id = 0;
    bool isExtended = false;
    std::size_t length = 0;  ///< data bytes
    std::array<std::uint8_t, mostData> data = {};

    BusMessage() = default;
    BusMessage(const StoredMessage& message, BusType busType);

    /// The same for messages of one channel and identifier alone.
    std::uint64_t key() const { return keyOf(channel, id, isExtended); }
    static std::uint64_t keyOf(std::size_t channel, std::uint32_t id, bool isExtended) {
        return std::uint64_t{channel} << 32 | std::uint64_t{isExtended} << 31 | id;
    }
};

/// "123" for 11 bits and LIN, "18DA00F1x" for 29 bits: as the filter takes them, but for the x.
std::string identifierText(const BusMessage& message);
/// The data bytes in hexadecimal.
std::string dataText(const BusMessage& message);
/// As far as the records say: whether it is longer than any other.
bool isFd(const BusMessage& message);
/// "FD" or "ext" or both, or nothing: what the records say.
std::string flagsText(const BusMessage& message);

}  // namespace station
