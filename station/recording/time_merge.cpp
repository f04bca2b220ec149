#include "station/recording/time_merge.h"

#include <algorithm>

namespace station {

void TimeMerge::Queue::pop() {
    constexpr std::size_t many = 64;
    ++first;
    if (first == runs.size()) {
        runs.clear();
        first = 0;
    } else if (first >= many && first * 2 >= runs.size()) {
        runs.erase(runs.begin(), runs.begin() + static_cast<std::ptrdiff_t>(first));
        first = 0;
    }
}

void TimeMerge::take(std::unique_ptr<MessageChunk> chunk) {
    if (chunk->isEmpty()) {
        spare.push_back(std::move(chunk));
        return;
    }
    heldBytes += chunk->getUsed();
    const std::uint8_t* const end = chunk->end();
    for (const std::uint8_t* at = chunk->begin(); at != end;) {
        const std::uint8_t* const start = at;
        Head head = headAt(at);
        const std::uint32_t channel = head.channel;
        while (head.channel == channel) {
            at += sizeof(Head) + head.size;
            if (at == end) {
                break;
            }
            head = headAt(at);
        }
        if (channel >= queues.size()) {
            queues.resize(channel + 1);
        }
        queues[channel].runs.push_back({start, at, chunk.get()});
        ++chunk->runsLeft;
    }
    held.push_back(std::move(chunk));
}

std::unique_ptr<MessageChunk> TimeMerge::takeSpare() {
    if (spare.empty()) {
        return nullptr;
    }
    std::unique_ptr<MessageChunk> chunk = std::move(spare.back());
    spare.pop_back();
    return chunk;
}

void TimeMerge::add(const Head& head, const void* record) {
    if (current && !current->hasRoomFor(head.size)) {
        take(std::exchange(current, nullptr));
    }
    if (!current) {
        current = takeSpare();
    }
    if (!current) {
        current = std::make_unique<MessageChunk>();
    }
    current->append(head, record);
}

void TimeMerge::begin(std::int64_t horizon) {
    if (current) {
        take(std::exchange(current, nullptr));
    }
    heap.clear();
    for (std::uint32_t channel = 0; channel < queues.size(); ++channel) {
        Queue& queue = queues[channel];
        if (!queue.isEmpty()) {
            const std::int64_t time = headAt(queue.front().at).utcNanoseconds;
            if (time < horizon) {
                heap.push_back({time, channel});
            }
        }
    }
    for (std::size_t place = heap.size() / 2; place > 0; --place) {
        sift(place - 1);
    }
}

void TimeMerge::sift(std::size_t place) {
    const std::size_t size = heap.size();
    if (place >= size) {
        return;
    }
    const Next moved = heap[place];
    for (std::size_t child = 2 * place + 1; child < size; child = 2 * place + 1) {
        if (child + 1 < size && heap[child + 1].isBefore(heap[child])) {
            ++child;
        }
        if (!heap[child].isBefore(moved)) {
            break;
        }
        heap[place] = heap[child];
        place = child;
    }
    heap[place] = moved;
}

TimeMerge::Next TimeMerge::getSecond() const {
    if (heap.size() < 2) {
        return {all, 0};
    }
    return heap.size() > 2 && heap[2].isBefore(heap[1]) ? heap[2] : heap[1];
}

void TimeMerge::finishRun(Queue& queue) {
    --queue.front().chunk->runsLeft;
    queue.pop();
}

void TimeMerge::endRelease() {
    constexpr std::size_t mostSpare = 16;
    std::erase_if(held, [&](std::unique_ptr<MessageChunk>& chunk) {
        if (chunk->runsLeft != 0) {
            return false;
        }
        heldBytes -= chunk->getUsed();
        if (spare.size() < mostSpare) {
            chunk->clear();
            spare.push_back(std::move(chunk));
        }
        return true;
    });
}

}  // namespace station
