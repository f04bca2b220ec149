#include "simulator/device_clock.h"

#include <gtest/gtest.h>

#include "simulator/traffic_settings.h"

namespace sim {
namespace {

constexpr std::int64_t start = 1'704'067'200'000'000'000;
constexpr std::uint64_t startTime = 1'704'067'200'000'000'000;
constexpr std::int64_t hour = 3600 * nsPerSecond;

TEST(DeviceClock, DriftOffsetAndJumpAddUpToTheNanosecond) {
    const DeviceClock plain(start, {}, 1);
    EXPECT_EQ(plain.reading(123'456'789), startTime + 123'456'789);

    const DeviceClock fast(start, {.driftPpm = 50, .offsetSeconds = -1.5}, 1);
    EXPECT_EQ(fast.reading(0), startTime - 1'500'000'000);
    EXPECT_EQ(fast.reading(hour) - fast.reading(0), 3'600'180'000'000U);

    const DeviceClock jumping(start, {.jumpSeconds = -0.9, .jumpAtSeconds = 2}, 1);
    EXPECT_EQ(jumping.reading(1'999'999'999), startTime + 1'999'999'999);
    EXPECT_EQ(jumping.reading(2 * nsPerSecond), startTime + 1'100'000'000);
}

TEST(DeviceClock, TimeBeforeTheEpochStaysOffTheTopBit) {
    const DeviceClock early(start, {.offsetSeconds = -3e9}, 1);
    EXPECT_EQ(early.reading(0), 0U);
}

TEST(DeviceClock, JitterStaysInItsBoundsAndOnlyAJumpGoesBack) {
    constexpr std::int64_t jitter = 1'000'000;
    DeviceClock clock(start, {.jumpSeconds = -0.5, .jumpAtSeconds = 1, .jitterSeconds = 0.001}, 7);
    std::uint64_t last = 0;
    std::int64_t widest = 0;
    for (std::int64_t elapsed = 0; elapsed < 2 * nsPerSecond; elapsed += 250'000) {
        const std::uint64_t stamp = clock.stamp(elapsed);
        const auto error = static_cast<std::int64_t>(stamp - clock.reading(elapsed));
        EXPECT_LE(std::abs(error), jitter);
        widest = std::max(widest, std::abs(error));
        EXPECT_TRUE(stamp >= last || elapsed == nsPerSecond);
        last = stamp;
    }
    EXPECT_GT(widest, jitter / 2);
}

TEST(MessageSchedule, LateMessagesAreDueToTheNanosecond) {
    const MessageSchedule schedule{7'000};
    EXPECT_EQ(schedule.timeOf(0), 0);
    EXPECT_EQ(schedule.timeOf(1), 142'857);
    EXPECT_EQ(schedule.timeOf(7'000ULL * 86'400 * 365), 86'400 * 365 * nsPerSecond);
    for (const std::int64_t end : {1L, 142'857L, 142'858L, nsPerSecond, nsPerSecond + 1}) {
        const std::uint64_t count = schedule.countBefore(end);
        EXPECT_LT(schedule.timeOf(count - 1), end);
        EXPECT_GE(schedule.timeOf(count) + 1, end);
    }
    EXPECT_EQ(schedule.countBefore(5 * nsPerSecond), 35'000U);
}

TEST(LengthRange, ImpossibleLengthsAreLeftOutOrMovedToTheNearest) {
    using Lengths = std::vector<std::uint8_t>;
    const auto can = [](LengthRange range) { return range.lengthsFor(Bus::Can, Framing::Tecmp); };
    EXPECT_EQ(can({7, 20}), (Lengths{7, 8, 12, 16, 20}));
    EXPECT_EQ(can({0, 1}), (Lengths{0, 1}));
    EXPECT_EQ((LengthRange{0, 1}.lengthsFor(Bus::Can, Framing::AsamCmp)), (Lengths{1}));
    EXPECT_EQ((LengthRange{7, 20}.lengthsFor(Bus::Lin, Framing::Tecmp)), (Lengths{7, 8}));
    EXPECT_EQ((LengthRange{12, 20}.lengthsFor(Bus::Lin, Framing::Tecmp)), (Lengths{8}));
}

}  // namespace
}  // namespace sim
