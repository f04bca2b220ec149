#include "bridge/output/output_factory_impl.h"

#include "bridge/output/color_palette.h"
#include "setup/xml_exception.h"
#include "tests/bridge/bridge_rig.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr auto notified = "App.getData, Data.notifyChannelsChanged";

class OutputFactoryTest : public BridgeTest {};

TEST_F(OutputFactoryTest, NewChannelIsMountedTypedColouredAndAnnounced) {
    create();
    const auto init = [&](const Channel& channel) {
        EXPECT_EQ(channel->getIndex(), 1U);
        channel->setName("CAN");
    };
    EXPECT_EQ(
        host.callsOf([&] { factory.createChannel(canType, init); }),
        "PluginGroup.mountChannels(\"{id}\", 1, [1]), Channel.setDataType(14), "
        "Channel.setAsync(true), Channel.setSingleValue(false), Channel.setUsed(true), "
        "App.getData, Data.isChannelSetFixed, Channel.setName(\"Channel\"), "
        "Channel.setUnit(\"\"), Channel.setColor(65535), Channel.getPropertySet, "
        "App.isSetupMode, Channel.isUsed, Channel.setColor(16776960), Channel.setName(\"CAN\"), "
        "App.getData, Data.isChannelSetFixed, ChannelExt.allocateBuffers(true), " +
            std::string(notified));
}

TEST_F(OutputFactoryTest, FixedChannelSetIsClaimedAndKept) {
    host.data.channelSetFixed = hostTrue;
    const auto calls = host.callsOf([&] { create(); });
    EXPECT_THAT(calls, HasSubstr("setUsed(true), App.getData, Data.isChannelSetFixed, "
                                 "ChannelExt.claim, Channel.setName"));
    EXPECT_THAT(calls, Not(HasSubstr("allocateBuffers")));
    EXPECT_EQ(mounted(0).used, hostTrue);
    factory.getOrCreateChannel(0, {12, Kind::Synchronous}, nullptr);
    EXPECT_EQ(mounted(0).dataType, 14) << "a fixed channel was typed again";
    factory.beginLoadSetup();
    EXPECT_THAT(host.callsOf([&] { create(); }), Not(HasSubstr("allocateBuffers")));
    EXPECT_EQ(mounted(1).used, hostFalse);
    factory.endLoadSetup();
    EXPECT_EQ(host.groupOfPlugins.mounted.size(), 2U) << "a fixed channel was removed";
}

TEST_F(OutputFactoryTest, KeysAreTheSmallestFreeOnes) {
    EXPECT_EQ(factory.getOrCreateChannel(5, canType, nullptr)->getIndex(), 0U);
    const auto second = create();
    create();
    EXPECT_EQ(host.callsOf([&] { factory.removeChannel(second); }),
              "PluginGroup.unmountChannel(HostChannel), " + std::string(notified));
    EXPECT_EQ(hostCodeOf([&] { second->getName(); }), HostCode::invalidPointer);
    EXPECT_EQ(create()->getIndex(), 1U);
}

TEST_F(OutputFactoryTest, ColoursRunThroughThePaletteAndBeginAgain) {
    using Kestrova::Utils::Kcom::OutputChannel::colorPalette;
    std::uint32_t checksum = 0;
    for (std::uint32_t number = 0; number < 65; ++number) {
        EXPECT_EQ(create()->getColor(), colorPalette[number % 64]);
        checksum += number < 64 ? (number + 1) * colorPalette[number] : 0;
    }
    EXPECT_EQ(checksum, 0x53620BF1U) << "a colour or its place was changed";
    EXPECT_EQ(host.callsOf([&] { factory.clear(); }), "");
    EXPECT_EQ(create()->getColor(), 0x00FF00U);
}

