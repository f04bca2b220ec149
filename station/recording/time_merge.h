#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
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
        earliest = std::min(earliest, head.utcNanoseconds);
    }
    bool isEmpty() const { return used == 0; }
    std::size_t getUsed() const { return used; }
    const std::uint8_t* begin() const { return bytes.get(); }
    const std::uint8_t* end() const { return bytes.get() + used; }
    void clear() {
        used = 0;
        earliest = std::numeric_limits<std::int64_t>::max();
    }

    /// What comes behind this chunk is expected not to be older.
    std::int64_t horizon = std::numeric_limits<std::int64_t>::min();

  private:
    friend class TimeMerge;

    const std::unique_ptr<std::uint8_t[]> bytes = std::make_unique<std::uint8_t[]>(mostBytes);
    std::size_t used = 0;
    std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
    std::size_t waiting = 0;  ///< in a `TimeMerge`: messages that were looked at and held back
};

/// Brings the messages of many channels into the order of their times; those of one time go by
/// channel, and of one channel in the order in which they came.
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
    /// A message of a chunk, by its time and its head.
    struct Entry {
        std::int64_t time;
        const std::uint8_t* at;

        bool isBefore(const Entry& other) const {
            return time != other.time ? time < other.time
                                      : headAt(at).channel < headAt(other.at).channel;
        }
    };
    struct Waiting {
        Entry entry;
        MessageChunk* chunk;
    };

    static Head headAt(const std::uint8_t* at) {
        Head head{};
        std::memcpy(&head, at, sizeof head);
        return head;
    }
    void collect(std::int64_t horizon);
    void collect(MessageChunk& chunk, std::int64_t horizon);
    void sort();
    bool spread(std::int64_t first, std::int64_t last);
    void dropChunks();

    std::vector<std::unique_ptr<MessageChunk>> held;  ///< in the order in which they came
    std::size_t lookedAt = 0;                         ///< so many of them, the first
    std::vector<Waiting> waiting;                     ///< messages of those that are held back
    std::vector<std::unique_ptr<MessageChunk>> spare;
    std::unique_ptr<MessageChunk> current;  ///< of `add`

    // Of one release.
    std::vector<Entry> batch;
    std::vector<Entry> spreadBatch;
    std::vector<std::uint32_t> places;

    std::size_t heldBytes = 0;
    std::int64_t latest = std::numeric_limits<std::int64_t>::min();
    std::uint64_t late = 0;
};

template <typename Sink>
void TimeMerge::release(std::int64_t horizon, Sink&& sink) {
    constexpr std::size_t ahead = 8;  // records that are on their way from memory
    collect(horizon);
    sort();
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (i + ahead < batch.size()) {
            __builtin_prefetch(batch[i + ahead].at);
            __builtin_prefetch(batch[i + ahead].at + 64);
        }
        const Entry entry = batch[i];
        late += entry.time < latest ? 1 : 0;
        latest = std::max(latest, entry.time);
        sink(headAt(entry.at), entry.at + sizeof(Head));
    }
    dropChunks();
}

}  // namespace station
