#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// One data message as a strict receiver reads it.
struct ReadMessage {
    std::uint32_t interfaceId;
    std::uint64_t timestamp;
    std::uint32_t number;  ///< the first four data bytes, little-endian
};

/// The data messages in one Ethernet frame, by a reading of the formats of its own: whatever
/// doesn't fit is refused. `lin`: the sender's buses.
inline std::vector<ReadMessage> readStrictly(std::span<const std::uint8_t> frame, bool lin) {
    const auto number = [&](std::size_t at, std::size_t bytes) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            value = value << 8 | frame[at + i];
        return value;
    };
    std::vector<ReadMessage> messages;
    const auto take = [&](std::uint64_t channel, std::uint64_t time, std::size_t data,
                          std::size_t length) {
        std::uint32_t running = 0;
        for (std::size_t i = 0; i < length && i < 4; ++i)
            running |= static_cast<std::uint32_t>(frame[data + i]) << (8 * i);
        messages.push_back({static_cast<std::uint32_t>(channel), time, running});
    };
    if (frame.size() < 42 || number(12, 2) != 0x99FE)
        return messages;
    if (frame[14] != 0) {
        const std::uint64_t payload = number(36, 2);
        if (frame[18] == 1 && payload >= 16 && payload + 38 <= frame.size() && frame[52] > 0 &&
            frame[52] <= 64 && frame[52] + 16U <= payload)
            take(number(30, 4), number(22, 8), 54, frame[52]);
        return messages;
    }
    const std::size_t lengthAt = lin ? 1 : 4;
    const std::size_t behind = lin ? 1 : 2;
    for (std::size_t k = 26; k + 16 <= frame.size();) {
        const std::size_t payload = number(k + 12, 2);
        const std::size_t start = k + 16;
        if (payload <= lengthAt || start + payload > frame.size() || frame[19] != 3)
            break;
        const std::size_t length = frame[start + lengthAt];
        if (length <= (lin ? 8U : 64U) && lengthAt + 1 + length + behind <= payload)
            take(number(k, 4), number(k + 4, 8), start + lengthAt + 1, length);
        k = start + payload;
    }
    return messages;
}