TEST_F(OutputFactoryTest, WholeListIsAlignedRefreshedAndDetachedTogether) {
    const auto first = create({0, Kind::Synchronous});
    create({0, Kind::Synchronous});
    mounted(1).bufferSize = 2000000000;
    host.data.wrapCount = 3000;  // of 1000000 samples each
    factory.alignToAcquisition();
    EXPECT_EQ(mounted(1).writeOffset, 1000000000);
    first->setUsed(false);
    first->addSynchronousSample("", 1);
    EXPECT_EQ(mounted(0).writePosition, 1) << "the use counts before the next selection";
    factory.refreshAddData();
    first->addSynchronousSample("", 1);
    EXPECT_EQ(mounted(0).writePosition, 1) << "the use doesn't count";
    factory.setChannelGroupName({1, 2}, "\xC3\xA4");
    EXPECT_EQ(host.groupOfPlugins.groupNames.at({1, 2}), L"\x00E4");
    EXPECT_EQ(host.callsOf([&] { factory.detachChannels(); }), "");
    EXPECT_EQ(mounted(0).references() + mounted(1).references(), 0);
    EXPECT_EQ(create()->getIndex(), 2U) << "the entries are gone";
}

TEST_F(OutputFactoryTest, BatchIsAnnouncedOnceAtItsEnd) {
    const auto endedAt = [&](std::int32_t depth) {
        return host.callsOf([&] { EXPECT_EQ(factory.endMultipleMount(), depth); });
    };
    factory.beginMultipleMount();
    factory.beginMultipleMount();
    EXPECT_THAT(host.callsOf([&] { create(); }), Not(HasSubstr(notified)));
    EXPECT_EQ(endedAt(1), "");
    EXPECT_EQ(endedAt(0), notified);
    factory.beginMultipleMount();
    EXPECT_EQ(endedAt(0), "") << "no change";
    EXPECT_THAT([&] { factory.endMultipleMount(); }, testing::ThrowsMessage<std::runtime_error>(
                                                         "endMultipleMount called too many times"));
    factory.beginMultipleMount();
    EXPECT_THAT(host.callsOf([&] { create(); }), HasSubstr(notified)) << "the depth is 0 again";
}

TEST_F(OutputFactoryTest, RateKindIsWrittenAsTwoFlagsAndReadBack) {
    create({14, static_cast<Kind>(3)});  // a kind of its own changes none
    for (const Kind kind : {Kind::Asynchronous, Kind::SingleValue, Kind::Synchronous}) {
        const auto fetch = [&] { return factory.getOrCreateChannel(0, {14, kind}, {}); };
        EXPECT_EQ(fetch()->getChannelType(), (Type{14, kind}));
        EXPECT_THAT(host.callsOf(fetch), Not(HasSubstr("set"))) << "the type is the same";
    }
}

TEST_F(OutputFactoryTest, ActivityAndClaimLeaveOutWhatIsExcluded) {
    create();  // held by nobody
    const auto held = create();
    mounted(0).used = hostFalse;
    for (const std::int32_t channelClass : {0, 2, 10, 11, 12, 1}) {
        mounted(1).channelClass = channelClass;
        EXPECT_EQ(factory.hasActiveChannels(), channelClass == 1 || channelClass == 11);
    }
    EXPECT_EQ(host.callsOf([&] { factory.claimChannels(false); }), "");
    EXPECT_EQ(host.callsOf([&] { factory.claimChannels(true); }), "ChannelExt.claim");
    held->setExcluded(true);
    EXPECT_EQ(host.callsOf([&] { factory.claimChannels(true); }), "");
    EXPECT_FALSE(factory.hasActiveChannels());
}

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

    ScriptedElement& addOutput(const wchar_t* id) {
        auto* const list = document.root->find(L"OutputList");
        auto& output = (list ? *list : document.root->addNew(L"OutputList")).addNew(L"Output");
        output.values = {{L"Id", id}};
        return output;
    }
    static ScriptedElement& describe(ScriptedElement& output, const wchar_t* name) {
        auto& own = output.addNew(L"OutputChannel");
        own.values = {{L"Name", name}, {L"Unit", L"A"}, {L"Color", L"5"}};
        return own;
    }

    ScriptedDocument& document = host.makeDocument(L"Setup", false);
};

