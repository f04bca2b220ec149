#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "capture/bus_frame.h"
#include "capture/cmp_message.h"
#include "capture/freed_memory.h"

/// The samples of one channel, each a time and the host's record, on their way from the capture
/// thread to the host's thread.
///
/// They lie in a chain of blocks. The capture thread appends behind the last one, and makes all
/// that it has appended visible by storing their number. The host's thread takes that number over,
/// and works through so many samples. Neither waits for the other, nothing is copied, and no host
/// call can hold up the capture thread.
///
/// There is no limit: nothing is lost while the host is late. The host's thread frees each block
/// that it is done with, but for a few that go back to the capture thread, so that a steady flow
/// allocates nothing.
template <class Frame>
class SampleQueue {
  public:
    SampleQueue() = default;
    SampleQueue(const SampleQueue&) = delete;
    SampleQueue& operator=(const SampleQueue&) = delete;
    ~SampleQueue() {
        clear();
        for (auto& slot : spares) {
            delete slot.load(std::memory_order_relaxed);
        }
    }

    /// Capture thread: takes a message, which `holdsFrame`.
    void append(const DeviceTime& time, const std::uint8_t* payload) {
        if (finish > lastStart) {
            addBlock();
        }
        Cell* const to = &last->cells[finish];
        auto* const frame = new (to + headerCells) Frame;
        const std::size_t used = cellsOf(decodeFrame(payload, *frame));
        new (to) Header{time.seconds, time.nanoseconds, static_cast<std::uint32_t>(used)};
        finish += headerCells + used;
        ++appended;
    }
    /// Capture thread: what was appended can be taken over from now on.
    void handOver() { handedOver.store(appended, std::memory_order_release); }

    /// Host's thread: makes what was handed over up to now part of what `hasNext` looks at.
    void takeOver() {
        takenOver = handedOver.load(std::memory_order_acquire);
        leaveFinishedBlock();
    }
    /// Host's thread: of those taken over.
    std::uint64_t size() const { return takenOver - dropped; }
    /// Host's thread: whether there is a front among those taken over. The front is the oldest.
    bool hasNext() const { return dropped != takenOver; }
    DeviceTime frontTime() const { return {front().seconds, front().nanoseconds}; }
    /// Overwrites all of `frame`.
    void copyFront(Frame& frame) const {
        constexpr std::size_t whole = sizeof(Frame) / cellSize;
        constexpr std::size_t rest = sizeof(Frame) % cellSize;
        auto* const to = reinterpret_cast<std::uint8_t*>(&frame);
        const Cell* const from = &first->cells[start + headerCells];
        const std::size_t used = front().used;
        frame = Frame();
        for (std::size_t i = 0; i < std::min(used, whole); ++i) {
            std::memcpy(to + i * cellSize, from + i, cellSize);
        }
        if (used > whole) {
            std::memcpy(to + whole * cellSize, from + whole, rest);
        }
    }
    void drop() {
        start += headerCells + front().used;
        ++dropped;
        leaveFinishedBlock();
    }

    /// How many samples were handed over since `beginCounting`. Any thread.
    std::uint64_t getHandedOver() const {
        return handedOver.load(std::memory_order_relaxed) -
               countedFrom.load(std::memory_order_relaxed);
    }
    /// Host's thread, with the capture thread stopped.
    void beginCounting() { countedFrom.store(appended, std::memory_order_relaxed); }

    /// Host's thread, with the capture thread stopped. May come amid a flush, see `getClears`.
    void clear() {
        while (first.get() != last) {
            first = std::move(nextOf(first));
        }
        start = finish = last != nullptr ? 0 : blockCells;
        handOver();
        takenOver = dropped = appended;
        ++clears;
    }
    /// How often it was cleared: whether the front is still the one that it was.
    std::uint32_t getClears() const { return clears; }

