#include "tests/ui/window_rig.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string grid = "channelDrawGrid";
enum Column : std::int32_t { group, id, used, color, name, configId, serial, busType, data };

}  // namespace

TEST_P(SetupWindowTest, AModuleIsAGroupWithARowForEachBus) {
    add(DeviceTypeInfo::unknownId, 3);
    add(DeviceTypeInfo::linComboId, 5).setName("Rear");
    const auto& channel = devices.list()[1]->getChannels()->at(1);
    channel->getOutput()->setName("Door");
    channel->getOutput()->setColor(0x00C0FF);
    channel->getOutput()->setUsed(true);
    openSetup();
    EXPECT_EQ(handlers.now(), 7U);
    EXPECT_EQ(columns(grid),
              "Group + 12 1 20|Id ID 3 1 32 -A|Used Used 6 1 70|Color C 7 1 20|Name Name 2 1 "
              "240|DeviceConfigId Config ID 1 1 100|SerialNumber Serial No 1 1 80|BusType Bus type "
              "1 1 80|Data Data 1 1 240 B|");
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(12));
    EXPECT_EQ(row(grid, 1), "-|||||0x3|N/A||");
    EXPECT_EQ(row(grid, 2), "-||||Rear|0x5|N/A||");
    EXPECT_EQ(row(grid, 4), "|32|Used|00C0FF|Door|0x5|N/A|LIN|");
    EXPECT_TRUE(user->fold(grid, 1)) << "a group with no rows";
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(12));
}

TEST_P(SetupWindowTest, FoldingTheSecondGroupConcernsItAloneAndLastsWhenGroupsAreAskedAgain) {
    add(DeviceTypeInfo::linComboId, 1);
    add(DeviceTypeInfo::linComboId, 2);
    openSetup();
    EXPECT_EQ(setup->getRows()[1].groupIndex, 0U) << "not asked for yet";
    user->shownRows(grid);
    EXPECT_EQ(setup->getRows()[1].groupIndex, 1U);
    EXPECT_EQ(setup->getRows()[12].groupIndex, 2U);
    EXPECT_TRUE(user->fold(grid, 12));
    EXPECT_TRUE(setup->getRows()[1].expanded);
    EXPECT_FALSE(setup->getRows()[12].expanded);
    EXPECT_TRUE(setup->getRows()[13].expanded) << "a channel's row has no such state";
    const Kestrova::Tessel::KVDrawGrid sameGrid(Kestrova::Tessel::hostWindow(user->window()), grid);
    sameGrid.setRowCount(sameGrid.getRowCount());
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(12));
    EXPECT_TRUE(user->fold(grid, 12));
    EXPECT_TRUE(setup->getRows()[12].expanded);
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(22));
    EXPECT_THAT(user->takeFailures(), IsEmpty());
}

TEST_P(SetupWindowTest, UntickingUsedTellsTheChannelOnce) {
    add(DeviceTypeInfo::canComboId, 1);
    auto& channel = *host.groupOfPlugins.mounted.at(0);
    channel.used = hostTrue;
    openSetup();
    EXPECT_EQ(user->read({grid, 2, used}), "Used");
    host.script.forget();
    EXPECT_TRUE(user->toggle({grid, 2, used}));
    const auto calls = host.script.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "HostChannel::setUsed(false)"), 1);
    EXPECT_EQ(user->read({grid, 2, used}), "Unused");
    channel.used = hostTrue;
    user->passTime(refreshTime);
    EXPECT_EQ(user->read({grid, 2, used}), "Used");
}

TEST_P(SetupWindowTest, NameAndColourGoToTheChannelAndTheModulesRowTakesNothing) {
    add(DeviceTypeInfo::canComboId, 1);
    openSetup();
    EXPECT_TRUE(user->type({grid, 3, name}, "Motor \xE2\x82\xAC"));
    EXPECT_TRUE(user->setColor({grid, 3, color}, 0x123456));
    EXPECT_EQ(host.groupOfPlugins.mounted.at(1)->name, L"Motor \u20AC");
    EXPECT_EQ(host.groupOfPlugins.mounted.at(1)->color, 0x123456U);
    EXPECT_EQ(user->read({grid, 3, name}) + user->read({grid, 3, color}),
              "Motor \xE2\x82\xAC"
              "123456");
    EXPECT_FALSE(user->type({grid, 1, name}, "x"));
    EXPECT_FALSE(user->toggle({grid, 1, used}));
    EXPECT_FALSE(user->setColor({grid, 1, color}, 1));
    EXPECT_FALSE(user->type({grid, 3, data}, "x"));
}

