#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

/// The records that a host finds in the plug-in's channels, in the host's byte order.

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
