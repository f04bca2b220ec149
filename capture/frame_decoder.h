#pragma once

#include <cstdint>

#include "capture/cmp_message.h"

/// Decoding of captured Ethernet frames in ASAM CMP and TECMP framing (docs/wire.md).
///
/// Pure functions without state: the caller owns the frame, the record and the running offset.
/// Nothing is allocated, nothing outside the given lengths is read, nothing is raised.

/// What the decoding functions answer.
namespace DecodeResult {
inline constexpr std::int32_t ok = 0;
inline constexpr std::int32_t invalid = 22;  ///< refused, or the payload runs past the frame's end
inline constexpr std::int32_t noData =
    120;  ///< no room for another message, or a zero length field
}  // namespace DecodeResult

/// Decodes the next message of a frame.
///
/// `frame` holds `frameLength` bytes from the Ethernet header on. `offset` is the running offset: 0
/// (or a null pointer) asks for the first message; after a success it is where the next message
/// header is, counted from the frame's start behind any VLAN tags. On success `payload` points
/// at `header.dataLength` bytes inside `frame`. A refused frame leaves `header` partly overwritten.
std::int32_t parseFrame(const std::uint8_t* frame, std::int32_t frameLength, std::int32_t* offset,
                        CmpHeader& header, const std::uint8_t*& payload);

/// Does what `parseFrame` does for a message behind the first, and looks only at what differs from
/// message to message. `frame` begins behind any VLAN tags; `offset` and `header` are what the call
/// for the message before left, which was a success.
std::int32_t parseNextMessage(const std::uint8_t* frame, std::int32_t frameLength,
                              std::int32_t& offset, CmpHeader& header,
                              const std::uint8_t*& payload);

/// Puts the multi-byte fields of a header that holds wire bytes into host byte order, whatever the
/// framing: in ASAM CMP also those that the framing doesn't carry.
void normalizeHeader(CmpHeader& header);

/// Nanoseconds of device time as seconds and nanoseconds. Bit 63 is thrown away.
DeviceTime splitTimestamp(std::uint64_t timestamp);

/// Decodes a TECMP capture module status of `header.dataLength` bytes.
std::int32_t decodeCmStatus(const CmpHeader& header, const std::uint8_t* payload, CmStatus& status);

/// Decodes the next record of a TECMP bus status of `header.dataLength` bytes. `offset` runs over
/// the records as in `parseFrame`.
std::int32_t decodeBusStatus(const CmpHeader& header, const std::uint8_t* payload,
                             std::int32_t* offset, BusStatus& status);

/// Decodes an ASAM CMP capture module status of `length` bytes into `status`, of which it sets
/// `serialText` alone. A text that is too long is cut to 49 characters; it is always terminated.
/// Answers `invalid` if an inner length runs past the payload.
std::int32_t decodeAsamCmStatus(const std::uint8_t* payload, std::uint32_t length,
                                CmStatus& status);

/// An ASAM CMP data payload in the form of a TECMP CAN payload.
struct RebuiltPayload {
    std::uint32_t length = 0;  ///< 0: the payload holds no CAN message
    std::uint8_t bytes[4 + 1 + 255 + 2];
};

/// Rebuilds an ASAM CMP data payload of `length` bytes. Only messages of data type 2 with at least
/// one data byte, all of it inside the payload, give a result.
void rebuildAsamData(const CmpHeader& header, const std::uint8_t* payload, std::uint32_t length,
                     RebuiltPayload& rebuilt);
