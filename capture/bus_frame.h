#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/bus_record.h"

/// How the records that reach the host come out of a TECMP data payload (docs/wire.md).

/// Whether a payload of `length` bytes is a whole message that fits into the record: at most 64
/// data bytes for CAN, at most 8 for LIN. Only such a payload may go to `decodeFrame`.
template <class Frame>
bool holdsFrame(const std::uint8_t* payload, std::uint32_t length);

template <>
inline bool holdsFrame<CanFrame>(const std::uint8_t* payload, std::uint32_t length) {
    constexpr std::uint32_t dataAt = 5;
    return length >= dataAt && payload[4] <= CanFrame::mostData && length >= payload[4] + dataAt;
}

template <>
inline bool holdsFrame<LinFrame>(const std::uint8_t* payload, std::uint32_t length) {
    constexpr std::uint32_t dataAt = 2;
    constexpr std::uint32_t checksumSize = 1;
    return length >= dataAt && payload[1] <= LinFrame::mostData &&
           length >= payload[1] + dataAt + checksumSize;
}

/// Copies a message's few bytes without a call, in whole words where there are any; the last word
/// may overlap the one before.
inline void copyData(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    constexpr std::size_t word = sizeof(std::uint64_t);
    if (count < word) {
        for (std::size_t i = 0; i < count; ++i) {
            to[i] = from[i];
        }
        return;
    }
    for (std::size_t i = 0; i + word < count; i += word) {
        std::memcpy(to + i, from + i, word);
    }
    std::memcpy(to + count - word, from + count - word, word);
}

/// Decodes a payload into a cleared record. Returns how many bytes of it, from the start, may now
/// be other than zero.
inline std::size_t decodeFrame(const std::uint8_t* payload, CanFrame& frame) {
    const std::uint32_t identifier = std::uint32_t{payload[0]} << 24 |
                                     std::uint32_t{payload[1]} << 16 |
                                     std::uint32_t{payload[2]} << 8 | payload[3];
    const std::uint8_t length = payload[4];
    frame.id = identifier & CanFrame::identifierMask;
    frame.extended = static_cast<std::uint8_t>(identifier >> 31);
    frame.length = length;
    copyData(frame.data, payload + 5, length);
    return offsetof(CanFrame, data) + length;
}

inline std::size_t decodeFrame(const std::uint8_t* payload, LinFrame& frame) {
    const std::uint8_t length = payload[1];
    frame.id = payload[0] & LinFrame::identifierMask;
    frame.length = length;
    copyData(frame.data, payload + 2, length);
    frame.checksum = payload[2 + length];
    return sizeof(LinFrame);
}
