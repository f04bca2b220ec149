#include "tests/station/signals/written_database.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string describe(const SignalDefinition& signal) {
    std::ostringstream text;
    text << signal.name << ' ' << signal.startBit << '|' << signal.size << ' '
         << (signal.byteOrder == ByteOrder::BigEndian ? "big " : "little ")
         << static_cast<int>(signal.kind) << ' ' << signal.factor << ' ' << signal.offset << " ["
         << signal.minimum << '|' << signal.maximum << "] " << signal.unit << " \""
         << signal.comment << '"' << (signal.multiplexing.isSwitch ? " M" : "");
    for (const auto& range : signal.multiplexing.ranges) {
        text << ' ' << signal.multiplexing.switchName << '=' << range.least << '-' << range.most;
    }
    for (const ValueText& each : signal.texts) {
        text << ' ' << each.raw << '=' << each.text;
    }
    return text.str();
}

std::vector<std::string> describe(const Database& database) {
    std::vector<std::string> lines;
    for (const MessageDefinition& message : database.messages) {
        std::ostringstream text;
        text << message.id << (message.isExtended ? "x " : " ") << message.name << ' '
             << message.length << ' ' << message.sender << " \"" << message.comment << "\" "
             << message.cycleTime.value_or(-1);
        lines.push_back(text.str());
        for (const SignalDefinition& signal : message.signals) {
            lines.push_back(describe(signal));
        }
    }
    return lines;
}

TEST(Databases, DbcSaysAllThatIsShown) {
    const WrittenDatabase files;
    const Database database = files.read(bodyDbc);
    EXPECT_THAT(describe(database),
                ElementsAre("291 Engine 8 Body \"two\nlines \"quoted\"\" 0.02",
                            "Speed 0|16 little 0 0.25 -10 [0|8000] 1/min \"of the crank, \u20AC\"",
                            "Torque 23|12 big 1 1 0 [0|0] Nm \"\"",
                            "Gear 28|3 little 0 1 0 [0|7]  \"\" 0=Park 1=Re\"verse",
                            "Heat 32|32 little 2 2 1 [0|0] \u00B0C \"\" -1=cold",
                            "419365121x Wide 64  \"\" 0.1",
                            "Far 448|64 little 1 1 0 [0|0]  \"\" -1=none 5=five",
                            "Big 7|64 big 0 1 0 [0|0]  \"\"", "512 Modes 8 Door \"\" -1",
                            "Mode 0|8 little 0 1 0 [0|0]  \"\" M",
                            "A 8|8 little 0 1 0 [0|0]  \"\" Mode=0-0",
                            "PageOfThisMode 8|8 little 0 1 0 [0|0]  \"\" M Mode=1-1",
                            "B 16|8 little 0 1 0 [0|0]  \"\" PageOfThisMode=3-3 "
                            "PageOfThisMode=7-9"));
    EXPECT_THAT(database.notices, ElementsAre());
    EXPECT_EQ(files.read("\xEF\xBB\xBF" + std::string(bodyDbc)).messages.size(), 3U);
}

TEST(Databases, LdfSaysAllThatIsShown) {
    const Database database = WrittenDatabase().read(doorLdf, "test.LDF");
    EXPECT_EQ(database.bus, BusType::Lin);
    EXPECT_THAT(
        describe(database),
        ElementsAre("33 Window 8 Left \"\" -1",
                    "Position 0|10 little 0 0.1 -5 [-5|95] % \"\" 1023=invalid",
                    "Locked 10|1 little 0 1 0 [0|0]  \"\"", "Serial 16|32 little 0 1 0 [0|0]  \"\"",
                    "34 Old 4 Left \"\" -1", "Locked 0|1 little 0 1 0 [0|0]  \"\"",
                    "60 MasterReq 8  \"\" -1", "Req 0|8 little 0 -1 10 [-90|10] m \"\""));
    EXPECT_EQ(database.messages[0].signals[0].ranges.at(1).unit, "raw");
}

