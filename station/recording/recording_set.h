#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// The recordings of one measurement. Each has all channels that its format can hold. One that
/// fails is closed and reported; the others go on. Called on the host's thread.
class RecordingSet {
  public:
    RecordingSet() = default;
    /// Removes what `close` wasn't called for and no message is in: a command that fails before
    /// it begins leaves no file that would be in the way of the next.
    ~RecordingSet();
    RecordingSet(const RecordingSet&) = delete;
    RecordingSet& operator=(const RecordingSet&) = delete;

    /// Opens a file; throws FileError. Before the first channel is added.
    void open(const std::string& path);
    /// The next channel; its number is how many were added before.
    void addChannel(const ChannelDescription& channel);
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size);
    /// To be called at least once a second. Returns a text for each recording that has failed since
    /// the last call.
    std::vector<std::string> flush();
    /// The same, and closes all.
    std::vector<std::string> close();

    bool hasFailed() const;
    bool haveAllFailed() const;
    bool empty() const { return recordings.empty(); }
    /// Paths of recordings whose format can't hold that bus.
    std::vector<std::string> thatRefuse(BusType bus) const;
    const std::vector<std::unique_ptr<Recording>>& all() const { return recordings; }

  private:
    static constexpr std::size_t notHeld = static_cast<std::size_t>(-1);

    std::vector<std::string> newFailures();

    std::vector<std::unique_ptr<Recording>> recordings;
    std::vector<std::size_t> handles;  ///< by channel, and in it by recording; `notHeld`: not in it
    std::vector<bool> reported;        ///< by recording: its failure was returned
    bool closed = false;
};

}  // namespace station
