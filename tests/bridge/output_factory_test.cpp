#include "bridge/output/output_factory_impl.h"

#include <gmock/gmock.h>

#include "bridge/output/color_palette.h"
#include "tests/bridge/bridge_bench.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr auto notified = "App.getData, Data.notifyChannelsChanged";

class OutputFactoryTest : public BridgeTest {};

TEST_F(OutputFactoryTest, NewChannelIsMountedTypedColouredAndTold) {
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
    EXPECT_EQ(mounted(0).dataType, 14) << "a fixed channel was typed anew";
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

TEST_F(OutputFactoryTest, ColoursRunThroughThePaletteAndBeginAnew) {
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

TEST_F(OutputFactoryTest, WholeListIsRefreshedRemountedAndDetachedTogether) {
    const auto first = create({0, Kind::Synchronous});
    create();
    const std::uint8_t byte = 3;
    first->setUsed(false);
    first->addSynchronousSample(&byte, 1);
    EXPECT_EQ(mounted(0).writePosition, 1) << "the use counts before the next selection";
    factory.refreshAddData();
    first->addSynchronousSample(&byte, 1);
    EXPECT_EQ(mounted(0).writePosition, 1) << "the use doesn't count";
    factory.setRemountMode(1);
    EXPECT_THAT(host.callsOf([&] { first->setExpectedRate(1.0F); }), HasSubstr("releaseBuffers"));
    factory.setChannelGroupName({1, 2}, "\xC3\xA4");
    EXPECT_EQ(host.groupOfPlugins.groupNames.at({1, 2}), L"\x00E4");
    EXPECT_EQ(host.callsOf([&] { factory.detachChannels(); }), "");
    EXPECT_EQ(mounted(0).references() + mounted(1).references(), 0);
    EXPECT_EQ(host.callsOf([&] { factory.refreshAddData(); }), "");
    EXPECT_EQ(create()->getIndex(), 2U) << "the entries are gone";
}

}  // namespace
