#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace station {

/// Numbers of the .pcapng format that several files need.
namespace pcapng {

enum BlockType : std::uint32_t {
    interfaceDescription = 1,
    oldPacket = 2,
    simplePacket = 3,
    enhancedPacket = 6,
    sectionHeader = 0x0A0D0D0A,
};
inline constexpr std::uint32_t byteOrderMagic = 0x1A2B3C4D;
inline constexpr std::size_t blockHeadSize = 8;
inline constexpr std::size_t blockTailSize = 4;

inline constexpr std::uint16_t linkTypeEthernet = 1;
inline constexpr std::uint16_t linkTypeLin = 212;  ///< LINKTYPE_LIN
inline constexpr std::uint16_t linkTypeCan = 227;  ///< LINKTYPE_CAN_SOCKETCAN

}  // namespace pcapng

/// A time of a .pcapng in nanoseconds: `count` units of 10^-n or, with the top bit of `resolution`,
/// 2^-n seconds.
inline std::int64_t pcapngNanoseconds(std::uint64_t count, std::uint8_t resolution,
                                      std::int64_t offsetSeconds) {
    using Wide = __int128;
    constexpr unsigned top = 0x80;
    constexpr Wide perSecond = 1'000'000'000;
    constexpr unsigned nano = 9;
    constexpr unsigned widest = 96;  // bits of the product below
    const unsigned power = resolution & (top - 1U);
    Wide time = count;
    if ((resolution & top) != 0) {
        time = power < widest ? time * perSecond >> power : 0;
    } else {
        for (unsigned i = power; i < nano; ++i) {
            time *= 10;
        }
        for (unsigned i = nano; i < power && time != 0; ++i) {
            time /= 10;
        }
    }
    time += offsetSeconds * perSecond;
    return static_cast<std::int64_t>(
        std::clamp<Wide>(time, 0, std::numeric_limits<std::int64_t>::max()));
}

}  // namespace station
