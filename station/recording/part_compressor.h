#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "core/mutex.h"

namespace station {

/// Compresses the closed parts of recordings with zstd, one after the other, on a thread of its own
/// of the lowest priority: "a.pcapng" becomes "a.pcapng.zst".
///
/// At any moment, also after a kill or a power failure, the whole part is there in one of the two
/// forms. What is compressed goes into "a.pcapng.zst.tmp" first, which gets its name once the disk
/// has it; then the original is removed. A part that can't be compressed stays as it is.
///
/// Any thread may call anything.
class PartCompressor {
  public:
    static constexpr const char* ending = ".zst";

    PartCompressor() = default;
    /// As after `cancel`.
    ~PartCompressor();
    PartCompressor(const PartCompressor&) = delete;
    PartCompressor& operator=(const PartCompressor&) = delete;

    /// Removes what runs that were killed have left of parts of the recording to that path.
    static void removeLeftovers(const std::string& path);

    /// That file is closed, and nobody will change it any more.
    void add(const std::string& path) CMP_EXCLUDES(lock);
    /// Removes a part, in whichever form it is, and also if it is being compressed.
    std::error_code remove(const std::string& path) CMP_EXCLUDES(lock);
    /// Leaves what isn't compressed yet as it is, and ends.
    void cancel() CMP_EXCLUDES(lock);

    struct Progress {
        std::string path;         ///< of the part that is compressed
        double share = 0;         ///< of it that was, 0 to 1
        std::size_t waiting = 0;  ///< parts behind it
    };
    /// None if there is nothing more to do.
    std::optional<Progress> getProgress() const CMP_EXCLUDES(lock);
    /// What the user must know since the last call: of failures one behind the other the first.
    std::vector<std::string> takeTexts() CMP_EXCLUDES(lock);

  private:
    void run() CMP_EXCLUDES(lock);
    bool takeNext() CMP_EXCLUDES(lock);
    void compress() CMP_EXCLUDES(lock);
    bool put(const std::string& temporary, int folder) CMP_EXCLUDES(lock);

    mutable Mutex lock;
    std::condition_variable_any changed;
    std::deque<std::string> waiting CMP_GUARDED_BY(lock);
    std::string present CMP_GUARDED_BY(lock);  ///< empty: none
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
    bool isEnding CMP_GUARDED_BY(lock) = false;
    bool isFailureReported CMP_GUARDED_BY(lock) = false;
    std::atomic<bool> isUnwanted{false};  ///< the present one is to be left
    std::atomic<double> share{0.0};
    std::thread thread;  ///< from the first part on
};

}  // namespace station
