#include "tests/sync/sync_rig.h"

namespace Kestrova::Utils::Kcom::Synchronization {
namespace {

using enum GNSSTimeStatus;
using GNSSClockTest = SyncRig;

TEST_F(GNSSClockTest, ItemWaitsUntilAllIsInPlace) {
    GNSSClockSwitchable& clock = makeClock(pps);
    clock.SetWindow(10.0, 20.0, 30.0);
    clock.SetAccepting(true);
    EXPECT_EQ(statusAt(clock, 15.0), Discard) << "no time";
    clock.SetTime(GNSSTime());
    EXPECT_EQ(statusAt(clock, 15.0), Wait) << "not started";
    clock.Start(false);
    EXPECT_EQ(statusAt(clock, 15.0), Valid);
    EXPECT_EQ(statusAt(clock, 0.0), Discard);
    EXPECT_EQ(clock.GetTime(GNSSTime(0, 35.0)).time, 0.0) << "as with each that is thrown away";
    clock.SetAccepting(false);
    EXPECT_EQ(statusAt(clock, 15.0), Wait) << "not accepting";
    clock.SetAccepting(true);
    host.app.setupMode = hostTrue;
    clock.Start(false);
    EXPECT_EQ(statusAt(clock, 0.0), Valid) << "older than the window, in setup";
    EXPECT_EQ(statusAt(clock, -1.0), Discard) << "in setup";
    host.app.setupMode = hostFalse;
    clock.Start(false);
    EXPECT_EQ(statusAt(clock, 0.0), Discard) << "in setup no more";
    for (const double start : {3600.0, 7200.0, 0.0}) {
        host.data.startTime = GNSSTime(0, start).ToDayCount();
        clock.SetWindow(10.0, 20.0, 30.0);
        EXPECT_EQ(statusAt(clock, start + 15.0), Valid) << "the host's start time moved";
    }
    clock.SetWindow(0.0, 0.0, 10.0);
    EXPECT_EQ(statusAt(clock, 0.0), Wait) << "the host hasn't begun to count";
    clock.Reset();
    clock.SetWindow(10.0, 20.0, 30.0);
    EXPECT_EQ(statusAt(clock, 15.0), Discard) << "no time any more";
    clock.SetTime(GNSSTime());
    EXPECT_EQ(statusAt(clock, 15.0), Wait) << "stopped";
}

TEST_F(GNSSClockTest, StampFromBeforeTheStartIsOneOnlyWhileThoseComeIn) {
    using enum GNSSTimeReason;
    GNSSClockSwitchable& clock = makeClock(pps);
    const auto reasonAt = [&](double second) { return clock.GetTime(GNSSTime(0, second)).reason; };
    for (const double end : {9.0, 1.0}) {
        clock.Reset();
        clock.SetAccepting(true);
        clock.SetTime(GNSSTime());
        clock.Start(false);
        clock.SetWindow(0.0, 0.05, 10.0);
        EXPECT_EQ(reasonAt(-3.0), BeforeStart) << "was queued until the host began to count";
        clock.SetWindow(0.0, 0.1, 10.0);
        EXPECT_EQ(reasonAt(-0.1), BeforeStart) << "came in late";
        EXPECT_EQ(reasonAt(-0.9), TooOld) << "its clock went back";
        clock.SetWindow(0.0, end, 10.0);
    }
}

TEST_F(GNSSClockTest, LeadingClockPutsTheHostsZeroOnAWholeSecondAndSlavesFollow) {
    const auto expectZero = [&](const GNSSTime& zero, bool hostHasSource, double firstSecond) {
        GNSSClockSwitchable& leading = makeClock(pps, hostTrue);
        leading.SetTime(GNSSTime());
        leading.Reset();
        leading.SetTime(GNSSTime(2300, firstSecond));
        leading.SetTime(GNSSTime(2300, firstSecond + (hostHasSource ? 0.0 : 3.0)));
        leading.Start(hostHasSource);
        const double start = host.data.startTime;
        EXPECT_EQ(start, zero.ToDayCount()) << firstSecond;
        GNSSClockSwitchable& slave = makeClock(pps);
        host.data.startTime = start;
        for (GNSSClockSwitchable* const clock : {&leading, &slave}) {
            clock->SetTime(GNSSTime(2302, 0.5));
            clock->SetWindow(0.0, 1e7, 1e7);
            const double due = GNSSTime(2302, 0.5) - zero;
            EXPECT_NEAR(clock->GetTime(GNSSTime(2302, 0.5)).time, due, 1e-6);
        }
        EXPECT_NEAR(leading.GetElapsedTime(), GNSSTime(2302, 0.5) - zero, 1e-5);
    };
    host.clock.seconds = 2.0;
    expectZero(GNSSTime(2300, 5.0), false, 5.0);
    expectZero(GNSSTime(2300, 6.0), false, 5.25);
    expectZero(GNSSTime(2301, 0.0), false, 604799.5);
    expectZero(GNSSTime(2300, 8.0), true, 9.6);
    expectZero(GNSSTime(2300, 7.0), true, 9.4);
}

TEST_F(GNSSClockTest, CaptureThreadSetsTheTimeWhileTheHostReplacesTheStrategy) {
    GNSSClockSwitchable& clock = makeClock(pps, hostTrue);
    const GNSSTime late(2000, 500000.0);
    std::atomic<bool> stop = false;
    std::thread capture([&] {
        while (!stop) {
            clock.SetTime(GNSSTime());
            clock.SetTime(late);
            std::this_thread::yield();  // or the lock would hardly ever be free
        }
    });
    for (int round = 0; round < 300; ++round) {
        clock.Rebuild();
        while (!clock.HasTime()) {
            std::this_thread::yield();
        }
        const double elapsed = clock.GetElapsedTime();
        EXPECT_LT(std::min(elapsed, std::abs(elapsed - (late - GNSSTime()))), 60.0)
            << "half of one time and half of the other";
        clock.SetTime(late);
        clock.GetTime(late);
        clock.Reset();
    }
    stop = true;
    capture.join();
}

/// A module with a rate of its own and a host that reads both clocks without noise. The module's
/// time is set a millisecond before each tick, as from the capture thread.
class SoftSyncRun : public SyncRig {
  protected:
    static constexpr double tick = 0.01;
    static constexpr double accuracy = 1e-6;

