#pragma once

#include <string>

#include "simulator/frame_sink.h"

namespace sim {

/// Puts frames on a network interface through a raw packet socket, past the queueing discipline:
/// the kernel then says at once whether it took a frame, and nothing waits where it could be
/// dropped unseen.
class PacketSocketSink : public FrameSink {
  public:
    /// Throws `Failure`: not allowed, no such interface, or it is down.
    explicit PacketSocketSink(const std::string& interfaceName);
    ~PacketSocketSink() override;
    PacketSocketSink(const PacketSocketSink&) = delete;
    PacketSocketSink& operator=(const PacketSocketSink&) = delete;

    std::size_t longestFrame() const override { return longest; }
    std::size_t send(std::span<const OutFrame> frames) override;

  private:
    const std::string name;
    const int socket;
    std::size_t longest = 0;
};

}  // namespace sim
