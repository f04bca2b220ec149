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
    expectHostTime(GNSSTime(2300, 50.75), 1.75);
}

TEST_F(PassThroughClocking, RunsOnDeviceTimeAloneOnceAnchored) {
    anchorAt(2, GNSSTime(2300, 604'799));
    expectHostTime(GNSSTime(2300, 604'799), 2);
    setAt(3605, GNSSTime(2301, 0));  // a host clock that is set
    expectHostTime(GNSSTime(2300, 604'799.5), 2.5);
    setAt(1, GNSSTime(2301, 0));
    expectHostTime(GNSSTime(2300, 604'799.900000001), 2.900000001);
    setAt(10, GNSSTime(2301, 9));  // and runs on
    expectHostTime(GNSSTime(2301, 9.1), 12.1);
    EXPECT_EQ(clock.getJumps() + clock.getWrongStamps(), 0U);
}

TEST_F(PassThroughClocking, HostileJumpsGiveTimesFromZeroOn) {
    anchorAt(0.2, GNSSTime(2300, 10));
    expectHostTime(GNSSTime(2300, 9.7), 0);
    constexpr auto last = std::numeric_limits<std::int32_t>::max();
    for (const GNSSTime& time : {GNSSTime(-last, 0), GNSSTime(last, 604'799), GNSSTime(0, 0)}) {
        const auto result = clock.GetTime(time);
        EXPECT_EQ(result.status, Status::Valid);
        EXPECT_TRUE(std::isfinite(result.time));
        EXPECT_GE(result.time, 0.0);
    }
    EXPECT_EQ(clock.getWrongStamps(), 3U);
    expectHostTime(GNSSTime(2300, 10.1), 0.3);
    EXPECT_EQ(clock.getJumps(), 0U);
}

TEST_F(PassThroughClocking, WrongStampAffectsItselfAloneAndAJumpGoesOnAtItsCapture) {
    anchorAt(2, GNSSTime(2300, 10));
    expectHostTime(GNSSTime(2300, 10), 2);
    double off = 0.9;
    for (const std::int32_t week : {4300, 2300, 1300}) {  // also as the last one of its stretch
        setAt(5, GNSSTime(week, 13 + off));
        expectHostTime(GNSSTime(week, 13 + off), 4.98);
        expectHostTime(GNSSTime(2300, 13), 5);
        off = -off;
    }
    GNSSTime before(2300, 15);
    for (const std::int32_t week : {2301, 2200}) {  // forward, and back
        setAt(7, GNSSTime(week, 100));
        expectHostTime(GNSSTime(week, 99.75), 6.98);
        setAt(7.25, GNSSTime(week, 100.25));
        expectHostTime(GNSSTime(week, 100.25), 7.25);
        expectHostTime(before, 7);  // on another channel
        expectHostTime(GNSSTime(week, 100.5), 7.5);
        before = GNSSTime(week, 100);
    }
    EXPECT_EQ(clock.getJumps(), 2U);
    EXPECT_EQ(clock.getWrongStamps(), 3U);
}

}  // namespace
}  // namespace station
