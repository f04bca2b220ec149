#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "host/bus_record.h"

namespace station {

/// The CAN record of an output channel (`CanFrame`), as a recording needs it.
///
/// What the wire may have put there is made fit for any reader: at most 64 data bytes, an
/// identifier of 29 bits (the bits above are flags in the recordings), and one beyond 11 bits
/// counts as extended, for no format could hold it otherwise. The record doesn't distinguish CAN FD
/// from classic CAN: more than 8 bytes are FD.
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
    /// The data length code. Of a length that no CAN FD frame has (9, 10, 11, 13, ...) that of the
    /// next one that there is.
    std::uint8_t getLengthCode() const { return codeOf(length); }
    static std::uint8_t codeOf(std::size_t length) {
        const std::size_t code = length <= mostClassicData ? length
                                 : length <= 24            ? 6 + (length + 3) / 4
                                                           : 11 + (length + 15) / 16;
        return static_cast<std::uint8_t>(code);
    }
    /// The length of that code; `data` is zero behind the data bytes.
    std::size_t getFilledLength() const { return lengthOfCode[getLengthCode()]; }

    static constexpr std::uint8_t lengthOfCode[] = {0, 1,  2,  3,  4,  5,  6,  7,
                                                    8, 12, 16, 20, 24, 32, 48, 64};

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

    enum class ChecksumModel { Unknown, Classic, Enhanced };  ///< numbered as pcapng has them

    /// The identifier with its two parity bits: P0 over bits 0, 1, 2, 4; P1, inverted, over 1, 3,
    /// 4, 5.
    std::uint32_t getProtectedId() const {
        const std::uint32_t p0 = (id ^ (id >> 1) ^ (id >> 2) ^ (id >> 4)) & 1U;
        const std::uint32_t p1 = ~((id >> 1) ^ (id >> 3) ^ (id >> 4) ^ (id >> 5)) & 1U;
        return id | p0 << 6 | p1 << 7;
    }

    /// Which of LIN's two checksums the frame carries: that over the data or that over the
    /// protected identifier too. They can't coincide.
    ChecksumModel getChecksumModel() const {
        std::uint32_t sum = 0;
        for (std::size_t i = 0; i < length; ++i) {
            sum += data[i];
        }
        const auto matches = [&](std::uint32_t total) {
            while (total > 0xFFU) {
                total = (total & 0xFFU) + (total >> 8);
            }
            return (total ^ 0xFFU) == checksum;
        };
        return matches(sum)                      ? ChecksumModel::Classic
               : matches(sum + getProtectedId()) ? ChecksumModel::Enhanced
                                                 : ChecksumModel::Unknown;
    }

    std::uint32_t id;
    std::size_t length;
    const std::uint8_t* data;  // 8 bytes, in the caller's record
    std::uint8_t checksum;
};

/// The data bytes: "01 02 FF".
std::string dataText(std::span<const std::uint8_t> data);
/// "0x123(ext): 01 02", and of a LIN frame "17: 01 02": as the plug-in's windows show them.
std::string toText(const CanRecord& record);
std::string toText(const LinRecord& record);

}  // namespace station
