#include "station/recording/time_merge.h"

#include <algorithm>
#include <utility>

namespace station {

void TimeMerge::take(std::unique_ptr<MessageChunk> chunk) {
    if (chunk->isEmpty()) {
        spare.push_back(std::move(chunk));
        return;
    }
    heldBytes += chunk->getUsed();
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

/// Puts what is to be given out into `batch`, in the order in which it came. A chunk is looked at
/// once, and none before those that came before it.
void TimeMerge::collect(std::int64_t horizon) {
    if (current && current->earliest < horizon) {
        take(std::exchange(current, nullptr));
    }
    batchSize = 0;
    Entry* to = makeRoom(waiting.size());
    std::size_t kept = 0;
    for (const Waiting& message : waiting) {
        if (message.entry.time < horizon) {
            *to++ = message.entry;
            --message.chunk->waiting;
        } else {
            waiting[kept++] = message;
        }
    }
    waiting.resize(kept);
    batchSize = static_cast<std::size_t>(to - batch.data());
    const auto end =
        std::find_if(held.rbegin(), held.rend() - static_cast<std::ptrdiff_t>(lookedAt),
                     [horizon](const std::unique_ptr<MessageChunk>& chunk) {
                         return chunk->earliest < horizon;
                     });
    for (const auto last = static_cast<std::size_t>(held.rend() - end); lookedAt < last;
         ++lookedAt) {
        collect(*held[lookedAt], horizon);
    }
}

void TimeMerge::collect(MessageChunk& chunk, std::int64_t horizon) {
    Entry* to = makeRoom(chunk.count);
    const std::uint8_t* const end = chunk.end();
    for (const std::uint8_t* at = chunk.begin(); at != end;) {
        const Head head = headAt(at);
        if (head.utcNanoseconds < horizon) {
            *to++ = {head.utcNanoseconds, at};
        } else {
            waiting.push_back({{head.utcNanoseconds, at}, &chunk});
            ++chunk.waiting;
        }
        at += sizeof head;
        at += MessageChunk::keptOf(at, head.size);
    }
    batchSize = static_cast<std::size_t>(to - batch.data());
}

TimeMerge::Entry* TimeMerge::makeRoom(std::size_t count) {
    if (batch.size() < batchSize + count) {
        batch.resize(2 * (batchSize + count));
    }
    return batch.data() + batchSize;
}

/// Messages come at times that lie alike: spread over as many places as there are messages, each is
/// next to its own. Where they aren't alike, comparing them all is right too, and slower.
void TimeMerge::sort() {
    bool isSorted = true;
    std::int64_t first = all;
    std::int64_t last = std::numeric_limits<std::int64_t>::min();
    for (std::size_t i = 0; i < batchSize; ++i) {
        isSorted = isSorted && (i == 0 || !batch[i].isBefore(batch[i - 1]));
        first = std::min(first, batch[i].time);
        last = std::max(last, batch[i].time);
    }
    if (!isSorted && !spread(first, last)) {
        std::stable_sort(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(batchSize),
                         [](const Entry& a, const Entry& b) { return a.isBefore(b); });
    }
}

/// False if it would take too long, and the batch isn't in order yet; those of one time and channel
/// are as they were.
bool TimeMerge::spread(std::int64_t first, std::int64_t last) {
    constexpr std::size_t mostMoves = 8;  // for each message
    // The difference is taken before it becomes a floating-point number, which has no room for a
    // nanosecond of today.
    const auto sinceFirst = [first](std::int64_t time) {
        return static_cast<double>(static_cast<std::uint64_t>(time) -
                                   static_cast<std::uint64_t>(first));
    };
    const std::size_t lastPlace = batchSize - 1;
    const double perPlace = static_cast<double>(lastPlace) / std::max(sinceFirst(last), 1.0);
    placeOf.resize(batch.size());
    places.assign(batchSize + 1, 0);
    for (std::size_t i = 0; i < batchSize; ++i) {
        const auto place = static_cast<std::size_t>(sinceFirst(batch[i].time) * perPlace);
        placeOf[i] = static_cast<std::uint32_t>(std::min(place, lastPlace));
        ++places[placeOf[i] + 1];
    }
    for (std::size_t i = 1; i < places.size(); ++i) {
        places[i] += places[i - 1];
    }
    spreadBatch.resize(batch.size());
    for (std::size_t i = 0; i < batchSize; ++i) {
        spreadBatch[places[placeOf[i]]++] = batch[i];
    }
    batch.swap(spreadBatch);

    std::size_t movesLeft = mostMoves * batchSize;
    for (std::size_t i = 1; i < batchSize && movesLeft > 0; ++i) {
        const Entry entry = batch[i];
        std::size_t place = i;
        for (; place > 0 && movesLeft > 0 && entry.isBefore(batch[place - 1]); --place) {
            batch[place] = batch[place - 1];
            --movesLeft;
        }
        batch[place] = entry;
    }
    return movesLeft > 0;
}

void TimeMerge::dropChunks() {
    constexpr std::size_t mostKept = 32;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < held.size(); ++i) {
        if (i >= lookedAt || held[i]->waiting != 0) {
            held[kept++].swap(held[i]);
            continue;
        }
        heldBytes -= held[i]->getUsed();
        if (spare.size() < mostKept) {
            held[i]->clear();
            spare.push_back(std::move(held[i]));
        }
    }
    lookedAt -= held.size() - kept;
    held.resize(kept);
}

}  // namespace station