    /// Begins a measurement, in which the host begins to count after two seconds.
    void begin() {
        zero = now + 2.0;
        manager.RestartWithHold();
        run(2.0);
    }
    void run(double seconds) {
        for (const double end = now + seconds - tick / 2; now < end;) {
            now += tick;
            counter.count = static_cast<std::uint64_t>(std::llround((now + 9.999) * 1e9));
            clock->SetTime(deviceAt(now - 0.001));
            counter.count += 1000000;
            host.clock.seconds = std::max(0.0, now - zero);
            host.data.position = static_cast<std::int32_t>(std::lround(host.clock.seconds * 1000));
            manager.Tick();
        }
    }
    /// By how much a sample is off that the module stamped `age` seconds ago.
    double errorAt(double age) {
        const auto result = clock->GetTime(deviceAt(now - age));
        return result.status == Discard ? 1e9 : std::abs(result.time - (now - age - zero));
    }
    GNSSTime deviceAt(double seconds) const { return {2300, 604790.0 + seconds * rate + jump}; }

    GNSSClockSwitchable* clock = &makeClock(soft);
    double rate = 1.0;
    double jump = 0.0;
    double now = 0.0;
    double zero = 0.0;
};

TEST_F(SoftSyncRun, ConvertsToWithinAMicrosecondAtAnyRateAlsoInTheNextMeasurement) {
    for (const double partsPerMillion : {0.0, 50.0, -50.0, 500.0, -500.0}) {
        rate = 1.0 + partsPerMillion * 1e-6;
        clock->Rebuild();
        begin();
        run(5 * tick);
        for (int round = 0; round < 600; ++round) {
            run(0.1);
            ASSERT_LT(std::max(errorAt(0.0), errorAt(0.09)), accuracy) << partsPerMillion;
        }
        begin();
        run(tick);
        EXPECT_LT(errorAt(-5.0), 10 * accuracy) << "one reading without the rate learned before";
    }
}

TEST_F(SoftSyncRun, JumpOfASecondBeginsTheFitAgainAndItemsOfBothSidesGetTheirTimes) {
    host.data.historyDepth = 10000;
    begin();
    for (const double step : {0.9, 1.1, -1.1, -5.0, 60.0, -60.0, 2e9}) {
        run(10.0);
        const GNSSTime before = deviceAt(now + 0.4 * tick);
        jump += step;
        run(tick);
        const double due = now - 0.6 * tick - zero;
        if (std::abs(step) < 1.0) {
            EXPECT_GT(errorAt(tick / 2), 0.1 * tick) << "it goes through the fit";
        } else {
            const auto result = clock->GetTime(before);
            EXPECT_EQ(result.status, Valid) << step;
            EXPECT_NEAR(result.time, due, accuracy) << step;
            EXPECT_LT(errorAt(0.2 * tick), accuracy) << step;
            run(0.5);
            EXPECT_NEAR(clock->GetTime(before).time, due, accuracy) << step;
        }
        run(1.5);
        EXPECT_LT(errorAt(0.0), accuracy) << step;
        EXPECT_GT(std::abs(clock->GetTime(before).time - due), 0.8) << "long over; " << step;
    }
}

}  // namespace
}  // namespace Kestrova::Utils::Kcom::Synchronization
