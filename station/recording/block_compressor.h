#pragma once

#include <libdeflate.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "core/mutex.h"

namespace station {

/// Compresses blocks into zlib's format at the fastest level, on a thread of its own: one block,
/// while the caller fills the next. That is what a conversion needs, which has no other thread, and
/// a live run whose recordings share one.
///
/// Called on one thread at a time. Of the two threads one has the blocks and the compressor: the
/// other from `begin` to `wait`.
class BlockCompressor {
  public:
    BlockCompressor();
    ~BlockCompressor();
    BlockCompressor(const BlockCompressor&) = delete;
    BlockCompressor& operator=(const BlockCompressor&) = delete;

    /// Appends `from`, compressed, to `to`.
    void compress(std::span<const std::uint8_t> from, std::vector<std::uint8_t>& to);
    /// The same on the thread. Both must be left alone until `wait`, which must come before the
    /// next call of anything else.
    void begin(std::span<const std::uint8_t> from, std::vector<std::uint8_t>& to);
    void wait() CMP_EXCLUDES(lock);

  private:
    void run() CMP_EXCLUDES(lock);

    const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor;
    std::span<const std::uint8_t> source;
    std::vector<std::uint8_t>* target = nullptr;

    Mutex lock;
    std::condition_variable_any changed;
    bool isWanted CMP_GUARDED_BY(lock) = false;  ///< until the thread has done it
    bool isEnding CMP_GUARDED_BY(lock) = false;

    std::thread thread;  ///< from the first `begin` on
};

}  // namespace station