TEST_F(OutputSetupTest, SavedSetupComesBackAndIsSavedAlike) {
    create();
    create({7, Kind::Synchronous})->setDefaultName("Bus \xC3\xA4");
    mounted(0).name = L"mine";
    mounted(1).unit = L"V";
    const std::string text = saved();
    EXPECT_EQ(text,
              "Setup\n  OutputList Version=\"1\" ColorCounter=\"2\"\n"
              "    Output Id=\"0\" IsAutomaticName=\"False\" IsAutomaticColor=\"False\"\n"
              "      OutputChannel Name=\"mine\" Unit=\"\" Color=\"65280\"\n"
              "        Index \"8:0;0\"\n"
              "    Output Id=\"1\" IsAutomaticUnit=\"False\" IsAutomaticColor=\"False\"\n"
              "      OutputChannel Name=\"Bus \xC3\xA4\" Unit=\"V\" Color=\"16776960\"\n"
              "        Index \"8:0;1\"\n");
    factory.clear();
    load();
    EXPECT_EQ(factory.getOrCreateChannel(0, canType, nullptr)->getChannelType(), canType);
    factory.getOrCreateChannel(1, {7, Kind::Synchronous}, nullptr);
    EXPECT_EQ(saved(), text);
    factory.endLoadSetup();
    EXPECT_EQ(create()->getColor(), 0x0000FFU) << "the colour counter was lost";
}

TEST_F(OutputSetupTest, OddChildrenAreSkippedAndWhatNobodyFetchesVanishes) {
    create();
    const auto kept = create();
    for (const wchar_t* id : {L"8", L"1", L" 7x", L"6", L"6", L"", L"x", L"-1", L"4294967296"}) {
        addOutput(id);
    }
    auto& list = *document.root->find(L"OutputList");
    list.children.front()->name = L"Input";
    list.values = {{L"ColorCounter", L"64"}};
    Channel fetched;
    const std::string calls = host.callsOf([&] {
        load();
        EXPECT_EQ(host.groupOfPlugins.mounted.size(), 4U);
        fetched = factory.getOrCreateChannel(7, canType, nullptr);
        factory.endLoadSetup();
    });
    EXPECT_THAT(calls, HasSubstr("setDataType(7), Channel.setAsync(true), "));
    EXPECT_THAT(calls, Not(HasSubstr("notifyChannelsChanged")));
    EXPECT_THAT(calls, Not(HasSubstr("allocateBuffers")));
    ASSERT_EQ(host.groupOfPlugins.mounted.size(), 2U);
    EXPECT_EQ(kept->getChannelIdText() + ' ' + fetched->getChannelIdText(), "8:0;1 8:0;7");
    EXPECT_EQ(create()->getColor(), 0x00FF00U);
    list.values = {{L"ColorCounter", L"x"}};
    EXPECT_THROW(load(), Kestrova::Utils::Serialization::XmlException);
}

TEST_F(OutputSetupTest, LoadOutOfItsOrderIsRefusedAndReported) {
    EXPECT_THROW(factory.endLoadSetup(), std::runtime_error);
    EXPECT_THROW(factory.loadSetup(nodeOver(document)), std::runtime_error);
    load();  // with no list in the setup
    EXPECT_THROW(factory.beginLoadSetup(), std::runtime_error);
    EXPECT_EQ(host.app.errors.size(), 3U);
}

TEST_F(OutputSetupTest, FixedChannelsAreFoundByTheIndicesInTheSetup) {
    host.data.channelSetFixed = hostTrue;
    host.data.otherChannels = {&host.makeChannel({4, 1}), &host.makeChannel({4, 2})};
    describe(addOutput(L"0"), L"text").addNew(L"Index", L"4:1");
    describe(addOutput(L"1"), L"value").values.emplace_back(L"Index", L"4:2");
    describe(addOutput(L"2"), L"none").addNew(L"Index");
    addOutput(L"3");
    load();
    const auto& found = host.data.otherChannels;
    EXPECT_EQ(found[0]->name + found[1]->name, L"textvalue");
    EXPECT_EQ(mounted(0).name + mounted(1).name, L"noneChannel") << "not mounted";
}

TEST_F(OutputSetupTest, SettingsOfAnotherChannelAreTakenOver) {
    const auto channel = create();
    const auto& place = describe(*document.root, L"other").addNew(L"Index", L"8:0;99");
    std::shared_ptr<Kestrova::Utils::Serialization::Node> node = nodeOver(document);
    EXPECT_THAT(
        host.callsOf([&] { channel->applySetup(node); }),
        testing::EndsWith("allocateBuffers(true), App.getData, Data.notifyChannelsChanged"));
    EXPECT_EQ(place.text, L"8:0;0") << "the host would look for the other channel";
    EXPECT_TRUE(channel->isAutomaticName() && channel->isAutomaticUnit() &&
                channel->isAutomaticColor());
}

}  // namespace
