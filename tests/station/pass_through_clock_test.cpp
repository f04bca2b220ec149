#include "station/offline/pass_through_clock.h"

#include <limits>

#include "tests/support/capture_stand_ins.h"

namespace station {
namespace {

using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;

/// A clock whose host time 0 is second 100 of a counter of 1,000 counts a second.
class PassThroughClocking : public testing::Test {
  protected:
    void setAt(double hostSeconds, GNSSTime deviceTime) {
        counter.count = static_cast<std::uint64_t>((100 + hostSeconds) * 1000);
        clock.SetTime(deviceTime);
    }
    void expectHostTime(GNSSTime deviceTime, double hostSeconds) {
        const auto result = clock.GetTime(deviceTime);
        EXPECT_EQ(result.status, Status::Valid);
        EXPECT_NEAR(result.time, hostSeconds, 1e-9);
    }
    void anchorAt(double hostSeconds, GNSSTime deviceTime) {
        clock.GetTime(deviceTime);
        setAt(hostSeconds, deviceTime);
    }

    ManualCounter counter;
    PassThroughClock clock{counter, 100'000'000'000};
};

TEST_F(PassThroughClocking, WaitsForATimeThatIsSureToRestOnAMessage) {
    setAt(1, GNSSTime(0, 0));  // before any message: the device's time is its default
    EXPECT_EQ(clock.GetTime(GNSSTime(2300, 50)).status, Status::Wait);
    EXPECT_EQ(clock.GetTime(GNSSTime(2300, 50)).status, Status::Wait);
    setAt(2, GNSSTime(2300, 51));
    expectHostTime(GNSSTime(2300, 50), 1);
}

TEST_F(PassThroughClocking, RunsOnDeviceTimeAloneOnceAnchored) {
    anchorAt(2, GNSSTime(2300, 604'799));
    expectHostTime(GNSSTime(2300, 604'799), 2);
    setAt(11, GNSSTime(2301, 0));  // a host clock that runs away
    expectHostTime(GNSSTime(2301, 0), 3);
    setAt(20, GNSSTime(2301, 1));
    expectHostTime(GNSSTime(2301, 2.000000001), 5.000000001);
    EXPECT_EQ(clock.getJumps() + clock.getWrongStamps(), 0U);
}

TEST_F(PassThroughClocking, HostileJumpsGiveTimesFromZeroOn) {
    anchorAt(2, GNSSTime(2300, 10));
    expectHostTime(GNSSTime(2300, 5), 0);
    constexpr auto last = std::numeric_limits<std::int32_t>::max();
    for (const GNSSTime& time : {GNSSTime(-last, 0), GNSSTime(last, 604'799), GNSSTime(0, 0)}) {
        const auto result = clock.GetTime(time);
        EXPECT_EQ(result.status, Status::Valid);
        EXPECT_TRUE(std::isfinite(result.time));
        EXPECT_GE(result.time, 0.0);
    }
    EXPECT_EQ(clock.getWrongStamps(), 3U);
    expectHostTime(GNSSTime(2300, 11), 3);
    EXPECT_EQ(clock.getJumps(), 0U);
}

TEST_F(PassThroughClocking, WrongStampAffectsItselfAloneAndAJumpGoesOnAtItsCapture) {
    anchorAt(2, GNSSTime(2300, 10));
    expectHostTime(GNSSTime(2300, 10), 2);
    for (const std::int32_t week : {4300, 1300}) {  // also as the last one of its stretch
        setAt(6, GNSSTime(week, 12));
        expectHostTime(GNSSTime(week, 12), 5.98);
        expectHostTime(GNSSTime(2300, 13), 5);
    }
    GNSSTime before(2300, 15);
    for (const std::int32_t week : {2301, 2200}) {  // forward, and back
        setAt(7, GNSSTime(week, 100));
        expectHostTime(GNSSTime(week, 99.5), 6.98);
        setAt(8, GNSSTime(week, 101));
        expectHostTime(GNSSTime(week, 101), 8);
        expectHostTime(before, 7);  // on another channel
        expectHostTime(GNSSTime(week, 101.5), 8.5);
        before = GNSSTime(week, 100);
    }
    EXPECT_EQ(clock.getJumps(), 2U);
    EXPECT_EQ(clock.getWrongStamps(), 2U);
}

}  // namespace
}  // namespace station
