#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "capture/cmp_message.h"
#include "capture/device_directory.h"

/// The data messages of one frame on their way to their channels.
///
/// The capture thread collects them here while it decodes the frame and then hands them over
/// channel by channel, so a channel's queue is locked once a frame and not once a message. No lock
/// is held while another is taken, and none while the thread waits for a frame. Nothing is copied:
/// each payload stays where it stands in the frame until its channel decodes it into the queue. So
/// `handOver` comes before the next frame is read and before the directory, which keeps the
/// channels alive, is let go of.
///
/// A frame comes from one module, whose latest time is that of the frame's last message. It is
/// stored once, and before the messages can be seen in a queue.
class FrameBatch {
  public:
    bool isFull() const { return count == capacity; }

    /// Adds a message of `length` bytes; the batch must not be full. `route` has a device; without
    /// a channel the message counts for the device's time alone.
    void add(const DeviceDirectory::Route& route, const DeviceTime& time,
             const std::uint8_t* payload, std::uint32_t length);
    /// Empties the batch. The frame came in at `timeStamp` nanoseconds on the performance counter.
    void handOver(std::int64_t timeStamp);

  private:
    static constexpr std::size_t capacity = 64;

    CmpDevice* device = nullptr;  ///< null: nothing was added
    DeviceTime latestTime;
    std::size_t count = 0;
    std::size_t channelCount = 0;
    std::array<DataMessage, capacity> messages;
    std::array<CmpChannel*, capacity> channels;  ///< those with messages, each once
};
