#include "tests/support/capture_rig.h"
#include "tests/support/setup_tree.h"

namespace {

using Kestrova::Utils::Serialization::Node;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Starts with a device of each type: 0x41, 0x32, 7 and 5.
class DeviceListTest : public ::testing::Test, protected CaptureRig {
  protected:
    DeviceListTest() { addOneOfEach(); }

    std::vector<int> cmIds() const {
        std::vector<int> result;
        for (const auto& device : devices.list()) {
            result.push_back(device->getCmId());
        }
        return result;
    }
    static std::shared_ptr<Node> document() { return makeSetupTree("Setup"); }
    static std::shared_ptr<Node> saved(const CmpPacketReader& from,
                                       void (CmpPacketReader::*save)(Node&) const) {
        auto node = document();
        (from.*save)(*node);
        return node;
    }
    static constexpr auto saveDevices = &CmpPacketReader::saveDevices;
    static constexpr auto saveChannels = &CmpPacketReader::saveChannels;
};

TEST_F(DeviceListTest, KeyOfARemovedDeviceStaysTakenOnlyWhileFrozen) {
    devices.remove(1);
    devices.remove(99);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 2, 3, 1)) << "the smallest free key";
    EXPECT_THAT(cmIds(), ElementsAre(0x41, 7, 5, 0x40));
    reader.startSetupRead();
    devices.remove(1);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 4));
    devices.remove(3);
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 5));
    reader.stopFreeze();
    devices.add();
    EXPECT_THAT(devices.keys(), ElementsAre(0, 3, 1, 5, 2));
}

TEST_F(DeviceListTest, DirectoryIsMadeOnlyForThoseWhoAsk) {
    int made = 0;
    DirectoryPublisher publisher([&] { return ++made, DirectoryPublisher::DeviceList(); });
    publisher.publish();
    publisher.publish();
    const DirectoryPublisher::Reader captureThread(publisher);
    publisher.publish();
    EXPECT_EQ(made, 2);
}

TEST_F(DeviceListTest, SaveLoadSaveGivesTheSameTree) {
    devices.list()[3]->setName("");
    devices.list()[0]->setName("front");
    EXPECT_TRUE(devices.moveUp(1) && devices.moveDown(0)) << "to the first place and back";
    EXPECT_TRUE(devices.moveUp(2));
    EXPECT_FALSE(devices.moveUp(0) || devices.moveUp(4) || devices.moveDown(3));
    const auto node = saved(reader, saveDevices);
    const auto channels = saved(reader, saveChannels);
    EXPECT_THAT(toText(*node), HasSubstr("Device Id=\"0\">\n      <value key=\"Id\">65<"));
    EXPECT_THAT(toText(*node), HasSubstr("<value key=\"SerialNumber\">"));
    EXPECT_THAT(toText(*channels),
                HasSubstr("Device Id=\"0\">\n      <Channels>\n        <Channel>\n"
                          "          <value key=\"ChId\">0<"));

    CaptureRig other;
    other.addOneOfEach();  // the clocks and outputs that their owners have loaded before
    other.manager.reload();
    other.reader.loadDevices(*node);
    const auto more = saved(reader, saveChannels);  // than a module of its type has
    more->GetChild(0)->GetChild(0)->GetChild(0)->AddChild("Channel")->WriteValue("ChId", "2", "#");
    other.reader.loadChannels(*more);
    other.reader.loadChannels(*channels);
    EXPECT_EQ(toText(*saved(other.reader, saveDevices)), toText(*node));
    EXPECT_EQ(toText(*saved(other.reader, saveChannels)), toText(*channels));
    EXPECT_EQ(other.manager.liveClocks(), 4);
    EXPECT_EQ(clockOf(*other.devices.list()[0]).deviceName, "front");
    other.reader.releaseOutputs();
    other.reader.loadChannels(*document());
    EXPECT_NE(other.devices.list()[0]->findChannel(0x10)->getOutput(), nullptr) << "no channels";
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

/// A host may answer a sample with a change of the setup.
TEST_F(DeviceListTest, WhatIsRemovedDuringAFlushLivesUntilItsEnd) {
    read({wire::tecmpData(0x41, {{0x10, 0, wire::can(1, {})}, {0x20, 0, wire::can(1, {})}})});
    factory.channels[0]->onAdd = [this] {
        devices.list()[0]->setTypeById(DeviceTypeInfo::linComboId);
        devices.clear();
    };
    reader.flushAll();
    EXPECT_EQ(factory.channels[1]->samples.size(), 1U);
    EXPECT_EQ(manager.liveClocks(), 0);
}

TEST_F(DeviceListTest, HostMayCallBackWhileItTakesASample) {
    const struct {
        std::function<void(CmpPacketReader&)> action;
        std::vector<int> written;
        double lastTime;
        std::uint64_t delivered;
    } cases[] = {
        {[](auto& its) { its.prepareRead(true); }, {1}, 9.0, 0},
        {[](auto& its) { its.prepareRead(false); }, {1}, 9.0, 1},
        {[](auto& its) { its.releaseOutputs(); }, {1, 2}, 9.0, 2},
        {[](auto& its) { its.flushAll(); }, {1, 2}, 9.0, 2},
        {[](auto& its) { its.getDevices().resetLastTimes(); }, {1, 2}, 3.0, 2},
    };
    for (const auto& row : cases) {
        CaptureRig rig;
        const CmpDevice& device = rig.add(DeviceTypeInfo::canComboId, 1);
        const auto channel = device.findChannel(0x10);
        const auto output = std::static_pointer_cast<FakeOutput>(channel->getOutput());
        output->onAdd = [&] { row.action(rig.reader); };
        clockOf(device).script = {{FakeClock::Status::Valid, 9.0}, {FakeClock::Status::Valid, 3.0}};
        rig.read(
            {wire::tecmpData(0x41, {{0x10, 0, wire::can(1, {})}, {0x10, 0, wire::can(2, {})}})});
        rig.reader.flushAll();
        rig.reader.flushAll();
        std::vector<int> written;
        for (const auto& sample : output->samples) {
            written.push_back(sample.bytes[0]);
        }
        EXPECT_EQ(written, row.written);
        EXPECT_EQ(channel->getLastTime(), row.lastTime);
        EXPECT_EQ(channel->getCounts().delivered, row.delivered);
        output->onAdd = nullptr;
        const bool isReplaced = channel->getOutput() != output;
        EXPECT_EQ(output.use_count(), isReplaced ? 2 : 3) << "kept here, by the factory and bound";
    }
}

}  // namespace
