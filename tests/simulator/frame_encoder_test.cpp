#include "simulator/frame_encoder.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <vector>

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes hex(const std::string& text) {
    std::istringstream in(text);
    Bytes bytes;
    for (std::string two; in >> two;)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(two, nullptr, 16)));
    return bytes;
}

const Sender canCombo = {.cmId = 0x45, .serial = 100000, .deviceType = 4};
const Sender neovi = {.framing = Framing::AsamCmp, .cmId = 7, .serial = 4321, .description = "N3"};

class FrameEncoder : public testing::Test {
  protected:
    Bytes data(const Sender& sender, std::uint16_t counter,
               const std::vector<DataMessage>& messages) {
        return cut(encodeData(buffer, sender, counter, messages));
    }
    Bytes cut(std::size_t length) {
        return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)};
    }
    std::array<std::uint8_t, 1024> buffer{};
};

TEST_F(FrameEncoder, TecmpCanFrameHoldsEachByteOfItsTable) {
    const DataMessage standard{0x10, 8, 2, 0x0102030405060708, 0};
    const DataMessage extended{0x20, 3, 0x01020303, 0x8000000000000009, 0};
    EXPECT_EQ(data(canCombo, 0x1234, {standard, extended}),
              hex("01 00 5e 00 00 00  02 00 00 00 00 45  99 fe"
                  "  00 45  12 34  03  03  00 02  00 00  00 0b"
                  "  00 00 00 10  01 02 03 04 05 06 07 08  00 0f  00 01"
                  "  00 00 01 42  08  02 00 00 00 16 17 18 19  00 00"
                  "  00 00 00 20  00 00 00 00 00 00 00 09  00 0a  00 05"
                  "  98 da 20 f1  03  03 03 02  00 00"));
}

TEST_F(FrameEncoder, StampNeedsTwelveBytes) {
    constexpr std::uint64_t host = 0x1122334455667788;
    Bytes bytes(12);
    writeData(bytes.data(), {1, 12, 0x05060708, 0, host});
    EXPECT_EQ(bytes, hex("08 07 06 05 88 77 66 55 44 33 22 11"));
    bytes.resize(8);
    writeData(bytes.data(), {1, 8, 0x05060708, 0, host});
    EXPECT_EQ(bytes, hex("08 07 06 05 0d 0e 0f 10"));
}

TEST_F(FrameEncoder, AsamDataFrameHoldsEachByteOfItsTable) {
    EXPECT_EQ(data(neovi, 0x0102, {{20, 5, 0, 0x0A0B0C0D0E0F1011, 0}}),
              hex("01 00 5e 00 00 00  02 00 00 00 00 07  99 fe"
                  "  01 00 00 07 01 00 01 02  0a 0b 0c 0d 0e 0f 10 11  00 00 00 14  00 01  00 15"
                  "  00 00 00 00  00 00 01 50  00 00 00 00  00 00  05 05  00 00 00 00 18  00"));
}

TEST_F(FrameEncoder, TecmpStatusHasEightyFiveBytesAndNoSerialText) {
    const Bytes status = cut(encodeCmStatus(buffer, canCombo, 9, 0x0102030405060708));
    Bytes expected =
        hex("01 00 5e 00 00 00  02 00 00 00 00 45  99 fe"
            "  00 45  00 09  03  01  00 00  00 00  00 03"
            "  00 00 00 00  01 02 03 04 05 06 07 08  00 55  00 00"
            "  00 01 04 00  00 49  00 45  00 01 86 a0");
    expected.resize(42 + 85);
    EXPECT_EQ(status, expected);
}

TEST_F(FrameEncoder, AsamStatusTextsAreCountedAndTerminated) {
    const Bytes status = cut(encodeCmStatus(buffer, neovi, 3, 1));
    ASSERT_GE(status.size(), 38U + 26U);
    EXPECT_EQ(Bytes(status.begin() + 14, status.begin() + 38),
              hex("01 00 00 07 03 00 00 03  00 00 00 00 00 00 00 01  00 00 00 00  00 01  00 36"));
    EXPECT_EQ(status.size(), 38U + 0x36U);
    EXPECT_EQ(Bytes(status.begin() + 38 + 26, status.end()),
              hex("00 04 4e 33 00 00  00 06 34 33 32 31 00 00  00 04 31 2e 30 00"
                  "  00 04 31 2e 30 00  00 00"));
}

}  // namespace
}  // namespace sim
