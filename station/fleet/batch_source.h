#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace station {

/// A batch of a station's messages, as the stream has it. Nothing in it is trusted: whoever may
/// publish to the stream may have made it up.
struct StoredBatch {
    static constexpr std::uint64_t highestNumber = std::uint64_t{1} << 48U;

    std::string subject;
    std::string stationToken;               ///< of the subject
    std::string session;                    ///< identifier of the measurement
    std::uint64_t number = 0;               ///< from 1 on, by subject and session
    std::int64_t firstTime = 0;             ///< nanoseconds since 1970, of its messages
    std::int64_t lastTime = 0;              ///< the same
    std::int64_t sentTime = 0;              ///< the same, by the station's clock; 0: unknown
    std::uint64_t messages = 0;             ///< as its header says
    bool isEnd = false;                     ///< the last one of the session
    bool hasOthers = false;                 ///< other sessions of the station weren't over then
    std::string fault;                      ///< why it can't be taken; empty: it can
    std::uint64_t sequence = 0;             ///< its place in the stream
    std::span<const std::uint8_t> payload;  ///< there as long as `owner`
    std::shared_ptr<void> owner;
};

/// Where a collector gets batches from: a durable consumer of the stream, which has a memory of its
/// own of what was acknowledged.
///
/// Called on one thread. A connection that is lost is made again, for as long as it takes.
class BatchSource {
  public:
    /// How far the consumer is. All counts are of the broker.
    struct Position {
        std::uint64_t settled = 0;      ///< all up to this sequence number was acknowledged
        std::uint64_t outstanding = 0;  ///< given out, and not acknowledged yet
        std::uint64_t waiting = 0;      ///< not given out yet
        std::uint64_t last = 0;         ///< sequence number of the stream's last message
    };

    virtual ~BatchSource() = default;

    /// At most so many batches, in the order of the stream but for those that are given again.
    /// Waits for the first one; none after that time, and while there is no connection.
    virtual std::vector<StoredBatch> fetch(std::size_t most, std::chrono::milliseconds wait) = 0;
    /// The first one of the subject from that place in the stream on, asked of the stream and not
    /// of the consumer. It needs no acknowledgement. Empty if there is none, and while the broker
    /// doesn't answer.
    virtual std::optional<StoredBatch> find(const std::string& subject, std::uint64_t sequence) = 0;
    /// Doesn't wait. An acknowledgement that is lost has the batch given again.
    virtual void acknowledge(const StoredBatch& batch) = 0;
    /// Empty while the broker doesn't answer.
    virtual std::optional<Position> askPosition() = 0;
    /// Whether the broker can be reached and has the stream.
    virtual bool isServed() const = 0;
    /// What the user must know since the last call: what is wrong, and that it is well again.
    virtual std::vector<std::string> takeTexts() = 0;
};

}  // namespace station