TEST_P(SetupWindowTest, AChannelWhoseOutputIsGoneIsEmptyAndTakesNothing) {
    CmpDevice& device = add(DeviceTypeInfo::canComboId, 1);
    openSetup();
    device.releaseOutputs();
    user->passTime(refreshTime);
    EXPECT_EQ(row(grid, 2), "|16|Unused|000000||0x1|N/A|CAN FD|");
    EXPECT_TRUE(user->toggle({grid, 2, used}));
    EXPECT_TRUE(user->type({grid, 2, name}, "x"));
    EXPECT_TRUE(user->setColor({grid, 2, color}, 1));
    EXPECT_THAT(user->takeFailures(), IsEmpty());
    EXPECT_EQ(user->read({grid, 2, used}), "Unused");
}

TEST_P(SetupWindowTest, RemovedModulesStayUntilTheWindowGoes) {
    add(DeviceTypeInfo::canComboId, 1).setName("Front");
    openSetup();
    const std::weak_ptr<CmpDevice> device = devices.list()[0];
    devices.clear();
    add(DeviceTypeInfo::linComboId, 2);
    user->passTime(refreshTime);
    EXPECT_EQ(user->read({grid, 1, name}), "Front");
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(8)) << "what came later isn't there";
    EXPECT_FALSE(device.expired());
    openSetup();
    EXPECT_TRUE(device.expired());
    EXPECT_THAT(user->shownRows(grid), testing::SizeIs(11));
}

TEST_P(SetupWindowTest, AFailureOfTheHostInAHandlerIsShown) {
    add(DeviceTypeInfo::canComboId, 1);
    openSetup();
    user->shownRows(grid);
    host.script.failOperation("HostChannel::setUsed", HostCode::failed);
    EXPECT_TRUE(user->toggle({grid, 2, used}));
    EXPECT_THAT(user->takeFailures(), ElementsAre(0x80000014U));
}

/// The setup window shows modules that the user takes away and changes in the settings window while
/// their messages come in.
TEST_P(SetupWindowTest, ModulesMayGoAndChangeTheirTypeWhileTheCaptureThreadRuns) {
    const std::vector<wire::SampleFrame> frames = wire::sampleFrames();
    std::atomic<std::uint64_t> reads = 0;
    port.interfaces[0].endless = [&]() -> ScriptedRead {
        const std::uint64_t place = ++reads % (frames.size() + 1);
        return place == 0 ? ScriptedRead() : ScriptedRead{1, frames[place - 1].bytes};
    };
    const auto listWindow = GetParam()();
    openSettingsIn(*listWindow);
    const std::string list = "deviceDrawGrid";
    core.packetReader.openAndStartRead();
    for (int round = 0; round < 60; ++round) {
        ASSERT_TRUE(listWindow->press("addDeviceButton"));
        const auto last = static_cast<std::int32_t>(devices.list().size());
        ASSERT_TRUE(listWindow->pick({list, last, 1}, round % 3 == 0 ? "LIN combo" : "CAN combo"));
        ASSERT_TRUE(listWindow->pick({list, last, 3}, std::to_string(round % 4)));
        if (round % 5 == 0) {
            openSetup();
        }
        ASSERT_TRUE(listWindow->pick({list, 1, 1}, round % 2 == 0 ? "CAN combo" : "Unknown"));
        if (last > 4) {
            ASSERT_TRUE(listWindow->select(list, {1, 3}));
            ASSERT_TRUE(listWindow->press("removeDeviceButton"));
        }
        for (const std::int32_t shown : user->shownRows(grid)) {
            user->read({grid, shown, data});
        }
        for (const std::uint64_t before = reads; reads < before + 40;) {
            std::this_thread::yield();
        }
        if (round % 4 == 0) {  // on a screen this is real time
            user->passTime(refreshTime);
        }
        core.packetReader.flushAll();
    }
    core.packetReader.Stop();
    EXPECT_THAT(user->takeFailures(), IsEmpty());
    EXPECT_THAT(listWindow->takeFailures(), IsEmpty());
    settings.reset();
}
