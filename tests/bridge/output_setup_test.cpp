#include <gmock/gmock.h>

#include <stdexcept>

#include "setup/xml_exception.h"
#include "tests/bridge/bridge_bench.h"
#include "tests/support/memory_node.h"

namespace {

using Kestrova::Utils::Serialization::MemoryNode;
using Kestrova::Utils::Serialization::XmlException;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class OutputSetupTest : public BridgeTest {
  protected:
    /// An entry of a setup made by hand, and the host's own in it.
    ScriptedElement& addOutput(const std::wstring& id) {
        ScriptedElement& output = list.addNew(L"Output");
        output.values = {{L"Id", id}};
        return output;
    }
    static ScriptedElement& addOwn(ScriptedElement& output) {
        ScriptedElement& own = output.addNew(L"OutputChannel");
        own.values = {{L"Name", L"name"}, {L"Unit", L"unit"}, {L"Color", L"7"}};
        return own;
    }
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
    template <typename Step>
    static std::string failureOf(Step step) {
        try {
            step();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "no exception";
    }

    ScriptedDocument& document = host.makeDocument(L"Setup", false);
    ScriptedElement& list = document.root->addNew(L"OutputList");
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
    addOutput(L"5");
    addOutput(L"6");
    Channel fetched;
    const std::string calls = callsOf([&] {
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

TEST_F(OutputSetupTest, EntriesThatAreNoneOrComeTwiceAreSkipped) {
    list.addNew(L"Output");
    list.addNew(L"Input").values = {{L"Id", L"1"}};
    for (const wchar_t* id : {L"x", L"", L"-1", L"4294967296", L" 3abc", L"2", L"3"}) {
        addOutput(id);
    }
    load();
    ASSERT_EQ(host.groupOfPlugins.mounted.size(), 2U);
    EXPECT_THAT(mounted(0).indices, ElementsAre(8, 0, 3));
    EXPECT_EQ(mounted(0).dataType, 7);
    EXPECT_EQ(mounted(0).async, hostTrue);
    factory.endLoadSetup();
    document.root->children.clear();
    create();
    load();
    factory.endLoadSetup();
    EXPECT_EQ(create()->getColor(), 0xFFFF00U) << "a setup without a list counts";
}

TEST_F(OutputSetupTest, BadColourCounterEndsTheLoadInItsState) {
    addOutput(L"0");
    for (const auto& [text, code] : {std::pair(L"x", 0), {L"99999999999999999999999", 4}}) {
        list.values = {{L"ColorCounter", text}};
        EXPECT_EQ(failureOf([&] { load(); }), XmlException(code).what());
        EXPECT_TRUE(host.groupOfPlugins.mounted.empty());
        factory.endLoadSetup();
    }
}

TEST_F(OutputSetupTest, StepsOutOfOrderAreToldToTheUserAndThrown) {
    constexpr auto text =
        "OutputFactory: beginLoadSetup and endLoadSetup not called correctly at start and end of "
        "onLoadSetup event.";
    EXPECT_EQ(failureOf([&] { factory.loadSetup(nodeOver(document)); }), text);
    EXPECT_EQ(failureOf([&] { factory.endLoadSetup(); }), text);
    factory.beginLoadSetup();
    EXPECT_EQ(failureOf([&] { factory.beginLoadSetup(); }), text);
    factory.endLoadSetup();
    EXPECT_EQ(host.app.errors.size(), 3U);
}

TEST_F(OutputSetupTest, FixedChannelIsFoundByItsIndices) {
    host.data.channelSetFixed = hostTrue;
    auto& asChild = host.makeChannel({8, 0, 7});
    auto& asValue = host.makeChannel({8, 1});
    host.data.otherChannels = {&asChild, &asValue};
    addOwn(addOutput(L"0")).addNew(L"Index", L"8:0;7");
    addOwn(addOutput(L"1")).values.emplace_back(L"Index", L"8:1");
    addOwn(addOutput(L"2")).addNew(L"Index", L"8:9");
    addOwn(addOutput(L"3")).addNew(L"Index", L"none");
    addOutput(L"4");
    load();
    factory.endLoadSetup();
    EXPECT_EQ(asChild.name + asValue.name, L"namename");
    EXPECT_EQ(host.groupOfPlugins.mounted.size(), 3U) << "2, 3 and 4 aren't there";
}

TEST_F(OutputSetupTest, SettingsOfAnotherChannelKeepTheOwnPlace) {
    create()->setName("from");
    const auto target = create();
    saved();
    NodePtr node = nodeOver(document)->GetChild("OutputList")->GetChild("Output");
    EXPECT_THAT(callsOf([&] { target->applySetup(node); }),
                EndsWith("allocateBuffers(true), App.getData, Data.notifyChannelsChanged"));
    EXPECT_EQ(target->getName(), "from");
    EXPECT_EQ(node->FindChild("OutputChannel")->FindChild("Index")->GetText(), "8:0;1");
}

TEST_F(OutputSetupTest, NodeOfAnotherClassIsReplacedByOneOfTheHost) {
    NodePtr node = MemoryNode::createDocument("Output", true);
    create()->saveSetup(node);
    EXPECT_EQ(node->GetName(), "Output");
    EXPECT_NE(node->FindChild("OutputChannel"), nullptr) << "the host's settings are lost";
    EXPECT_EQ(host.documents.made.size(), 1U);
}

}  // namespace
