#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "station/gui/plot/chunked_queue.h"

namespace station {

/// A value of a signal.
struct SignalPoint {
    std::int64_t utc = 0;  ///< nanoseconds since 1970
    double value = 0.0;
};

/// What some points in a row have in common. Of a single point both times are the same.
struct SignalExtent {
    std::int64_t first = 0;  ///< UTC of the first point, nanoseconds since 1970
    std::int64_t last = 0;
    double low = 0.0;  ///< of the finite values; above `high` if there is none
    double high = 0.0;

    explicit SignalExtent(const SignalPoint& point);
    void add(const SignalExtent& later);
    bool hasValues() const { return low <= high; }
};

/// The values of a signal over time, in bounded memory, so that a plot of a long measurement is
/// drawn at once.
///
/// The newest points are held as they are. Beside them are levels of extents: one of the first for
/// 64 points, one of each level above for 64 of the level below. Each level reaches further back
/// than the one below and drops its oldest when its share of the memory is used up. Where the
/// points are held, all answers are exact. Before them they are those of extents: an extent that
/// lies across a limit counts on both sides, so that no peak is missed.
///
/// Points are in order of time; equal times are. One that is older than the newest isn't taken, but
/// counted. Values that are no numbers are kept, and are no part of extents.
class SignalSeries {
  public:
    /// Times at which something begins and ends, the end not included.
    struct Range {
        std::int64_t from = 0;
        std::int64_t to = 0;
        bool operator==(const Range&) const = default;
    };
    using Snapshot = std::deque<std::shared_ptr<const ChunkedQueue<SignalPoint>::Chunk>>;

    static constexpr std::size_t defaultMemory = 80U << 20U;  ///< a day at 1 kHz, and a half

    explicit SignalSeries(std::size_t memory = defaultMemory) { setMemory(memory); }

    /// About so many bytes at most, but not less than a megabyte; drops what is too old for it.
    void setMemory(std::size_t memory);
    /// How many are used.
    std::size_t getMemory() const;

    void append(std::int64_t utc, double value);

    bool isEmpty() const { return count() == 0; }
    std::uint64_t count() const { return points.end(); }  ///< of all that were taken
    std::uint64_t getLate() const { return late; }        ///< points that weren't taken
    std::int64_t getOldest() const;                       ///< its time; 0 without points
    std::int64_t getNewest() const { return isEmpty() ? 0 : points[count() - 1].utc; }
    /// From there on the points are held as they are; 0 without points.
    std::int64_t oldestPoint() const { return isEmpty() ? 0 : points[points.begin()].utc; }

    /// What is to be drawn into that many columns of equal width: the points, if there are no more
    /// than two a column, otherwise the extent of each column that has any, once for columns that
    /// share an extent. In order of time.
    std::vector<SignalExtent> envelope(Range range, std::size_t columns) const;
    /// Of all points between these times; empty if there is none.
    std::optional<SignalExtent> extent(Range range) const;
    /// The last point up to that time, or what is left of it.
    std::optional<SignalExtent> before(std::int64_t utc) const;
    /// The first point from that time on, or what is left of it.
    std::optional<SignalExtent> after(std::int64_t utc) const;
    /// The points that are held as they are, in order, for another thread.
    Snapshot share() const { return points.share(); }

  private:
    static constexpr unsigned bits = 6;  ///< 64 extents make one of the level above
    static constexpr std::size_t levels = 3;

    /// A part of the points, by their numbers.
    struct Part {
        std::uint64_t from = 0;
        std::uint64_t to = 0;
        bool operator==(const Part&) const = default;
    };

    SignalExtent item(std::size_t level, std::uint64_t number) const;
    /// What holds that point, as fine as there is.
    SignalExtent itemOf(std::uint64_t number) const;
    std::uint64_t itemsEnd(std::size_t level) const;
    /// Number of the first point that a level has.
    std::uint64_t begin(std::size_t level) const;
    std::uint64_t firstEndingFrom(std::int64_t utc) const;
    std::uint64_t endOfBeginningBefore(std::int64_t utc) const;
    template <typename IsBehind>
    std::uint64_t search(IsBehind isBehind) const;
    /// The points between these times and those that are held together with them.
    Part part(Range range) const;
    SignalExtent fold(Part part) const;
    /// The largest extent that begins with that point and ends before `to`: its level.
    std::size_t largestAt(std::uint64_t number, std::uint64_t to) const;

    ChunkedQueue<SignalPoint> points;
    std::array<ChunkedQueue<SignalExtent>, levels> extents;
    std::array<std::size_t, levels + 1> mostChunks = {};
    std::uint64_t late = 0;
};

}  // namespace station
