#include "simulator/simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <optional>

#include "simulator/failure.h"
#include "tests/simulator/strict_reader.h"

namespace sim {
namespace {

/// Passes only by waiting, or also a little at each look.
class ScriptedClock : public HostClock {
  public:
    std::int64_t elapsed() override { return now += tick; }
    void waitUntil(std::int64_t elapsedNs) override { now = std::max(now, elapsedNs); }
    std::int64_t leastSleep() const override { return sleep; }
    std::int64_t startUtc() const override { return 1'000'000; }
    std::int64_t startStamp() const override { return 77; }

    std::int64_t now = 0;
    std::int64_t tick = 0;
    std::int64_t sleep = 0;
};

struct SentFrame {
    std::vector<std::uint8_t> bytes;
    OutFrame meta;
    std::int64_t at;
};

/// Keeps what it takes; takes nothing at every `refuseEvery`th call, and then only a part.
class RecordingSink : public FrameSink {
  public:
    explicit RecordingSink(ScriptedClock& hostClock) : clock(hostClock) {}

    std::size_t longestFrame() const override { return longest; }
    std::size_t send(std::span<const OutFrame> offered) override {
        ++calls;
        if (frames.size() >= full || (refuseEvery != 0 && calls % refuseEvery == 0))
            return 0;
        const std::size_t count =
            refuseEvery == 0 ? offered.size() : std::min<std::size_t>(offered.size(), 3);
        for (const OutFrame& frame : offered.first(count))
            frames.push_back({{frame.bytes.begin(), frame.bytes.end()}, frame, clock.now});
        return count;
    }

    ScriptedClock& clock;
    std::vector<SentFrame> frames;
    std::size_t longest = 1514;
    std::size_t calls = 0;
    std::size_t refuseEvery = 0;
    std::size_t full = std::numeric_limits<std::size_t>::max();
};

/// By CM ID and interface.
using Counts = std::map<std::pair<unsigned, unsigned>, std::uint64_t>;

class SimulationTest : public testing::Test {
  protected:
    const Totals& run() {
        simulation.emplace(parseModules(modules), traffic, clock, sink);
        simulation->run(false, [] {});
        return simulation->totals();
    }

    /// Reads all frames strictly and checks that the numbers of each channel run from 0 without a
    /// gap; messages per CM ID and interface.
    Counts delivered() {
        Counts next;
        for (const SentFrame& frame : sink.frames) {
            const auto& module = simulation->modules()[frame.meta.module];
            const bool lin = module.sender().bus == Bus::Lin;
            for (const ReadMessage& message : readStrictly(frame.bytes, lin))
                EXPECT_EQ((next[{module.sender().cmId, message.interfaceId}]++), message.number);
        }
        return next;
    }

    std::size_t count(FrameKind kind) const {
        return static_cast<std::size_t>(
            std::count_if(sink.frames.begin(), sink.frames.end(),
                          [kind](const SentFrame& frame) { return frame.meta.kind == kind; }));
    }

    void expectTotalsMatchTheSink(const Totals& totals) {
        EXPECT_EQ(totals.frames, sink.frames.size());
        EXPECT_EQ(totals.badFrames, count(FrameKind::Malformed));
        EXPECT_EQ(totals.statusFrames, count(FrameKind::Status));
        std::uint64_t bytes = 0;
        for (const SentFrame& frame : sink.frames)
            bytes += frame.bytes.size();
        EXPECT_EQ(totals.bytes, bytes);
        Counts told;
        std::uint64_t sum = 0;
        for (const SimulatedModule& module : simulation->modules())
            for (std::size_t i = 0; i < module.settings().interfaces().size(); ++i) {
                const std::uint64_t messages = module.messagesSentOn(i);
                if (messages != 0)
                    told[{module.settings().cmId, module.settings().interfaces()[i]}] = messages;
                sum += messages;
            }
        EXPECT_EQ(delivered(), told);
        EXPECT_EQ(totals.dataMessages, sum);
    }

