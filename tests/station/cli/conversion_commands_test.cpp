#include <nlohmann/json.hpp>

#include "tests/station/cli/command_line_rig.h"

namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* csv =
    "time,channel,bus,id,extended,length,data,checksum\n"
    "2024-01-01T00:00:00.000000000Z,Technica CAN combo 0x10,CAN,0x140,0,8,00 00 00 00 14 15 16 "
    "17,\n"
    "2024-01-01T00:00:00.001000000Z,Technica CAN combo 0x10,CAN,0x141,0,8,01 00 00 00 15 16 17 "
    "18,\n"
    "2024-01-01T00:00:00.002000000Z,Technica CAN combo 0x10,CAN,0x142,0,8,02 00 00 00 16 17 18 "
    "19,\n";
constexpr const char* gearAndDoor =
    "BU_:\nBO_ 320 Gear: 8 E\n SG_ Shift : 32|8@1+ (0.5,0) [0|0] \"s\" E\n"
    "BO_ 321 Door: 8 E\n SG_ Open : 0|8@1+ (1,0) [0|0] \"\" E\n";

/// Three messages in a second of a module of one channel, as stored frames and as a recording.
class ConversionTest : public CommandLineTest {
  protected:
    ConversionTest() {
        const std::string call = SIMULATOR_FILE
            " --module 'CAN combo:5,channels=1' "
            "--messages 3 --status 0 --write ";
        EXPECT_EQ(std::system((call + frames + " >/dev/null").c_str()), 0);
        write("a.csv", csv);
    }
    /// What the command makes of the recording.
    std::string converted(const std::vector<std::string>& options) {
        std::vector<std::string> words{"convert", recording, path("out.csv"), "--quiet",
                                       "--overwrite"};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_EQ(good(words), "");
        return contentOf(path("out.csv"));
    }
    /// Lines of the recording behind its first one.
    static std::string lines(std::initializer_list<int> numbers) {
        std::istringstream in(csv);
        std::vector<std::string> all;
        for (std::string line; std::getline(in, line);) {
            all.push_back(line + '\n');
        }
        std::string text = all.front();
        for (const int number : numbers) {
            text += all.at(static_cast<std::size_t>(number));
        }
        return text;
    }

    const std::string frames = path("a.pcap");
    const std::string recording = path("a.csv");
};

TEST_F(ConversionTest, FramesBecomeARecordingWithAnAccount) {
    const std::string made = path("b.csv");
    const Json account = Json::parse(good({"convert", frames, made, "--json"}));
    EXPECT_EQ(contentOf(made), csv);
    EXPECT_EQ(account["messages"]["data"], 3);
    EXPECT_EQ(account["channels"][0]["frames"], 3);
    EXPECT_EQ(account["recordings"][0]["records"], 3);
    const Answer refused = call({"convert", frames, made});
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.errors, HasSubstr("--overwrite"));
    const std::string table =
        good({"convert", frames, made, "--overwrite", "--module", "CAN combo:5:Vorn"});
    EXPECT_THAT(table, HasSubstr("b.csv: 3 records, "));
    EXPECT_THAT(contentOf(made), HasSubstr(",Vorn 0x10,CAN,"));
    good({"convert", frames, made, "--overwrite", "--quiet", "--clock", "soft"});
    EXPECT_THAT(good({"convert", recording, "-", "--quiet"}), StartsWith("\n\r\r\n"))
        << "standard output takes .pcapng";
    EXPECT_THAT(call({"convert", recording, "-"}).errors, HasSubstr("-: 3 records"));
}

TEST_F(ConversionTest, WhatTheClocksLoseIsReported) {
    std::string bytes = contentOf(frames);
    const std::size_t last = bytes.find(std::string("\2\0\0\0\x16", 5));
    ASSERT_NE(last, std::string::npos);
    ++bytes[last - 15];  // its time, by 18 minutes
    write("a.pcap", bytes);
    const Answer lossy =
        call({"convert", frames, path("b.csv"), "--quiet", "--json", "--clock", "soft"});
    EXPECT_EQ(lossy.code, 1);
    EXPECT_EQ(Json::parse(lossy.output)["lostMessages"], 1);
    EXPECT_THAT(lossy.errors, HasSubstr("\" lost 1 messages: 1 were stamped too far ahead"));
}

