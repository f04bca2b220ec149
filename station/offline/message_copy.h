#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "station/recording/bus_record.h"
#include "station/recording/channel_traffic.h"
#include "station/recording/message_reader.h"
#include "station/recording/recording_set.h"
#include "station/session/summary.h"

namespace station {

/// The way from a file of messages into recordings, in the order in which they are in it.
class MessageCopy {
  public:
    /// Neither is owned; both outlive this.
    MessageCopy(MessageReader& messageReader, RecordingSet& recordingSet);

    /// Copies the next thousands of messages. False once there are no more.
    bool poll();
    /// The messages that were read; the channels belong to no module.
    Summary summarize() const;

  private:
    struct Channel {
        ChannelTraffic traffic;  ///< by UTC
        std::array<std::uint8_t, sizeof(CanFrame)> last = {};
        bool isFd = false;  ///< a message was
    };

    void addChannels();

    MessageReader& reader;
    RecordingSet& recordings;
    std::vector<Channel> channels;
};

}  // namespace station
