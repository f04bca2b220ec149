#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

#include "simulator/frame_encoder.h"

namespace sim {

enum class Damage {
    CutShort,           ///< ends inside headers or payload
    LengthBeyondFrame,  ///< the message's length runs past the end of the frame
    LengthZero,         ///< the message's length is zero
    DataBeyondMessage,  ///< the bus message's own length runs past the message
    ForeignEtherType,   ///< all is well but the EtherType
    VlanTagged,         ///< all is well behind a VLAN tag
};
constexpr std::array allDamages = {Damage::CutShort,         Damage::LengthBeyondFrame,
                                   Damage::LengthZero,       Damage::DataBeyondMessage,
                                   Damage::ForeignEtherType, Damage::VlanTagged};

/// Frames from which a correct receiver delivers no data message.
///
/// Each is a frame of one message with one damage to it. The message is 64 data bytes with all bits
/// set under an identifier with all bits set, which no good message has: a receiver that lets one
/// through shows what it did. The undamaged frame is longer than Ethernet's least frame, so that a
/// network card that fills up a cut frame doesn't mend it. Device times are good ones, since a
/// receiver may take the time of a message that it then refuses.
class MalformedFrames {
  public:
    explicit MalformedFrames(std::uint64_t seed) : random(seed) {}

    /// Room that any of them fits into.
    static constexpr std::size_t room = 160;

    /// One with any damage; returns its length, at least an Ethernet header.
    std::size_t encode(std::span<std::uint8_t> frame, const Sender& sender,
                       std::uint16_t interfaceId, std::uint64_t timestamp) {
        return encode(frame, sender, interfaceId, timestamp,
                      allDamages[random() % allDamages.size()]);
    }
    std::size_t encode(std::span<std::uint8_t> frame, const Sender& sender,
                       std::uint16_t interfaceId, std::uint64_t timestamp, Damage damage);

  private:
    /// Uniform in [from, to].
    std::size_t pick(std::size_t from, std::size_t to) { return from + random() % (to - from + 1); }

    std::mt19937_64 random;
};

}  // namespace sim
