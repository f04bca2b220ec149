#include <gmock/gmock.h>

#include "tests/support/capture_bench.h"
#include "tests/support/memory_node.h"

namespace {

using Kestrova::Utils::Serialization::MemoryNode;
using Kestrova::Utils::Serialization::Node;
using ::testing::ElementsAre;

/// Starts with a device of each type: 0x41, 0x32, 7 and 5.
class DeviceListTest : public ::testing::Test, protected CaptureBench {
  protected:
    DeviceListTest() { addOneOfEach(); }

    std::vector<int> cmIds() const {
        std::vector<int> result;
        for (const auto& device : devices.list()) {
            result.push_back(device->getCmId());
        }
        return result;
    }
    static std::shared_ptr<Node> document() { return MemoryNode::createDocument("Setup", true); }
    static std::shared_ptr<Node> savedDevices(const CmpPacketReader& from) {
        auto node = document();
        from.saveDevices(*node);
        return node;
    }
    static std::shared_ptr<Node> savedChannels(const CmpPacketReader& from) {
        auto node = document();
        from.saveChannels(*node);
        return node;
    }
};

TEST_F(DeviceListTest, KeyOfARemovedDeviceStaysTakenOnlyWhileFrozen) {
    devices.remove(1);
    devices.remove(99);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 2, 3, 1)) << "the smallest free key";
    EXPECT_THAT(cmIds(), ElementsAre(0x41, 7, 5, 0x40));
    devices.beginFreeze();
    devices.remove(1);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 4));
    devices.remove(3);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 5));
    devices.endFreeze();
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 5, 2));
}

TEST_F(DeviceListTest, DeviceAddedAfterALoadInTheFrozenListIsNotLost) {
    const auto node = savedDevices(reader);
    devices.clear();
    devices.beginFreeze();
    reader.loadDevices(*node);
    const auto added = devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_EQ(devices.list().back(), added);
}

