#include <gmock/gmock.h>

#include "tests/bridge/bridge_bench.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class OutputSetupTest : public BridgeTest {
  protected:
    void load() {
        factory.beginLoadSetup();
        factory.loadSetup(nodeOver(document));
    }
    std::string saved() {
        auto& written = host.makeDocument(L"Setup", true);
        factory.saveSetup(nodeOver(written));
        document.root = written.root;
        return written.root->asText();
    }

    ScriptedDocument& document = host.makeDocument(L"Setup", false);
};

TEST_F(OutputSetupTest, SavedSetupComesBackAndIsSavedAlike) {
    create();
    create({7, Kind::Synchronous})->setDefaultName("Bus \xC3\xA4");
    mounted(1).unit = L"V";
    const std::string text = saved();
    EXPECT_EQ(text,
              "Setup\n  OutputList Version=\"1\" ColorCounter=\"2\"\n"
              "    Output Id=\"0\" IsAutomaticColor=\"False\"\n"
              "      OutputChannel Name=\"Channel\" Unit=\"\" Color=\"65280\"\n"
              "        Index \"8:0;0\"\n"
              "    Output Id=\"1\" IsAutomaticUnit=\"False\" IsAutomaticColor=\"False\"\n"
              "      OutputChannel Name=\"Bus \xC3\xA4\" Unit=\"V\" Color=\"16776960\"\n"
              "        Index \"8:0;1\"\n");
    factory.clear();
    load();
    EXPECT_EQ(factory.getOrCreateChannel(0, canType, nullptr)->getChannelType(), canType);
    const auto restored = factory.getOrCreateChannel(1, {7, Kind::Synchronous}, nullptr);
    EXPECT_TRUE(restored->isAutomaticName()) << "the loaded name is not the new default";
    EXPECT_FALSE(restored->isAutomaticUnit());
    EXPECT_EQ(saved(), text);
    factory.endLoadSetup();
    EXPECT_EQ(create()->getColor(), 0x0000FFU) << "the colour counter was lost";
}

TEST_F(OutputSetupTest, ChannelsThatNobodyFetchesVanish) {
    create();
    const auto kept = create();
    ScriptedElement& list = document.root->addNew(L"OutputList");
    for (const wchar_t* id : {L"5", L"6"}) {
        list.addNew(L"Output").values = {{L"Id", id}};
    }
    Channel fetched;
    const std::string calls = host.callsOf([&] {
        load();
        fetched = factory.getOrCreateChannel(6, canType, nullptr);
        factory.endLoadSetup();
    });
    EXPECT_THAT(calls, Not(HasSubstr("notifyChannelsChanged")));
    EXPECT_THAT(calls, Not(HasSubstr("allocateBuffers")));
    ASSERT_EQ(host.groupOfPlugins.mounted.size(), 2U);
    EXPECT_THAT(mounted(0).indices, ElementsAre(8, 0, 1));
    EXPECT_THAT(mounted(1).indices, ElementsAre(8, 0, 6));
    EXPECT_EQ(fetched->getIndex(), 6U);
}

}  // namespace
