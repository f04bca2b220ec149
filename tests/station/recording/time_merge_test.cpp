#include "station/recording/time_merge.h"

#include <random>

#include "station/recording/horizon.h"

namespace station::time_order {
namespace {

using Message = std::tuple<std::int64_t, std::uint32_t, std::uint32_t>;  // time, channel, number

/// Messages of many channels by random steps, each a record of its number and of random size.
class TimeMergeTest : public ::testing::Test {
  protected:
    /// Of CAN with 0 to 64 data bytes, or of LIN; some are only as long as one of CAN.
    static std::array<std::uint8_t, 72> recordOf(std::uint32_t number, std::uint32_t size) {
        std::array<std::uint8_t, 72> record{};
        std::memcpy(record.data(), &number, sizeof number);
        record[7] = size == 72 ? static_cast<std::uint8_t>(number % 65) : 0;
        std::fill_n(record.begin() + 8, record[7], static_cast<std::uint8_t>(number | 1U));
        record[71] |= static_cast<std::uint8_t>(number % 7 == 0 ? 1 : 0);
        return record;
    }
    void add(std::int64_t time, std::uint32_t channel) {
        const std::uint32_t size = random() % 2 == 0 ? 72 : 13;
        merge.add({time, channel, size}, recordOf(number, size).data());
        given.emplace_back(time, channel, number++);
    }
    void release(std::int64_t horizon) {
        merge.release(horizon, [&](const TimeMerge::Head& head, const std::uint8_t* record) {
            std::uint32_t found = 0;
            std::memcpy(&found, record, sizeof found);
            ASSERT_EQ(std::memcmp(record, recordOf(found, head.size).data(), head.size), 0);
            ASSERT_LT(head.utcNanoseconds, horizon);
            taken.emplace_back(head.utcNanoseconds, head.channel, found);
        });
    }

    std::mt19937 random{11};
    TimeMerge merge;
    std::uint32_t number = 0;
    std::vector<Message> given;
    std::vector<Message> taken;
};

TEST_F(TimeMergeTest, ManyChannelsComeOutByTimeAndThenByChannel) {
    constexpr std::uint32_t channels = 37;
    std::vector<std::int64_t> times(channels);
    std::int64_t horizon = 1'700'000'000'000'000'131;  // what floating-point numbers don't resolve
    std::size_t mostHeld = 0;
    for (int step = 0; step < 2000; ++step) {
        for (std::uint32_t channel = 0; channel < channels; ++channel) {
            // Some are silent for long, some have many messages of one time.
            const auto count = channel % 5 == 0 && step % 100 != 0 ? 0 : random() % 12;
            times[channel] = std::max(times[channel], horizon);
            for (std::uint32_t i = 0; i < count; ++i) {
                add(times[channel] += random() % 3, channel);
            }
        }
        horizon += random() % 30;
        release(horizon);
        mostHeld = std::max(mostHeld, merge.getHeldBytes());
    }
    EXPECT_LT(taken.size(), given.size());
    EXPECT_LT(mostHeld, given.size() * 88 / 2);
    release(TimeMerge::all);
    EXPECT_EQ(merge.getLate(), 0U);
    EXPECT_EQ(merge.getHeldBytes(), 0U);
    std::ranges::sort(given);
    EXPECT_EQ(taken, given);
}

TEST_F(TimeMergeTest, WhatComesBehindTheHorizonIsGivenOutAllTheSameAndCounted) {
    add(10, 0);
    add(20, 1);
    release(30);
    add(15, 0);
    add(25, 1);
    add(25, 2);
    release(26);
    EXPECT_THAT(taken, testing::ElementsAre(Message(10, 0, 0), Message(20, 1, 1), Message(15, 0, 2),
                                            Message(25, 1, 3), Message(25, 2, 4)));
    EXPECT_EQ(merge.getLate(), 1U);
}

TEST(HorizonTest, StaysBehindByTheLongestDelayOfLate) {
    constexpr std::int64_t s = 1'000'000'000;
    Horizon horizon(s / 10, 2);
    for (std::int64_t now : {100 * s, 101 * s}) {
        EXPECT_LT(horizon.step(now), 0) << "nothing is known yet";
    }
    EXPECT_EQ(horizon.step(102 * s), 100 * s - s / 10);
    horizon.note(102 * s - s / 20);
    EXPECT_EQ(horizon.step(103 * s), 101 * s - s / 10) << "less than is always assumed";
    horizon.note(101 * s);
    horizon.step(104 * s);
    EXPECT_EQ(horizon.step(106 * s), 103 * s - 2 * s) << "two seconds late, two steps behind";
    EXPECT_EQ(horizon.step(50 * s), 104 * s - 2 * s) << "a clock that goes back is as it was";
    horizon.note(50 * s);
    EXPECT_EQ(horizon.step(107 * s), 102 * s) << "never back, whatever came";
    for (std::int64_t now = 108; now < 140; ++now) {
        horizon.step(now * s);
    }
    EXPECT_EQ(horizon.get(), 137 * s - s / 10) << "what was long ago is forgotten";
}

}  // namespace
}  // namespace station::time_order
