#include <dlfcn.h>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/plugin.h"
#include "station/session/measurement.h"
#include "tests/station/cli/command_line_rig.h"

namespace {

using Json = nlohmann::ordered_json;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

class SetupCommandTest : public CommandLineTest {
  protected:
    SetupCommandTest() { setup({"new"}); }

    std::string setup(std::vector<std::string> words) {
        words.insert(words.begin() + 1, file);
        words.insert(words.begin(), "setup");
        words.insert(words.end(), {"--plugin", plugin});
        return good(words);
    }
    Json modules() { return Json::parse(setup({"show", "--json"}))["modules"]; }
    /// How often `Session::load` and its like gave the plug-in a document since the last call.
    std::vector<std::int32_t> takeEvents() const {
        void* const module = ::dlopen(COUNTING_PLUGIN_FILE, RTLD_NOW);
        std::vector<std::int32_t> events;
        reinterpret_cast<void (*)(std::vector<std::int32_t>*)>(::dlsym(module, "takeEvents"))(
            &events);
        return events;
    }

    const std::string file = path("a.xml");
    std::string plugin = PLUGIN_FILE;
};

TEST_F(SetupCommandTest, ChangesAreShownAsTextAndAsJson) {
    setup({"add", "--type", "can COMBO", "--config-id", "0x5", "--name", "Front"});
    setup({"add", "--type", "LIN combo"});
    setup({"channel", "Front", "0x10", "--used", "yes", "--name", "Drive", "--color", "0a0B0c"});
    setup({"channel", "2", "all", "--used", "yes"});
    setup({"channel", "2", "32", "--used", "no"});
    setup({"set", "Front", "--sync", "pps", "--clock-source", "yes"});
    setup({"stream", "nats://broker:4222", "--station", "b 7", "--spool", "spool"});
    const std::string text = setup({"show"});
    EXPECT_THAT(text, HasSubstr("  1  Front  [CAN combo]  ConfigId 0x5  sync pps, clock source\n"
                                "     0x10   CAN FD  used    0A0B0C  Drive\n"
                                "     0x20   CAN FD  unused  FFFF00  Front 0x20\n"));
    EXPECT_THAT(text, HasSubstr("  2  Technica LIN combo  [LIN combo]  ConfigId 0x0  sync soft\n"
                                "     0x10   LIN     used  "));
    EXPECT_THAT(text, HasSubstr("\nStreams with --spool " +
                                (std::filesystem::current_path() / "spool").string() +
                                " --station b 7 --stream nats://broker:4222\n"));
    const Json list = modules();
    EXPECT_EQ(list[0]["cmId"], 0x45);
    EXPECT_EQ((Json{list[0]["sync"], list[0]["clockSource"], list[1]["row"], list[1]["sync"]}),
              (Json{"pps", true, 2, "soft"}));
    EXPECT_EQ(list[0]["channels"][0], (Json{{"interfaceId", 16},
                                            {"busType", "CAN FD"},
                                            {"used", true},
                                            {"name", "Drive"},
                                            {"color", "0A0B0C"}}));
    EXPECT_EQ((Json{list[1]["channels"][0]["used"], list[1]["channels"][1]["used"]}),
              (Json{true, false}));

    setup({"set", "1", "--name", "2", "--config-id", "6"});
    setup({"set", "2", "--sync", "soft", "--clock-source", "no", "--type", "NeoviFire3"});
    EXPECT_EQ(modules()[0]["type"], "NeoviFire3") << "a name goes before a row";
    setup({"stream", "--none"});
    setup({"remove", "1", "1"});
    EXPECT_EQ(modules().size(), 1U);
    setup({"remove", "1"});
    EXPECT_EQ(setup({"show"}), "The setup has no modules.\n");
}

TEST_F(SetupCommandTest, WhatCannotBeIsRefusedAndTheFileStays) {
    setup({"add", "--type", "CAN combo", "--config-id", "15", "--name", "Front"});
    setup({"add", "--type", "LIN combo", "--name", "Doors"});
    const std::string other = path("b.xml");
    const auto text = contentOf(file);
    const std::string dbc =
        write("a.dbc", "BU_:\nBO_ 291 M: 8 E\n SG_ S : 0|8@1+ (1,0) [0|0] \"\" E\n");
    for (const Refusal& refusal : std::vector<Refusal>{
             {{"new", file}, "a.xml is there already"},
             {{"show", other}, "b.xml", 3},
             {{"show", write("c.xml", "<Setup")}, "c.xml", 3},
             {{"add", file, "--type", "CAN box"}, "there are: LIN combo, CAN combo, NeoviFire3"},
             {{"add", file, "--type", "CAN combo", "--config-id", "65536"},
              "--config-id must be a number from 0 to 65535 (0xFFFF), not \"65536\""},
             {{"add", file, "--type", "CAN combo", "--config-id", "0xF"},
              "both listen to CM ID 0x4F"},
             {{"add", file, "--type", "CAN combo", "--config-id", "16"}, "there are 0 to 15"},
             {{"add", file}, "--type is required"},
             {{"set", file, "Side", "--name", "a"},
              "there is no module \"Side\"; there are: 1 \"Front\", 2 \"Doors\""},
             {{"set", file, "0", "--name", "a"}, "no module \"0\""},
             {{"set", file, "3", "--name", "a"}, "no module \"3\""},
             {{"set", file, "Doors", "--clock-source", "yes"}, "add --sync pps"},
             {{"set", file, "Doors", "--name", "a\xFF"}, "it is not UTF-8 text"},
             {{"channel", file, "Doors", "0x11", "--used", "no"},
              "no interface 0x11; there are: 0x10, 0x20"},
             {{"channel", file, "Doors", "0x10000", "--used", "no"}, "INTERFACE must be a number"},
             {{"channel", file, "Doors", "all", "--color", "FFFFF"}, "six hexadecimal digits"},
             {{"channel", file, "Doors", "all", "--color", "FFFFFG"}, "not \"FFFFFG\""},
             {{"channel", file, "Doors", "all", "--used", "maybe"}, "--used"},
             {{"database", file, "Front", "all"}, "--db FILE"},
             {{"database", file, "Doors", "0x10", "--db", dbc},
              "a.dbc is a database of CAN, and interface 0x10 is LIN"},
             {{"database", file, "Front", "0x10", "--db", other}, "b.xml"},
             {{"stream", file}, "name the brokers"},
             {{"stream", file, "nats://a", "--none"}, "SERVERS excludes --none"},
             {{"stream", file, "nats://a", "--stream-batch", "1"},
              "--stream-batch: \"1\" is no amount"},
             {{"remove", file, "1", "4"}, "no module \"4\""},
             {{"remove", file}, "MODULE is required"},
         }) {
        std::vector<std::string> words = refusal.words;
        words.insert(words.end(), {"--plugin", plugin});
        expectRefusals({"setup"}, {{words, refusal.text, refusal.code}});
    }
    EXPECT_EQ(contentOf(file), text);
    EXPECT_FALSE(std::filesystem::exists(other));

    setup({"set", "Doors", "--name", "Front"});
    expectRefusals(
        {"setup", "set", file, "Front", "--plugin", plugin},
        {{{"--name", "a"}, "there are 2 modules \"Front\"; take the row: 1 \"Front\", 2"}});
    setup({"database", "1", "0x10", "--db", dbc});
    EXPECT_THAT(setup({"show"}),
                HasSubstr("Front 0x10\n            database " + dbc + "\n     0x20"));
    EXPECT_EQ(modules()[0]["channels"][0]["databases"], Json{dbc});
    setup({"database", "1", "all", "--none"});
    EXPECT_FALSE(modules()[0]["channels"][0].contains("databases"));
}

TEST_F(SetupCommandTest, ModuleIsAddedInFourPassesOfDocumentsAndAsksForNoCell) {
    for (int i = 0; i < 12; ++i) {
        setup({"add", "--type", "CAN combo", "--config-id", std::to_string(i)});
    }
    plugin = COUNTING_PLUGIN_FILE;
    takeEvents();
    setup({"add", "--type", "LIN combo"});
    using namespace PluginEvent;
    const auto events = takeEvents();
    const auto passes = std::ranges::count_if(events, [](std::int32_t event) {
        return event == PluginEvent::settings || event == PluginEvent::setup;
    });
    EXPECT_THAT(passes, testing::AllOf(testing::Ge(2), testing::Le(4)));
    // Cells are asked for by windows alone, and these are shown by events.
    for (const std::int32_t window : {showChannels, showModules, showChannelsToo}) {
        EXPECT_THAT(events, testing::Not(Contains(window)));
    }
}

TEST_F(SetupCommandTest, ChangeSaysWhatItDropsOfWhatTheFileSaysAndNothingElse) {
    setup({"add", "--type", "CAN combo", "--name", "Front"});
    std::string text = contentOf(file);
    text.replace(text.find("\"Used"), 5, "\"Usd");
    text.insert(text.find("<Settings>"), "<S/>");
    write("a.xml", text);
    const auto told = [&](std::vector<std::string> words) {
        words.insert(words.end(), {"--plugin", plugin});
        return call(words).errors;
    };
    const std::string faults = fmt::format(
        "cmp-station: {0}, line 4: this <S> is ignored\ncmp-station: {0}, line 34: the value "
        "\"Usd\" "
        "is ignored, and saving the setup leaves it out\n",
        file);
    EXPECT_EQ(told({"setup", "show", file}), faults);
    EXPECT_EQ(told({"setup", "set", file, "1", "--name", "Rear"}), faults);
    EXPECT_THAT(told({"setup", "set", file, "1", "--name", "Side"}),
                testing::EndsWith("this <S> is ignored\n"));
}

TEST_F(SetupCommandTest, SecondOfAMeasurementTakesNoDocumentAndNoCell) {
    setup({"add", "--type", "CAN combo"});
    setup({"channel", "1", "all", "--used", "yes"});
    station::Session session({COUNTING_PLUGIN_FILE, 1000.0, {}});
    session.open(station::SetupFile(file));
    station::Measurement measurement(session, std::make_shared<station::RecordingSet>());
    measurement.start();
    takeEvents();
    for (int i = 0; i < 50; ++i) {
        measurement.poll(station::Measurement::Clock::now());
        EXPECT_EQ(measurement.summarize().channels.size(), 7U);
    }
    EXPECT_THAT(takeEvents(), Each(PluginEvent::getData));
}

TEST_F(CommandLineTest, PluginsAreListedAsLongAsTheyAreRegistered) {
    EXPECT_THAT(good({"plugins"}), HasSubstr("No plug-in is registered."));
    EXPECT_EQ(good({"plugins", "--json"}), "[]\n");
    const std::string copy = path("cmp.so");
    std::filesystem::copy(PLUGIN_FILE, copy);
    EXPECT_EQ(good({"plugins", "--register", copy, "--user"}),
              "CMP 0.0.1 (Automotive bus, Kestrova), for this user\n  CMP support for Technica\n"
              "  class {8C1E7B52-5D0F-4E6B-9A37-C4186E2D905B}\n  module " +
                  copy + "\n");
    const Json listed = Json::parse(good({"plugins", "--json"}))[0];
    EXPECT_EQ((Json{listed["module"], listed["user"], listed["refusal"]}), (Json{copy, true, ""}));
    expectRefusals(
        {"plugins"},
        {{{"--unregister", copy}, "isn't registered for all users", 1},
         {{"--unregister", path("b.so"), "--user"}, "b.so isn't registered for this user", 1},
         {{"--register", copy, "--unregister", copy}, "excludes"},
         {{"--register", ""}, "it is empty"},
         {{"--register", path("b.so"), "--user"}, "b.so", 3},
         {{"--register", write("c.so", "no module"), "--user"}, "c.so", 3}});
    std::filesystem::remove(copy);
    EXPECT_THAT(good({"plugins"}), HasSubstr("module " + copy + " (not there)\n"));
    EXPECT_THAT(good({"plugins", "--unregister", copy, "--user"}), HasSubstr("No plug-in"));
}

}  // namespace
