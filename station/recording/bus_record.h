#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace station {

/// The CAN record of an output channel, 72 bytes, as a recording needs it.
///
/// | Offset | Width | Field                                    |
/// |--------|-------|------------------------------------------|
/// | 0      | 4     | identifier, host byte order              |
/// | 4      | 1     | 1: extended identifier                   |
/// | 5      | 2     | 0                                        |
/// | 7      | 1     | number of data bytes                     |
/// | 8      | 64    | data, zero behind the last byte          |
///
/// What the wire may have put there is made fit for any reader: at most 64 data bytes, an
/// identifier of 29 bits (the bits above are flags in the recordings), and one beyond 11 bits
/// counts as extended, for no format could hold it otherwise. The record doesn't tell CAN FD from
/// classic CAN: more than 8 bytes are FD.
struct CanRecord {
    static constexpr std::size_t size = 72;
    static constexpr std::size_t mostData = 64;
    static constexpr std::size_t mostClassicData = 8;

    explicit CanRecord(const void* record) {
        const auto* bytes = static_cast<const std::uint8_t*>(record);
        std::uint32_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        id = word & 0x1FFFFFFFU;
        extended = bytes[4] != 0 || id > 0x7FFU;
        length = std::min<std::size_t>(bytes[7], mostData);
        data = bytes + 8;
    }

    bool isFd() const { return length > mostClassicData; }

    std::uint32_t id;
    bool extended;
    std::size_t length;
    const std::uint8_t* data;  // 64 bytes, in the caller's record
};

/// The LIN record of an output channel, 13 bytes.
///
/// | Offset | Width | Field                            |
/// |--------|-------|----------------------------------|
/// | 0      | 1     | frame identifier, 6 bits         |
/// | 1      | 1     | number of data bytes             |
/// | 2      | 2     | unused                           |
/// | 4      | 8     | data, zero behind the last byte  |
/// | 12     | 1     | checksum                         |
struct LinRecord {
    static constexpr std::size_t size = 13;
    static constexpr std::size_t mostData = 8;

    explicit LinRecord(const void* record) {
        const auto* bytes = static_cast<const std::uint8_t*>(record);
        id = bytes[0] & 0x3FU;
        length = std::min<std::size_t>(bytes[1], mostData);
        data = bytes + 4;
        checksum = bytes[12];
    }

    std::uint32_t id;
    std::size_t length;
    const std::uint8_t* data;  // 8 bytes, in the caller's record
    std::uint8_t checksum;
};

}  // namespace station