TEST_F(ConversionTest, MessagesAreChosenByTimeChannelAndIdentifier) {
    EXPECT_EQ(converted({}), csv);
    EXPECT_EQ(converted({"--from", "0.001"}), lines({2, 3}));
    EXPECT_EQ(converted({"--to", "2024-01-01T00:00:00.001Z"}), lines({1}));
    EXPECT_EQ(converted({"--from", "0.001", "--to", "0.002"}), lines({2}));
    EXPECT_EQ(converted({"--id", "0x140", "--id", "0x142-0x200"}), lines({1, 3}));
    EXPECT_EQ(converted({"--channel", "Technica CAN combo 0x10"}), csv);
    EXPECT_EQ(converted({"--id", "1"}), lines({}));
    const Answer unknown =
        call({"convert", recording, path("c.csv"), "--channel", "Side", "--quiet"});
    EXPECT_EQ(unknown.code, 2);
    EXPECT_THAT(unknown.errors, HasSubstr("no channel is named \"Side\"; there are \"Technica"));
    EXPECT_FALSE(std::filesystem::exists(path("c.csv")));
}

TEST_F(ConversionTest, WhatCannotBeConvertedIsRefused) {
    const std::string out = path("out.csv");
    const std::string silent = path("silent.pcap");
    std::filesystem::copy(frames, silent);
    std::filesystem::resize_file(silent, 24);  // the file's header
    expectRefusals({"convert"},
                   {{{frames}, "OUT is required"},
                    {{path("no.pcap"), out}, "no.pcap", 3},
                    {{write("text.pcap", "text"), out}, "text.pcap", 3},
                    {{silent, out}, "has no status of a capture module"},
                    {{"/dev/null", out}, "is no file that can be read twice"},
                    {{frames, path("out.txt")}, ".pcapng"},
                    {{frames, path("b.csv"), frames}, "a.pcap is the input"},
                    {{recording, out, "--clock", "soft"}, "leave out --clock"},
                    {{recording, out, "--module", "CAN combo:5"}, "leave out --module"},
                    {{frames, out, "--module", "CAN combo:70000"}, "0 to 65535"},
                    {{frames, out, "--module", ":5"}, "a type and a ConfigId are needed"},
                    {{frames, out, "--module", "CAN box:5"}, "CAN box"},
                    {{frames, out, "--clock", "hard"}, "--clock"},
                    {{recording, out, "--from", "soon"}, "soon is no time"},
                    {{recording, out, "--from", "2", "--to", "2"}, "--from 2 isn't before --to 2"},
                    {{recording, out, "--to", ""}, "is no time"},
                    {{recording, out, "--id", "0x"}, "0x is no identifier"},
                    {{recording, "-", "-"}, "can take one recording only"},
                    {{recording, "-", "--json"}, "--json prints on standard output"}});
    EXPECT_FALSE(std::filesystem::exists(out));
    std::filesystem::resize_file(frames, std::filesystem::file_size(frames) - 1);
    const Answer cut = call({"convert", frames, out, "--quiet"});
    EXPECT_EQ(cut.code, 3);
    EXPECT_THAT(cut.errors, HasSubstr("what came before is in the recordings"));
    EXPECT_EQ(contentOf(out), csv);
    const std::string torn =
        write("torn.csv", std::string(csv) + "2024-01-01T00:00:00.003Z,a,CAN,x");
    EXPECT_EQ(call({"convert", torn, out, "--overwrite"}).code, 3);
    EXPECT_EQ(contentOf(out), csv);
}

