#include "station/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace station {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

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
    return summary;
}

TEST(Summary, NamesThatAreNoUtf8StillMakeJson) {
    const auto json = nlohmann::json::parse(toJson(summaryOfOneModule("\xC3(\xFF", "a\"\x1B\n")));
    EXPECT_EQ(json["modules"][0]["name"], "\uFFFD(\uFFFD");
    EXPECT_EQ(json["modules"][0]["serial"], "a\"\x1B\n");
    EXPECT_EQ(json["channels"][0]["name"], "\uFFFD(\uFFFD 0x10");
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
