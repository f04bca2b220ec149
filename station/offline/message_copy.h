#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "station/recording/bus_record.h"
#include "station/recording/channel_traffic.h"
#include "station/recording/horizon.h"
#include "station/recording/message_reader.h"
#include "station/recording/recording_set.h"
#include "station/recording/time_merge.h"
#include "station/session/summary.h"

namespace station {

/// The way from a file of messages into recordings, in the order of their times.
class MessageCopy {
  public:
    /// Neither is owned; both outlive this.
    MessageCopy(MessageReader& messageReader, RecordingSet& recordingSet);

    /// Copies the next thousands of messages. False once there are no more.
    bool poll();
    /// The recordings get all that was read.
    void end() { record(TimeMerge::all); }
    /// How many came behind later ones nevertheless.
    std::uint64_t getLate() const { return merge.getLate(); }
    /// The messages that were read; the channels belong to no module.
    Summary summarize() const;

  private:
    struct Channel {
        ChannelTraffic traffic;  ///< by UTC
        std::array<std::uint8_t, sizeof(CanFrame)> last = {};
        bool isFd = false;  ///< a message was
    };

    void addChannels();
    void record(std::int64_t before);

    MessageReader& reader;
    RecordingSet& recordings;
    TimeMerge merge;
    Horizon horizon{250'000'000};  ///< a recording may have been written channel by channel
    std::int64_t newest = 0;
    std::vector<Channel> channels;
};

}  // namespace station
