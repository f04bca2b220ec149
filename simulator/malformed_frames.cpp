#include "simulator/malformed_frames.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t addresses = 12;
constexpr std::uint16_t wrongCounter = 0xFFFF;
constexpr std::uint8_t wrongByte = 0xFF;
constexpr std::uint8_t dataBytes = 64;

/// Where the lengths stand in a frame of one message, and what a good one has there.
struct Layout {
    std::size_t lengthField;
    std::size_t payload;
    std::size_t dataLengthByte;
    std::uint16_t payloadLength;
};

Layout layoutOf(const Sender& sender) {
    if (sender.framing == Framing::AsamCmp)
        return {36, 38, 38 + 14, 16 + dataBytes};
    // The LIN message is as long as the CAN message, the bytes behind its checksum being unread.
    return {38, 42, sender.bus == Bus::Lin ? 42UL + 1 : 42UL + 4, 7 + dataBytes};
}

void put16(std::span<std::uint8_t> frame, std::size_t at, std::size_t value) {
    frame[at] = static_cast<std::uint8_t>(value >> 8);
    frame[at + 1] = static_cast<std::uint8_t>(value);
}

/// Among them neighbours of the right EtherType, and IP, whose bodies are then not IP.
constexpr std::array<std::uint16_t, 6> foreignEtherTypes = {0x99FF, 0x98FE, 0xFE99,
                                                            0x88B5, 0x0800, 0x86DD};
constexpr std::array<std::uint16_t, 3> tagProtocols = {0x8100, 0x88A8, 0x9100};

}  // namespace

std::size_t MalformedFrames::encode(std::span<std::uint8_t> frame, const Sender& sender,
                                    std::uint16_t interfaceId, std::uint64_t timestamp,
                                    Damage damage) {
    const Layout layout = layoutOf(sender);
    WireWriter out(frame);
    writeDataHeaders(out, sender, captureEtherType, wrongCounter, interfaceId, timestamp,
                     layout.payloadLength);
    out.fill(wrongByte, layout.payloadLength);
    const std::size_t full = out.size();
    frame[layout.dataLengthByte] = sender.bus == Bus::Lin ? 8 : dataBytes;

    switch (damage) {
        case Damage::CutShort:
            return pick(ethernetHeader, full - 1);
        case Damage::LengthBeyondFrame:
            put16(frame, layout.lengthField, pick(layout.payloadLength + 1U, 0xFFFF));
            return full;
        case Damage::LengthZero:
            put16(frame, layout.lengthField, 0);
            return full;
        case Damage::DataBeyondMessage:
            frame[layout.dataLengthByte] =
                static_cast<std::uint8_t>(pick(layout.payloadLength + 1U, 0xFF));
            return full;
        case Damage::ForeignEtherType:
            put16(frame, addresses, foreignEtherTypes[pick(0, foreignEtherTypes.size() - 1)]);
            return full;
        case Damage::VlanTagged:
            std::copy_backward(frame.begin() + addresses,
                               frame.begin() + static_cast<std::ptrdiff_t>(full),
                               frame.begin() + static_cast<std::ptrdiff_t>(full) + 4);
            put16(frame, addresses, tagProtocols[pick(0, tagProtocols.size() - 1)]);
            put16(frame, addresses + 2, pick(1, 4094));
            return full + 4;
    }
    return full;
}

}  // namespace sim