  private:
    /// A cell holds the beginning of a sample, or a usual CAN record with its 8 data bytes: a
    /// sample takes only as many cells as there is something in. So a usual CAN message takes a
    /// third of a record's memory, the queues of many channels together stay within the processor's
    /// caches, and less goes from one thread's to the other's.
    static constexpr std::size_t cellSize = 16;
    struct alignas(cellSize) Cell {
        std::array<std::uint8_t, cellSize> bytes;
    };
    struct Header {
        std::uint64_t seconds;
        std::int32_t nanoseconds;
        std::uint32_t used;  ///< cells of the record
    };
    static constexpr std::size_t cellsOf(std::size_t size) {
        return (size + cellSize - 1) / cellSize;
    }
    static constexpr std::size_t headerCells = cellsOf(sizeof(Header));
    static constexpr std::size_t frameCells = cellsOf(sizeof(Frame));

    /// A kilobyte, some 30 usual messages: so the blocks that the channels of 64 modules write into
    /// stay within a processor's cache.
    static constexpr std::size_t blockCells = 64;
    struct Block {
        std::unique_ptr<Block> next;
        std::array<Cell, blockCells> cells;
    };
    /// Where the last sample of a block may begin: a record is made whole before it is known how
    /// much of it is used.
    static constexpr std::size_t lastStart = blockCells - headerCells - frameCells;
    /// Blocks kept for the capture thread, 64 kilobytes.
    static constexpr std::size_t spareBlocks = 64;

    const Header& front() const { return *reinterpret_cast<const Header*>(&first->cells[start]); }

    /// Capture thread.
    [[gnu::noinline]] void addBlock() {
        std::atomic<Block*>& slot = spares[nextTaken % spareBlocks];
        Block* block = slot.load(std::memory_order_acquire);
        if (block != nullptr) {
            slot.store(nullptr, std::memory_order_release);
            ++nextTaken;
        } else {
            block = new Block;
        }
        (last != nullptr ? last->next : firstMade).reset(block);
        last = block;
        finish = 0;
    }

    std::unique_ptr<Block>& nextOf(const std::unique_ptr<Block>& block) {
        return block ? block->next : firstMade;
    }

    /// Host's thread. Where nothing was taken over behind it, there may be no next block yet.
    void leaveFinishedBlock() {
        if (start > lastStart && hasNext()) {
            leaveBlock();
        }
    }
    [[gnu::noinline]] void leaveBlock() {
        std::unique_ptr<Block> block = std::exchange(first, std::move(nextOf(first)));
        start = 0;
        if (!block) {
            return;
        }
        std::atomic<Block*>& slot = spares[nextGiven % spareBlocks];
        if (slot.load(std::memory_order_acquire) == nullptr) {
            slot.store(block.release(), std::memory_order_release);
            ++nextGiven;
        } else {
            FreedMemory::note(sizeof(Block));
        }
    }

    // Each thread's own lie apart, so that the processors don't take them from each other.
    static constexpr std::size_t apart = 64;

    // The host's thread's own.
    alignas(apart) std::unique_ptr<Block> first;
    std::size_t start = blockCells;  ///< the front's cell in `first`
    std::uint64_t takenOver = 0;
    std::uint64_t dropped = 0;
    std::size_t nextGiven = 0;
    std::uint32_t clears = 0;

    // The capture thread's own, but for what is atomic.
    alignas(apart) Block* last = nullptr;
    std::size_t finish = blockCells;  ///< behind the last sample, in `last`
    /// Stands in for the `next` of a block before the first: a channel that gets no messages, as
    /// most do, needs no block.
    std::unique_ptr<Block> firstMade;
    std::uint64_t appended = 0;
    std::size_t nextTaken = 0;
    std::atomic<std::uint64_t> handedOver{0};  ///< how many samples, ever
    std::atomic<std::uint64_t> countedFrom{0};

    alignas(apart) std::array<std::atomic<Block*>, spareBlocks> spares = {};
};
