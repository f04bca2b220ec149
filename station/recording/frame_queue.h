#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/frame_sink.h"

namespace station {

/// The way of frames from the capture thread, which puts them in, to the host's, which takes them
/// out. Neither waits for the other: there is no lock.
///
/// What is in it is bounded; a frame for which there is no room is counted as lost. It has no more
/// memory than the frames in it take, and a little for the next ones.
class FrameQueue final : public FrameSink {
  public:
    static constexpr std::size_t chunkBytes = 512 * 1024;

    /// `mostBytes` counts in whole chunks, two at least.
    explicit FrameQueue(std::size_t mostBytes);
    ~FrameQueue();
    FrameQueue(const FrameQueue&) = delete;
    FrameQueue& operator=(const FrameQueue&) = delete;

    /// Longer ones than fit into a chunk count as lost; the capture thread reads none.
    void onFrame(std::uint32_t source, std::int64_t receivedAt, const std::uint8_t* data,
                 std::uint32_t length) override;
    /// Gives `take` all that is there, as (source, receivedAt, data, length), in the order in which
    /// it came. The host's thread.
    template <typename Take>
    void takeNew(Take&& take);
    /// Any thread.
    std::uint64_t getLost() const { return lost.load(std::memory_order_relaxed); }

  private:
    struct Head {
        std::int64_t receivedAt;
        std::uint32_t source;
        std::uint32_t length;
    };
    struct Chunk {
        std::atomic<std::size_t> used{0};   ///< bytes that may be read
        std::atomic<Chunk*> next{nullptr};  ///< the one that is filled after it
        Chunk* nextSpare = nullptr;
        std::array<std::uint8_t, chunkBytes> bytes;
    };

    Chunk* findRoom(std::size_t size);
    Chunk* takeSpare();
    void giveBack(Chunk* chunk);

    const std::size_t mostChunks;
    Chunk* filled;   ///< the capture thread's
    Chunk* emptied;  ///< the host's thread's, with what it has read of it
    std::size_t taken = 0;
    std::atomic<std::size_t> chunks{1};  ///< between the two
    /// A stack. The capture thread alone takes from it, so that what is on top can't go and come
    /// back while it looks.
    std::atomic<Chunk*> spare{nullptr};
    std::atomic<std::size_t> spares{0};
    std::atomic<std::uint64_t> lost{0};
};

template <typename Take>
void FrameQueue::takeNew(Take&& take) {
    while (true) {
        // In this order: a chunk that has another one behind it isn't added to any more.
        Chunk* const next = emptied->next.load(std::memory_order_acquire);
        const std::size_t used = emptied->used.load(std::memory_order_acquire);
        while (taken < used) {
            Head head{};
            std::memcpy(&head, emptied->bytes.data() + taken, sizeof head);
            take(head.source, head.receivedAt, emptied->bytes.data() + taken + sizeof head,
                 head.length);
            taken += sizeof head + head.length;
        }
        if (next == nullptr) {
            return;
        }
        giveBack(emptied);
        emptied = next;
        taken = 0;
    }
}

}  // namespace station
