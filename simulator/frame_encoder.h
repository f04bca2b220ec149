#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "simulator/module_settings.h"

namespace sim {

constexpr std::size_t ethernetHeader = 14;

/// Writes big-endian numbers one after another into a buffer that the caller made large enough:
/// frame sizes are known from the settings, and are only asserted here.
class WireWriter {
  public:
    explicit WireWriter(std::span<std::uint8_t> frame)
        : begin(frame.data()), at(frame.data()), end(frame.data() + frame.size()) {}

    void u8(std::uint8_t value) { *take(1) = value; }
    void u16(std::uint16_t value) { bigEndian<2>(value); }
    void u32(std::uint32_t value) { bigEndian<4>(value); }
    void u64(std::uint64_t value) { bigEndian<8>(value); }

    void fill(std::uint8_t value, std::size_t count) { std::fill_n(take(count), count, value); }

    /// Room for `count` bytes that the caller writes.
    std::uint8_t* take(std::size_t count) {
        assert(count <= static_cast<std::size_t>(end - at));
        std::uint8_t* const here = at;
        at += count;
        return here;
    }

    std::size_t size() const { return static_cast<std::size_t>(at - begin); }

  private:
    template <std::size_t Bytes>
    void bigEndian(std::uint64_t value) {
        std::uint8_t* const here = take(Bytes);
        for (std::size_t i = 0; i < Bytes; ++i)
            here[i] = static_cast<std::uint8_t>(value >> (8 * (Bytes - 1 - i)));
    }

    std::uint8_t* const begin;
    std::uint8_t* at;
    std::uint8_t* const end;
};

/// What a simulated bus message carries, so that any recording shows loss, doubles and order:
///
/// | Bytes | Content |
/// |---|---|
/// | 0 to 3 | running number of the channel from 0, little-endian; of shorter data its low bytes |
/// | 4 to 11 | with stamps, and in data of 12 bytes and more: host time in ns, little-endian |
/// | behind | (running number + interface ID + position) modulo 256 |
///
/// The identifier follows from interface ID and running number too.
struct DataMessage {
    std::uint16_t interfaceId = 0;
    std::uint8_t length = 0;
    std::uint32_t number = 0;
    std::uint64_t timestamp = 0;  ///< device time, ns
    std::uint64_t hostTime = 0;   ///< the stamp, ns; 0: none
};

constexpr std::uint32_t extendedIdentifier = 0x80000000;

/// Of four messages three have a standard identifier, 0x100 + 4 * interface ID + number % 4, and
/// the fourth the 29-bit one 0x18DA00F1 + 0x100 * interface ID, with `extendedIdentifier` set.
std::uint32_t canIdentifier(std::uint16_t interfaceId, std::uint32_t number);

/// (interface ID + number) % 60: all identifiers of signal frames in turn.
std::uint8_t linIdentifier(std::uint16_t interfaceId, std::uint32_t number);

/// The identifier with its two parity bits on top.
std::uint8_t protectedLinIdentifier(std::uint8_t identifier);

/// The enhanced checksum: inverted sum with carry over protected identifier and data.
std::uint8_t linChecksum(std::uint8_t protectedIdentifier, std::span<const std::uint8_t> data);

/// Writes `message.length` bytes.
void writeData(std::uint8_t* data, const DataMessage& message);

/// What is in every frame of one module.
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
