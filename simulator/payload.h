#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sim {

/// What a simulated bus message carries, so that any recording tells loss, doubles and order:
///
/// | Bytes | Content |
/// |---|---|
/// | 0 to 3 | running number of the channel from 0, little-endian; of shorter data its low bytes |
/// | 4 to 11 | with stamps, and in data of 12 bytes and more: host time in ns, little-endian |
/// | behind | (running number + interface ID + position) modulo 256 |
///
/// The identifier follows from interface ID and running number too.
struct DataMessage {
    std::uint16_t interfaceId = 0;
    std::uint8_t length = 0;
    std::uint32_t number = 0;
    std::uint64_t timestamp = 0;  ///< device time, ns
    std::uint64_t hostTime = 0;   ///< the stamp, ns; 0: none
};

constexpr std::uint32_t extendedIdentifier = 0x80000000;

/// Of four messages three have a standard identifier, 0x100 + 4 * interface ID + number % 4, and
/// the fourth the 29-bit one 0x18DA00F1 + 0x100 * interface ID, with `extendedIdentifier` set.
std::uint32_t canIdentifier(std::uint16_t interfaceId, std::uint32_t number);

/// (interface ID + number) % 60: all identifiers of signal frames in turn.
std::uint8_t linIdentifier(std::uint16_t interfaceId, std::uint32_t number);

/// The identifier with its two parity bits on top.
std::uint8_t protectedLinIdentifier(std::uint8_t identifier);

/// The enhanced checksum: inverted sum with carry over protected identifier and data.
std::uint8_t linChecksum(std::uint8_t protectedIdentifier, std::span<const std::uint8_t> data);

/// Writes `message.length` bytes.
void writeData(std::uint8_t* data, const DataMessage& message);

}  // namespace sim