TEST(Databases, FaultsAreReportedWithTheirLine) {
    const WrittenDatabase files;
    const std::string begin = "VERSION \"\"\nBO_ 1 A: 8 X\n";
    const std::pair<std::string, std::string> faults[] = {
        {"", "the file ends without a message"},
        {begin + "CM_ \"a\nb\";\nhello", ", line 5: no statement of a .dbc begins with"},
        {"hello\n", ", line 1: no statement of a .dbc begins with \"hello\""},
        {" SG_ S : 0|8@1+ (1,0) [0|0] \"\" X", ", line 1: a signal (SG_) stands in front of"},
        {begin + "SG_ S : 0|65@1+ (1,0) [0|0] \"\"",
         ", line 3: a signal's size is 65: a number from 0 to 64"},
        {begin + "SG_ S : 0|0@1+ (1,0) [0|0] \"\"", ", line 3: signal S has no bits"},
        {begin + "SG_ S : 99999999999|8@1+ (1,0) [0|0] \"\"", ", line 3: a signal's start bit"},
        {begin + "SG_ S : 0|8@1+ (nan,0) [0|0] \"\"", ", line 3: a signal's factor is \"nan\":"},
        {begin + "VAL_ 1 S 1.5 \"a\";", "1.5"},
        {begin + "SG_ S : 0|8@1+ (1,1e999) [0|0] \"\"", ", line 3: a signal's offset"},
        {begin + "SG_ S : 0|8@1+ (1,0) [0|0] \"no\nend", ", line 3: the text of a signal's unit"},
        {begin + "SG_ S x : 0|8@1+ (1,0) [0|0] \"\"", ", line 3: \"x\" is no kind of"},
        {begin + "SG_ S m1 : 0|8@1+ (1,0) [0|0] \"\"", ", line 3: S depends on a switch, and A"},
        {begin + "SG_ S : 0|8@1+ (1,0) [0|0] \"\"\nSG_ S : 0|8@1+ (1,0) [0|0] \"\"",
         ", line 4: A has a signal S already"},
        {begin + "SG_ S M : 0|8@1+ (1,0) [0|0] \"\"\nSG_MUL_VAL_ 1 S S 1-1;",
         ", line 3: S depends on itself"},
        {begin + "SG_ S M : 0|8@1+ (1,0) [0|0] \"\"\nSG_MUL_VAL_ 1 S T 1-1;",
         ", line 3: S depends on T, which isn't in A"},
        {begin + "SG_ S : 0|8@1+ (1,0) [0|0] \"\"\nSIG_VALTYPE_ 1 S : 1;",
         ", line 4: S has 8 bits and not the 32 of a float"},
        {begin + "VAL_ 1 S Nowhere;", ", line 3: there is no such table"},
        {begin + "BO_ 2048 B: 8 X", ", line 3: identifier 2048 has more than 11 bits"},
        {begin + "BO_ 2684354560 B: 8 X", ", line 3: identifier 2684354560 has more than 29 bits"},
        {begin + "BO_ 4294967296 B: 8 X", ", line 3: a message's identifier is 4294967296:"},
        {begin + "BO_ 2 B: 65536 X",
         ", line 3: a message's length is 65536: a number from 0 to 65535"},
    };
    for (const auto& [text, answer] : faults) {
        EXPECT_THAT(files.refusal(text), HasSubstr(answer)) << text;
    }
    std::string many = begin;
    for (int i = 0; i <= 4096; ++i) {
        many += "SG_ S" + std::to_string(i) + " : 0|8@1+ (1,0) [0|0] \"\" X\n";
    }
    EXPECT_THAT(files.refusal(many), HasSubstr(", line 4099: A has more than 4096 signals"));
    const std::pair<std::string, std::string> ldfFaults[] = {
        {"LIN_", "line 1: a .ldf begins with LIN_description_file"},
        {"LIN_description_file;\nFrames {\nF: 64, N, 8 {} }", "line 3: a frame's identifier"},
        {"LIN_description_file;\nFrames {\nF: 1, N, 9 {} }", "line 3: a frame's size"},
        {"LIN_description_file;\nFrames {\nF: 1, N, 8 { S, 0; } }", "line 3: there is no signal S"},
        {"LIN_description_file;\nNodes { {\n}", "line 2: the \"{\" has no \"}\""},
        {"LIN_description_file;\n/* ", "line 2: the comment that begins here has no end"},
    };
    for (const auto& [text, answer] : ldfFaults) {
        EXPECT_THAT(files.refusal(text, "test.ldf"), HasSubstr(answer)) << text;
    }
}

TEST(Databases, OddThingsAreTakenAndReported) {
    const Database database = WrittenDatabase().read(
        "BO_ 1 A: 2 X\n SG_ S : 8|16@1+ (0,3) [0|0] \"\"\nBO_ 1 B: 8 X\n"
        " SG_ T : 0|8@1+ (1,0) [0|0] \"\"\n");
    EXPECT_EQ(database.messages.size(), 1U);
    EXPECT_THAT(database.notices, ElementsAre(HasSubstr("line 2: the factor of S is 0"),
                                              HasSubstr("line 2: S lies outside of the 2 bytes"),
                                              HasSubstr("line 3: B has the identifier of A")));
    EXPECT_EQ(database.messages[0].signals.size(), 1U);
}

TEST(Databases, CutAnywhereTheyAreReadOrRefusedWithALine) {
    const WrittenDatabase files;
    for (const auto& [whole, name] : {std::pair<std::string, std::string>(bodyDbc, "test.dbc"),
                                      std::pair<std::string, std::string>(doorLdf, "test.ldf")}) {
        std::size_t refused = 0;
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const std::string answer = files.refusal(whole.substr(0, size), name);
            refused += answer.empty() ? 0 : 1;
            EXPECT_TRUE(answer.empty() || answer.starts_with(", line ")) << size << answer;
        }
        EXPECT_GT(refused, whole.size() / 3) << name;
    }
}

TEST(Databases, HugeFilesAreRefusedInTimeAndMemory) {
    const WrittenDatabase files;
    const std::string huge(std::size_t{100} << 20U, 'x');
    EXPECT_THAT(files.refusal(huge), StartsWith(", line 1: no statement"));
    EXPECT_THAT(files.refusal("BO_ 1 A: 8 X\n" + std::string(huge.size(), '\n')),
                HasSubstr("it goes on beyond the 64 MB"));
    EXPECT_THAT(
        files.refusal("LIN_description_file;\nNodes" + std::string(huge.size(), '{'), "test.ldf"),
        StartsWith(", line 2: "));
    std::string many;
    for (int i = 0; i < 70'000; ++i) {
        many += "BO_ " + std::to_string(0x80000000U + static_cast<unsigned>(i)) + " A: 8 X\n";
    }
    EXPECT_THAT(files.refusal(many), HasSubstr("there are more than 65536 messages"));
    std::string tables = "VAL_TABLE_ T 1 \"" + std::string(1 << 20U, 'x') +
                         "\" ;\nBO_ 1 A: 8 X\n SG_ S : 0|8@1+ (1,0) [0|0] \"\"\n";
    for (int i = 0; i < 300; ++i) {
        tables += "VAL_ 1 S T ;\n";
    }
    EXPECT_THAT(files.refusal(tables), HasSubstr("there are more texts of values"));
}

}  // namespace
}  // namespace station
