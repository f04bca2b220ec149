#include "station/session/session.h"

#include <dlfcn.h>

#include "station/session/coverage.h"
#include "tests/support/temporary_folder.h"

namespace {

std::function<void()> beforeLoad;

}  // namespace

/// In front of the system's.
void* dlopen(const char* file, int mode) noexcept {
    if (beforeLoad) {
        beforeLoad();
    }
    return reinterpret_cast<void* (*)(const char*, int)>(::dlsym(RTLD_NEXT, "dlopen"))(file, mode);
}

namespace {

using namespace station;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

/// The real plug-in in a session.
class SessionTest : public ::testing::Test {
  protected:
    std::unique_ptr<Session> make() {
        return std::make_unique<Session>(
            SessionOptions{PLUGIN_FILE, MasterClock::defaultSampleRate,
                           [this](const std::string& text) { told.push_back(text); }});
    }
    /// Opens what is saved, with a text in it replaced by another.
    void editSaved(const std::string& text, const std::string& other) {
        const auto path = folder.path() / "setup.xml";
        session->save(SetupFile(path));
        std::string changed = contentOf(path);
        changed.replace(changed.find(text), text.size(), other);
        std::ofstream(path) << changed;
        session = make();
        session->open(SetupFile(path));
        session->report(SetupFile(path), session->findLosses());
    }
    static Module moduleOf(const char* type, std::uint16_t configId, const char* name = "") {
        return {.name = name, .type = type, .configId = configId};
    }
    /// "name type cmId: outputs" of each module.
    std::vector<std::string> modules() const {
        std::vector<std::string> texts;
        for (const Module& module : session->getModules()) {
            texts.push_back(module.name + ' ' + module.type + ' ' + std::to_string(module.cmId) +
                            ':');
            for (const Channel& channel : module.channels) {
                texts.back() += ' ' + std::to_string(channel.output);
            }
        }
        return texts;
    }

