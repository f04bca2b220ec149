#include <nlohmann/json.hpp>

#include "station/cli/message_options.h"
#include "station/cli/recordings.h"
#include "station/cli/streaming.h"
#include "tests/station/cli/command_line_rig.h"

namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace station;

/// A measurement where there is no network but the loopback interface.
class RunCommandTest : public CommandLineTest {
  protected:
    const std::vector<std::string> run{"run", "--plugin", PLUGIN_FILE, "--module",
                                       "CAN combo:5:Front"};
};

TEST_F(RunCommandTest, MeasurementEndsWithItsAccount) {
    const std::string recording = path("a.csv");
    auto words = run;
    words.insert(words.end(),
                 {"--duration", "0.1", "--json", "--record", recording, "--interface", "lo"});
    const Json account = Json::parse(good(words));
    EXPECT_EQ(account["modules"][0]["name"], "Front");
    EXPECT_EQ(account["channels"].size(), 7U) << "all of a module that is named are used";
    EXPECT_EQ(account["recordings"][0]["path"], recording);
    EXPECT_THAT(contentOf(recording), testing::StartsWith("time,channel,"));
    const std::string setup = path("a.xml");
    good({"setup", "new", setup, "--plugin", PLUGIN_FILE});
    expectRefusals({"run", "--plugin", PLUGIN_FILE, "--setup"},
                   {{{setup}, "a.xml has no modules; name modules with"},
                    {{path("no.xml")}, "no.xml", 3},
                    {{setup, "--module", "CAN combo:5"}, "excludes"}});
    good({"setup", "add", setup, "--type", "CAN combo", "--plugin", PLUGIN_FILE});
    good({"setup", "stream", setup, "nats://127.0.0.1:1", "--plugin", PLUGIN_FILE, "--stream-wait",
          "0.1"});
    const Answer unused = call({"run", "--plugin", PLUGIN_FILE, "--setup", setup, "--no-stream",
                                "--duration", "0.1", "--quiet"});
    EXPECT_EQ(unused.code, 0);
    EXPECT_EQ(unused.output, "");
    EXPECT_THAT(unused.errors, HasSubstr("MODULE all --used yes\" uses those of a module"));
}

TEST_F(RunCommandTest, WhatCannotBeMeasuredIsRefusedBeforeItBegins) {
    const std::string recording = path("a.pcapng");
    const std::string dbc =
        write("a.dbc", "BU_:\nBO_ 291 M: 8 E\n SG_ S : 0|8@1+ (1,0) [0|0] \"\" E\n");
    expectRefusals({"run"},
                   {{{}, "there is nothing to capture; name modules with"},
                    {{"--plugin", path("no.so"), "--module", "CAN combo:5", "--duration", "0.1"},
                     "no.so",
                     1}});
    expectRefusals(run, {{{"--duration", "0"}, "0 is no number from 0.001 to 1000000000"},
                         {{"--duration", "nan"}, "nan is no number"}});
    auto shortRun = run;
    shortRun.insert(shortRun.end(), {"--duration", "0.1", "--quiet"});
    expectRefusals(
        shortRun,
        {{{"--module", "can COMBO:5:B"}, "different ConfigIds"},
         {{"--module", "CAN combo"}, "a type and a ConfigId are needed"},
         {{"--interface", ""}, "can't be the name of an interface"},
         {{"--interface", "0123456789abcdef"}, "can't be the name of an interface"},
         {{"--interface", "a b"}, "can't be the name of an interface"},
         {{"--sample-rate", "0.5"}, "0.5 is no number from 1 to"},
         {{"--waiting", "0.9"}, "0.9 is no number from 1 to 1000000"},
         {{"--metrics", "0"}, "--metrics"},
         {{"--serve", "tcp://127.0.0.1"}, "--serve"},
         {{"--serve-beacon"}, "--serve"},
         {{"--db", path("no.dbc")}, "no.dbc", 3},
         {{"--db", "Side=" + dbc}, "no channel that is used is named \"Side\""},
         {{"--record", path("a.txt")}, ".pcapng"},
         {{"--record-raw", path("a.log")}, ".pcapng"},
         {{"--record", "-", "--record-raw", "-"}, "can take one recording only"},
         {{"--record", "-", "--json"}, "--json prints on standard output"},
         {{"--record", recording, "--rotate", "weight=1kg"}, "\"weight=1kg\" is no rule"},
         {{"--record", recording, "--keep", "2"}, "say when with --rotate"},
         {{"--record", recording, "--compress", "zstd"}, "say when with --rotate"},
         {{"--rotate", "count=5"}, "--rotate is for recordings in files: name one"},
         {{"--min-free", "1GB"}, "--min-free is for recordings in files: name one"},
         {{"--record", "-", "--rotate", "count=5"}, "a pipe takes a single one"},
         {{"--stream-age", "1s"}, "--stream-age is for a stream: name its brokers with --stream"},
         {{"--stream", "nats://a", "--no-stream"}, "excludes"},
         {{"--stream", "http://a"}, "--stream"}});
    EXPECT_FALSE(std::filesystem::exists(recording));
}

