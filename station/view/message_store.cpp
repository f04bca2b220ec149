#include "station/view/message_store.h"

#include <algorithm>
#include <cstring>

namespace station {
namespace {

/// What a message takes at least, bytes: it says how many a chunk can have.
constexpr std::size_t shortest = 16 + 8;

}  // namespace

MessageStore::Chunk& MessageStore::chunkFor(std::size_t bytes) {
    if (chunks.empty() || used + bytes > chunkBytes) {
        constexpr std::size_t mostMessages = chunkBytes / shortest;
        constexpr std::size_t chunkCost = chunkBytes + mostMessages * sizeof(std::uint32_t);
        while (chunks.size() > 1 && (chunks.size() + 1) * chunkCost > most) {
            chunks.pop_front();
        }
        Chunk& chunk = *chunks.emplace_back(std::make_shared<Chunk>());
        chunk.first = next;
        chunk.offsets = std::make_unique_for_overwrite<std::uint32_t[]>(mostMessages);
        chunk.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(chunkBytes);
        used = 0;
    }
    return *chunks.back();
}

void MessageStore::add(const StoredMessage& message) {
    const std::size_t size = std::max(sizeof(Head) + message.size, shortest);
    Chunk& chunk = chunkFor(size);
    const Head head{message.utc, static_cast<std::uint32_t>(message.channel),
                    static_cast<std::uint32_t>(message.size)};
    chunk.offsets[next - chunk.first] = static_cast<std::uint32_t>(used);
    std::uint8_t* const at = &chunk.bytes[used];
    std::memcpy(at, &head, sizeof head);
    std::memcpy(at + sizeof head, message.record, message.size);
    used += size;
    ++next;
}

void MessageStore::clear() {
    chunks.clear();
}

MessageStore::Chunks::const_iterator MessageStore::chunkOf(std::uint64_t number) const {
    const auto isBehind = [](std::uint64_t wanted, const auto& chunk) {
        return wanted < chunk->first;
    };
    return std::prev(std::upper_bound(chunks.begin(), chunks.end(), number, isBehind));
}

std::optional<StoredMessage> MessageStore::find(std::uint64_t number) const {
    if (number < begin() || number >= end()) {
        return {};
    }
    return read(**chunkOf(number), number);
}

}  // namespace station
