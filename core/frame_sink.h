#pragma once

#include <cstdint>

/// Takes frames as they are read from the network. Called on the capture thread, which waits for
/// nobody: neither must an implementation, for a lock or for anything else.
class FrameSink {
  public:
    /// `source` is the number of the network interface, as its owner counts them. `receivedAt`:
    /// when the system received the frame, nanoseconds since 1970. `data` begins at the Ethernet
    /// header and is there for the call only.
    virtual void onFrame(std::uint32_t source, std::int64_t receivedAt, const std::uint8_t* data,
                         std::uint32_t length) = 0;

  protected:
    ~FrameSink() = default;
};
