#include "host/module_list.h"

#include "tests/plugin/plugin_rig.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

/// The list of modules without the windows.
class ModuleListTest : public PluginTest {
  protected:
    ModuleListTest() {
        EXPECT_EQ(connect(), "success");
        object.queryTo(list);
    }
    ~ModuleListTest() override { list.reset(); }

    /// "type name configId cmId clock: interface busType output, ..." of each module.
    std::vector<std::string> modules() {
        std::vector<ListedModule> all;
        EXPECT_EQ(list->getModules(&all), 0);
        std::vector<std::string> texts;
        for (const ListedModule& module : all) {
            std::wstring text =
                module.type + L' ' + module.name + L' ' + std::to_wstring(module.configId) + L' ' +
                std::to_wstring(module.cmId) + L' ' + std::to_wstring(module.clock) + L':';
            for (const ListedChannel& channel : module.channels) {
                text += L' ' + std::to_wstring(channel.interfaceId) + L' ' + channel.busType +
                        L' ' + std::to_wstring(channel.output) + L',';
            }
            texts.push_back(Kestrova::Utils::Kcom::StringHelper::ToUtf8(text));
        }
        return texts;
    }
    /// Whether the action succeeded; the change counter must say so.
    bool changes(const std::function<HostResult()>& action) {
        std::uint64_t before = 0;
        std::uint64_t after = 0;
        list->getChanges(&before);
        const auto listBefore = modules();
        const HostResult result = action();
        list->getChanges(&after);
        EXPECT_TRUE(result == 0 || result == HostCode::invalidArgument) << result;
        EXPECT_EQ(after != before, result == 0);
        EXPECT_EQ(modules() != listBefore, result == 0);
        return result == 0;
    }

    CountedRef<ModuleList> list;
};

