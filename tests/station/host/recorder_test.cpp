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
using testing::SizeIs;

constexpr std::int64_t second = 1000000000;

class Recorders : public testing::Test {
  protected:
    Recorders() {
        host->data().setStart(at(1000 * second));
        host->clock().start();
    }

    static StationData::SystemClock::time_point at(std::int64_t nanoseconds) {
        return StationData::SystemClock::time_point(std::chrono::nanoseconds(nanoseconds));
    }
    /// A CAN channel in use.
    CountedRef<StationChannel> mount() {
        const auto channel = mountChannel(*host);
        channel->setDataType(14);
        channel->setAsync(hostTrue);
        channel->setUsed(hostTrue);
        channel->setName(L"C");
        return channel;
    }
    static void add(StationChannel& channel, std::uint8_t id, double time) {
        std::array<std::uint8_t, 72> record{id, 1, 0, 0, 0, 0, 0, 2, 0xAB, id};
        addSample(channel, record.data(), record.size(), time);
    }
    std::vector<std::string> lines() {
        EXPECT_THAT(queue.flush(), IsEmpty());
        queue.beginClose();
        while (!queue.isClosed()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(queue.hasLost());
        std::ifstream log(folder.path() / "a.log");
        std::vector<std::string> all;
        for (std::string line; std::getline(log, line);) {
            all.push_back(line);
        }
        return all;
    }

    const TemporaryFolder folder;
    ManualCounter counter{1'000'000'000, 5'000'000'000};
    CountedRef<StationHost> host = makeObject<StationHost>(counter, StationHostOptions{});
    RecordingQueue queue{[this] {
        auto recordings = std::make_shared<RecordingSet>();
        recordings->open(folder.path() / "a.log");
        return recordings;
    }()};
    MeasurementRecorder recorder{*host, queue};
};

TEST_F(Recorders, EachMessageIsRecordedOnceAlsoInStalls) {
    const auto channel = mount();
    recorder.addChannels({});
    std::minstd_rand random(3);
    int written = 0;
    while (written < 10000) {
        // Up to several times the room between two calls.
        for (auto burst = random() % 4000; burst > 0; --burst) {
            add(*channel, 5, written++ * 1e-6);
        }
        recorder.takeNew();
    }
    EXPECT_THAT(recorder.takeOverruns(), IsEmpty());
    const auto all = lines();
    ASSERT_THAT(all, SizeIs(written));
    for (int i = 0; i < written; ++i) {
        ASSERT_EQ(all[static_cast<std::size_t>(i)],
                  fmt::format("(0000001000.{:06}) C 105#AB05", i));
    }
}

TEST_F(Recorders, UtcGoesOnAcrossPartsAndNeverBack) {
    const auto channel = mount();
    recorder.addChannels({});
    add(*channel, 1, 50.0);
    recorder.endPart();
    host->data().setStart(at(1049 * second));
    host->clock().startNextPart(49.0);
    add(*channel, 2, 0.9999);
    add(*channel, 3, 3.0);
    recorder.takeNew();
    counter.pass(60.0);
    const Summary summary = recorder.summarize({});
    EXPECT_EQ(summary.startTime, at(1000 * second));
    EXPECT_EQ(summary.channels[0].lastTime, 52.0);
    EXPECT_EQ(summary.seconds, 60.0);
    EXPECT_THAT(lines(),
                ElementsAre("(0000001050.000000) C 101#AB01", "(0000001050.000000) C 102#AB02",
                            "(0000001052.000000) C 103#AB03"));
}

TEST_F(Recorders, WhatThePluginLostIsToldOncePerChannelWithItsReasons) {
    const auto channel = mount();
    recorder.addChannels({});
    const std::int32_t output = channel->indices().back();
    const ChannelStatistics lossless{.output = output, .beforeStart = 3, .afterEnd = 1};
    EXPECT_THAT(recorder.takeCounts({lossless}), IsEmpty());
    ChannelStatistics lossy{.output = output, .tooOld = 2, .tooNew = 3, .notPlaced = 4};
    lossy.leftQueued = 5;
    lossy.noOutput = 6;
    ChannelStatistics other = lossy;
    other.output = 77;
    EXPECT_THAT(recorder.takeCounts({other, lossy}),
                ElementsAre(AllOf(HasSubstr("\"C\" lost 20 messages: 2 came too late"),
                                  HasSubstr("3 were stamped"), HasSubstr("4 had"),
                                  HasSubstr("5 were still"), HasSubstr("6 had no channel"))));
    EXPECT_THAT(recorder.takeCounts({lossy}), IsEmpty()) << "told already";
    EXPECT_EQ(recorder.summarize({}).totalLost(), 20U);
}

}  // namespace
}  // namespace station
