#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace station {

/// A queue whose items keep their number, counted from 0, when older ones are dropped. It grows and
/// shrinks by chunks: neither moves what it holds.
template <typename Item>
class ChunkedQueue {
  public:
    static constexpr unsigned bits = 12;
    static constexpr std::uint64_t chunkSize = 1U << bits;
    using Chunk = std::vector<Item>;

    std::uint64_t begin() const { return first; }
    std::uint64_t end() const { return next; }
    const Item& operator[](std::uint64_t number) const {
        return (*chunks[(number - first) >> bits])[number % chunkSize];
    }

    void push(const Item& item) {
        if (next % chunkSize == 0) {
            chunks.push_back(std::make_shared<Chunk>());
        }
        chunks.back()->push_back(item);
        ++next;
    }
    /// Drops the oldest chunks, so that no more are left than that; one at least.
    void keep(std::size_t mostChunks) {
        while (chunks.size() > 1 && chunks.size() > mostChunks) {
            chunks.pop_front();
            first += chunkSize;
        }
    }
    /// Of the chunks, not of what is around them.
    std::size_t bytes() const {
        return chunks.empty()
                   ? 0
                   : ((chunks.size() - 1) * chunkSize + chunks.back()->capacity()) * sizeof(Item);
    }
    /// All of them as they are now, for another thread: chunks that are full don't change, and the
    /// last one is copied.
    std::deque<std::shared_ptr<const Chunk>> share() const {
        std::deque<std::shared_ptr<const Chunk>> all(chunks.begin(), chunks.end());
        if (!all.empty()) {
            all.back() = std::make_shared<Chunk>(*chunks.back());
        }
        return all;
    }

  private:
    std::deque<std::shared_ptr<Chunk>> chunks;
    std::uint64_t first = 0;  ///< number of the oldest item, of a chunk's first one
    std::uint64_t next = 0;   ///< number of the item to come
};

}  // namespace station