TEST_F(CommandLineTest, HelpSaysHowEachCommandIsUsed) {
    EXPECT_THAT(good({"--version"}),
                testing::MatchesRegex("cmp-station [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    for (const char* command :
         {"run", "convert", "decode", "dump", "extcap", "collect", "plugins", "setup", "stream"}) {
        EXPECT_THAT(good({command, "--help"}),
                    HasSubstr("\nExamples:\n  cmp-station " + std::string(command)));
    }
    expectRefusals({}, {{{}, "A subcommand is required; \"cmp-station --help\""},
                        {{"play"}, "A subcommand is required"},
                        {{"run", "--play"}, "--play"},
                        {{"extcap"}, "--install SETUP..."},
                        {{"fleet"}, "A subcommand is required"},
                        {{"stream", "nats://a b"}, "SERVERS"},
                        {{"collect"}, "is required"}});
}

TEST(AmountTest, NumbersHaveAUnit) {
    EXPECT_EQ(parseSize("--a", "2GB"), 2'000'000'000U);
    EXPECT_EQ(parseSize("--a", "1.5KiB"), 1536U);
    EXPECT_EQ(parseSize("--a", "1B"), 1U);
    EXPECT_EQ(parseSize("--a", "3MiB") + parseSize("--a", "3MB"), 3'145'728U + 3'000'000U);
    EXPECT_EQ(parseSize("--a", "1GiB") + parseSize("--a", "1TB") + parseSize("--a", "1TiB"),
              1'073'741'824U + 1'000'000'000'000U + 1'099'511'627'776U);
    EXPECT_EQ(parseSize("--a", "2kB"), 2000U);
    EXPECT_EQ(parseTime("--a", "200ms"), 200'000'000);
    EXPECT_EQ(parseTime("--a", "1s") + parseTime("--a", "1min"), 61'000'000'000);
    EXPECT_EQ(parseTime("--a", "1h") + parseTime("--a", "1d"), 90'000'000'000'000);
    for (const char* wrong :
         {"", "2", "GB", "2gb", "2 GB", "0B", "-1B", "0.9B", "1e19B", "nanB", "2GBx"}) {
        EXPECT_THROW(parseSize("--a", wrong), UserError) << wrong;
    }
    try {
        parseTime("--age", "2x");
        FAIL();
    } catch (const UserError& error) {
        EXPECT_STREQ(error.what(),
                     "--age: \"2x\" is no amount; write a number and one of ms, min, s, h, d");
    }
}

TEST(AmountTest, RulesOfPartsAreRead) {
    PartOptions options;
    EXPECT_FALSE(parsePartRules(options).isRotating());
    options = {{"size=1MB", "time=2s", "count=3"}, 4, "5kB", "zstd"};
    const PartRules rules = parsePartRules(options);
    EXPECT_EQ(rules.bytes, 1'000'000U);
    EXPECT_EQ(rules.nanoseconds, 2'000'000'000);
    EXPECT_EQ(rules.records, 3U);
    EXPECT_EQ(rules.keep, 4U);
    EXPECT_EQ(rules.leastFreeBytes, 5000U);
    EXPECT_TRUE(rules.isRotating() && rules.goesOn && rules.compressor != nullptr);
    for (const char* wrong : {"size", "size=", "size=1", "count=1B", "count=0", "Time=1s", ""}) {
        options.rotate = {wrong};
        EXPECT_THROW(parsePartRules(options), UserError) << wrong;
    }
}

/// The options of a stream on a command line.
class StreamOptionsTest : public CommandLineTest {
  protected:
    StreamSettings parse(std::vector<std::string> words) {
        words.insert(words.begin(), {"--stream", "nats://broker"});
        return parseWords(words);
    }
    StreamSettings parseWords(std::vector<std::string> words) {
        CLI::App app;
        StreamArguments arguments;
        addStreamOptions(app, arguments);
        std::ranges::reverse(words);
        app.parse(words);
        arguments.addDefaults(defaults);
        return parseStreamSettings(arguments);
    }
    std::string failureOf(const std::vector<std::string>& words) {
        try {
            parse(words);
            return "none";
        } catch (const UserError& error) {
            return error.what();
        }
    }

    std::map<std::string, std::string> defaults;
};

TEST_F(StreamOptionsTest, SettingsAreThoseOfTheLineThenOfTheSetupThenUsual) {
    StreamSettings settings = parse({"--station", "b 7"});
    EXPECT_EQ(settings.station, "b 7");
    EXPECT_EQ(settings.streamName, "CMP");
    EXPECT_EQ(settings.spoolBytes, std::uint64_t{4} << 30U);
    EXPECT_EQ(settings.batchBytes, 256U << 10U);
    EXPECT_EQ(settings.batchAge, std::chrono::milliseconds(200));
    EXPECT_FALSE(settings.isByChannel);
    EXPECT_THAT(settings.spool, testing::StartsWith(path("home") + "/cmp/spool/"));
    EXPECT_THAT(settings.nats.servers, testing::SizeIs(1));
    ::unsetenv("XDG_STATE_HOME");
    EXPECT_THAT(parse({}).spool, testing::StartsWith(path("home") + "/.local/state/cmp/spool/"));
    ::setenv("STATE_DIRECTORY", "/var/lib/a", 1);
    EXPECT_THAT(parse({}).spool, testing::StartsWith("/var/lib/a/spool/"));
    ::unsetenv("STATE_DIRECTORY");
    ::unsetenv("HOME");
    EXPECT_THAT(failureOf({}), HasSubstr("name a folder with --spool"));

    defaults = {{"stream", "nats://other"},
                {"stream-age", "1s"},
                {"stream-replicas", "3"},
                {"spool", "/a"}};
    settings = parseWords({"--stream-age", "60s", "--stream-max-age", "1d", "--stream-max-bytes",
                           "1GB", "--stream-split", "channel", "--stream-batch", "4096B",
                           "--spool-limit", "1MiB"});
    EXPECT_EQ(settings.batchAge, std::chrono::seconds(60));
    EXPECT_EQ(settings.replicas, 3);
    EXPECT_EQ(settings.spool, "/a");
    EXPECT_EQ(settings.mostNanoseconds, 86'400'000'000'000);
    EXPECT_EQ(settings.mostBytes, 1'000'000'000);
    EXPECT_TRUE(settings.isByChannel);
    for (const auto& [name, value] : std::map<std::string, std::string>{
             {"record", "a"}, {"stream-replicas", "6"}, {"stream-split", "a"}}) {
        defaults = {{name, value}};
        EXPECT_THAT(failureOf({}), HasSubstr("the setup's stream")) << name;
    }
}

TEST_F(StreamOptionsTest, AmountsHaveBounds) {
    using Case = std::pair<std::vector<std::string>, const char*>;
    for (const auto& [words, text] :
         {Case{{"--stream-batch", "4095B"}, "--stream-batch: 4095B is too small"},
          Case{{"--stream-batch", "33554433B"}, "33554433B is too large"},
          Case{{"--spool-limit", "1MB"}, "--spool-limit: 1MB is too small"},
          Case{{"--spool-limit", "1MiB", "--stream-batch", "65537B"},
               "Raise it to 1048592 bytes, or lower --stream-batch to 65536 bytes"},
          Case{{"--stream-age", "0.5ms"}, "--stream-age: 0.5ms is too small"},
          Case{{"--stream-age", "61s"}, "--stream-age: 61s is too large"},
          Case{{"--stream-name", "a.b"}, "--stream-name: \"a.b\" has a character"},
          Case{{"--station", std::string(65, 'a')}, "--station: a name has 64 bytes at most"},
          Case{{"--spool-limit", "1MiB", "--stream-batch", "65536B", "--stream-age", "1ms",
                "--station", std::string(64, 'a')},
               "none"}}) {
        EXPECT_THAT(failureOf(words), HasSubstr(text));
    }
}

}  // namespace
