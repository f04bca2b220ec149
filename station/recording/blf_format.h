#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// The layout of a .blf file, little-endian throughout, as tshark and python-can take it.
///
///     file      "LOGG", header of 144 bytes, then objects
///     object    "LOBJ", u16 size of its header, u16 version of its header, u32 size, u32 type;
///               there may be filling up to the next one, mostly as many bytes as the size is over
///               a multiple of 4
///     container an object (type 10) with a header of 16 bytes, then u16 method (0 as it is, 2
///               zlib), 6 bytes, u32 size of its objects, 4 bytes, its objects; one of them may go
///               on in the next container
///
/// Objects with a time, which are in containers, go on behind their first 16 bytes, in header
/// version 1, with u32 unit (1: 10 us, 2: 1 ns), u16 client, u16 version, u64 time since the file's
/// start; what is theirs follows where the header ends. Version 2 has the time at the same place.
///
/// The header's two times are eight u16 each: year, month, day of the week from Sunday on, day,
/// hour, minute, second, millisecond. They are in the local time of whoever wrote the file, which
/// it doesn't name.
namespace station::blf {

inline constexpr char fileMark[] = "LOGG";
inline constexpr char objectMark[] = "LOBJ";
inline constexpr std::size_t markSize = 4;
inline constexpr std::size_t mostFilling = 8;

/// Where things are in the file's header.
namespace file_header {
inline constexpr std::size_t ownSize = 4;            // u32
inline constexpr std::size_t formatVersion = 12;     // four bytes; behind the writing program's
inline constexpr std::size_t fileSize = 16;          // u64
inline constexpr std::size_t uncompressedSize = 24;  // u64, with the headers of the containers
inline constexpr std::size_t objects = 32;           // u32, without containers
inline constexpr std::size_t start = 40;
inline constexpr std::size_t end = 56;
inline constexpr std::size_t leastSize = 72;
inline constexpr std::size_t size = 144;
}  // namespace file_header

/// Where things are in an object.
namespace object {
inline constexpr std::size_t headerSize = 4;     // u16
inline constexpr std::size_t headerVersion = 6;  // u16
inline constexpr std::size_t size = 8;           // u32, with the header
inline constexpr std::size_t type = 12;          // u32
inline constexpr std::size_t baseSize = 16;
inline constexpr std::size_t timeUnit = 16;  // u32
inline constexpr std::size_t time = 24;      // u64
inline constexpr std::size_t content = 32;   // of header version 1
}  // namespace object

namespace container {
inline constexpr std::size_t method = 16;            // u16
inline constexpr std::size_t uncompressedSize = 24;  // u32
inline constexpr std::size_t content = 32;
inline constexpr std::uint16_t stored = 0;
inline constexpr std::uint16_t zlib = 2;
}  // namespace container

enum class Type : std::uint32_t {
    Can = 1,
    CanError = 2,
    Container = 10,
    Lin = 11,
    LinErrorFirst = 12,
    LinErrorLast = 21,
    Lin2 = 57,
    LinError2First = 58,
    LinError2Last = 62,
    Text = 65,
    CanErrorExtended = 73,
    Can2 = 86,
    CanFd = 100,
    CanFd64 = 101,
    CanFdError64 = 104
};

inline constexpr std::uint32_t tenMicroseconds = 1;
inline constexpr std::uint32_t nanoseconds = 2;

/// In the content of the objects of types 1, 86 and 100.
namespace can {
inline constexpr std::size_t channel = 0;  // u16, from 1 on
inline constexpr std::size_t flags = 2;    // u8
inline constexpr std::size_t code = 3;     // u8; the length, by CAN FD's codes
inline constexpr std::size_t id = 4;       // u32, with bit 31 set: extended
inline constexpr std::size_t data = 8;     // 8 bytes; of type 100 elsewhere
inline constexpr std::size_t contentSize = 16;
inline constexpr std::uint8_t remote = 0x80;
inline constexpr std::uint32_t extended = 0x80000000;
}  // namespace can

namespace can_fd {
inline constexpr std::size_t fdFlags = 13;  // u8; 1 CAN FD, 2 bit rate switched, 4 error state
inline constexpr std::size_t length = 14;   // u8; bytes of data that are there
inline constexpr std::size_t data = 20;     // 64 bytes
inline constexpr std::size_t contentSize = 84;
inline constexpr std::uint8_t isFd = 1;
}  // namespace can_fd

namespace can_fd64 {
inline constexpr std::size_t channel = 0;  // u8
inline constexpr std::size_t length = 2;   // u8
inline constexpr std::size_t id = 4;       // u32
inline constexpr std::size_t flags = 12;   // u32
inline constexpr std::size_t data = 40;    // as long as it is
inline constexpr std::uint32_t remote = 0x10;
}  // namespace can_fd64

/// In the content of the objects of types 11 and 57.
struct LinPlaces {
    std::size_t channel;   // u16
    std::size_t id;        // u8
    std::size_t length;    // u8
    std::size_t data;      // 8 bytes
    std::size_t checksum;  // u16
    std::size_t leastSize;
};
inline constexpr LinPlaces lin = {0, 2, 3, 4, 16, 20};
inline constexpr LinPlaces lin2 = {12, 37, 38, 112, 120, 124};
inline constexpr std::size_t linContentSize = 24;  // of type 11

/// A text, in bytes up to a zero or its end. That of a channel is "DATABASE;NAME;...".
namespace text {
inline constexpr std::size_t source = 0;   // u32
inline constexpr std::size_t details = 4;  // u32; of a channel: bits 8-15 its number, 16-23 its bus
inline constexpr std::size_t length = 8;   // u32
inline constexpr std::size_t content = 16;
inline constexpr std::uint32_t comment = 0;
inline constexpr std::uint32_t ofChannel = 1;
inline constexpr std::uint32_t busCan = 1;
inline constexpr std::uint32_t busLin = 5;
inline constexpr std::size_t mostChannel = 255;
}  // namespace text

/// What our comments begin with. Behind it is when the file begins, and exactly so:
///
///     cmp-station: start 1700000000123 ms since 1970 UTC
///
/// or the name of a channel, where the text that other programs read can't hold it:
///
///     cmp-station: channel 300 CAN NAME
///
/// or the origin of the messages, for people.
inline constexpr char originComment[] = "cmp-station: ";
inline constexpr char startComment[] = "cmp-station: start ";
inline constexpr char channelComment[] = "cmp-station: channel ";
inline constexpr char countsComment[] = "cmp-station: counts ";

inline bool hasMark(const std::uint8_t* at, const char* mark) {
    return std::memcmp(at, mark, markSize) == 0;
}

inline void put16(std::uint8_t* at, std::uint32_t value) {
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}
inline void put32(std::uint8_t* at, std::uint32_t value) {
    put16(at, value);
    put16(at + 2, value >> 16);
}
inline void put64(std::uint8_t* at, std::uint64_t value) {
    put32(at, static_cast<std::uint32_t>(value));
    put32(at + 4, static_cast<std::uint32_t>(value >> 32));
}
inline std::uint32_t get16(const std::uint8_t* at) {
    return at[0] | static_cast<std::uint32_t>(at[1]) << 8;
}
inline std::uint32_t get32(const std::uint8_t* at) {
    return get16(at) | get16(at + 2) << 16;
}
inline std::uint64_t get64(const std::uint8_t* at) {
    return get32(at) | static_cast<std::uint64_t>(get32(at + 4)) << 32;
}

}  // namespace station::blf
