#include "station/session/summary.h"

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

TEST(Summary, TableShowsNoControlCharactersOfTheNetworkAndCountsSilentChannels) {
    const auto lines = toTable(summaryOfOneModule("Front", "S\x1B[2J\r\n\x7F"));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("serial S?[2J???"), HasSubstr("Connected"))));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("Front 0x10"), HasSubstr(" 7 "))));
    EXPECT_THAT(lines, Contains("  (2 channels without frames)"));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("\x1B"))));
}

TEST(Summary, LossesAndClocksAreInEachForm) {
    Summary summary = summaryOfOneModule("Front", "a\"\n\xFF");
    summary.modules[0].clock = ClockStatistics{.mode = ClockStatistics::softSync,
                                               .hasTime = true,
                                               .isPlaced = true,
                                               .ratePpm = 12.34,
                                               .residual = 5e-6,
                                               .age = 0.25,
                                               .jumps = 2};
    summary.channels[1].counts = {
        .unusable = 8, .queued = 21, .delivered = 1, .raised = 6, .tooOld = 2, .tooNew = 3};
    summary.channels[1].counts->noOutput = 4;
    summary.channels[1].overwritten = 5;
    summary.droppedFrames = 6;
    summary.interfaceMessagesLeftOut = 3;
    summary.modules[0].timeStandsStill = true;
    summary.modules[0].frames = {80, 1, 20};
    summary.recordings = {{"a.log", "a.log", 1, "candump log", 9, 300, 7, "", {{}, {true, 9, 7}}}};
    const auto lines = toTable(summary);
    EXPECT_THAT(
        lines,
        Contains(HasSubstr(
            "soft sync +12.3 ppm, residual 5.0 us, offset 0.000000 s, age 0.25 s, 2 jumps")));
    EXPECT_THAT(lines, Contains(HasSubstr("LOST 14"))) << "though no frame came";
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("2 came too late"), HasSubstr("5 were over"))));
    for (const auto* const text :
         {"sequence counter: 1 gap, 20 frames missing", "LOST 6 Ethernet", "LOST 7",
          "TIME STANDS STILL", "not delivered: 8", "was earlier: 6"}) {
        EXPECT_THAT(lines, Contains(HasSubstr(text)));
    }
    EXPECT_THAT(toProgressLine(summary), HasSubstr("14 LOST"));
    const auto json = nlohmann::json::parse(toJson(summary));
    EXPECT_EQ(json["lostMessages"], 14);
    EXPECT_EQ(json["interfaceMessagesLeftOut"], 3);
    EXPECT_EQ(json["modules"][0]["serial"], "a\"\n\uFFFD");
    EXPECT_EQ(json["channels"][0]["recordings"].size(), 0U);
    EXPECT_EQ(json["channels"][1].dump(),
              R"({"afterEnd":0,"beforeStart":0,"busType":"CAN FD","delivered":1,"firstTime":null,)"
              R"("frames":0,"interfaceId":32,"lastTime":null,"leftQueued":0,"module":"Front",)"
              R"("name":"Front","noOutput":4,"notPlaced":0,"overwritten":5,"queued":21,"raised":6,)"
              R"("recordings":[{"lost":7,"path":"a.log","records":9}],"tooNew":3,"tooOld":2,)"
              R"("unusable":8})");
    EXPECT_EQ(json["modules"][0]["clock"].dump(),
              R"({"age":0.25,"jumps":2,"mode":"soft sync","offset":0.0,"ratePpm":12.34,)"
              R"("residual":5e-06,"state":"following"})");

    summary.awaitedLeader = "Front";
    EXPECT_THAT(toTable(summary), Contains(HasSubstr("waiting for \"Front\"")));
    EXPECT_THAT(toProgressLine(summary), HasSubstr("waiting for \"Front\""));
}

}  // namespace
}  // namespace station
