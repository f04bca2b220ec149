#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "host/bus_record.h"

namespace station {

/// Messages one behind the other, in the order in which they came. Of a CAN record only what is in
/// use is kept: most are classic messages, whose record is zero for the most part.
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
        Head stored = head;
        std::size_t kept = shortened(record, head.size);
        if (kept == 0) {
            kept = head.size;
            stored.size |= isWhole;
        }
        std::uint8_t* const to = bytes.get() + used;
        std::memcpy(to, &stored, sizeof stored);
        copy(to + sizeof stored, record, kept);
        used += sizeof stored + kept;
        ++count;
        earliest = std::min(earliest, head.utcNanoseconds);
    }
    bool isEmpty() const { return used == 0; }
    std::size_t getUsed() const { return used; }
    const std::uint8_t* begin() const { return bytes.get(); }
    const std::uint8_t* end() const { return bytes.get() + used; }
    void clear() {
        used = 0;
        count = 0;
        earliest = std::numeric_limits<std::int64_t>::max();
    }

    /// What comes behind this chunk is expected not to be older.
    std::int64_t horizon = std::numeric_limits<std::int64_t>::min();

  private:
    friend class TimeMerge;

    static constexpr std::size_t word = sizeof(std::uint64_t);

    /// In the size of a head in here: all of the record is kept.
    static constexpr std::uint32_t isWhole = 0x80000000;

    static std::size_t wordsOf(std::size_t length) {
        return offsetof(CanFrame, data) +
               (std::min(length, CanFrame::mostData) + word - 1) / word * word;
    }
    /// How many bytes of the record, from its start, are enough, as what follows is zero; 0 if it
    /// isn't one of CAN, for an Ethernet frame may be as long.
    static std::size_t shortened(const void* record, std::size_t size) {
        const auto* const from = static_cast<const std::uint8_t*>(record);
        if (size != sizeof(CanFrame)) {
            return 0;
        }
        const std::size_t kept = wordsOf(from[offsetof(CanFrame, length)]);
        std::uint64_t behind = 0;
        for (std::size_t at = kept; at < size; at += word) {
            std::uint64_t next = 0;
            std::memcpy(&next, from + at, word);
            behind |= next;
        }
        return behind == 0 ? kept : 0;
    }
    /// Of a record in here.
    static std::size_t keptOf(const std::uint8_t* kept, std::uint32_t storedSize) {
        return (storedSize & isWhole) != 0 ? storedSize & ~isWhole
                                           : wordsOf(kept[offsetof(CanFrame, length)]);
    }
    /// A CAN record, as whole words, without a call.
    static void copy(std::uint8_t* to, const void* from, std::size_t size) {
        if (size % word != 0) {
            std::memcpy(to, from, size);
            return;
        }
        for (std::size_t at = 0; at < size; at += word) {
            std::memcpy(to + at, static_cast<const std::uint8_t*>(from) + at, word);
        }
    }

    const std::unique_ptr<std::uint8_t[]> bytes =
        std::make_unique_for_overwrite<std::uint8_t[]>(mostBytes);
    std::size_t used = 0;
    std::size_t count = 0;
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
    /// A record as it was, with the zeros that aren't kept.
    class WholeRecord {
      public:
        const std::uint8_t* get(const std::uint8_t* kept, std::uint32_t storedSize) {
            if ((storedSize & MessageChunk::isWhole) != 0) {
                return kept;
            }
            const std::size_t keptSize = MessageChunk::keptOf(kept, storedSize);
            MessageChunk::copy(bytes.data(), kept, keptSize);
            if (used > keptSize) {
                std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(keptSize),
                          bytes.begin() + static_cast<std::ptrdiff_t>(used), std::uint8_t{0});
            }
            used = keptSize;
            return bytes.data();
        }

      private:
        alignas(CanFrame) std::array<std::uint8_t, sizeof(CanFrame)> bytes{};
        std::size_t used = 0;  ///< behind them all is zero
    };

    static Head headAt(const std::uint8_t* at) {
        Head head{};
        std::memcpy(&head, at, sizeof head);
        return head;
    }
    void collect(std::int64_t horizon);
    void collect(MessageChunk& chunk, std::int64_t horizon);
    /// Room for so many more in `batch`.
    Entry* makeRoom(std::size_t count);
    void sort();
    bool spread(std::int64_t first, std::int64_t last);
    void dropChunks();

    std::vector<std::unique_ptr<MessageChunk>> held;  ///< in the order in which they came
    std::size_t lookedAt = 0;                         ///< so many of them, the first
    std::vector<Waiting> waiting;                     ///< messages of those that are held back
    std::vector<std::unique_ptr<MessageChunk>> spare;
    std::unique_ptr<MessageChunk> current;  ///< of `add`

    // Of one release. The vectors grow only; of `batch` the first `batchSize` count.
    std::vector<Entry> batch;
    std::size_t batchSize = 0;
    std::vector<Entry> spreadBatch;
    std::vector<std::uint32_t> placeOf;  ///< of each of the batch
    std::vector<std::uint32_t> places;
    WholeRecord whole;

    std::size_t heldBytes = 0;
    std::int64_t latest = std::numeric_limits<std::int64_t>::min();
    std::uint64_t late = 0;
};

template <typename Sink>
void TimeMerge::release(std::int64_t horizon, Sink&& sink) {
    constexpr std::size_t ahead = 8;  // records that are on their way from memory
    collect(horizon);
    sort();
    for (std::size_t i = 0; i < batchSize; ++i) {
        if (i + ahead < batchSize) {
            __builtin_prefetch(batch[i + ahead].at);
        }
        const Entry entry = batch[i];
        late += entry.time < latest ? 1 : 0;
        latest = std::max(latest, entry.time);
        Head head = headAt(entry.at);
        const std::uint8_t* const record = whole.get(entry.at + sizeof head, head.size);
        head.size &= ~MessageChunk::isWhole;
        sink(head, record);
    }
    dropChunks();
}

}  // namespace station
