#include "station/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace station {
namespace {

using std::chrono::nanoseconds;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

Summary::Clock::time_point utc(std::int64_t sinceEpoch) {
    return Summary::Clock::time_point(nanoseconds(sinceEpoch));
}

Summary summaryOfOneModule(const std::string& name, const std::string& serial) {
    Summary summary;
    summary.modules.push_back({name, "CAN combo", 5, 0x45, serial, true});
    for (const std::uint16_t id : std::initializer_list<std::uint16_t>{0x10, 0x20, 0x30}) {
        ChannelSummary channel;
        channel.interfaceId = id;
        channel.busName = "CAN FD";
        channel.name = name + (id == 0x10 ? " 0x10" : "");
        summary.channels.push_back(channel);
    }
    summary.channels[0].frames = 7;
    summary.channels[0].firstTime = 0.25;
    summary.channels[0].lastTime = 1.5;
    return summary;
}

TEST(Summary, TimesAreWholeNanosecondsAlsoBefore1970) {
    EXPECT_EQ(toIsoText(utc(1'700'000'000'000'000'009)), "2023-11-14T22:13:20.000000009Z");
    EXPECT_EQ(toIsoText(utc(-1)), "1969-12-31T23:59:59.999999999Z");
}

TEST(Summary, NamesThatAreNoUtf8StillMakeJson) {
    const auto json = nlohmann::json::parse(toJson(summaryOfOneModule("\xC3(\xFF", "a\"\x1B\n")));
    EXPECT_EQ(json["modules"][0]["name"], "\uFFFD(\uFFFD");
    EXPECT_EQ(json["modules"][0]["serial"], "a\"\x1B\n");
    EXPECT_EQ(json["channels"][0]["name"], "\uFFFD(\uFFFD 0x10");
}

TEST(Summary, ChannelWithoutFramesHasNoTimes) {
    Summary summary = summaryOfOneModule("A", "1");
    summary.recordings.push_back({"a.log", "candump log", 5, 100, 2, "disk full"});
    const auto json = nlohmann::json::parse(toJson(summary));
    EXPECT_EQ(json["channels"][0]["lastTime"], 1.5);
    EXPECT_TRUE(json["channels"][1]["firstTime"].is_null());
    EXPECT_EQ(json["recordings"][0]["error"], "disk full");
    EXPECT_EQ(json["recordings"][0]["lost"], 2);
}

TEST(Summary, TableShowsNoControlCharactersOfTheNetworkAndCountsSilentChannels) {
    const auto lines = toTable(summaryOfOneModule("Front", "S\x1B[2J\r\n\x7F"));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("serial S?[2J???"), HasSubstr("Connected"))));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("Front 0x10"), HasSubstr(" 7 "))));
    EXPECT_THAT(lines, Contains("  (2 channels without frames)"));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("\x1B"))));
}

}  // namespace
}  // namespace station
