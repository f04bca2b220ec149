#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "station/recording/recording_set.h"

namespace station {

class MessageChunk;

/// The way of the messages of a measurement into its recordings, which are written on a thread of
/// their own: a disk that stalls holds up nobody.
///
/// What waits is bounded. A message for which there is no room is counted as lost in each recording
/// that was to have it, and reported; or `write` waits, where nothing runs on meanwhile.
///
/// Called on the host's thread, and none of it waits for the disk but the destructor, `waitClosed`,
/// and such a `write`.
class RecordingQueue {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t defaultLimit = std::size_t{256} << 20U;  // bytes

    /// With `Wait`, what is held back for the order of time doesn't count.
    enum class WhenFull { Lose, Wait };

    /// The recordings belong to the thread from the first `flush` or full chunk on, until
    /// `isClosed`.
    explicit RecordingQueue(std::shared_ptr<RecordingSet> recordingSet,
                            std::size_t mostWaiting = defaultLimit,
                            WhenFull whenFull = WhenFull::Lose);
    /// Has the rest written out first, unless the disk takes nothing for half a second: then the
    /// thread is left to itself. Without `beginClose` the recordings stay open.
    ~RecordingQueue();
    RecordingQueue(const RecordingQueue&) = delete;
    RecordingQueue& operator=(const RecordingQueue&) = delete;

    /// As `RecordingSet::addChannel`, before the first `write`.
    void addChannel(const ChannelDescription& channel);
    /// As `Recording::write`. The recordings get the messages in the order of their times.
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size);
    /// Nothing that is written from now on is expected to be older. Until this is said a message
    /// is held back.
    void setHorizon(std::int64_t utcNanoseconds) { latestHorizon = utcNanoseconds; }
    /// For the end of each part that is ended from the next `flush` on, and of the last one.
    void setAccount(RecordingAccount account);
    /// What is written from now on, or came in shortly before, goes into other parts.
    void endParts();
    /// How many messages came in behind it and are behind a later one in the recordings.
    std::uint64_t getLate() const;
    /// Has the thread write out what there is. To be called twice a second. Returns what the user
    /// must know since the last call: recordings that failed, messages that found no room.
    std::vector<std::string> flush();

    /// Has all that waits written out and the recordings closed; no `write` from now on.
    void beginClose();
    bool isClosed() const;
    void waitClosed();
    /// Since the disk took something last, or was last given something to take.
    Clock::duration getStalled() const;
    /// Gives up waiting for the disk. What isn't in a file counts as lost; what the disk only
    /// hasn't confirmed doesn't. Returns what the user must know.
    std::vector<std::string> abandon();

    /// Whether a message of any recording was lost here or by a failure.
    bool hasLost() const;
    /// Whether there is no recording that still takes messages, though there were some.
    bool haveAllFailed() const;
    std::vector<RecordingSummary> summarize() const;

  private:
    struct Shared;

    /// What has become of the messages of a channel on this side of the thread.
    struct Account {
        std::uint64_t given = 0;    ///< to `write`
        std::uint64_t dropped = 0;  ///< of them: found no room
    };

    void handOver();
    bool passOn(bool evenIfFull);
    void end();
    std::uint64_t countDropped() const;

    const std::shared_ptr<Shared> shared;
    bool isHandedOver = false;              ///< the recordings, to the thread
    std::unique_ptr<MessageChunk> current;  ///< null without recordings
    std::vector<Account> accounts;          ///< by channel
    std::int64_t latestHorizon = std::numeric_limits<std::int64_t>::min();
    std::uint64_t droppedReported = 0;
    std::uint64_t lateReported = 0;
};

}  // namespace station
