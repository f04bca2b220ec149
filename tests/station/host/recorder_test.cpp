#include <fmt/format.h>

#include "station/session/measurement_recorder.h"
#include "tests/station/host/stand_ins.h"
#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t second = 1000000000;

class Recorders : public testing::Test {
  protected:
    Recorders() {
        host->data().setStart(at(1000 * second));
        host->getClock().start();
        channel->setDataType(14);
        channel->setAsync(hostTrue);
        channel->setUsed(hostTrue);
        channel->setName(L"C");
        recorder.addChannels({});
    }

    static StationData::SystemClock::time_point at(std::int64_t nanoseconds) {
        return StationData::SystemClock::time_point(std::chrono::nanoseconds(nanoseconds));
    }
    void add(std::uint8_t id, double time) {
        std::array<std::uint8_t, 72> record{id, 1, 0, 0, 0, 0, 0, 2, 0xAB, id};
        addSample(*channel, record.data(), record.size(), time);
    }
    std::string recorded() {
        EXPECT_THAT(queue.flush(), IsEmpty());
        queue.beginClose();
        while (!queue.isClosed()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(queue.hasLost());
        return contentOf(folder.path() / "a.log");
    }

    const TemporaryFolder folder;
    ManualCounter counter{1'000'000'000, 5'000'000'000};
    CountedRef<StationHost> host = makeObject<StationHost>(counter, StationHostOptions{});
    const CountedRef<StationChannel> channel = mountChannel(*host);  ///< for CAN, and in use
    RecordingQueue queue{[this] {
        auto recordings = std::make_shared<RecordingSet>();
        recordings->open(folder.path() / "a.log");
        return recordings;
    }()};
    MeasurementRecorder recorder{*host, queue};
};

TEST_F(Recorders, EachMessageIsRecordedOnceAlsoInStalls) {
    std::minstd_rand random(3);
    int written = 0;
    std::string lines;
    while (written < 10000) {
        // Up to several times the room between two calls.
        for (auto burst = random() % 4000; burst > 0; --burst) {
            add(5, written * 1e-6);
            lines += fmt::format("(0000001000.{:06}) C 105#AB05\n", written++);
        }
        recorder.takeNew();
    }
    EXPECT_THAT(recorder.takeOverruns(), IsEmpty());
    EXPECT_TRUE(recorded() == lines);
}

TEST_F(Recorders, UtcGoesOnAcrossPartsAndNeverBack) {
    add(1, 50.0);
    recorder.endPart();
    host->data().setStart(at(1049 * second));
    host->getClock().startNextPart(49.0);
    add(2, 0.9999);
    add(3, 3.0);
    recorder.takeNew();
    counter.pass(60.0);
    const Summary summary = recorder.summarize({});
    EXPECT_EQ(summary.startTime, at(1000 * second));
    EXPECT_EQ(summary.channels[0].lastTime, 52.0);
    EXPECT_EQ(summary.seconds, 60.0);
    EXPECT_EQ(recorded(),
              "(0000001050.000000) C 101#AB01\n(0000001050.000000) C 102#AB02\n"
              "(0000001052.000000) C 103#AB03\n");
}

TEST_F(Recorders, WhatThePluginLostIsReportedOncePerChannelWithItsReasons) {
    const std::int32_t output = channel->getIndices().back();
    const ChannelStatistics lossless{.output = output, .beforeStart = 3, .afterEnd = 1};
    bool hasLost = false;
    EXPECT_THAT(recorder.takeCounts({lossless}, hasLost), IsEmpty());
    ChannelStatistics lossy{.output = output, .tooOld = 2, .tooNew = 3, .notPlaced = 4};
    lossy.leftQueued = 5;
    lossy.noOutput = 6;
    ChannelStatistics other = lossy;
    other.output = 77;
    ChannelStatistics late = lossless;
    late.raised = 7;
    late.unusable = 8;
    EXPECT_THAT(recorder.takeCounts({late}, hasLost),
                ElementsAre(HasSubstr("7 messages have"), HasSubstr("8 messages aren't")));
    late.unusable = 9;
    EXPECT_THAT(recorder.takeCounts({late}, hasLost), IsEmpty()) << "when first seen";
    EXPECT_FALSE(hasLost);
    EXPECT_THAT(recorder.takeCounts({other, lossy}, hasLost),
                ElementsAre(AllOf(HasSubstr("\"C\" lost 20 messages: 2 came too late"),
                                  HasSubstr("3 were stamped"), HasSubstr("4 had"),
                                  HasSubstr("5 were still"), HasSubstr("6 had no channel"))));
    EXPECT_TRUE(hasLost);
    EXPECT_THAT(recorder.takeCounts({lossy}, hasLost), IsEmpty()) << "told already";
    EXPECT_EQ(recorder.summarize({}).getTotalLost(), 20U);
}

}  // namespace
}  // namespace station
