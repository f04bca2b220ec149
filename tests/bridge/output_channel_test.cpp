#include "bridge/output/output_channel_impl.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/bridge/bridge_bench.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using OutputChannel::OutputChannelImpl;
using ::testing::EndsWith;
using ::testing::StartsWith;

class OutputChannelTest : public BridgeTest {
  protected:
    OutputChannelTest() { channel.attachHostChannel(CountedRef<HostChannel>(&behind)); }

    ScriptedChannel& behind = host.makeChannel({8, 0, 5});
    OutputChannelImpl channel{factory, app};
};

TEST_F(OutputChannelTest, NewDefaultChangesOnlyWhatTheUserLeft) {
    const auto setDefaults = [&](const char* name, const char* unit, std::uint32_t color) {
        channel.setDefaultName(name);
        channel.setDefaultUnit(unit);
        channel.setDefaultColor(color);
    };
    setDefaults("a", "V", 1);
    EXPECT_TRUE(channel.isAutomaticName() && channel.isAutomaticUnit() &&
                channel.isAutomaticColor());
    EXPECT_EQ(behind.name + behind.unit, L"aV");
    EXPECT_EQ(behind.color, 1U);
    behind.name = L"A";
    behind.unit = L"v";
    channel.setColor(2);
    setDefaults("b", "W", 3);
    EXPECT_FALSE(channel.isAutomaticName() || channel.isAutomaticUnit() ||
                 channel.isAutomaticColor());
    EXPECT_EQ(behind.name + behind.unit, L"Av");
    EXPECT_EQ(behind.color, 2U);
}

TEST_F(OutputChannelTest, BuffersAreReleasedAroundAChangeInRemountModeOnly) {
    channel.setRemountMode(2);
    EXPECT_EQ(host.callsOf([&] { channel.setExpectedRate(1.0F); }), "Channel.setExpectedRate(1)");
    channel.setRemountMode(1);
    EXPECT_EQ(host.callsOf([&] { channel.setExpectedRate(2.0F); }),
              "ChannelExt.releaseBuffers, Channel.setExpectedRate(2), "
              "ChannelExt.allocateBuffers(true)");
    const std::string calls = host.callsOf([&] { channel.setBufferAttribute(1); });
    EXPECT_THAT(calls, StartsWith("ChannelExt.releaseBuffers, Channel.set"));
    EXPECT_THAT(calls, EndsWith(", ChannelExt.allocateBuffers(true)"));
}

TEST_F(OutputChannelTest, SynchronousChannelIsAlignedToTheAcquisition) {
    const auto offsetAt = [&](std::int64_t absolute, std::int32_t position) {
        behind.writePosition = position;
        behind.writeOffset = -1;
        channel.alignWritePosition(absolute);
        return behind.writeOffset;
    };
    behind.bufferSize = 10;
    behind.rateDivider = 4;
    EXPECT_EQ(offsetAt(30, 5), -1) << "an unused channel was aligned";
    behind.used = hostTrue;
    EXPECT_EQ(offsetAt(30, 5), 10);
    EXPECT_EQ(offsetAt(40 * 1000000000LL + 3, 9), 7) << "3 - 36 wraps at 40";
    behind.bufferSize = 2000000000;
    behind.rateDivider = 2000000000;
    EXPECT_EQ(offsetAt(5, 0), 5) << "the product is more than 32 bits";
    behind.singleValue = hostTrue;
    EXPECT_EQ(offsetAt(30, 5), -1) << "a single value was aligned";
    behind.singleValue = hostFalse;
    behind.rateDivider = 0;
    EXPECT_THROW(channel.alignWritePosition(1), std::domain_error);
}

}  // namespace
