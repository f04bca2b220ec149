#include "station/metrics/metric_families.h"

#include <prometheus/text_serializer.h>

namespace station {
namespace {

TEST(MetricFamilies, EveryCountHasItsNameAndLabels) {
    Summary summary;
    summary.droppedFrames = 101;
    summary.outOfOrder = 102;
    summary.interfaces = {{{L"eth0", 103, 104, 105, 106}}, {{L"", 107, 0, 0, 0}}};
    summary.messages = {108, 109, 110, 111, 112, 113, 114, {{0x45, 115}}};
    summary.unused = 116;
    summary.awaitedLeader = "B";
    for (const char* const name : {"A \"\\\n", "A \"\\\n"}) {
        summary.modules.push_back({name, "CAN combo", 5, 0x45, "S\xFF"});
    }
    summary.modules[1].frames = {117, 118};
    summary.modules[1].clock = ClockStatistics{.hasTime = true, .ratePpm = 5.0, .jumps = 119};
    ChannelSummary channel;
    channel.module = 1;
    channel.busName = "LIN";
    channel.name = "C";
    channel.frames = 120;
    channel.overwritten = 121;
    channel.counts = {0, 0, 122, 1100, 123, 124, 125, 126, 127, 128, 129, 130, 131};
    summary.channels = {channel};
    summary.recordings = {{"a.log", "", 132, "log", 133, 134, 135, "full", {{true, 136, 137}}}};

    std::ostringstream page;
    prometheus::TextSerializer().Serialize(page, toMetricFamilies(summary));
    const std::string second = R"-({module="A \"\\\n (2)")-";
    const std::string ofChannel = R"-({channel="C",module="A \"\\\n (2)",bus="LIN")-";
    const std::string ofRecording = R"({recording="a.log",format="log",contents="messages"} )";
    const std::string discarded = "channel_messages_discarded_total" + ofChannel + ",reason=";
    const std::string lines[] = {
        "dropped_frames_total 101",
        "out_of_order_messages_total 102",
        R"(interface_frames_total{interface="eth0",fate="kept"} 103)",
        R"(interface_frames_total{interface="eth0",fate="foreign"} 104)",
        R"(interface_malformed_frames_total{interface="eth0"} 105)",
        R"(interface_frames_total{interface="eth0",fate="dropped"} 106)",
        R"(interface_frames_total{interface="interfaces that appeared later",fate="kept"} 107)",
        R"(messages_total{kind="data"} 108)",
        R"(messages_total{kind="module_status"} 109)",
        R"(messages_total{kind="bus_status"} 110)",
        R"(messages_total{kind="other"} 111)",
        R"(messages_left_out_total{reason="empty"} 112)",
        R"(messages_left_out_total{reason="unknown_module"} 113)",
        R"(messages_left_out_total{reason="unknown_channel"} 114)",
        R"(unknown_module_messages_total{cm_id="0x45"} 115)",
        R"(messages_left_out_total{reason="unused_channel"} 116)",
        "leader_awaited 1",
        "module_info" + second + R"(,type="CAN combo",config_id="0x5",cm_id="0x45",serial=")" +
            "S\uFFFD\"} 1",
        "module_frames_total" + second + "} 117",
        "module_sequence_gaps_total" + second + "} 118",
        "module_clock_state" + second + R"(,state="not placed"} 1)",
        "module_clock_state" + second + R"(,state="following"} 0)",
        "module_clock_jumps_total" + second + "} 119",
        "channel_messages_read_total" + ofChannel + "} 120",
        "channel_messages_overwritten_total" + ofChannel + "} 121",
        "channel_messages_unusable_total" + ofChannel + "} 122",
        "channel_messages_queued_total" + ofChannel + "} 1100",
        "channel_messages_delivered_total" + ofChannel + "} 123",
        "channel_messages_raised_total" + ofChannel + "} 124",
        discarded + R"("before_start"} 125)",
        discarded + R"("after_end"} 126)",
        discarded + R"("too_old"} 127)",
        discarded + R"("too_new"} 128)",
        discarded + R"("not_placed"} 129)",
        discarded + R"("left_queued"} 130)",
        discarded + R"("no_output"} 131)",
        "channel_messages_waiting" + ofChannel + "} 81",
        "recording_parts_total" + ofRecording + "132",
        "recording_records_written_total" + ofRecording + "133",
        "recording_written_bytes_total" + ofRecording + "134",
        "recording_records_lost_total" + ofRecording + "135",
        "recording_failed" + ofRecording + "1",
        R"(recording_channel_messages_total{recording="a.log",channel="C",fate="written"} 136)",
        R"(recording_channel_messages_total{recording="a.log",channel="C",fate="lost"} 137)"};
    for (const std::string& line : lines) {
        EXPECT_THAT(page.str(), testing::HasSubstr("\ncmp_" + line + "\n"));
    }
}

}  // namespace
}  // namespace station
