#pragma once

#include <cstdint>
#include <vector>

#include "capture/cmp_message.h"
#include "capture/device_directory.h"

/// The data messages of frames that follow each other closely, on their way to their channels.
///
/// Each channel takes its messages at once, but the host's thread sees them only when the burst is
/// handed over: so the two threads touch the same memory once a burst and not once a message.
///
/// A burst ends when a read ends without a frame or the next one is a foreign one, and otherwise
/// after 2 ms: a host allows for at least 10 ms of delay, of which this may take only a part. It
/// also ends before the directory, which keeps the channels alive, is let go of.
///
/// A frame comes from one module, whose latest time is that of the frame's last message. It is
/// stored once a frame, and before the messages can be seen in a queue.
class MessageBurst {
  public:
    /// Adds a message of `length` bytes. `route` has a device; without a channel the message counts
    /// for the device's time alone.
    void add(const DeviceDirectory::Route& route, const DeviceTime& time,
             const std::uint8_t* payload, std::uint32_t length);
    /// Ends a frame, which came in at `timeStamp` and was read at `readAt`: nanoseconds on the
    /// performance counter.
    void endFrame(std::int64_t timeStamp, std::int64_t readAt);
    /// Ends the burst, also amid the frame that came in at `timeStamp` and was read at `readAt`.
    void handOver(std::int64_t timeStamp, std::int64_t readAt);

  private:
    void storeTime(std::int64_t timeStamp);

    CmpDevice* device = nullptr;  ///< of the present frame; null: nothing was added
    DeviceTime latestTime;
    std::vector<CmpChannel*> channels;  ///< those with messages, each once
    std::int64_t handedOverAt = 0;      ///< `readAt` of the last end of a burst
};
