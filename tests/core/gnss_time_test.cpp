#include "core/gnss_time.h"

#include <ctime>
#include <type_traits>

namespace {

static_assert(std::is_trivially_copyable_v<GNSSTime>);
static_assert(GNSSTime::FromDateTime(GNSSDateTime(315964800, 0.0)) == GNSSTime());

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

TEST(GNSSTime, SecondsOutsideTheWeekCarryIntoIt) {
    EXPECT_EQ(GNSSTime(5, -1.0), GNSSTime(4, 604799.0));
    EXPECT_EQ(GNSSTime(5, 604800.0), GNSSTime(6, 0.0));
    EXPECT_EQ(GNSSTime(0, -1209600.0), GNSSTime(-2, 0.0));
    EXPECT_EQ(GNSSTime(5, -1e-12), GNSSTime(5, 0.0)) << "second 604800.0 is in no week";
    GNSSTime time(7, 604799.5);
    time.AddSeconds(1.0);
    EXPECT_EQ(time.GetWeek(), 8);
    EXPECT_EQ(time.GetSecondOfWeek(), 0.5);
    EXPECT_EQ(GNSSTime(3, 5.0) - GNSSTime(2, 10.0), 604795.0);
    EXPECT_EQ(GNSSTime(2, 129600.75).ToUnixTime(), 315964800 + 1339200);
    EXPECT_EQ(GNSSTime(2, 129600.0).ToDayCount(), 29241.5);
    EXPECT_NEAR(GNSSTime::FromDayCount(29241.5) - GNSSTime(2, 129600.0), 0.0, 1e-6);
    EXPECT_NEAR(GNSSTime::FromDayCount(29225.0) - GNSSTime(-1, 518400.0), 0.0, 1e-6);
    const auto onTheWire = GNSSTime::FromDateTime(GNSSDateTime(1700000000, 123456789 / 1e9));
    EXPECT_NEAR(onTheWire - GNSSTime(2288, 252800.123456789), 0.0, 1e-9);
    EXPECT_EQ(GNSSTime::FromDateTime(GNSSDateTime(315964799, 0.5)), GNSSTime(-1, 604799.5));
}

TEST(GNSSDateTime, CalendarAgreesWithAnIndependentOne) {
    for (std::int64_t seconds = 7; seconds < 9300000000; seconds += 20003400) {
        const GNSSDateTime time(seconds, 0.0);
        std::tm expected{};
        gmtime_r(&seconds, &expected);
        EXPECT_EQ(
            (std::array{time.year, time.month, time.day, time.hour, time.minute, time.second}),
            (std::array{expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
                        expected.tm_hour, expected.tm_min, expected.tm_sec}));
        EXPECT_EQ(GNSSDateTime(time.hour, time.minute, time.second, time.day, time.month, time.year)
                      .unixTime,
                  seconds);
        ASSERT_NEAR(GNSSDateTime(time.dayCount) - time, 0.0, 1e-5) << "no second may be lost";
    }
}

TEST(GNSSDateTime, SecondsAreAddedWithTheirFractionAndStopAtTheStartOf1970) {
    const auto expectTime = [](const GNSSDateTime& time, std::int64_t seconds, double fraction) {
        EXPECT_EQ(std::pair(time.unixTime, time.fraction), std::pair(seconds, fraction));
    };
    const GNSSDateTime time(1000, -0.25);
    const GNSSDateTime later(time, 90000.5);
    expectTime(time, 999, 0.75);
    expectTime(later, 91000, 0.25);
    expectTime(GNSSDateTime(-5, 0.5), 0, 0.0);
    expectTime(GNSSDateTime(25, 61, 0.5, 32, 13, 1999), 949456860, 0.5);
    EXPECT_EQ(std::pair(later - time, time - later), std::pair(90000.5, -90000.5));
    EXPECT_EQ(later.dayCount, 25570.0 + 4600.25 / 86400.0);
}

TEST(GNSSDateTime, HostileNumbersSaturate) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    constexpr auto most32 = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(GNSSDateTime(most, 0x1p63).unixTime, most);
    EXPECT_EQ(GNSSDateTime(most, 0.0).year, 32767);
    EXPECT_EQ(GNSSDateTime(0, 0, 0.0, 1, 12, 32767).year, 32767);
    EXPECT_EQ(GNSSTime::FromDateTime(GNSSDateTime(most, 0.5)).GetWeek(), most32);
    EXPECT_EQ(GNSSTime(most32, 1e300).GetWeek(), most32);
    for (const double seconds : {1e300, -1e300, infinity, -infinity, notANumber, 2e19, -2e19}) {
        const GNSSTime time(-3, seconds);
        EXPECT_TRUE(time.GetSecondOfWeek() >= 0.0 && time.GetSecondOfWeek() < 604800.0);
        EXPECT_TRUE(std::isfinite(GNSSTime::FromDayCount(seconds).ToDayCount()));
        for (const auto& date :
             {GNSSDateTime(seconds), GNSSDateTime(most, seconds), GNSSDateTime(least, seconds),
              GNSSDateTime(most32, most32, seconds, most32, most32, most32)}) {
            EXPECT_TRUE(date.fraction >= 0.0 && date.fraction < 1.0);
            EXPECT_TRUE(date.month >= 1 && date.month <= 12 && date.unixTime >= 0);
        }
    }
}

}  // namespace
