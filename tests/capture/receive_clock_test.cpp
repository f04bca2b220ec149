#include "capture/receive_clock.h"

#include "capture/capture_port.h"
#include "tests/support/manual_counter.h"

namespace {

struct ReceiveClockTest : ::testing::Test {
    ManualCounter counter{1'000'000, 5'000'000};  // microseconds
    ReceiveClock clock{counter};

    ReceiveClockTest() { counter.realAhead = 1'700'000'000'000'000'123; }
};

/// The real clock may be set before or after each of the moments of a frame's way.
TEST_F(ReceiveClockTest, MomentIsOffByNoMoreThanTheFrameHasWaited) {
    for (const std::int64_t step : {0LL, 1'000'000'000LL, -1'000'000'000LL}) {
        for (const std::uint64_t age : {0U, 40U, 900U, 1100U, 400'000U, 1'500'000U}) {
            for (int setAt = 0; setAt < 6; ++setAt) {
                const auto pass = [&](int place) {
                    counter.realAhead += place == setAt % 3 ? step : 0;
                };
                clock.synchronize();
                pass(0);
                const std::int64_t came = counter.getNanoseconds();
                const std::int64_t stamp = counter.getRealNanoseconds();
                counter.count += age / 2;
                pass(1);
                if (setAt < 3) {  // the next pass begins
                    clock.synchronize();
                }
                counter.count += age - age / 2;
                pass(2);
                const std::int64_t readAt = counter.getNanoseconds();
                const std::int64_t moment = clock.toCounter(stamp, readAt);
                EXPECT_LE(came, moment) << step << ' ' << age << ' ' << setAt;
                EXPECT_LE(moment, readAt) << step << ' ' << age << ' ' << setAt;
                EXPECT_TRUE(step != 0 || moment == came) << age;
                EXPECT_EQ(clock.toCounter(CapturedFrame::notStamped, readAt), readAt);
                counter.count += 3'000'000;
            }
        }
    }
}

TEST_F(ReceiveClockTest, SlewedClockIsFollowedAndTheClosestLookCounts) {
    int looks = 0;
    for (int pass = 0; pass < 1000; ++pass) {
        counter.onCount = [&] { counter.count += looks++ / 2 == 1 ? 4 : 700; };  // the core is lost
        looks = 0;
        clock.synchronize();
        counter.onCount = nullptr;
        const std::int64_t stamp = counter.getRealNanoseconds();
        const std::int64_t came = counter.getNanoseconds();
        counter.count += 300;
        EXPECT_EQ(clock.toCounter(stamp, counter.getNanoseconds()), came + 4000 / 2);
        counter.realAhead += 10'000;  // 500 parts per million in 20 milliseconds
        counter.count += 19'700;
    }
}

}  // namespace
