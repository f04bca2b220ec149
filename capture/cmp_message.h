#pragma once

#include <cstddef>
#include <cstdint>

/// Time of a capture module's own clock.
struct DeviceTime {
    std::uint64_t seconds = 0;
    std::int32_t nanoseconds = 0;  ///< 0 to 999999999

    friend bool operator==(const DeviceTime&, const DeviceTime&) = default;
};

/// Header of one message, the same for both framings, in host byte order.
///
/// One record serves a whole read pass and isn't cleared between messages: an ASAM CMP message of a
/// type that isn't mapped keeps the `messageType` of the message before it.
struct CmpHeader {
    std::uint16_t cmId = 0;     ///< capture module ID, the key of the device
    std::uint16_t counter = 0;  ///< sequence counter, shown by the text dump only
    std::uint8_t version = 0;   ///< TECMP only
    std::uint8_t messageType = 0;
    std::uint16_t dataType = 0;  ///< as sent in TECMP; 2 for ASAM CMP data
    std::uint16_t reserved = 0;
    std::uint16_t deviceFlags = 0;
    std::uint32_t channelId = 0;   ///< interface on the module; its lower 16 bits count
    std::uint64_t timestamp = 0;   ///< nanoseconds of device time; the top bit isn't time
    std::uint16_t dataLength = 0;  ///< payload, bytes
    std::uint16_t dataFlags = 0;
    bool isAsam = false;

    friend bool operator==(const CmpHeader&, const CmpHeader&) = default;
};

/// Values of `CmpHeader::messageType`.
namespace MessageType {
inline constexpr std::uint8_t cmStatus = 1;
inline constexpr std::uint8_t busStatus = 2;
inline constexpr std::uint8_t data = 3;
}  // namespace MessageType

/// Capture module status, laid out as on the wire (85 bytes) and in host byte order.
struct CmStatus {
    static constexpr std::size_t wireSize = 85;

    std::uint8_t vendorId = 0;
    std::uint8_t cmVersion = 0;
    std::uint8_t cmType = 0;
    std::uint8_t reserved = 0;
    std::uint16_t vendorDataLength = 0;
    std::uint16_t cmId = 0;
    std::uint32_t serialNumber = 0;
    std::uint8_t vendorData12[8] = {};
    std::uint32_t vendorData20 = 0;
    std::uint64_t vendorData24 = 0;
    std::uint8_t vendorData32[3] = {};
    /// Serial number as text, up to a zero byte, which is always there. From TECMP it holds vendor
    /// bytes as they came.
    char serialText[50] = {};
};
static_assert(offsetof(CmStatus, cmId) == 6 && offsetof(CmStatus, vendorData24) == 24);
static_assert(offsetof(CmStatus, serialText) + sizeof(CmStatus::serialText) == CmStatus::wireSize);

/// Bus status of one interface: the 12 header bytes of the message and one of its records.
struct BusStatus {
    std::uint8_t vendorId = 0;
    std::uint8_t cmVersion = 0;
    std::uint8_t cmType = 0;
    std::uint8_t reserved = 0;
    std::uint16_t vendorDataLength = 0;
    std::uint16_t cmId = 0;
    std::uint32_t serialNumber = 0;
    std::uint32_t interfaceId = 0;  ///< its lower 16 bits name the channel
    std::uint32_t messageCount = 0;
    std::uint32_t errorCount = 0;
    std::uint8_t vendorData24[2] = {};
    std::uint16_t vendorData26 = 0;
};
static_assert(offsetof(BusStatus, interfaceId) == 12 && sizeof(BusStatus) == 28);
