#include "tests/ui/window_rig.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string grid = "deviceDrawGrid";
enum Column : std::int32_t { id, type, name, configId, serial, status };

}  // namespace

TEST_P(SettingsWindowTest, WithoutModulesThereIsTheHeaderOnlyAndAddMakesAnUnknownOne) {
    openSettings();
    EXPECT_EQ(columns(grid),
              "id ID 3 1 32 -A|type Type 8 1 80|name Name 2 1 130|configId Config Id 8 1 70 "
              "-A|serialNumber SN 1 1 120 -A|status Status 1 1 120|");
    EXPECT_EQ(handlers.now(), 8U);
    EXPECT_THAT(user->shownRows(grid), IsEmpty());
    EXPECT_TRUE(user->press("addDeviceButton"));
    EXPECT_THAT(user->shownRows(grid), ElementsAre(1));
    EXPECT_EQ(row(grid, 1), "1|Unknown||0|N/A|Not connected");
    EXPECT_EQ(devices.list().at(0)->getType().typeId, DeviceTypeInfo::unknownId);
}

TEST_P(SettingsWindowTest, TypeAndConfigIdArePicked) {
    add(DeviceTypeInfo::unknownId, 0);
    openSettings();
    EXPECT_THAT(user->offers({grid, 1, type}),
                ElementsAre("Unknown", "LIN combo", "CAN combo", "NeoviFire3"));
    EXPECT_TRUE(user->pick({grid, 1, type}, "CAN combo"));
    EXPECT_THAT(user->offers({grid, 1, configId}),
                ElementsAre("0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "A", "B", "C", "D",
                            "E", "F"));
    EXPECT_TRUE(user->pick({grid, 1, configId}, "B"));
    EXPECT_EQ(devices.list()[0]->getConfigId(), 11);
    EXPECT_FALSE(user->type({grid, 1, configId}, "3"));
    EXPECT_TRUE(user->type({grid, 1, name}, "M\xC3\xBCller"));
    EXPECT_EQ(row(grid, 1), "1|CAN combo|M\xC3\xBCller|0xB|N/A|Not connected");
    EXPECT_EQ(devices.list()[0]->getChannels()->size(), 7U);
    EXPECT_THAT(user->offers({grid, 1, serial}), IsEmpty());
    EXPECT_TRUE(user->pick({grid, 1, type}, "Unknown"));
    EXPECT_EQ(user->read({grid, 1, type}), "Unknown");
}

TEST_P(SettingsWindowTest, AConfigIdWithoutARangeIsTypedAndWhatIsNoNumberIsZero) {
    CmpDevice& device = add(DeviceTypeInfo::neoviFire3Id, 5);
    openSettings();
    EXPECT_FALSE(user->pick({grid, 1, configId}, "3"));
    const std::pair<const char*, std::uint16_t> cases[] = {
        {"12", 12}, {"zwei", 0}, {" 7 ", 7}, {"300x", 300}, {"", 0}, {"65537", 1}, {"-1", 65535}};
    for (const auto& [typed, expected] : cases) {
        device.setCmId(5);
        EXPECT_TRUE(user->type({grid, 1, configId}, typed));
        EXPECT_EQ(device.getConfigId(), expected) << typed;
        EXPECT_EQ(user->read({grid, 1, configId}), std::to_string(expected)) << typed;
    }
}

TEST_P(SettingsWindowTest, TheSelectedRowsAreRemovedAndNoOthers) {
    for (const char* const each : {"a", "b", "c", "d"}) {
        add(DeviceTypeInfo::linComboId, 1).setName(each);
    }
    openSettings();
    EXPECT_TRUE(user->press("removeDeviceButton"));
    EXPECT_THAT(user->shownRows(grid), ElementsAre(1, 2, 3, 4)) << "nothing was selected";
    EXPECT_TRUE(user->select(grid, {1, 3}));
    EXPECT_TRUE(user->press("removeDeviceButton"));
    EXPECT_EQ(row(grid, 1), "1|LIN combo|b|0x1|N/A|Not connected");
    EXPECT_THAT(user->shownRows(grid), ElementsAre(1, 2));
    EXPECT_EQ(row(grid, 2), "2|LIN combo|d|0x1|N/A|Not connected");
    EXPECT_TRUE(user->press("removeDeviceButton"));
    EXPECT_THAT(user->shownRows(grid), ElementsAre(1, 2)) << "a selection that is gone";
    EXPECT_TRUE(user->select(grid, {1, 2}));
    EXPECT_TRUE(user->press("removeDeviceButton"));
    EXPECT_THAT(user->shownRows(grid), IsEmpty());
}

TEST_P(SettingsWindowTest, StateAndSerialNumberFollowTheModuleByThemselves) {
    add(DeviceTypeInfo::canComboId, 1);
    openSettings();
    EXPECT_EQ(user->read({grid, 1, status}), "Not connected");
    read(wire::tecmp(1, 1, {{0, 5'000'000'000, wire::cmStatus(0x41, 7, "S77")}}));
    core.packetReader.flushAll();
    user->passTime(refreshTime);
    EXPECT_EQ(user->read({grid, 1, serial}), "S77");
    EXPECT_EQ(user->read({grid, 1, status}), "Connected");
    counter.count += 2 * counter.frequency;
    user->passTime(refreshTime);
    EXPECT_EQ(user->read({grid, 1, serial}) + user->read({grid, 1, status}), "N/ANot connected");
}

TEST_P(SettingsWindowTest, RowsWhoseModulesWereTakenAwayByALoadAreEmptyAndTakeNothing) {
    add(DeviceTypeInfo::canComboId, 1);
    add(DeviceTypeInfo::canComboId, 2);
    openSettings();
    devices.remove(1);
    user->passTime(refreshTime);
    EXPECT_EQ(row(grid, 2), "0|||||");
    EXPECT_THAT(user->offers({grid, 2, type}), IsEmpty());
    EXPECT_TRUE(user->type({grid, 2, name}, "x"));
    EXPECT_TRUE(user->select(grid, {2}));
    EXPECT_TRUE(user->press("removeDeviceButton"));
    EXPECT_THAT(user->takeFailures(), IsEmpty());
    EXPECT_EQ(devices.list().size(), 1U);
    EXPECT_THAT(user->shownRows(grid), ElementsAre(1));
}

TEST_P(SettingsWindowTest, AWindowThatItsOwnHandlerEndsLastsUntilTheHandlerIsThrough) {
    add(DeviceTypeInfo::canComboId, 1);
    read(wire::tecmp(1, 1, {{0, 5'000'000'000, wire::cmStatus(0x41, 7, "S77")}}));
    openSettings();
    // The host takes the window away while it is asked for a cell.
    counter.onCount = [this] {
        settings.reset();
        user->closeWindow();
    };
    user->shownRows(grid);
    counter.onCount = nullptr;
    EXPECT_EQ(settings, nullptr);
    EXPECT_THAT(user->takeFailures(), IsEmpty());
}
