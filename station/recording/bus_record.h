#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/bus_record.h"

namespace station {

/// The CAN record of an output channel (`CanFrame`), as a recording needs it.
///
/// What the wire may have put there is made fit for any reader: at most 64 data bytes, an
/// identifier of 29 bits (the bits above are flags in the recordings), and one beyond 11 bits
/// counts as extended, for no format could hold it otherwise. The record doesn't tell CAN FD from
/// classic CAN: more than 8 bytes are FD.
struct CanRecord {
    static constexpr std::size_t size = sizeof(CanFrame);
    static constexpr std::size_t mostData = CanFrame::mostData;
    static constexpr std::size_t mostClassicData = 8;

    explicit CanRecord(const void* record) {
        const auto* bytes = static_cast<const std::uint8_t*>(record);
        std::uint32_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        id = word & CanFrame::identifierMask;
        extended = bytes[offsetof(CanFrame, extended)] != 0 || id > 0x7FFU;
        length = std::min<std::size_t>(bytes[offsetof(CanFrame, length)], mostData);
        data = bytes + offsetof(CanFrame, data);
    }

    bool isFd() const { return length > mostClassicData; }

    std::uint32_t id;
    bool extended;
    std::size_t length;
    const std::uint8_t* data;  // 64 bytes, in the caller's record
};

/// The LIN record of an output channel (`LinFrame`), the same way.
struct LinRecord {
    static constexpr std::size_t size = sizeof(LinFrame);
    static constexpr std::size_t mostData = LinFrame::mostData;

    explicit LinRecord(const void* record) {
        const auto* bytes = static_cast<const std::uint8_t*>(record);
        id = static_cast<std::uint32_t>(bytes[0]) & LinFrame::identifierMask;
        length = std::min<std::size_t>(bytes[offsetof(LinFrame, length)], mostData);
        data = bytes + offsetof(LinFrame, data);
        checksum = bytes[offsetof(LinFrame, checksum)];
    }

    std::uint32_t id;
    std::size_t length;
    const std::uint8_t* data;  // 8 bytes, in the caller's record
    std::uint8_t checksum;
};

}  // namespace station
