#include "station/recording/frame_queue.h"

#include <algorithm>
#include <memory>

namespace station {

FrameQueue::FrameQueue(std::size_t mostBytes)
    : mostChunks(std::max<std::size_t>(mostBytes / chunkBytes, 2)),
      filled(new Chunk),
      emptied(filled) {}

FrameQueue::~FrameQueue() {
    for (Chunk* chunk = emptied; chunk != nullptr;) {
        const std::unique_ptr<Chunk> done(chunk);
        chunk = done->next;
    }
    for (Chunk* chunk = spare; chunk != nullptr;) {
        const std::unique_ptr<Chunk> done(chunk);
        chunk = done->nextSpare;
    }
}

void FrameQueue::onFrame(std::uint32_t source, std::int64_t receivedAt, const std::uint8_t* data,
                         std::uint32_t length) {
    const std::size_t size = sizeof(Head) + length;
    Chunk* const chunk = findRoom(size);
    if (chunk == nullptr) {
        lost.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    const std::size_t used = chunk->used.load(std::memory_order_relaxed);
    const Head head{receivedAt, source, length};
    std::memcpy(chunk->bytes.data() + used, &head, sizeof head);
    std::memcpy(chunk->bytes.data() + used + sizeof head, data, length);
    chunk->used.store(used + size, std::memory_order_release);
}

/// Null if there is none.
FrameQueue::Chunk* FrameQueue::findRoom(std::size_t size) {
    if (filled->used.load(std::memory_order_relaxed) + size <= chunkBytes) {
        return filled;
    }
    if (size > chunkBytes || chunks.load(std::memory_order_relaxed) >= mostChunks) {
        return nullptr;
    }
    Chunk* chunk = takeSpare();
    if (chunk == nullptr) {
        chunk = new Chunk;
    }
    chunks.fetch_add(1, std::memory_order_relaxed);
    filled->next.store(chunk, std::memory_order_release);
    filled = chunk;
    return chunk;
}

FrameQueue::Chunk* FrameQueue::takeSpare() {
    Chunk* top = spare.load(std::memory_order_acquire);
    while (top != nullptr &&
           !spare.compare_exchange_weak(top, top->nextSpare, std::memory_order_acquire)) {
    }
    if (top != nullptr) {
        spares.fetch_sub(1, std::memory_order_relaxed);
    }
    return top;
}

void FrameQueue::giveBack(Chunk* chunk) {
    constexpr std::size_t mostSpares = 8;
    chunks.fetch_sub(1, std::memory_order_relaxed);
    if (spares.load(std::memory_order_relaxed) >= mostSpares) {
        delete chunk;
        return;
    }
    chunk->used.store(0, std::memory_order_relaxed);
    chunk->next.store(nullptr, std::memory_order_relaxed);
    spares.fetch_add(1, std::memory_order_relaxed);
    chunk->nextSpare = spare.load(std::memory_order_relaxed);
    while (!spare.compare_exchange_weak(chunk->nextSpare, chunk, std::memory_order_release)) {
    }
}

}  // namespace station
