#include "station/view/message_list.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

namespace station {

void MessageList::setFilter(LiveFilter newFilter) {
    MessageList fresh;
    fresh.filter = std::move(newFilter);
    *this = std::move(fresh);
}

/// The verdict is kept by identifier, as names are slow to look for.
bool MessageList::passes(const StoredMessage& message, BusType bus) {
    if (filter.passesAll()) {
        return true;
    }
    const BusMessage decoded(message, bus);
    const auto [verdict, isNew] = verdicts.try_emplace(decoded.key(), false);
    if (isNew) {
        verdict->second = filter.passes({decoded.channel, decoded.id, decoded.isExtended});
        constexpr std::size_t most = 100000;  // anybody may send 536 million identifiers
        if (verdicts.size() > most) {
            const bool isWanted = verdict->second;
            verdicts.clear();
            return isWanted;
        }
    }
    return verdict->second;
}

bool MessageList::update(const MessageStore& store, const std::vector<BusType>& buses,
                         std::int64_t now, std::chrono::milliseconds slice) {
    constexpr std::uint64_t turn = 16384;  // messages between two looks at the time
    const auto until = std::chrono::steady_clock::now() + slice;
    const std::uint64_t end = store.end();
    constexpr std::int64_t ahead = 1'000'000'000;  // nanoseconds
    if (looked < store.begin()) {
        missed += hasLooked ? store.begin() - looked : 0;
        looked = store.begin();
    }
    hasLooked = true;
    dropGone(store);
    while (looked < end) {
        const std::uint64_t stop = std::min(end, looked + turn);
        const auto ordered = static_cast<std::ptrdiff_t>(waiting.size());
        store.forEach(looked, stop, [&](std::uint64_t number, const StoredMessage& message) {
            const bool isAhead = message.utc > now + ahead;
            newest = isAhead ? newest : std::max(newest, message.utc);
            if (!passes(message, buses[message.channel])) {
                return;
            }
            if (isAhead) {
                rows.push_back(static_cast<std::uint32_t>(number - base));
            } else {
                waiting.push_back({message.utc, message.channel, number});
            }
        });
        looked = stop;
        order(ordered);
        place(false);
        if (looked < end && std::chrono::steady_clock::now() >= until) {
            return false;
        }
    }
    if (std::exchange(endBefore, end) == end) {
        place(true);
    }
    return true;
}

void MessageList::finish(const MessageStore& store, const std::vector<BusType>& buses,
                         std::int64_t now) {
    while (!update(store, buses, now, std::chrono::milliseconds(100))) {
    }
    place(true);
}

/// All of what waits, of which so many are in order.
void MessageList::order(std::ptrdiff_t ordered) {
    const auto place = [](const Waiting& one) {
        return std::tuple(one.utc, one.channel, one.number);
    };
    const auto middle = waiting.begin() + ordered;
    std::ranges::sort(middle, waiting.end(), {}, place);
    std::ranges::inplace_merge(waiting, middle, {}, place);
}

void MessageList::place(bool isQuiet) {
    constexpr std::int64_t wait = 100'000'000;  // nanoseconds
    const auto isDue = [&](const Waiting& one) { return isQuiet || one.utc <= newest - wait; };
    const auto due = std::ranges::partition_point(waiting, isDue);
    for (auto one = waiting.begin(); one != due; ++one) {
        rows.push_back(static_cast<std::uint32_t>(one->number - base));
    }
    waiting.erase(waiting.begin(), due);
}

/// The rows are in the order of time, the store in that of coming: so a few that have gone may be
/// left behind one that hasn't, and are looked for.
void MessageList::dropGone(const MessageStore& store) {
    const std::uint64_t first = store.begin();
    const auto isGone = [&](std::uint32_t row) { return base + row < first; };
    const std::size_t before = rows.size();
    while (!rows.empty() && isGone(rows.front())) {
        rows.pop_front();
    }
    if (rows.size() != before) {
        constexpr std::size_t near = 200000;
        const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(near, rows.size()));
        rows.erase(std::remove_if(rows.begin(), end, isGone), end);
        std::erase_if(waiting, [&](const Waiting& one) { return one.number < first; });
    }
    gone += before - rows.size();
    constexpr std::uint64_t room = std::uint64_t{1} << 31;
    if (first - base > room) {
        const auto moved = static_cast<std::uint32_t>(first - base);
        for (std::uint32_t& row : rows) {
            row -= moved;
        }
        base = first;
    }
}

}  // namespace station
