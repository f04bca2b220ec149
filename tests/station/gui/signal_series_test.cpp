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
            const double value = kind == 500   ? nan
                                 : kind == 501 ? infinity
                                               : static_cast<double>(random() % 10'000) - 5000;
            add(utc, value);
        }
    }
    void add(std::int64_t time, double value) {
        series.append(time, value);
        points.push_back({time, value});
    }
    std::int64_t anyTime() {
        return points[random() % points.size()].utc + static_cast<std::int64_t>(random() % 3) - 1;
    }
    Range anyRange() {
        const auto [from, to] = std::minmax(anyTime(), anyTime());
        return {from, to};
    }
    std::optional<SignalExtent> expected(Range range) const {
        std::optional<SignalExtent> all;
        const auto isBefore = [](const SignalPoint& point, std::int64_t time) {
            return point.utc < time;
        };
        for (auto at = std::lower_bound(points.begin(), points.end(), range.from, isBefore);
             at != points.end() && at->utc < range.to; ++at) {
            all ? all->add(SignalExtent(*at)) : static_cast<void>(all.emplace(*at));
        }
        return all;
    }
    static auto fields(const SignalExtent& extent) {
        return std::tuple(extent.first, extent.last, extent.low, extent.high);
    }
    static std::string text(const std::optional<SignalExtent>& extent) {
        return extent ? testing::PrintToString(fields(*extent)) : "none";
    }

    std::mt19937_64 random{7};
    std::int64_t utc = 1'700'000'000'000'000'000;
    SignalSeries series{1U << 20U};
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
        for (const SignalExtent& extent : series.envelope(range, columns)) {
            drawn += text(extent);
        }
        std::string singles;
        std::size_t inRange = 0;
        for (const SignalPoint& point : points) {
            if (point.utc >= range.from && point.utc < range.to) {
                singles += text(SignalExtent(point));
                ++inRange;
            }
        }
        std::string folded;
        for (std::size_t column = 0; column < columns; ++column) {
            const auto edge = [&](std::size_t at) {
                return range.from + static_cast<std::int64_t>(static_cast<__int128>(at) *
                                                              (range.to - range.from) / columns);
            };
            const auto all = expected({edge(column), edge(column + 1)});
            folded += all ? text(all) : "";
        }
        EXPECT_EQ(drawn, inRange <= 2 * columns ? singles : folded);
    }
    EXPECT_EQ(series.before(points.back().utc)->last, points.back().utc);
    EXPECT_EQ(series.before(utc + 1)->last, utc);
    EXPECT_EQ(series.after(points[0].utc)->first, points[0].utc);
    EXPECT_FALSE(series.after(utc + 1));
}

TEST_F(SignalSeriesTest, WhatIsOlderIsLeftAsExtentsThatMissNothingAndMemoryIsBounded) {
    fill(3'000'000);
    EXPECT_LT(series.getMemory(), 1'200'000U);
    EXPECT_EQ(series.oldest(), points[0].utc);
    EXPECT_GT(series.oldestPoint(), points[2'900'000].utc);
    for (int i = 0; i < 300; ++i) {
        const Range range = anyRange();
        const auto all = expected(range);
        const auto held = series.extent(range);
        ASSERT_TRUE(held || !all);
        // Of a level of 64 times 64 points.
        const auto wide =
            expected({range.from - 4096 * 60'000'000'000, range.to + 4096 * 60'000'000'000});
        EXPECT_TRUE(!all || (held->low <= all->low && held->high >= all->high &&
                             held->first <= all->first && held->last >= all->last));
        EXPECT_TRUE(!held || (held->low >= wide->low && held->high <= wide->high));
    }
    std::vector<double> peaks;
    const auto columns = series.envelope({points[0].utc, utc + 1}, 100);
    EXPECT_EQ(columns.front().first, points[0].utc);
    EXPECT_EQ(columns.back().last, utc);
    add(utc + 1, 1e6);
    fill(600'000);
    EXPECT_EQ(series.extent({points[0].utc, utc})->high, 1e6);
    EXPECT_LT(series.oldestPoint() - utc, 0);
    series.setMemory(0);
    EXPECT_LT(series.getMemory(), 1'000'000U);
    EXPECT_EQ(series.extent({points[0].utc, utc})->high, 1e6);
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
    constexpr auto last = std::numeric_limits<std::int64_t>::max();
    constexpr auto first = std::numeric_limits<std::int64_t>::min();
    series.append(last - 1, nan);
    EXPECT_FALSE(series.before(last)->hasValues());
    EXPECT_EQ(series.envelope({first, last}, 1500).size(), 3U);
    EXPECT_EQ(series.envelope({first, last}, 1).size(), 1U);
    EXPECT_TRUE(series.envelope({5, 5}, 10).empty());
    EXPECT_TRUE(series.envelope({last, first}, 10).empty());
}

}  // namespace
