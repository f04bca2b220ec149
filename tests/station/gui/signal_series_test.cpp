#include "station/gui/plot/signal_series.h"

#include <limits>
#include <random>

namespace {

using namespace station;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// A series beside a plain list of its points.
class SignalSeriesTest : public testing::Test {
  protected:
    using Range = SignalSeries::Range;

    /// Steps of time of all sizes, none among them, and now and then a value that is no number.
    void fill(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t kind = random() % 1000;
            utc += kind < 200 ? 0 : kind < 999 ? random() % 2'000'000 : 40'000'000'000;
            const auto number = static_cast<double>(i + random() % 999);
            const double value = kind == 500 ? nan : kind == 501 ? infinity : number;
            series.append(utc, value);
            points.push_back({utc, value});
        }
    }
    std::int64_t anyTime() {
        return points[random() % points.size()].utc + static_cast<std::int64_t>(random() % 3) - 1;
    }
    Range anyRange() {
        const auto [from, to] = std::minmax({anyTime(), anyTime()});
        return {from, to};
    }
    /// Of the points of that range, and so many around them.
    std::optional<SignalExtent> expected(Range range, std::ptrdiff_t around = 0) const {
        const auto find = [&](std::int64_t time) {
            return std::partition_point(points.begin(), points.end(),
                                        [&](const SignalPoint& point) { return point.utc < time; });
        };
        auto at = find(range.from);
        auto end = find(range.to);
        at -= std::min(around, at - points.begin());
        end += std::min(around, points.end() - end);
        std::optional<SignalExtent> all;
        for (; at != end; ++at) {
            all ? all->add(SignalExtent(*at)) : static_cast<void>(all.emplace(*at));
        }
        return all;
    }
    static std::string text(const std::optional<SignalExtent>& extent) {
        return extent ? testing::PrintToString(
                            std::tuple(extent->first, extent->last, extent->low, extent->high))
                      : "none";
    }

    std::mt19937_64 random{7};
    std::int64_t utc = 1'700'000'000'000'000'000;
    SignalSeries series{0};
    std::vector<SignalPoint> points;
};

TEST_F(SignalSeriesTest, WhereThePointsAreHeldAllAnswersAreThoseOfThePoints) {
    fill(9000);
    ASSERT_EQ(series.oldestPoint(), points[4096].utc);
    points.erase(points.begin(), points.begin() + 4096);
    for (int i = 0; i < 300; ++i) {
        const Range range = anyRange();
        const std::size_t columns = 1 + random() % 400;
        EXPECT_EQ(text(series.extent(range)), text(expected(range)));
        std::string drawn;
        std::size_t inRange = 0;
        for (const SignalExtent& extent : series.envelope(range, columns)) {
            drawn += text(extent);
        }
        std::string singles;
        for (const SignalPoint& point : points) {
            const bool isIn = point.utc >= range.from && point.utc < range.to;
            singles += isIn ? text(SignalExtent(point)) : "";
            inRange += isIn ? 1 : 0;
        }
        std::string folded;
        for (std::size_t column = 0; column < columns; ++column) {
            const auto edge = [&](std::size_t at) {
                const auto width = static_cast<__int128>(range.to - range.from);
                return range.from + static_cast<std::int64_t>(width * at / columns);
            };
            const auto all = expected({edge(column), edge(column + 1)});
            folded += all ? text(all) : "";
        }
        EXPECT_EQ(drawn, inRange <= 2 * columns ? singles : folded);
    }
    EXPECT_EQ(series.before(points.back().utc)->last, points.back().utc);
    EXPECT_EQ(series.before(utc + 1)->last, utc);
    EXPECT_EQ(series.after(points[9].utc)->first, points[9].utc);
    EXPECT_FALSE(series.after(utc + 1));
}

TEST_F(SignalSeriesTest, WhatIsOlderIsLeftAsExtentsThatMissNothingAndMemoryIsBounded) {
    fill(1'000'000);
    EXPECT_LT(series.getMemory(), 1'000'000U);
    EXPECT_EQ(series.getOldest(), points[0].utc);
    EXPECT_GT(series.oldestPoint(), points[990'000].utc);
    for (int i = 0; i < 60; ++i) {
        Range range = anyRange();
        range.to = i % 2 == 0 ? range.to : std::min(range.to, range.from + 2'000'000'000);
        const auto all = expected(range);
        const auto held = series.extent(range);
        ASSERT_TRUE(held || !all);
        if (!held) {
            continue;
        }
        const std::ptrdiff_t resolution = range.from < points[530'000].utc ? 4096 : 64;
        const auto wide = expected(range, resolution);
        EXPECT_TRUE(!all || (held->low <= all->low && held->high >= all->high &&
                             held->first <= all->first && held->last >= all->last));
        EXPECT_TRUE(held->low >= wide->low && held->high <= wide->high);
    }
    const auto columns = series.envelope({points[0].utc, utc + 1}, 100);
    EXPECT_EQ(columns.front().first, points[0].utc);
    EXPECT_EQ(columns.back().last, utc);
    EXPECT_EQ(text(series.before(points[0].utc)), text(series.after(points[0].utc)));
}

TEST_F(SignalSeriesTest, ALatePointIsCountedAndStrangeTimesAndValuesDoNoHarm) {
    EXPECT_TRUE(series.envelope({0, 1}, 10).empty());
    EXPECT_FALSE(series.before(0));
    series.append(100, 1);
    series.append(99, 50);
    series.append(100, 2);
    EXPECT_EQ(series.getLate(), 1U);
    EXPECT_EQ(series.count(), 2U);
    EXPECT_EQ(series.extent({0, 1000})->high, 2);
    series.setMemory(10U << 20U);
    for (int i = 0; i < 100'000; ++i) {
        series.append(100, 3);
    }
    EXPECT_GT(series.getMemory(), 1'000'000U);
    series.setMemory(0);
    EXPECT_LT(series.getMemory(), 1'000'000U);
    EXPECT_EQ(series.extent({100, 101})->low, 1) << "what was dropped is in extents";
    constexpr auto last = std::numeric_limits<std::int64_t>::max();
    constexpr auto first = std::numeric_limits<std::int64_t>::min();
    series.append(last - 1, nan);
    EXPECT_FALSE(series.before(last)->hasValues());
    EXPECT_EQ(series.envelope({first, last}, 1500).size(), 2U);
    EXPECT_EQ(series.envelope({first, last}, 1).size(), 1U);
    EXPECT_TRUE(series.envelope({5, 5}, 10).empty());
    EXPECT_TRUE(series.envelope({last, first}, 10).empty());
}

}  // namespace
