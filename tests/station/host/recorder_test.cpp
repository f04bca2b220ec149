#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "station/host/measurement_recorder.h"
#include "tests/station/host/stand_ins.h"
#include "tests/support/scripted_document.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::int64_t second = 1000000000;

class Recorders : public testing::Test {
  protected:
    Recorders() {
        std::string name = testing::TempDir() + "recorder-XXXXXX";
        directory = ::mkdtemp(name.data());
        recordings.open(directory / "a.log");
        host->data().setStart(at(1000 * second));
        host->clock().start();
    }
    ~Recorders() override { std::filesystem::remove_all(directory); }

    static StationData::SystemClock::time_point at(std::int64_t nanoseconds) {
        return StationData::SystemClock::time_point(std::chrono::nanoseconds(nanoseconds));
    }
    CountedRef<StationChannel> mount(std::int32_t index, std::int32_t type, const wchar_t* name,
                                     bool used = true) {
        CountedRef<HostChannel> mounted;
        host->channels().mountChannels(L"{id}", 1, &index, mounted.out());
        const auto channel = host->channels().all().back();
        channel->setDataType(type);
        channel->setAsync(hostTrue);
        channel->setUsed(toHostBool(used));
        channel->setName(name);
        return channel;
    }
    static void add(StationChannel& channel, std::uint8_t id, double time) {
        std::array<std::uint8_t, 72> record{id, 1, 0, 0, 0, 0, 0, 2, 0xAB, id};
        addSample(channel, record.data(), record.size(), time);
    }
    std::vector<std::string> lines() {
        EXPECT_THAT(recordings.close(), IsEmpty());
        std::ifstream log(directory / "a.log");
        std::vector<std::string> all;
        for (std::string line; std::getline(log, line);) {
            all.push_back(line);
        }
        return all;
    }

    std::filesystem::path directory;
    StillCounter counter;
    CountedRef<StationHost> host = makeCounted<StationHost>(counter, StationHostOptions{});
    RecordingSet recordings;
    MeasurementRecorder recorder{*host, recordings};
};

TEST_F(Recorders, EachMessageIsRecordedOnceAlsoInStalls) {
    const auto channel = mount(0, 14, L"C");
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

TEST_F(Recorders, TheSummaryTellsOfUsedBusChannelsUnderNamesOfTheirOwn) {
    const auto first = mount(4, 14, L"Front");
    mount(5, 14, L"unused", false);
    mount(6, 7, L"no bus");
    const auto lin = mount(7, 12, L"Front");
    recorder.addChannels({{7, 0, 0, 0x30}, {4, 5, 0, 1}});
    add(*first, 1, 0.5);
    add(*first, 2, 1.5);
    addBytes(*lin, std::string("\x11\x02\0\0\x01\xFF\0\0\0\0\0\0\x07", 13), 2.25);
    counter.pass(2.0);
    recorder.takeNew();
    const Summary summary = recorder.summarize({{"M", "LIN combo", 2, 0x32, "7", true}});
    ASSERT_THAT(summary.channels, SizeIs(2));
    const ChannelSummary& can = summary.channels[0];
    EXPECT_EQ(can.name, "Front");
    EXPECT_EQ(can.frames, 2U);
    EXPECT_EQ(can.firstTime, 0.5);
    EXPECT_EQ(can.lastTime, 1.5);
    EXPECT_EQ(can.rate, 1.0);
    EXPECT_EQ(can.lastValue, "0x102: AB 02");
    EXPECT_EQ(can.module, 1U) << "its owner isn't there: a module without a name";
    EXPECT_EQ(summary.channels[1].name, "Front (2)");
    EXPECT_EQ(summary.channels[1].lastValue, "17: 01 FF");
    EXPECT_EQ(summary.channels[1].module, 0U);
    EXPECT_EQ(summary.channels[1].interfaceId, 0x30);
    EXPECT_THAT(summary.modules, SizeIs(2));
    EXPECT_EQ(summary.startTime, at(1000 * second));
    EXPECT_EQ(summary.recordings[0].records, 2U);
}

TEST_F(Recorders, UtcGoesOnAcrossPartsAndNeverBack) {
    const auto channel = mount(0, 14, L"C");
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

TEST_F(Recorders, OverwrittenMessagesAreToldOnce) {
    const auto channel = mount(0, 14, L"C");
    recorder.addChannels({});
    add(*channel, 1, 0.0);
    channel->setExpectedRate(1e5F);  // moves the buffers
    add(*channel, 2, 0.0);
    recorder.takeNew();
    EXPECT_THAT(recorder.takeOverruns(), ElementsAre(HasSubstr("\"C\" lost 1 messages")));
    EXPECT_THAT(recorder.takeOverruns(), IsEmpty());
}

TEST(SavedModules, AreReadWithTheirChannelsAndWithoutTrustInTheText) {
    CallScript script;
    auto& document = script.make<ScriptedDocument>(false);
    auto& root = script.make<ScriptedElement>(L"Station");
    EXPECT_THAT(readModules(document, root), IsEmpty());
    auto& list = root.addNew(L"CmpDevices");
    list.addNew(L"Other");
    auto& module = list.addNew(L"CmpDevice");
    module.values = {{L"DeviceTypeId", L"2"},
                     {L"ConfigId", L"70000"},
                     {L"Id", L"5"},
                     {L"Name", L"F\u00FCr"},
                     {L"SerialNumber", L"N/A"}};
    list.addNew(L"CmpDevice").values = {{L"SerialNumber", L"12"}, {L"Id", L"abc"}};
    auto& channels = module.addNew(L"Channels");
    channels.addNew(L"Channel").values = {{L"ChId", L"3"}};
    channels.addNew(L"Channel");

    const auto modules = readModules(document, root);
    ASSERT_THAT(modules, SizeIs(2));
    EXPECT_EQ(modules[0].typeId, 2U);
    EXPECT_EQ(modules[0].configId, 0U);
    EXPECT_EQ(modules[0].cmId, 5U);
    EXPECT_EQ(modules[0].name, "F\xC3\xBCr");
    EXPECT_FALSE(modules[0].connected);
    EXPECT_TRUE(modules[1].connected);
    const auto owners = readChannelOwners(document, root);
    ASSERT_THAT(owners, SizeIs(2));
    EXPECT_EQ(owners[0].output, 3);
    EXPECT_EQ(owners[1].output, -1);
    EXPECT_EQ(owners[1].position, 1U);
    EXPECT_THAT(script.referenceFaults(), IsEmpty());
}

}  // namespace
}  // namespace station
