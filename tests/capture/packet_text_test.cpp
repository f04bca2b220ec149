#include "capture/packet_text.h"

namespace {

TEST(PacketTextTest, EachRecordIsDumpedWithItsLabels) {
    std::string text;
    setPacketTextSink([&](const std::string& piece) { text += piece; });
    dumpHeader({1, 2, 6, 5, 3, 0, 0, 7, 0, 4});
    dumpCmStatus({0, 3, 2, 0, 0, 1, 4});
    dumpBusStatus({0, 3, 2, 0, 0, 1, 4, 5, 7, 6});
    dumpTime({1, 5});
    dumpSeconds(1.5);
    const std::uint8_t bytes[] = {0x0A, 0xFF};
    dumpBytes(bytes, 2);
    setPacketTextSink([](const std::string&) {});
    EXPECT_EQ(text,
              "HEADER\nCM ID:        1\nCounter:      2\nData type:    3\nData length:  4\n"
              "Message type: 5\nVersion:      6\nChn. ID:      7\n"
              "CM_STATUS\nCM ID:   1\nCM Type: 2\nCM Ver:  3\nSN:      4\n"
              "BUS_STATUS\nChn. ID:  5\nCM ID:    1\nCM Type:  2\nCM Ver:   3\nError#:   6\n"
              "Message#: 7\nSN:       4\n"
              "Time: 1.        5\nTime: 1.5\n0A FF \n");
}

}  // namespace
