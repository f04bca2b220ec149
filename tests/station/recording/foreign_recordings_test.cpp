#include "station/recording/message_filter.h"

#include "tests/station/recording/read_back.h"
#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Blocks of a .pcapng, byte by byte.
class Blocks {
  public:
    explicit Blocks(bool bigEndian) : isBigEndian(bigEndian) {}

    std::string number(std::uint64_t value, std::size_t size) const {
        std::string bytes;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t place = isBigEndian ? size - 1 - i : i;
            bytes += static_cast<char>(place < sizeof value ? value >> 8 * place : 0);
        }
        return bytes;
    }
    std::string option(std::uint64_t code, std::string value) const {
        const std::string head = number(code, 2) + number(value.size(), 2);
        value.resize((value.size() + 3) / 4 * 4);
        return head + value;
    }
    std::string block(std::uint64_t type, std::string body) const {
        body.resize((body.size() + 3) / 4 * 4);
        const std::string size = number(body.size() + 12, 4);
        return number(type, 4) + size + body + size;
    }
    std::string section() const {
        return block(0x0A0D0D0A, number(0x1A2B3C4D, 4) + number(1, 4) + number(-1ULL, 8));
    }
    std::string interface(std::uint64_t linkType, const std::string& options = "") const {
        return block(1, number(linkType, 2) + number(0, 6) + options);
    }
    std::string packet(std::uint64_t interface, std::uint64_t time, const std::string& data) const {
        return block(6, number(interface, 4) + number(time >> 32, 4) + number(time, 4) +
                            number(data.size(), 4) + number(data.size(), 4) + data);
    }

  private:
    const bool isBigEndian;
};

class ForeignRecordings : public testing::Test {
  protected:
    std::vector<std::string> read(const std::string& name, const std::string& bytes) {
        const std::string path = folder.path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        there = readBack(path);
        return there.messages;
    }

    const TemporaryFolder folder;
    Contents there;
};

