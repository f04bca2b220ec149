#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>

/// What those who read or write .pcapng files share.
namespace station::pcapng {

enum BlockType : std::uint32_t {
    interfaceDescription = 1,
    oldPacket = 2,
    simplePacket = 3,
    enhancedPacket = 6,
    sectionHeader = 0x0A0D0D0A,
};
enum OptionCode : std::uint16_t {
    endOfOptions = 0,
    interfaceName = 2,
    timeResolution = 9,
    timeOffset = 14,
};
inline constexpr std::uint32_t byteOrderMagic = 0x1A2B3C4D;
inline constexpr std::size_t blockHeadSize = 8;
inline constexpr std::size_t blockTailSize = 4;

inline constexpr std::uint16_t linkTypeEthernet = 1;
inline constexpr std::uint16_t linkTypeLin = 212;  ///< LINKTYPE_LIN
inline constexpr std::uint16_t linkTypeCan = 227;  ///< LINKTYPE_CAN_SOCKETCAN

/// Data and options are filled to words.
constexpr std::size_t padded(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

/// Reads the numbers of a section in its byte order.
struct Numbers {
    bool isSwapped = false;  ///< they are big-endian

    std::uint16_t get16(const std::uint8_t* at) const {
        std::uint16_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return isSwapped ? __builtin_bswap16(value) : value;
    }
    std::uint32_t get32(const std::uint8_t* at) const {
        std::uint32_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return isSwapped ? __builtin_bswap32(value) : value;
    }
    std::uint64_t get64(const std::uint8_t* at) const {
        std::uint64_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return isSwapped ? __builtin_bswap64(value) : value;
    }
    /// Takes over the byte order of the section with that header. False if it doesn't say it.
    bool beginSection(const std::uint8_t* header) {
        isSwapped = Numbers{true}.get32(header + blockHeadSize) == byteOrderMagic;
        return get32(header + blockHeadSize) == byteOrderMagic;
    }
    /// Calls `take(code, value)` for each option, up to the end of those that are whole.
    template <typename Take>
    void forEachOption(std::span<const std::uint8_t> options, const Take& take) const {
        constexpr std::size_t head = 4;
        while (options.size() >= head) {
            const std::uint16_t code = get16(options.data());
            const std::size_t size = get16(&options[2]);
            if (code == endOfOptions || size > options.size() - head) {
                return;
            }
            take(code, options.subspan(head, size));
            options = options.subspan(std::min(options.size(), head + padded(size)));
        }
    }
};

/// How an interface counts the times of its packets.
struct TimeScale {
    std::uint8_t resolution = 6;  ///< units of 10^-n or, with the top bit, 2^-n seconds
    std::int64_t offset = 0;      ///< seconds

    /// An option of the interface, which may be another one.
    void take(const Numbers& numbers, std::uint16_t code, std::span<const std::uint8_t> value) {
        if (code == timeResolution && value.size() == 1) {
            resolution = value[0];
        } else if (code == timeOffset && value.size() == 8) {
            offset = static_cast<std::int64_t>(numbers.get64(value.data()));
        }
    }
    /// Of a packet in nanoseconds since 1970; `at` are the two words of its time.
    std::int64_t readTime(const Numbers& numbers, const std::uint8_t* at) const {
        return toNanoseconds(std::uint64_t{numbers.get32(at)} << 32U | numbers.get32(at + 4));
    }
    std::int64_t toNanoseconds(std::uint64_t count) const {
        using Wide = __int128;
        constexpr unsigned top = 0x80;
        constexpr Wide perSecond = 1'000'000'000;
        constexpr unsigned nano = 9;
        constexpr unsigned widest = 96;  // bits of the product below
        if (resolution == nano && offset == 0 && count >> 63U == 0) {
            return static_cast<std::int64_t>(count);
        }
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
        time += offset * perSecond;
        return static_cast<std::int64_t>(
            std::clamp<Wide>(time, 0, std::numeric_limits<std::int64_t>::max()));
    }
};

}  // namespace station::pcapng