TEST_F(ModuleListTest, OperationsDoWhatTheWindowsDo) {
    std::vector<std::wstring> types;
    EXPECT_EQ(list->getTypes(&types), 0);
    EXPECT_EQ(types.size() + 1, deviceTypes().size()) << "all but Unknown";
    EXPECT_TRUE(changes([&] { return list->addModule(L"LIN combo"); }));
    EXPECT_TRUE(changes([&] { return list->addModule(L"NeoviFire3"); }));
    EXPECT_TRUE(changes([&] { return list->setConfigId(0, 15); }));
    EXPECT_TRUE(changes([&] { return list->setConfigId(1, 0x123); }));
    EXPECT_TRUE(changes([&] { return list->setConfigId(1, 5); })) << "the whole of it";
    EXPECT_TRUE(changes([&] { return list->setName(1, L"M\u00FCller"); }));
    EXPECT_THAT(modules(),
                ElementsAre(StartsWith("LIN combo Technica LIN combo 15 63 0: 16 LIN -1,"),
                            StartsWith("NeoviFire3 M\u00FCller 5 5 1: 1 CAN FD -1,")));
    EXPECT_TRUE(changes([&] { return list->setType(1, L"CAN combo"); }));
    EXPECT_TRUE(changes([&] { return list->removeModule(0); }));
    EXPECT_THAT(modules(), ElementsAre(StartsWith("CAN combo M\u00FCller 5 69 0: 16 CAN FD -1,")));

    EXPECT_FALSE(changes([&] { return list->addModule(L"can combo"); }));
    EXPECT_FALSE(changes([&] { return list->addModule(nullptr); }));
    EXPECT_FALSE(changes([&] { return list->addModule(L"Unknown"); }));
    EXPECT_FALSE(changes([&] { return list->setConfigId(0, 16); }));
    EXPECT_FALSE(changes([&] { return list->setType(0, L""); }));
    EXPECT_FALSE(changes([&] { return list->setName(0, nullptr); }));
    for (const std::uint32_t place : {1U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(changes([&] { return list->removeModule(place); }));
        EXPECT_FALSE(changes([&] { return list->setType(place, L"CAN combo"); }));
        EXPECT_FALSE(changes([&] { return list->setConfigId(place, 1); }));
        EXPECT_FALSE(changes([&] { return list->setName(place, L"a"); }));
    }
}

TEST_F(ModuleListTest, EachBusGetsOneOutputAndThoseOfGoneModulesGo) {
    const auto outputs = [this] {
        std::string text;
        for (const auto* const channel : host.groupOfPlugins.mounted) {
            text += std::to_string(channel->indices.back()) + (isTrue(channel->used) ? "+" : " ");
        }
        return text;
    };
    EXPECT_EQ(list->addModule(L"CAN combo"), 0);
    EXPECT_TRUE(changes([&] { return list->matchOutputs(); }));
    EXPECT_EQ(outputs(), "0 1 2 3 4 5 6 ");
    firstChannel().used = hostTrue;
    EXPECT_EQ(list->addModule(L"CAN combo"), 0);
    EXPECT_EQ(list->setType(0, L"LIN combo"), 0);
    EXPECT_EQ(list->setType(0, L"CAN combo"), 0) << "its channels are other ones all the same";
    EXPECT_TRUE(changes([&] { return list->matchOutputs(); }));
    EXPECT_EQ(outputs(), "7 8 9 10 11 12 13 14 15 16 17 18 19 20 ");
    EXPECT_EQ(list->removeModule(0), 0);
    EXPECT_EQ(list->matchOutputs(), 0);
    EXPECT_EQ(outputs(), "14 15 16 17 18 19 20 ");
    EXPECT_THAT(modules(),
                ElementsAre(StartsWith("CAN combo Technica CAN combo 0 64 0: 16 CAN FD 14,")));
}

TEST_F(ModuleListTest, StatesAreWhatWasHeardLast) {
    EXPECT_EQ(
        settings(settingsWith({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}), false),
        "success");
    EXPECT_EQ(plugin->onClearSetup(), 0);
    EXPECT_EQ(startMeasurement(), "success");
    counter.pass(100.0);
    feed.push(wire::tecmp(0x41, 1, {{0, 90'000'000'000, wire::cmStatus(0x41, 7, "SN 7")}}));
    EXPECT_TRUE(feed.drain());
    std::vector<ModuleState> states;
    EXPECT_EQ(list->getStates(&states), 0);
    ASSERT_EQ(states.size(), 2U);
    EXPECT_TRUE(states[0].isConnected && !states[1].isConnected);
    EXPECT_EQ(states[0].serialNumber, L"SN 7");
    EXPECT_EQ(states[1].serialNumber, L"N/A");
}

TEST_F(ModuleListTest, ModulesThatAreHeardAndNotSetUpAreListedUntilTheyAre) {
    EXPECT_EQ(settings(settingsWith({DeviceTypeInfo::canComboId}), false), "success");
    EXPECT_EQ(plugin->onClearSetup(), 0);
    EXPECT_EQ(startMeasurement(), "success");
    const auto unlisted = [&](const std::vector<std::uint16_t>& heard) {
        for (const std::uint16_t id : heard) {
            feed.push(wire::tecmp(id, 1, {{0, 90'000'000'000, wire::cmStatus(id, 7, "SN 7")}}));
        }
        EXPECT_TRUE(feed.drain());
        std::vector<ListedModule> found;
        EXPECT_EQ(list->getUnlisted(&found), 0);
        std::wstring texts;
        for (const ListedModule& module : found) {
            texts += module.type + L' ' + std::to_wstring(module.configId) + L' ' +
                     std::to_wstring(module.cmId) + L'|';
        }
        return texts;
    };
    EXPECT_EQ(unlisted({0x3F, 0x41, 0x99, 0x3F}), L"LIN combo 15 63| 153 153|");
    EXPECT_EQ(list->addModule(L"LIN combo"), 0);
    EXPECT_EQ(list->setConfigId(1, 15), 0);
    EXPECT_EQ(unlisted({}), L" 153 153|");
    std::vector<std::uint16_t> many(40);
    std::iota(many.begin(), many.end(), std::uint16_t{0x50});
    const std::wstring all = unlisted(many);
    EXPECT_EQ(std::count(all.begin(), all.end(), L'|'), 15) << "the first 16, one of them set up";
    EXPECT_EQ(startMeasurement(), "success");
    EXPECT_EQ(unlisted({}), L"") << "since the start";
}

}  // namespace
