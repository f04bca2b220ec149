#include "capture/packet_text.h"

#include <gtest/gtest.h>

namespace {

TEST(PacketTextTest, EachRecordIsDumpedWithItsLabels) {
    std::string text;
    setPacketTextSink([&](const std::string& piece) { text += piece; });
    CmpHeader header;
    header.cmId = 1, header.counter = 2, header.dataType = 3, header.dataLength = 4;
    header.messageType = 5, header.version = 6, header.channelId = 7;
    dumpHeader(header);
    CmStatus status;
    status.cmId = 1, status.cmType = 2, status.cmVersion = 3, status.serialNumber = 4;
    dumpCmStatus(status);
    BusStatus bus;
    bus.cmId = 1, bus.cmType = 2, bus.cmVersion = 3, bus.serialNumber = 4;
    bus.interfaceId = 5, bus.errorCount = 6, bus.messageCount = 7;
    dumpBusStatus(bus);
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
