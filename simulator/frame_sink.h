#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sim {

enum class FrameKind : std::uint8_t { Data, Status, Malformed };

/// An encoded frame on its way out. The bytes belong to the simulation until `send` returns.
struct OutFrame {
    std::span<const std::uint8_t> bytes;
    FrameKind kind = FrameKind::Data;
    std::size_t module = 0;      ///< whose it is
    std::uint32_t messages = 0;  ///< data messages in it
    std::int64_t due = 0;        ///< when it should leave, ns after the start
};

/// Where frames go.
class FrameSink {
  public:
    virtual ~FrameSink() = default;

    /// The longest frame that it takes, Ethernet header included.
    virtual std::size_t longestFrame() const = 0;

    /// Takes frames from the front and returns how many; fewer, or none, when it has no room just
    /// now. Throws `Failure` when no more can go out.
    virtual std::size_t send(std::span<const OutFrame> frames) = 0;

    /// All frames are sent. Throws `Failure` when some of those taken got lost after all.
    virtual void finish() {}
};

}  // namespace sim
