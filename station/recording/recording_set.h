#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "station/recording/message_filter.h"
#include "station/recording/recording_series.h"

namespace station {

/// What has become of one recording so far. A message on its way into the file counts nowhere yet.
struct RecordingSummary {
    /// The messages of one channel.
    struct Channel {
        bool isHeld = false;        ///< the format can hold them
        std::uint64_t records = 0;  ///< in the file
        std::uint64_t lost = 0;
        std::uint64_t leftOut = 0;  ///< not asked for
    };

    std::string path;
    std::string partPath;  ///< of the file that is written, or was last
    std::size_t parts = 1;
    std::string format;
    std::uint64_t records = 0;  ///< in the file
    std::uint64_t bytes = 0;    ///< in the file
    std::uint64_t lost = 0;
    std::string error;                   ///< the last; empty: none
    std::vector<Channel> channels = {};  ///< in the order in which they were added
    bool holdsFrames = false;            ///< of Ethernet, and no messages
};

/// The text for the user about messages that aren't where their time has them.
std::string lateText(std::uint64_t messages);

/// The recordings of one measurement. Each has all channels that its format can hold. One that
/// fails is reported; the others go on. Called on one thread at a time.
class RecordingSet {
  public:
    RecordingSet() = default;
    /// Cancels what `close` wasn't called for and no message is in: a command that fails before
    /// it begins leaves no file that would be in the way of the next, and none changed.
    ~RecordingSet();
    RecordingSet(const RecordingSet&) = delete;
    RecordingSet& operator=(const RecordingSet&) = delete;

    /// As `openRecording`. Before the first channel is added, as the next.
    void open(const std::string& path, bool overwrite = false, const PartRules& rules = {}) {
        recordings.push_back(std::make_unique<RecordingSeries>(path, overwrite, rules));
    }
    /// The same, for Ethernet frames.
    void openForFrames(const std::string& path, bool overwrite, const PartRules& rules) {
        recordings.push_back(
            std::make_unique<RecordingSeries>(path, overwrite, rules, openFrameRecording));
    }
    void add(std::unique_ptr<Recording> recording) {
        add(std::make_unique<RecordingSeries>(std::move(recording)));
    }
    void add(std::unique_ptr<RecordingSeries> series) { recordings.push_back(std::move(series)); }
    /// Only what passes is written. Before the first channel is added.
    void setFilter(std::shared_ptr<MessageFilter> wanted) { filter = std::move(wanted); }
    /// The next channel; its number is how many were added before.
    void addChannel(const ChannelDescription& channel);
    /// As `AppendFile::setOnProgress`, of any of the recordings that are there.
    void setOnProgress(const std::function<void()>& call);
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size);
    /// Messages that `write` was given so far.
    std::uint64_t getCount() const { return count; }
    /// As `Recording::setAccount`, with the channels by their numbers here.
    void setAccount(const RecordingAccount& account);
    /// The next message of each goes into another part.
    void endParts();
    /// To be called at least once a second. Returns a text for each recording that has failed, or
    /// goes on, since the last call.
    std::vector<std::string> flush();
    /// The same, and closes all once each has written what it has.
    std::vector<std::string> close();

    bool hasFailed() const;
    bool haveAllFailed() const;
    bool empty() const { return recordings.empty(); }
    /// Paths of recordings whose format can't hold that bus.
    std::vector<std::string> thatRefuse(BusType bus) const;
    std::vector<RecordingSummary> summarize() const;

  private:
    static constexpr std::size_t notHeld = static_cast<std::size_t>(-1);

    std::vector<std::string> takeTexts();

    std::vector<std::unique_ptr<RecordingSeries>> recordings;
    std::vector<std::size_t> handles;  ///< by channel, and in it by recording; `notHeld`: not in it
    std::shared_ptr<MessageFilter> filter;  ///< null: none
    std::vector<std::uint64_t> leftOut;     ///< by channel, by the filter
    std::uint64_t count = 0;
    bool closed = false;
};

}  // namespace station