    const TemporaryFolder folder;
    std::vector<std::string> told;
    std::unique_ptr<Session> session = make();
};

TEST_F(SessionTest, ModulesComeAndGoWithTheirChannels) {
    EXPECT_EQ(session->addModule(moduleOf("can COMBO", 5, "Front")), 0U);
    EXPECT_EQ(session->addModule(moduleOf("CAN combo", 6)), 1U);
    EXPECT_THAT(modules(), ElementsAre("Front CAN combo 69: 0 1 2 3 4 5 6",
                                       "Technica CAN combo CAN combo 70: 7 8 9 10 11 12 13"));
    EXPECT_EQ(session->getModules()[1].channels[6].name, "Technica CAN combo 0x70");
    EXPECT_FALSE(session->needsChannels() || session->getModules()[1].channels[6].isUsed);
    session->removeModules({0, 0});
    EXPECT_FALSE(session->needsChannels());
    EXPECT_THAT(modules(), ElementsAre("Technica CAN combo CAN combo 70: 7 8 9 10 11 12 13"));
    session->getDriver().callModules("",
                                     [](ModuleList& list) { return list.addModule(L"LIN combo"); });
    EXPECT_TRUE(session->needsChannels());
    session->matchChannels();
    EXPECT_FALSE(session->needsChannels());
}

TEST_F(SessionTest, ModuleThatIsExchangedBehindItsCheckIsRefused) {
    const auto file = folder.path() / "other.so";
    std::filesystem::copy_file(PLUGIN_FILE, file);
    beforeLoad = [&] {
        std::filesystem::remove(file);
        std::filesystem::copy_file(PLUGIN_FILE, file);
    };
    EXPECT_THROW(Session({file, MasterClock::defaultSampleRate, {}}), PluginError);
    beforeLoad = nullptr;
}

TEST_F(SessionTest, SharedIdsAreReported) {
    session->addModule(moduleOf("CAN combo", 5, "Front"));
    session->addModule(moduleOf("LIN combo", 5, "Doors"));
    EXPECT_THROW(session->setName(7, "a"), PluginError);
    EXPECT_THROW(session->addModule(moduleOf("CAN combo", 5)), UserError);
    EXPECT_THAT(session->findSharedIds(),
                ElementsAre(HasSubstr("\"Technica CAN combo\" gets no messages: \"Front\"")))
        << "the refused one, which a plain host may leave";
    editSaved("<value key=\"ClockId\">1<", "<value key=\"ClockId\">0<");
    EXPECT_THAT(session->findSharedIds(),
                Contains(HasSubstr("\"Front\" and \"Doors\" have one clock")));
    EXPECT_THAT(told, Contains(HasSubstr("setup.xml, line 21: the ClockId 0 is that of line 13")));
}

TEST_F(SessionTest, ModulesThatThePluginCannotHaveAreReportedWithTheirLine) {
    using Case = std::tuple<const char*, const char*, const char*>;
    for (const auto& [text, other, expected] :
         {Case{"TypeId\">2<", "TypeId\">9<",
               "line 21: there is no type of module with the DeviceTypeId 9"},
          Case{"TypeId\">2<", "TypeId\">65535<", "line 21: the module has no type yet"},
          Case{"TypeId\">2<", "TypeId\">two<", "line 21: the DeviceTypeId \"two\" is taken as "},
          Case{"ConfigId\">5<", "ConfigId\">5x<", "line 14: the ConfigId \"5x\" is taken as 5"},
          Case{"ConfigId\">5<", "ConfigId\">16<",
               "line 14: a CAN combo can't have the ConfigId 16: it listens to CM ID 0x10, and has "
               "the "
               "ConfigId 0 once"},
          Case{"ConfigId\">7<", "ConfigId\">69<",
               "line 18: the module has the CM ID 0x45, as that of line 10"}}) {
        session = make();
        session->addModule(moduleOf("CAN combo", 5));
        session->addModule(moduleOf("NeoviFire3", 7));
        told.clear();
        editSaved(text, other);
        EXPECT_THAT(told, Contains(HasSubstr(expected)));
        EXPECT_LE(told.size(), 4U) << "what it is, its CM ID, and what its channels lose";
    }
}

TEST_F(SessionTest, WhatIsNotTakenAsItStandsIsReportedWithItsLineBeforeSavingDropsIt) {
    const std::string passed = " is ignored, and saving the setup leaves it out";
    const std::string lost = "line 29: this <Output>" + passed + ": no ChId leads there";
    const std::string newBus = " leads to no <Output>: the bus gets a new channel";
    const std::string newClock =
        " leads to no <GNSSClock>: the module gets a new clock, as for sync in software";
    const std::string idle = "line 6: no ClockId leads to this <GNSSClock>: it counts for nothing";
    using Case = std::tuple<const char*, const char*, std::vector<std::string>>;
    for (const auto& [text, other, expected] : std::vector<Case>{
             {"", "", {}},
             {"Mode\">12<", "Mode\">0012<", {}},
             {">8:0;0<", "><", {"line 39: the Index \"\" is taken as 8:0;0"}},
             {"ChId\">0<", "ChId\">7<", {lost, "line 125: the ChId \"7\"" + newBus}},
             {"ChId\">0<", "ChId\">-1<", {lost, "line 125: the ChId \"-1\"" + newBus}},
             {"<Output>", "<Outputs/><Output>", {"line 29: this <Outputs>" + passed}},
             {"<Output>\n          <value key=\"Id\">0",
              "<Output><value key=\"Id\">4294967296",
              {lost, "line 124: the ChId \"0\"" + newBus}},
             {"ClockId\">0<", "ClockId\">9<", {idle, "line 14: the ClockId \"9\"" + newClock}},
             {"Clock Id=\"0\"", "Clock Id=\"7\"", {idle, "line 14: the ClockId \"0\"" + newClock}},
             {"Mode\">12<",
              "Mode\">99<",
              {"line 7: the SyncMode \"99\" is taken as 2",
               "line 8: the ClockSource \"True\" is taken as False"}},
             {"<GNSSClock ",
              "<GNSSClock Id=\"0\"/><GNSSClock ",
              {"line 6: the Id 0 is that of line 6 too", "line 6: this <GNSSClock>" + passed}},
             {"Source\">True",
              "Source\">yes",
              {"line 8: the ClockSource \"yes\" is taken as False"}},
             {"\"ClockSource", "\"Source", {"line 8: the value \"Source\"" + passed}},
             {"Name\">False", "Name\">x", {"line 31: the IsAutomaticName \"x\" is taken as False"}},
             {"<CmpDevice ", "<CmpDevice A=\"\" ", {"line 12: the attribute A" + passed}},
             {"<Channel>",
              "<X/><Channel>",
              {"line 107: this <Output>" + passed + ": no ChId leads there",
               "line 124: this <X> is taken as <Channel>", "line 142: this <Channel>" + passed}}}) {
        session = make();
        session->addModule(moduleOf("CAN combo", 5));
        session->chooseClock(0, {HostGnssDevice::syncModePps, true});
        const std::string before = folder.path() / "setup.xml, ";
        editSaved(text, other);
        std::vector<std::string> lines = expected;
        std::ranges::for_each(lines, [&](std::string& line) { line.insert(0, before); });
        EXPECT_THAT(std::exchange(told, {}), ElementsAreArray(lines)) << other;
    }
    session = make();
    session->addModule(moduleOf("CAN combo", 5));
    session->chooseClock(0, {HostGnssDevice::syncModePps, true});
    EXPECT_THAT([&] { editSaved("Mode\">12<", "Mode\">x<"); },
                ThrowsMessage<FileError>(HasSubstr("line 7: the SyncMode \"x\" is neither 2 (in")));
}

TEST_F(SessionTest, WhatTheSetupHasBesideItsPartsIsReportedAndStaysBehindThem) {
    session->addModule(moduleOf("CAN combo", 5));
    editSaved("</Settings>", "</Settings><Settings/><Stings/>");
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(std::exchange(told, {}),
                    ElementsAre(HasSubstr(": this <Settings> is ig"), HasSubstr("<Stings> is")));
        editSaved("", "");
        EXPECT_EQ(session->getModules().size(), 1U);
    }
}

