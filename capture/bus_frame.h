#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// The records that reach the host, and how they come out of a TECMP data payload (docs/wire.md).
/// Their layout is part of the interface to the host.

/// A CAN or CAN FD message, 72 bytes.
struct CanFrame {
    static constexpr std::uint32_t identifierMask = 0x1FFFFFFF;
    static constexpr std::size_t mostData = 64;

    std::uint32_t id = 0;       ///< identifier, bits 0 to 28
    std::uint8_t extended = 0;  ///< 1: 29-bit identifier
    std::uint8_t zero5 = 0;
    std::uint8_t zero6 = 0;
    std::uint8_t length = 0;           ///< data bytes; not a DLC code
    std::uint8_t data[mostData] = {};  ///< zero behind the last data byte
};
static_assert(sizeof(CanFrame) == 72 && offsetof(CanFrame, length) == 7);
static_assert(offsetof(CanFrame, data) == 8 && std::is_trivially_copyable_v<CanFrame>);

/// A LIN message, 13 bytes.
struct LinFrame {
    static constexpr std::uint8_t identifierMask = 0x3F;
    static constexpr std::size_t mostData = 8;

    std::uint8_t id = 0;      ///< frame identifier without its parity bits
    std::uint8_t length = 0;  ///< data bytes
    std::uint8_t zero2[2] = {};
    std::uint8_t data[mostData] = {};  ///< zero behind the last data byte
    std::uint8_t checksum = 0;         ///< as on the wire, not verified
};
static_assert(sizeof(LinFrame) == 13 && offsetof(LinFrame, data) == 4);
static_assert(offsetof(LinFrame, checksum) == 12 && std::is_trivially_copyable_v<LinFrame>);

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
