#include "capture/packet_text.h"

#include <gmock/gmock.h>

namespace {

class PacketTextTest : public ::testing::Test {
  protected:
    PacketTextTest() {
        setPacketTextSink([this](const std::string& text) { texts += text + '|'; });
    }
    ~PacketTextTest() override {
        setPacketTextSink([](const std::string&) {});
    }
    std::string texts;  ///< each ends in "|"
};

TEST_F(PacketTextTest, EachRecordIsOneTextOfPlainNumbers) {
    dumpHeader({65535, 1, 65, 3, 2, 0, 0, 4294967295, 0, 1234, 0, false});
    dumpCmStatus({0, 9, 33, 0, 0, 65, 1000000, {}, 0, 0, {}, {}});
    dumpBusStatus({0, 9, 33, 0, 0, 65, 7, 16, 6, 5, {}, 0});
    dumpTime({1, 5});
    dumpSeconds(0.25);
    const std::uint8_t bytes[] = {0x0A, 0xFF};
    dumpBytes(bytes, 2);
    EXPECT_EQ(texts,
              "HEADER\nCM ID:        65535\nCounter:      1\nData type:    2\n"
              "Data length:  1234\nMessage type: 3\nVersion:      65\nChn. ID:      4294967295\n|"
              "CM_STATUS\nCM ID:   65\nCM Type: 33\nCM Ver:  9\nSN:      1000000\n|"
              "BUS_STATUS\nChn. ID:  16\nCM ID:    65\nCM Type:  33\nCM Ver:   9\n"
              "Error#:   5\nMessage#: 6\nSN:       7\n|"
              "Time: 1.        5\n|Time: 0.25\n|0A FF |\n|");
}

}  // namespace