TEST_F(SessionTest, TwoBusesOfOneOutputStayAsTheSetupHasThem) {
    session->addModule(moduleOf("CAN combo", 5, "Front"));
    editSaved("<value key=\"ChId\">1<", "<value key=\"ChId\">0<");
    EXPECT_THAT(modules(), ElementsAre("Front CAN combo 69: 0 0 2 3 4 5 6"));
    EXPECT_FALSE(session->needsChannels());
}

TEST(CoverageTest, SilenceAndWhatIsNotRecordedStayKnownUntilTheNextMeasurement) {
    Summary summary;
    summary.modules.resize(2);
    summary.modules[0].name = "Front";
    summary.modules[1].name = "Spare, of which nothing is measured";
    summary.modules[0].channels = {{1, "CAN FD", 0, "Engine", true}, {2, "CAN FD", 1, "Seat"}};
    summary.channels.resize(1);
    std::vector<ChannelStatistics> statistics(2);
    statistics[0].output = 0;
    statistics[1].output = 1;
    Coverage coverage;
    const auto look = [&](double seconds, double age) {
        summary.seconds = seconds;
        summary.modules[0].clock = summary.modules[1].clock.emplace();
        summary.modules[0].clock->age = age;
        std::vector<std::string> texts;
        for (const Coverage::News& news : coverage.look(summary, statistics)) {
            EXPECT_EQ(news.module, "Front");
            texts.push_back(news.text);
        }
        return texts;
    };
    coverage.begin({});
    EXPECT_THAT(look(2.0, -1.0), IsEmpty());
    EXPECT_THAT(look(2.1, -1.0), ElementsAre(HasSubstr("\"Front\" isn't heard")));
    EXPECT_THAT(look(2.2, -1.0), IsEmpty()) << "once";
    EXPECT_THAT(coverage.getGaps(), ElementsAre("\"Front\" isn't heard"));
    EXPECT_THAT(look(3.0, 0.1), ElementsAre("\"Front\" is heard again"));
    EXPECT_THAT(coverage.getGaps(), ElementsAre("\"Front\" was silent for a time"));
    EXPECT_THAT(look(9.0, 2.1), ElementsAre(HasSubstr("\"Front\" has fallen silent")));
    EXPECT_THAT(coverage.getGaps(), ElementsAre("\"Front\" is silent"));

    coverage.begin({"a.log can't hold LIN"});
    statistics[0].delivered = statistics[1].delivered = 5;
    EXPECT_THAT(look(9.0, 1.9), ElementsAre("")) << "what was said before doesn't hold now";
    EXPECT_THAT(look(9.0, 1.9), IsEmpty());
    EXPECT_THAT(coverage.getGaps(), ElementsAre("a.log can't hold LIN")) << "nothing is recorded";
    summary.recordings.resize(1);
    look(9.0, 0.0);
    EXPECT_THAT(coverage.getGaps(),
                ElementsAre("a.log can't hold LIN", "Not recorded, as not used: Seat"));
    summary.hasInterfaceGap = true;
    look(9.0, 0.0);
    EXPECT_THAT(coverage.getGaps(), Contains(HasSubstr("network interface")));
}

TEST(CoverageTest, WhateverMayBeMissingOrWrongIsAGap) {
    Summary summary;
    summary.modules.resize(1);
    summary.channels.resize(1);
    summary.interfaces.resize(1);
    Coverage coverage;
    coverage.note(summary);
    EXPECT_THAT(coverage.getGaps(), IsEmpty());
    summary.modules[0].timeStandsStill = true;
    coverage.note(summary);
    summary.modules[0].timeStandsStill = false;
    summary.modules[0].frames = {9, 1, 2};
    summary.modules[0].clock.emplace().jumps = 3;
    summary.channels[0].counts = {.unusable = 4, .raised = 5};
    summary.interfaces[0].malformed = 6;
    coverage.note(summary);
    std::vector<testing::Matcher<std::string>> texts;
    for (const auto* const text :
         {"1 gap, 2 frames missing", "stands still", "(3 so far)", "4 messages aren't delivered",
          "5 messages have the time", "6 malformed frames came in on interfaces that"}) {
        texts.emplace_back(HasSubstr(text));
    }
    EXPECT_THAT(coverage.getGaps(), testing::ElementsAreArray(texts));
}

}  // namespace
