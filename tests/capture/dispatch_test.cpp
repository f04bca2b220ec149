#include "tests/support/capture_rig.h"

namespace {

using ::testing::ElementsAre;
using wire::Bytes;
using wire::can;

/// Frames in at the port, samples out at the outputs: a CAN combo 0x41 and a LIN combo 0x32.
class DispatchTest : public ::testing::Test, protected CaptureRig {
  protected:
    /// The first `size` bytes of each record that a channel brought.
    std::vector<Bytes> records(const CmpDevice& device, std::uint16_t interfaceId, int size = 12) {
        reader.flushAll();
        std::vector<Bytes> result;
        for (const auto& sample : samplesOf(device, interfaceId)) {
            result.push_back({sample.bytes.begin(), sample.bytes.begin() + size});
        }
        return result;
    }
    static Bytes statusOf(std::uint16_t cmId, std::uint64_t timestamp, std::uint32_t serial = 77) {
        return wire::tecmp(0x99, 1, {{0, timestamp, wire::cmStatus(cmId, serial)}});
    }

    CmpDevice& canCombo = add(DeviceTypeInfo::canComboId, 1);
    CmpDevice& linCombo = add(DeviceTypeInfo::linComboId, 2);
};

TEST_F(DispatchTest, MessageGoesToTheFirstModuleOfItsCmIdAndToNoneThatIsUnknown) {
    const CmpDevice& second = add(DeviceTypeInfo::canComboId, 1);
    add(DeviceTypeInfo::neoviFire3Id, 7);
    read({wire::tecmpData(0x42, {{0x10, 9000000000, can(1, {})}}), statusOf(0x42, 9000000000),
          wire::tecmpData(7, {{10, 5000000000, can(1, {})}, {1, 6000000000, can(1, {})}}),
          wire::tecmpData(0x41, {{0x10, 0, can(1, {})}, {0x99, 4000000000, can(1, {})}}),
          wire::tecmp(0x41, 4, {{0x10, 9000000000, can(1, {})}})});
    EXPECT_EQ(canCombo.getDeviceNow(), (DeviceTime{4, 0})) << "unknown interface, known module";
    EXPECT_EQ(devices.findByCmId(0x42), nullptr) << "added by its status";
    EXPECT_EQ(devices.findByCmId(0x41).get(), &canCombo);
    EXPECT_TRUE(devices.moveUp(2) && devices.moveDown(0));
    read({wire::tecmpData(0x41, {{0x10, 0, can(1, {})}})});
    EXPECT_EQ(devices.findByCmId(0x41).get(), &second);
    reader.flushAll();
    std::vector<std::size_t> reached;
    for (std::size_t i = 0; i < factory.channels.size(); ++i) {
        reached.resize(reached.size() + factory.channels[i]->samples.size(), i);
    }
    // Outputs are 7 CAN, 10 LIN, 7 CAN, and 20 of a NeoviFire3, of which two listen on 1.
    EXPECT_THAT(reached, ElementsAre(0, 17, 24));
}

TEST_F(DispatchTest, AsamDataTakeTheShapeOfACanMessage) {
    read({wire::asam(0x41, 1, 1, {0x10, 1, wire::asamCan(0x80000123, {1, 2, 3})}),
          wire::asam(0x32, 1, 5, {0x10, 1, wire::asamCan(0x07000000, Bytes(5, 9))}),
          wire::tecmpData(0x41, {{0x10, 1, can(5, {})}}),
          // Data without a byte, and data that isn't said to be some but for the frame before.
          wire::asam(0x41, 1, 1, {0x10, 5000000000, wire::asamCan(1, {})}),
          wire::asam(0x41, 2, 1, {0x10, 5000000000, wire::asamCan(1, {1})})});
    EXPECT_EQ(canCombo.getDeviceNow(), (DeviceTime{0, 1}));
    EXPECT_EQ(linCombo.getDeviceNow(), (DeviceTime{0, 1}));
    EXPECT_THAT(records(canCombo, 0x10), ElementsAre(Bytes{0x23, 1, 0, 0, 1, 0, 0, 3, 1, 2, 3, 0},
                                                     Bytes{5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}))
        << "the TECMP frame behind it is taken as it is";
    EXPECT_THAT(records(linCombo, 0x10), ElementsAre(Bytes{7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}))
        << "the identifier's bytes in place of a LIN head";
}

TEST_F(DispatchTest, StatusIsMatchedOnItsPayloadInTecmpAndOnTheHeaderInAsam) {
    read({statusOf(0x32, 1000000000, 1234),
          wire::asam(0x41, 3, 1, {0, 1000000000, wire::asamStatus("module", "SN-1")})});
    EXPECT_EQ(linCombo.getSerialNumberText(), "1234");
    EXPECT_EQ(canCombo.getSerialNumberText(), "SN-1");
    read({statusOf(0x41, 1000000000, 5)});
    EXPECT_EQ(canCombo.getSerialNumberText(), "5") << "the CM ID was kept, the text is gone";
    read({statusOf(0x32, 1000000000, 6),
          wire::asam(0x41, 2, 1, {0, 1000000000, wire::asamStatus("", "SN-2")})});
    EXPECT_EQ(canCombo.getSerialNumberText(), "SN-2") << "a type that isn't known is that before";
}

TEST_F(DispatchTest, BusStatusIsMatchedRecordByRecordAndNotTakenFromAsam) {
    const Bytes payload = wire::busStatus(0x41, {{0x10, 7}, {0x99, 8}, {0x20, 9}});
    read({wire::asam(0x41, 3, 2, {0, 1, wire::busStatus(0x41, {{0x30, 5}})}),
          wire::tecmp(0x32, 2, {{0, 1, payload}})});
    std::vector<std::uint32_t> messages;
    for (const auto& channel : *canCombo.getChannels()) {
        messages.push_back(channel->getBusStatus().messageCount);
    }
    EXPECT_THAT(messages, ElementsAre(7, 9, 0, 0, 0, 0, 0));
}

TEST_F(DispatchTest, ClocksLearnTheTimeAtTheEndOfThePassAndAtEachFlush) {
    counter.count = 5000;
    read({wire::tecmpData(0x41, {{0x10, 315964800'250000000, can(1, {})}})});
    EXPECT_EQ(clockOf(canCombo).getLastSet(), GNSSTime(0, 0.25));
    counter.count = 6500;
    reader.flushAll();
    EXPECT_EQ(clockOf(canCombo).getLastSet(), GNSSTime(0, 1.75));
    EXPECT_EQ(clockOf(canCombo).lastAsked, GNSSTime(0, 0.25)) << "the sample's own time";
    EXPECT_EQ(clockOf(linCombo).getLastSet(), GNSSTime()) << "never heard";
    reader.prepareRead(true);
    EXPECT_EQ(canCombo.findChannel(0x10)->getLastValueText(), "");
    counter.count = 7000;
    reader.readPass();
    reader.flushAll();
    EXPECT_EQ(clockOf(canCombo).getLastSet(), GNSSTime(0, 1.75)) << "not heard since the start";
    read({statusOf(0x41, 315964800'500000000)});
    EXPECT_EQ(clockOf(canCombo).getLastSet(), GNSSTime(0, 0.5));
}

TEST_F(DispatchTest, EachFrameIsStampedWhenItComesInAlsoInALongPass) {
    counter.count = 5000;
    port.onRead = [this] { counter.count += 1000; };
    read({statusOf(0x41, 100'000000000), statusOf(0x32, 200'000000000)});
    EXPECT_EQ(canCombo.getDeviceNow(), (DeviceTime{102, 0}));
    EXPECT_EQ(linCombo.getDeviceNow(), (DeviceTime{201, 0}));
}

}  // namespace