TEST_F(ForeignRecordings, PcapngOfSeveralSectionsInBothByteOrders) {
    const std::string can("\x80\0\1\x23\2\0\0\0\xAB\xCD\0\0", 12);
    const std::string remote("\x40\0\1\x23\0\0\0\0", 8);
    const std::string error1("\x20\0\0\4\x08\0\0\0\0\0\0\0\0\0\0\0", 16);
    const std::string lying("\0\0\1\x23\x08\0\0\0\0", 9);
    const std::string lin("\1\0\0\0\x21\x92\x5A\0\x11\x22", 10);
    std::string linError = lin;
    linError[7] = 8;
    std::string linEvent = lin;
    linEvent[4] = 0x2D;
    std::string bytes;
    for (const bool isBigEndian : {true, false}) {
        const Blocks to(isBigEndian);
        bytes += to.section() + to.block(4, "names") + to.interface(227, to.option(2, "A")) +
                 to.interface(212, to.option(9, "\x8A") + to.option(14, to.number(1'000, 8))) +
                 to.interface(1) + to.interface(227, to.option(2, "A") + to.option(9, "\x0C"));
        bytes += to.packet(0, 1'700'000'000'000'001, can) + to.packet(1, 1'537, lin) +
                 to.packet(3, 1'234'567, can);
        for (const auto& [interface, data] : std::vector<std::pair<int, std::string>>{{0, remote},
                                                                                      {0, error1},
                                                                                      {0, lying},
                                                                                      {0, ""},
                                                                                      {1, linError},
                                                                                      {1, linEvent},
                                                                                      {2, can},
                                                                                      {4, can}}) {
            bytes += to.packet(static_cast<std::uint64_t>(interface), 0, data);
        }
        bytes += to.block(3, to.number(12, 4) + can) + to.block(2, to.number(0, 20) + can) +
                 to.block(0xBAD, std::string(100'000, 'x'));
    }
    const std::vector<std::string> once = {"CAN A 1700000000000001000 123x#abcd",
                                           "LIN LIN 1001500976562 12#1122 5a",
                                           "CAN A (2) 1234 123x#abcd"};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(read("a.pcapng", bytes), twice);
    EXPECT_EQ(there.skipped, 2U * 10U);
    EXPECT_EQ(there.error, "");

    // What comes behind a block whose lengths make no sense can't be found.
    const Blocks to(false);
    for (const std::uint64_t size : {0U, 8U, 14U, 20U, 0xFFFFFFF0U}) {
        EXPECT_EQ(read("b.pcapng", bytes + to.number(7, 4) + to.number(size, 4) + to.number(0, 4) +
                                       to.number(16, 4) + to.packet(0, 0, can)),
                  twice);
        EXPECT_THAT(there.error, HasSubstr("60 bytes of it were left")) << size;
    }
}

TEST_F(ForeignRecordings, CandumpLinesOfOtherPrograms) {
    EXPECT_THAT(read("a.log",
                     "(1700000000.1) can0 123#DE.AD R\r\n"
                     "(1700000000.123456789) can0 00000123#0102030405060708_9 T\n"
                     "\n"
                     "(1700000000.000001) vcan1 7FF##5AB\n"
                     "(1700000000.000001) can0 123#R4\n"
                     "(1700000000.000001) can0 20000080#0000000000000000\n"
                     "(1700000000.000001) can0 123#010\n"
                     "(1700000000.000001) can0 123#010203040506070809\n"
                     "(9999999999999.000001) can0 123#01\n"
                     "nonsense\n"
                     "(2.000000) can0 123#\n"),
                ElementsAre("CAN can0 1700000000100000000 123#dead",
                            "CAN can0 1700000000123456789 123x#0102030405060708",
                            "CAN vcan1 1700000000000001000 7ff#ab", "CAN can0 2000000000 123#"));
    EXPECT_EQ(there.skipped, 6U);
    EXPECT_EQ(there.error, "");
}

TEST_F(ForeignRecordings, AscLinesOfOtherPrograms) {
    ASSERT_EQ(::setenv("TZ", "XYZ-2", 1), 0);  // two hours east of UTC
    ::tzset();
    for (const char* date : {"Tue Nov 14 10:13:20.250 pm 2023", "Die Nov 14 22:13:20.250 2023"}) {
        EXPECT_THAT(
            read(
                "a.asc",
                std::string("date ") + date +
                    "\nbase dec  timestamps relative\nno internal events logged\n"
                    "   0.5000 2  291x            Rx   d 2 171 205 Length = 1 ID = 291x\n"
                    "   0.2500 CANFD   1 Tx  291  Name of it 1 0 9 12 1 2 3\n"
                    "   0.2500 CANFD   1 Tx  291  Name 1 0 9 12 1 2 3 4 5 6 7 8 9 0 1 2 0 0\n"
                    "   0.0000 L7 17 Tx 1 18 checksum = 19\n"
                    "   0.0000 1  ErrorFrame\n"
                    "   0.0000 1  291             Rx   r 0\n   0.0000 CANFD   1 Rx  291  0 0 8  0\n"
                    "   0.0000 1  Statistic: D 0 R 0\n"),
            ElementsAre("CAN CAN 2 1699992800750000000 123x#abcd",
                        "CAN CAN 1 1699992801250000000 123#010203040506070809000102",
                        "LIN LIN 7 1699992801250000000 11#12 13"))
            << date;
        EXPECT_EQ(there.skipped, 5U);
    }
    EXPECT_THAT(read("b.asc",
                     "date Mit Dez 31 11:00:00 2025\nbase hex  timestamps absolute\n"
                     "Begin Triggerblock Mit Mai 31 12:00:00 am 2023\n"
                     "  1.5 1  7ff Rx d f 01 02 03 04 05 06 07 08\n"),
                ElementsAre("CAN CAN 1 1685484001500000000 7ff#0102030405060708"));
    ::unsetenv("TZ");
    ::tzset();
}

TEST_F(ForeignRecordings, TablesThatAnotherProgramStoredAgain) {
    EXPECT_THAT(
        read("a.csv",
             "time,channel,bus,id,extended,length,data,checksum\r\n"
             "\"2023-11-14 22:13:20.5\",\"A\",\"CAN\",\"291\",\"1\",\"1\",\"AB\",\"\"\r\n"
             "2023-11-14T22:13:20Z,B,LIN,0x11,0,0,,19\n"
             "2023-11-14T22:13:20Z,B,LIN,0x40,0,0,,19\n"
             "2023-11-14T22:13:20Z,B,LIN,0x11,0,0,,\n"
             "2023-11-14T22:13:20Z,A,CAN,0x11,0,2,01,\n"
             "2023-11-14T22:13:20Z,A,CAN,0x11,0,1,01,,x\n"
             "2023-11-14T22:13:20Z,A,FlexRay,0x11,0,1,01,\n"),
        ElementsAre("CAN A 1700000000500000000 123x#ab", "LIN B 1700000000000000000 11# 13"));
    EXPECT_EQ(there.skipped, 5U);
}

TEST_F(ForeignRecordings, WhatIsNoRecordingOrTooMuchIsSaid) {
    const Blocks to(false);
    read("a.pcapng", to.section() + to.interface(1) + to.interface(227));
    EXPECT_TRUE(there.isNull) << "Ethernet frames";
    read("a.log", std::string("\xD4\xC3\xB2\xA1\2\0\4\0", 8));
    EXPECT_TRUE(there.isNull) << "Ethernet frames under a strange name";
    for (const char* name : {"a.log", "a.asc", "a.csv"}) {
        EXPECT_TRUE(read(name, "1.0 some text\nand more of it\n").empty());
        EXPECT_THAT(there.error, HasSubstr("29 bytes of it were left")) << name;
        EXPECT_TRUE(read(name, "").empty());
        EXPECT_EQ(there.error, "");
    }
    read("c.pcapng", "");
    EXPECT_THAT(there.error, HasSubstr("ends within a block"));
    std::string many;
    for (int i = 0; i < 4'097; ++i) {
        many += "(1.000000) can" + std::to_string(i) + " 123#\n";
    }
    EXPECT_EQ(read("b.log", many + "(1.000000) can0 123#\n").size(), 4'096U);
    EXPECT_THAT(there.error, HasSubstr("beyond the 4096"));
    EXPECT_EQ(read("c.log", "(1.000000) can0 123#\n" + std::string(70'000, '(') + '\n').size(), 1U);
    EXPECT_THAT(there.error, HasSubstr("70001 bytes of it were left"));
    std::string interfaces = to.section();
    for (int i = 0; i < 4'097; ++i) {
        interfaces += to.interface(227);
    }
    read("b.pcapng", interfaces);
    EXPECT_THAT(there.error, HasSubstr("beyond the 4096"));
}

TEST(MessageFilterTest, TimesChannelsAndIdentifiersArePartsOfOneQuestion) {
    constexpr std::int64_t second = 1'000'000'000;
    constexpr std::int64_t first = 1'700'000'000 * second;
    struct Case {
        MessageFilter::Options options;
        std::vector<int> passing;  ///< of the messages below
        std::size_t unknown = 0;
    };
    const Case cases[] = {
        {{}, {0, 1, 2, 3}},
        {{parseMoment("1"), parseMoment("3"), {}, {}}, {1, 2}},
        {{parseMoment("2023-11-14T22:13:21Z"), parseMoment("2023-11-14 22:13:22.5"), {}, {}},
         {1, 2}},
        {{{}, parseMoment("2"), {"B", "C"}, {}}, {1}, 1},
        {{parseMoment("1.000000001"), {}, {}, {parseIdentifiers("0x100-0x1FE").value()}}, {3}},
        {{{}, {}, {}, {parseIdentifiers("511").value()}}, {0, 2}},
        {{{}, {}, {}, {parseIdentifiers("17").value(), {0x100, 0x100}}}, {1, 3}},
    };
    for (const Case& test : cases) {
        MessageFilter filter(test.options);
        filter.addChannel({"A", BusType::Can});
        filter.addChannel({"B", BusType::Lin});
        CanFrame can;
        LinFrame lin;
        lin.id = 17;
        std::vector<int> passing;
        for (int i = 0; i < 4; ++i) {
            can.id = i == 3 ? 0x100 : 0x1FF;
            if (i == 1 ? filter.passes(1, first + i * second, &lin, sizeof lin)
                       : filter.passes(0, first + i * second, &can, sizeof can)) {
                passing.push_back(i);
            }
        }
        EXPECT_EQ(passing, test.passing) << &test - cases;
        EXPECT_EQ(filter.getUnknownChannels().size(), test.unknown);
    }
    for (const char* text :
         {"", "-1", "1e3", "2023-11-31T00:00:00Z", "2023-11-30T24:00:00Z", "nan"}) {
        EXPECT_FALSE(parseMoment(text)) << text;
    }
    for (const char* text : {"", "-", "1-", "0x20000000", "2-1", "1-2-3", "G"}) {
        EXPECT_FALSE(parseIdentifiers(text)) << text;
    }
}

}  // namespace
}  // namespace station
