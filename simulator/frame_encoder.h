#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "simulator/module_type.h"
#include "simulator/payload.h"
#include "simulator/wire_writer.h"

namespace sim {

/// What stands in every frame of one module.
struct Sender {
    Framing framing = Framing::Tecmp;
    Bus bus = Bus::Can;
    bool canFd = false;  ///< its messages are marked as CAN FD
    std::uint16_t cmId = 0;
    std::uint32_t serial = 0;
    std::uint8_t deviceType = 0;
    std::string_view description = {};
};

constexpr std::uint16_t captureEtherType = 0x99FE;

/// Frames are filled up with zeros to the least that Ethernet carries.
constexpr std::size_t leastFrame = 60;
/// Room that any status frame fits into.
constexpr std::size_t statusFrameRoom = 512;

/// Size of a data frame before it is filled up. ASAM CMP frames hold one message.
std::size_t dataFrameSize(const Sender& sender, std::size_t messages, std::size_t dataBytes);

/// The encoders write one whole Ethernet frame from the start of `frame` and return its length.
/// `frame` has room for it: `dataFrameSize`, `statusFrameRoom`, and at least `leastFrame`.
std::size_t encodeData(std::span<std::uint8_t> frame, const Sender& sender, std::uint16_t counter,
                       std::span<const DataMessage> messages);
std::size_t encodeCmStatus(std::span<std::uint8_t> frame, const Sender& sender,
                           std::uint16_t counter, std::uint64_t timestamp);

struct InterfaceCount {
    std::uint16_t interfaceId;
    std::uint32_t messages;
};

/// TECMP only: a record for each interface.
std::size_t encodeBusStatus(std::span<std::uint8_t> frame, const Sender& sender,
                            std::uint16_t counter, std::uint64_t timestamp,
                            std::span<const InterfaceCount> interfaces);

/// Ethernet header, capture header and the header of the one message, in the sender's framing; for
/// those who go on to spoil the frame.
void writeDataHeaders(WireWriter& out, const Sender& sender, std::uint16_t etherType,
                      std::uint16_t counter, std::uint16_t interfaceId, std::uint64_t timestamp,
                      std::uint16_t payloadLength);

}  // namespace sim
