#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <optional>

namespace station {

/// A message in a store, as it came. Its record is there until the store changes.
struct StoredMessage {
    std::size_t channel = 0;
    std::int64_t utc = 0;                  ///< nanoseconds since 1970
    const std::uint8_t* record = nullptr;  ///< as the channel's bus has it, without the bytes
                                           ///< behind the data of a CAN message
    std::size_t size = 0;                  ///< of the record, bytes
};

/// The last messages of a measurement, in the order in which they came, as many as fit into memory
/// that is set aside. To keep one costs a copy of its record.
///
/// Messages have numbers: 0 for the first one that ever came. The oldest go in chunks of about a
/// megabyte.
///
/// A copy is a picture: it shares the messages and keeps them for as long as it lives. Only the
/// original may be added to.
class MessageStore {
  public:
    /// `mostBytes`: never below two chunks.
    explicit MessageStore(std::size_t mostBytes) : most(mostBytes) {}

    /// From the next message on.
    void setMost(std::size_t mostBytes) { most = mostBytes; }
    void add(const StoredMessage& message);
    void clear();

    /// Numbers of the oldest that is there, and behind the newest.
    std::uint64_t begin() const { return chunks.empty() ? next : chunks.front()->first; }
    std::uint64_t end() const { return next; }
    /// Empty for one that isn't there.
    std::optional<StoredMessage> find(std::uint64_t number) const;
    /// `call(number, message)` for each from `from` to before `to` that is there: much faster than
    /// to find one after the other.
    template <typename Call>
    void forEach(std::uint64_t from, std::uint64_t to, const Call& call) const {
        const std::uint64_t stop = std::min(to, next);
        std::uint64_t number = std::max(from, begin());
        for (auto at = number < stop ? chunkOf(number) : chunks.end(); number < stop; ++at) {
            const auto behind = std::next(at);
            const std::uint64_t end =
                behind != chunks.end() ? std::min(stop, (*behind)->first) : stop;
            for (; number < end; ++number) {
                call(number, read(**at, number));
            }
        }
    }

  private:
    static constexpr std::size_t chunkBytes = std::size_t{1} << 20;
    /// What is in it never moves and never changes, so that a picture may be read on another
    /// thread while the original goes on.
    struct Chunk {
        std::uint64_t first = 0;
        std::unique_ptr<std::uint32_t[]> offsets;  ///< of the messages in `bytes`
        std::unique_ptr<std::uint8_t[]> bytes;
    };

    /// In front of each record.
    struct Head {
        std::int64_t utc;
        std::uint32_t channel;
        std::uint32_t size;
    };

    static StoredMessage read(const Chunk& chunk, std::uint64_t number) {
        const std::uint8_t* const at = &chunk.bytes[chunk.offsets[number - chunk.first]];
        Head head;
        std::memcpy(&head, at, sizeof head);
        return {head.channel, head.utc, at + sizeof head, head.size};
    }
    using Chunks = std::deque<std::shared_ptr<Chunk>>;

    /// That has a message which is there.
    Chunks::const_iterator chunkOf(std::uint64_t number) const;
    /// The last one, with room for so much.
    Chunk& chunkFor(std::size_t bytes);

    std::size_t most;
    std::uint64_t next = 0;
    Chunks chunks;
    std::size_t used = 0;  ///< bytes of the last chunk
};

}  // namespace station
