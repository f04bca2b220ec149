#include "station/gui/plot/signal_series.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace station {

SignalExtent::SignalExtent(const SignalPoint& point)
    : first(point.utc), last(point.utc), low(point.value), high(point.value) {
    if (!std::isfinite(point.value)) {
        low = std::numeric_limits<double>::infinity();
        high = -low;
    }
}

void SignalExtent::add(const SignalExtent& later) {
    last = later.last;
    low = std::min(low, later.low);
    high = std::max(high, later.high);
}

/// Each level reaches further back than the one below it, whatever the memory is.
void SignalSeries::setMemory(std::size_t memory) {
    constexpr std::array<std::size_t, levels + 1> tenths = {4, 4, 1, 1};
    for (std::size_t level = 0; level <= levels; ++level) {
        const std::size_t itemSize = level == 0 ? sizeof(SignalPoint) : sizeof(SignalExtent);
        const std::size_t chunk = itemSize * ChunkedQueue<SignalPoint>::chunkSize;
        mostChunks[level] = std::max<std::size_t>(memory / 10 * tenths[level] / chunk, 2);
    }
    points.keep(mostChunks[0]);
    for (std::size_t level = 1; level <= levels; ++level) {
        extents[level - 1].keep(mostChunks[level]);
    }
}

std::size_t SignalSeries::getMemory() const {
    std::size_t bytes = points.bytes();
    for (const auto& level : extents) {
        bytes += level.bytes();
    }
    return bytes;
}

void SignalSeries::append(std::int64_t utc, double value) {
    if (!isEmpty() && utc < getNewest()) {
        ++late;
        return;
    }
    points.push({utc, value});
    for (std::size_t level = 1; level <= levels; ++level) {
        const std::uint64_t below = itemsEnd(level - 1);
        if (below % (1U << bits) != 0) {
            break;
        }
        SignalExtent all = item(level - 1, below - (1U << bits));
        for (std::uint64_t number = below - (1U << bits) + 1; number < below; ++number) {
            all.add(item(level - 1, number));
        }
        extents[level - 1].push(all);
        extents[level - 1].keep(mostChunks[level]);
    }
    points.keep(mostChunks[0]);  // now that the extents have them
}

SignalExtent SignalSeries::item(std::size_t level, std::uint64_t number) const {
    return level == 0 ? SignalExtent(points[number]) : extents[level - 1][number];
}

std::uint64_t SignalSeries::itemsEnd(std::size_t level) const {
    return level == 0 ? points.end() : extents[level - 1].end();
}

/// Chunks are dropped as a whole, and hold 64 times 64 items: where a level begins, one of the
/// level above ends.
std::uint64_t SignalSeries::begin(std::size_t level) const {
    return level == 0 ? points.begin() : extents[level - 1].begin() << (bits * level);
}

std::int64_t SignalSeries::getOldest() const {
    return isEmpty() ? 0 : itemOf(begin(levels)).first;
}

SignalExtent SignalSeries::itemOf(std::uint64_t number) const {
    std::size_t level = 0;
    while (number < begin(level)) {
        ++level;
    }
    return item(level, number >> (bits * level));
}

std::size_t SignalSeries::largestAt(std::uint64_t number, std::uint64_t to) const {
    std::size_t level = levels;
    while (level > 0) {
        const std::uint64_t size = std::uint64_t{1} << (bits * level);
        if (number % size == 0 && number + size <= to && number >= begin(level) &&
            (number >> (bits * level)) < itemsEnd(level)) {
            break;
        }
        --level;
    }
    return level;
}

/// Number of the first point of the first item that isn't behind, of the finest ones that are held.
template <typename IsBehind>
std::uint64_t SignalSeries::search(IsBehind isBehind) const {
    for (std::size_t level = levels + 1; level-- > 0;) {
        const unsigned shift = bits * static_cast<unsigned>(level);
        std::uint64_t low = begin(level) >> shift;
        std::uint64_t high = level == 0 ? points.end() : begin(level - 1) >> shift;
        const std::uint64_t end = high;
        while (low < high) {
            const std::uint64_t middle = low + (high - low) / 2;
            if (isBehind(item(level, middle))) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        if (low < end) {
            return low << shift;
        }
    }
    return points.end();
}

std::uint64_t SignalSeries::firstEndingFrom(std::int64_t utc) const {
    return search([&](const SignalExtent& held) { return held.last < utc; });
}

std::uint64_t SignalSeries::endOfBeginningBefore(std::int64_t utc) const {
    return search([&](const SignalExtent& held) { return held.first < utc; });
}

SignalSeries::Part SignalSeries::part(Range range) const {
    return {firstEndingFrom(range.from), endOfBeginningBefore(range.to)};
}

SignalExtent SignalSeries::fold(Part part) const {
    std::optional<SignalExtent> all;
    while (part.from < part.to) {
        const std::size_t level = largestAt(part.from, part.to);
        const SignalExtent next = item(level, part.from >> (bits * level));
        if (all) {
            all->add(next);
        } else {
            all = next;
        }
        part.from += std::uint64_t{1} << (bits * level);
    }
    return *all;
}

std::vector<SignalExtent> SignalSeries::envelope(Range range, std::size_t columns) const {
    std::vector<SignalExtent> drawn;
    if (range.from >= range.to || columns == 0) {
        return drawn;
    }
    const Part all = part(range);
    if (all.from >= points.begin() && all.to <= all.from + 2 * columns) {
        for (std::uint64_t number = all.from; number < all.to; ++number) {
            drawn.emplace_back(points[number]);
        }
        return drawn;
    }
    const std::uint64_t width =
        static_cast<std::uint64_t>(range.to) - static_cast<std::uint64_t>(range.from);
    // Without an overflow: the remainder is less than `columns`.
    const auto edge = [&](std::uint64_t column) {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(range.from) +
                                         width / columns * column +
                                         width % columns * column / columns);
    };
    Part last;
    for (std::size_t column = 0; column < columns; ++column) {
        const Part its = part({edge(column), edge(column + 1)});
        if (its.from < its.to && its != last) {
            drawn.push_back(fold(its));
            last = its;
        }
    }
    return drawn;
}

std::optional<SignalExtent> SignalSeries::extent(Range range) const {
    const Part all = part(range);
    return all.from < all.to ? std::optional(fold(all)) : std::nullopt;
}

std::optional<SignalExtent> SignalSeries::before(std::int64_t utc) const {
    const std::uint64_t end = search([&](const SignalExtent& held) { return held.first <= utc; });
    return end > begin(levels) ? std::optional(itemOf(end - 1)) : std::nullopt;
}

std::optional<SignalExtent> SignalSeries::after(std::int64_t utc) const {
    const std::uint64_t number = firstEndingFrom(utc);
    return number < points.end() ? std::optional(itemOf(number)) : std::nullopt;
}

}  // namespace station
