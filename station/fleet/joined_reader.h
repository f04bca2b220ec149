#pragma once

#include <memory>
#include <queue>
#include <vector>

#include "station/recording/message_reader.h"

namespace station {

/// Several readers as one, in the order of time: of those messages that the readers would give next
/// the oldest is the next one here. Channels of different readers are different channels.
class JoinedReader : public MessageReader {
  public:
    explicit JoinedReader(std::vector<std::unique_ptr<MessageReader>> readers);

    bool next(RecordedMessage& message) override;
    double getProgress() const override;

  private:
    struct Source {
        std::unique_ptr<MessageReader> reader;
        RecordedMessage head;
        std::vector<std::size_t> channels;  ///< their places here
        std::uint64_t skipped = 0;
    };
    struct Waiting {
        std::int64_t time;
        std::size_t source;
        /// The first of a queue is the greatest.
        bool operator<(const Waiting& other) const {
            return time != other.time ? time > other.time : source > other.source;
        }
    };

    void advance(std::size_t number);

    std::vector<Source> sources;
    std::priority_queue<Waiting> waiting;
};

}  // namespace station