TEST_F(DeviceListTest, MovesStayInsideTheListAndTakeTheKeysAlong) {
    for (const std::int32_t outside : {0, 4, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_FALSE(devices.moveUp(outside)) << outside;
        EXPECT_FALSE(devices.moveDown(outside == 0 ? 3 : outside)) << outside;
    }
    EXPECT_TRUE(devices.moveUp(3));
    EXPECT_TRUE(devices.moveDown(0));
    EXPECT_THAT(cmIds(), ElementsAre(0x32, 0x41, 5, 7));
    EXPECT_THAT(devices.keys(), ElementsAre(1, 0, 3, 2));
}

TEST_F(DeviceListTest, FirstInTheListGetsTheMessagesOfACmId) {
    const wire::Bytes frame = wire::tecmpData(0x41, {{0x10, 0, wire::can(1, {})}});
    const CmpDevice& first = *devices.list()[0];
    const CmpDevice& second = add(DeviceTypeInfo::canComboId, 1);
    read({frame});
    for (const std::int32_t position : {4, 3, 2, 1}) {
        devices.moveUp(position);
    }
    read({frame, frame});
    reader.flushAll();
    EXPECT_EQ(samplesOf(first, 0x10).size(), 1U);
    EXPECT_EQ(samplesOf(second, 0x10).size(), 2U);
    EXPECT_EQ(devices.findByCmId(0x41).get(), &second);
    EXPECT_EQ(devices.findByCmId(0x42), nullptr);
}

TEST_F(DeviceListTest, SetupSaysWhatTheUserSet) {
    devices.clear();
    add(DeviceTypeInfo::neoviFire3Id, 0x107).setName("Tür");
    counter.count = 3000;
    EXPECT_EQ(toText(*savedDevices(reader)),
              "Setup\n  CmpDevices\n    CmpDevice\n      @Id \"0\"\n      Id = 263\n"
              "      ClockId = 0\n      DeviceTypeId = 2\n      ConfigId = 263\n"
              "      SerialNumber = N/A\n      Name = Tür\n");
    devices.list()[0]->setTypeById(DeviceTypeInfo::unknownId);
    EXPECT_EQ(toText(*savedChannels(reader)),
              "Setup\n  CmpDevices\n    CmpDevice\n      @Id \"0\"\n      Channels\n");
}

TEST_F(DeviceListTest, SaveLoadSaveGivesTheSameTree) {
    devices.list()[3]->setName("");
    devices.list()[0]->setName("front");
    devices.moveUp(2);
    const auto node = savedDevices(reader);
    const auto channels = savedChannels(reader);

    CaptureBench other;
    other.addOneOfEach();  // the clocks and outputs that their owners have loaded before
    other.manager.reload();
    other.reader.loadDevices(*node);
    other.reader.loadChannels(*channels);
    EXPECT_EQ(toText(*savedDevices(other.reader)), toText(*node));
    EXPECT_EQ(toText(*savedChannels(other.reader)), toText(*channels));
    EXPECT_EQ(other.manager.liveClocks(), 4);
    EXPECT_EQ(clockOf(*other.devices.list()[0]).deviceName, "front");
}

TEST_F(DeviceListTest, ValuesThatCannotBeReadLeaveTheDefaults) {
    const auto node = document();
    const auto list = node->AddChild("CmpDevices");
    for (const char* nonsense : {"abc", "99999999999999999999999", ""}) {
        const auto item = list->AddChild("CmpDevice");
        for (const char* key : {"ClockId", "DeviceTypeId", "ConfigId"}) {
            item->WriteValue(key, nonsense, "#");
        }
    }
    list->AddChild("CmpDevice");
    const auto narrowed = list->AddChild("CmpDevice");
    narrowed->WriteValue("DeviceTypeId", "-1", "#");
    narrowed->WriteValue("ConfigId", "65543", "#");
    reader.loadDevices(*node);
    EXPECT_THAT(cmIds(), ElementsAre(0x30, 0x30, 0x30, 0x30, 7));
    EXPECT_EQ(devices.list()[0]->getName(), "Technica LIN combo");
    EXPECT_EQ(devices.list()[4]->getType().name, "Unknown");
    reader.loadDevices(*document());
    EXPECT_TRUE(devices.list().empty());
    EXPECT_EQ(manager.liveClocks(), 0);
}

TEST_F(DeviceListTest, DevicesBehindTheEndOfTheChannelTreeGetNewOutputs) {
    const auto shorter = document();
    const auto item = shorter->AddChild("CmpDevices")->AddChild("CmpDevice");
    const auto channels = item->AddChild("Channels");
    channels->AddChild("Channel")->WriteValue("ChId", "3", "#");
    channels->AddChild("Channel")->WriteValue("ChId", "nonsense", "#");
    const auto outputAt = [&](std::size_t device, std::size_t channel) {
        return (*devices.list()[device]->getChannels())[channel]->getOutput();
    };
    reader.releaseOutputs();
    reader.loadChannels(*shorter);
    EXPECT_EQ(outputAt(0, 0), factory.channels[3]);
    EXPECT_NE(outputAt(0, 1), nullptr) << "a new one";
    EXPECT_EQ(outputAt(0, 2), nullptr) << "no child, no output";
    EXPECT_NE(outputAt(1, 0), nullptr);
    EXPECT_EQ(outputAt(2, 19)->getName(), "CANFD channel");
    reader.loadChannels(*document());
    EXPECT_NE(outputAt(0, 2), nullptr) << "without a tree all get new ones";
}

/// A host may answer a sample with a change of the setup.
TEST_F(DeviceListTest, WhatIsRemovedDuringAFlushLivesUntilItsEnd) {
    read({wire::tecmpData(0x41, {{0x10, 0, wire::can(1, {})}, {0x20, 0, wire::can(1, {})}})});
    clockOf(*devices.list()[0]).onGetTime = [this] {
        devices.list()[0]->setTypeById(DeviceTypeInfo::linComboId);
        devices.clear();
    };
    reader.flushAll();
    EXPECT_EQ(factory.channels[1]->samples.size(), 1U);
    EXPECT_EQ(manager.liveClocks(), 0);
}

}  // namespace