    ScriptedClock clock;
    RecordingSink sink{clock};
    std::vector<std::string> modules = {"CAN combo:5", "LIN combo:2", "NeoviFire3:7"};
    TrafficSettings traffic{.rate = 100, .durationNs = nsPerSecond, .perFrame = 4};
    std::optional<Simulation> simulation;
};

TEST_F(SimulationTest, EveryChannelGetsRateTimesDuration) {
    traffic.durationNs = 3 * nsPerSecond / 2;
    traffic.badShare = 0.25;
    traffic.lengths = {5, 64};
    const Totals& totals = run();
    expectTotalsMatchTheSink(totals);
    EXPECT_EQ(delivered().size(), 36U);
    for (const auto& [channel, messages] : delivered())
        EXPECT_EQ(messages, 150U);
    // Behind the last status no malformed frame makes up for it.
    EXPECT_NEAR(static_cast<double>(totals.badFrames), 0.25 * static_cast<double>(totals.frames),
                2.0);
    // Start, 1 s and end; bus status from the two TECMP modules.
    EXPECT_EQ(totals.statusFrames, 3U * 5U);
    EXPECT_EQ(sink.frames.front().meta.kind, FrameKind::Status);
    EXPECT_EQ(sink.frames.back().meta.kind, FrameKind::Status);
    EXPECT_EQ(clock.now, traffic.durationNs);
}

TEST_F(SimulationTest, FrameLeavesWithItsLastMessageAndALateOneDelaysNoOther) {
    modules = {"CAN combo:5,drift=100"};
    clock.sleep = 7'000'000;
    run();
    std::uint64_t index = 0;
    for (const SentFrame& frame : sink.frames) {
        EXPECT_GE(frame.at, frame.meta.due);
        EXPECT_LE(frame.at, frame.meta.due + clock.sleep);
        for (const ReadMessage& message : readStrictly(frame.bytes, false)) {
            const std::uint64_t due = index++ * nsPerSecond / 700;
            EXPECT_NEAR(static_cast<double>(message.timestamp),
                        1'000'000 + static_cast<double>(due) * 1.0001, 1.0);
            EXPECT_LE(due, static_cast<std::uint64_t>(frame.meta.due));
        }
    }
    EXPECT_EQ(index, 700U);
    EXPECT_LE(simulation->totals().maxLateNs, clock.sleep);
}

TEST_F(SimulationTest, FramesThatTheSinkRefusesAreSentAgainAndCountedOnce) {
    traffic.badShare = 0.1;
    sink.refuseEvery = 2;
    expectTotalsMatchTheSink(run());
    for (const auto& [channel, messages] : delivered())
        EXPECT_EQ(messages, 100U);
}

TEST_F(SimulationTest, SinkThatTakesNothingMoreIsAFailureAndNotAnEndlessLoop) {
    sink.full = 50;
    EXPECT_THROW(run(), Failure);
    EXPECT_EQ(simulation->totals().frames, 50U);
    expectTotalsMatchTheSink(simulation->totals());
}

TEST_F(SimulationTest, FrameTooLongForTheLinkIsWrongUse) {
    traffic.perFrame = 49;
    EXPECT_THROW(run(), Failure);
    traffic.perFrame = 47;
    EXPECT_NO_THROW(run());
}

TEST_F(SimulationTest, WithoutARateAllChannelsGetTheirShareAndStatusGoesOn) {
    traffic.rate = 0;
    traffic.durationNs = nsPerSecond / 10;
    traffic.statusPeriodNs = nsPerSecond / 100;
    clock.tick = 2'000;
    const Totals& totals = run();
    expectTotalsMatchTheSink(totals);
    EXPECT_GE(totals.statusFrames, 10U * 5U);
    const auto channels = delivered();
    ASSERT_EQ(channels.size(), 36U);
    const auto most = static_cast<double>(channels.at({7, 1}));
    for (const auto& [channel, messages] : channels)
        EXPECT_NEAR(static_cast<double>(messages), most, 2.0);
}

TEST_F(SimulationTest, SameSeedGivesTheSameBytesAndAnotherSeedDoesNot) {
    modules = {"CAN combo:5,jitter=0.001", "LIN combo:2", "NeoviFire3:7"};
    traffic.badShare = 0.2;
    const auto bytesOf = [this](std::uint64_t seed) {
        clock.now = 0;
        sink.frames.clear();
        traffic.seed = seed;
        run();
        std::vector<std::vector<std::uint8_t>> bytes;
        for (const SentFrame& frame : sink.frames)
            bytes.push_back(frame.bytes);
        return bytes;
    };
    const auto first = bytesOf(1);
    EXPECT_EQ(bytesOf(1), first);
    EXPECT_NE(bytesOf(2), first);
}

}  // namespace
}  // namespace sim