TEST_F(ConversionTest, SignalsAreWrittenAndTheRestIsCounted) {
    const std::string database = write("a.dbc", gearAndDoor);
    const std::string out = path("signals.csv");
    const Answer table = call({"decode", recording, "--db", database, "--quiet"});
    EXPECT_EQ(table.code, 0);
    EXPECT_THAT(table.output, HasSubstr(",Gear,Shift,10,s,"));
    EXPECT_THAT(table.output, HasSubstr(",Door,Open,1,,"));
    EXPECT_THAT(table.errors, HasSubstr("1 messages have no definition in the databases"));
    const std::string line = good({"decode", recording, out, "--db", database});
    EXPECT_EQ(line, out + ": 2 of 3 messages decoded, " +
                        std::to_string(std::filesystem::file_size(out)) + " bytes\n");
    EXPECT_EQ(contentOf(out), table.output);
    const Json account =
        Json::parse(good({"decode", recording, out, "--overwrite", "--json", "--db",
                          "Technica CAN combo 0x10=" + database, "--id", "0x141-0x142"}));
    EXPECT_EQ((Json{account["messages"], account["decoded"], account["undefined"],
                    account["withoutDatabase"], account["skipped"], account["lost"]}),
              (Json{3, 1, 1, 0, 0, 0}));
    const Answer lin = call(
        {"decode", recording, out, "--overwrite", "--db",
         write("a.ldf",
               "LIN_description_file;\nLIN_protocol_version = \"2.1\";\nLIN_language_version"
               " = \"2.1\";\nLIN_speed = 19.2 kbps;\nNodes { Master: M, 5 ms, 0.1 ms;"
               " Slaves: S; }\nSignals { A: 8, 0, M, S; }\nFrames { F: 1, M, 1 { A, 0; } }\n")});
    EXPECT_EQ(lin.code, 2);
    EXPECT_THAT(lin.errors, HasSubstr("a.ldf is a database of LIN"));
    expectRefusals(
        {"decode"},
        {{{recording}, "--db is required"},
         {{recording, "--db", ""}, "it is empty"},
         {{recording, path("a.csv"), "--db", database}, "a.csv is the input"},
         {{recording, path("out.log"), "--db", database}, "out.log"},
         {{recording, out, "--db", database}, "--overwrite", 1},
         {{frames, "--db", database}, "\"cmp-station convert\"", 3},
         {{recording, "--db", path("no.dbc")}, "no.dbc", 3},
         {{recording, "--json", "--db", database}, "--json prints on standard output"},
         {{recording, "--db", "Side=" + database}, "no channel is named \"Side\""},
         {{recording, "--db", database, "--channel", "Side"}, "no channel is named \"Side\""}});
    const std::string torn =
        write("torn.csv", std::string(csv) + "2024-01-01T00:00:00.003Z,a,CAN,x");
    const Answer cut = call({"decode", torn, "--db", database});
    EXPECT_EQ(cut.code, 3);
    EXPECT_THAT(cut.errors, HasSubstr("what came before is decoded"));
    EXPECT_EQ(cut.output, table.output);
}

TEST_F(ConversionTest, DumpPrintsEachMessage) {
    const std::string text = good({"dump", frames});
    const auto headers = [](const std::string& printed) {
        std::size_t count = 0;
        for (std::size_t at = 0; (at = printed.find("HEADER\n", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(headers(text), 7U);
    EXPECT_THAT(
        text,
        StartsWith("HEADER\nCM ID:        69\nCounter:      0\nData type:    0\nData length:  85\n"
                   "Message type: 1\nVersion:      3\nChn. ID:      0\nTime: 1704067200.        0\n"
                   "CM_STATUS\nCM ID:   69\nCM Type: 4\nCM Ver:  1\nSN:      100000\n\nHEADER\n"));
    EXPECT_THAT(text, HasSubstr("BUS_STATUS\nChn. ID:  16\nCM ID:    69\n"));
    EXPECT_THAT(
        text,
        HasSubstr("Time: 1704067200.  1000000\n00 00 01 41 08 01 00 00 00 15 16 17 18 00 00 \n"
                  "0x141: 01 00 00 00 15 16 17 18 \n\n"));
    const std::string first = good({"dump", frames, "--count", "3"});
    EXPECT_EQ(headers(first), 3U);
    EXPECT_THAT(text, StartsWith(first));
    expectRefusals({"dump"},
                   {{{}, "FILE"},
                    {{frames, "--interface", "lo"}, "--interface"},
                    {{"--interface", "any"}, "there is no interface \"any\"; \"ip link\"", 1},
                    {{frames, "--count", "0"}, "0 is no number from 1 to 1000000000000000"},
                    {{recording}, "a.csv", 3}});
    std::filesystem::resize_file(frames, std::filesystem::file_size(frames) - 1);
    const Answer cut = call({"dump", frames});
    EXPECT_EQ(cut.code, 3);
    EXPECT_EQ(headers(cut.output), 6U);
}

}  // namespace
