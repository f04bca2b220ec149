#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace station {

/// Messages one behind the other, in the order in which they came.
class MessageChunk {
  public:
    static constexpr std::size_t mostBytes = 256 * 1024;

    /// In front of each record.
    struct Head {
        std::int64_t utcNanoseconds;
        std::uint32_t channel;
        std::uint32_t size;  ///< of the record, in bytes
    };

    bool hasRoomFor(std::size_t recordSize) const {
        return used + sizeof(Head) + recordSize <= mostBytes;
    }
    /// There must be room for it.
    void append(const Head& head, const void* record) {
        std::memcpy(bytes.get() + used, &head, sizeof head);
        std::memcpy(bytes.get() + used + sizeof head, record, head.size);
        used += sizeof head + head.size;
    }
    bool isEmpty() const { return used == 0; }
    std::size_t getUsed() const { return used; }
    const std::uint8_t* begin() const { return bytes.get(); }
    const std::uint8_t* end() const { return bytes.get() + used; }
    void clear() { used = 0; }

    /// What comes behind this chunk is expected not to be older.
    std::int64_t horizon = std::numeric_limits<std::int64_t>::min();

  private:
    friend class TimeMerge;

    const std::unique_ptr<std::uint8_t[]> bytes = std::make_unique<std::uint8_t[]>(mostBytes);
    std::size_t used = 0;
    std::size_t runsLeft = 0;  ///< in a `TimeMerge`: those that weren't given out
};

/// Brings the messages of many channels into the order of their times; those of one time go by
/// channel. Those of one channel stay in the order in which they came.
///
/// What comes in behind the horizon up to which messages were given out already is given out as
/// soon as can be, and counted. In a steady flow nothing is allocated.
class TimeMerge {
  public:
    using Head = MessageChunk::Head;
    static constexpr std::int64_t all = std::numeric_limits<std::int64_t>::max();

    TimeMerge() = default;
    TimeMerge(const TimeMerge&) = delete;
    TimeMerge& operator=(const TimeMerge&) = delete;

    /// The chunk comes back by `takeSpare` when all its messages were given out.
    void take(std::unique_ptr<MessageChunk> chunk);
    /// A cleared one; null if there is none.
    std::unique_ptr<MessageChunk> takeSpare();
    /// One more message, for those who have no chunks of their own.
    void add(const Head& head, const void* record);

    /// Gives `sink` all that is older than the horizon, as (Head, record); the record is there for
    /// the call only. With `all`, everything.
    template <typename Sink>
    void release(std::int64_t horizon, Sink&& sink);

    /// Of chunks of which some message wasn't given out yet.
    std::size_t getHeldBytes() const { return heldBytes; }
    /// How many were given out behind a later one.
    std::uint64_t getLate() const { return late; }

  private:
    /// Messages of one channel that lie one behind the other.
    struct Run {
        const std::uint8_t* at;
        const std::uint8_t* end;
        MessageChunk* chunk;
    };
    /// The runs of one channel.
    struct Queue {
        std::vector<Run> runs;
        std::size_t first = 0;

        bool isEmpty() const { return first == runs.size(); }
        Run& front() { return runs[first]; }
        void pop();
    };
    /// Where a channel's next message comes in the order.
    struct Next {
        std::int64_t time;
        std::uint32_t channel;

        bool isBefore(const Next& other) const {
            return time != other.time ? time < other.time : channel < other.channel;
        }
    };

    static Head headAt(const std::uint8_t* at) {
        Head head{};
        std::memcpy(&head, at, sizeof head);
        return head;
    }
    void begin(std::int64_t horizon);
    void sift(std::size_t place);
    /// Which channel comes after the first one, and when.
    Next getSecond() const;
    void finishRun(Queue& queue);
    void endRelease();

    std::vector<Queue> queues;  ///< by channel
    std::vector<std::unique_ptr<MessageChunk>> held;
    std::vector<std::unique_ptr<MessageChunk>> spare;
    std::unique_ptr<MessageChunk> current;  ///< of `add`
    std::vector<Next> heap;                 ///< the earliest is in front
    std::size_t heldBytes = 0;
    std::int64_t latest = std::numeric_limits<std::int64_t>::min();
    std::uint64_t late = 0;
};

template <typename Sink>
void TimeMerge::release(std::int64_t horizon, Sink&& sink) {
    begin(horizon);
    while (!heap.empty()) {
        Queue& queue = queues[heap[0].channel];
        // As long as the channel comes first, nothing needs to be compared but the next time.
        const Next second = getSecond();
        const std::int64_t limit = second.channel > heap[0].channel && second.time < horizon
                                       ? second.time + 1
                                       : std::min(second.time, horizon);
        std::int64_t time = heap[0].time;
        bool isLeft = true;
        do {
            Run& run = queue.front();
            const Head head = headAt(run.at);
            late += time < latest ? 1 : 0;
            latest = std::max(latest, time);
            sink(head, run.at + sizeof(Head));
            run.at += sizeof(Head) + head.size;
            if (run.at == run.end) {
                finishRun(queue);
                isLeft = !queue.isEmpty();
            }
            if (isLeft) {
                time = headAt(queue.front().at).utcNanoseconds;
            }
        } while (isLeft && time < limit);
        if (isLeft && time < horizon) {
            heap[0].time = time;
        } else {
            heap[0] = heap.back();
            heap.pop_back();
        }
        sift(0);
    }
    endRelease();
}

}  // namespace station
