#include "bridge/output/output_channel_impl.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "bridge/output/axis_properties.h"
#include "tests/bridge/bridge_bench.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using OutputChannel::OutputChannelImpl;
using OutputChannel::ValueLabel;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

class OutputChannelTest : public BridgeTest {
  protected:
    OutputChannelTest() { channel.attachHostChannel(CountedRef<HostChannel>(&behind)); }

    ScriptedChannel& behind = host.makeChannel({8, 0, 5});
    OutputChannelImpl channel{factory, app};
};

TEST_F(OutputChannelTest, AttachingDescribesTheChannelByItsDefaults) {
    OutputChannelImpl other(factory, app);
    EXPECT_EQ(other.getIndex(), 0xFFFFFFFFU);
    EXPECT_EQ(callsOf([&] { other.attachHostChannel(channel.getHostChannel()); }),
              "Channel.setName(\"Channel\"), Channel.setUnit(\"\"), Channel.setColor(65535), "
              "Channel.getPropertySet, App.isSetupMode, Channel.isUsed");
    EXPECT_EQ(callsOf([&] { other.attachHostChannel(nullptr); }), "");
    EXPECT_EQ(hostCodeOf([&] { other.getName(); }), HostCode::invalidPointer);
    EXPECT_EQ(hostCodeOf([&] { other.allocateBuffers(); }), HostCode::invalidPointer);
    EXPECT_EQ(hostCodeOf([&] { other.addVariantSample("", 1, 0.0); }), HostCode::invalidPointer);
}

TEST_F(OutputChannelTest, EachAttributeReachesItsOwnOperation) {
    const auto setAll = [&] {
        channel.setName("\xC3\xA4");
        channel.setTextAttribute("t");
        channel.setExtTextAttribute("e");
        channel.setUnit("V");
        channel.setUsed(true);
        channel.setBoolAttributeA(true);
        channel.setBoolAttributeB(false);
        channel.setColor(6);
        channel.setDoubleAttributeA(1.5);
        channel.setDoubleAttributeB(2.5);
        channel.setDoubleAttributeC(3.5);
        channel.setDoubleAttributeD(4.5);
        channel.setScalarAttribute(5.5);
        channel.setIntAttributeA(-6);
        channel.setIntAttributeB(-7);
        channel.setExtIntAttribute(-8);
        channel.setExtDoubleAttributeA(9.5);
        channel.setExtDoubleAttributeB(10.5);
        channel.setExpectedRate(11.5F);
        channel.setBufferAttribute(12);
        channel.setChannelIndices({3, 4});
    };
    EXPECT_EQ(
        callsOf(setAll),
        "Channel.setName(\"\xC3\xA4\"), Channel.setTextAttribute(\"t\"), "
        "ChannelExt.setTextAttribute(\"e\"), Channel.setUnit(\"V\"), Channel.setUsed(true), "
        "Channel.setBoolAttributeA(true), Channel.setBoolAttributeB(false), Channel.setColor(6), "
        "Channel.setDoubleAttributeA(1.5), Channel.setDoubleAttributeB(2.5), "
        "Channel.setDoubleAttributeC(3.5), Channel.setDoubleAttributeD(4.5), "
        "Channel.setScalarAttribute(5.5), Channel.setIntAttributeA(-6), "
        "Channel.setIntAttributeB(-7), ChannelExt.setExtIntAttribute(-8), "
        "ChannelExt.setExtDoubleAttributeA(9.5), ChannelExt.setExtDoubleAttributeB(10.5), "
        "Channel.setExpectedRate(11.5), Channel.setBufferAttribute(12), "
        "Channel.setIndexFormat(2), Channel.setIndexCount(4), Channel.setIndices([3 4])");
    behind.textAttributeB = L"b";
    behind.textAttributeC = L"c";
    behind.intAttributeC = 13;
    behind.rateDivider = 14;
    EXPECT_EQ(channel.getName() + channel.getTextAttribute() + channel.getTextAttributeB() +
                  channel.getTextAttributeC() + channel.getUnit() + channel.getChannelIdText(),
              "\xC3\xA4tbcV3:4");
    EXPECT_TRUE(channel.isUsed() && channel.getBoolAttributeA() && !channel.getBoolAttributeB());
    EXPECT_THAT((std::vector{channel.getDoubleAttributeA(), channel.getDoubleAttributeB(),
                             channel.getDoubleAttributeC(), channel.getDoubleAttributeD(),
                             channel.getExtDoubleAttributeA(), channel.getExtDoubleAttributeB(),
                             double{channel.getExpectedRate()}}),
                ElementsAre(1.5, 2.5, 3.5, 4.5, 9.5, 10.5, 11.5));
    EXPECT_THAT((std::vector{channel.getIntAttributeA(), channel.getIntAttributeB(),
                             channel.getExtIntAttribute(), channel.getIntAttributeC(),
                             channel.getRateDivider()}),
                ElementsAre(-6, -7, -8, 13, 14));
    EXPECT_EQ(channel.getBufferAttribute(), 2 * channel.getColor());
    host.data.sampleRate = 500.0;
    EXPECT_EQ(channel.samplesToSeconds(-250), -0.5);
}

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

TEST_F(OutputChannelTest, LabelsAreFoundByTheirFirstValue) {
    EXPECT_FALSE(channel.getValueLabel(1).found);
    EXPECT_EQ(channel.getValueLabel(1).color, 0xFFFFFF);
    channel.addValueLabel({9, "old", 0});
    channel.setValueLabels({{1, "on", 10}, {2, "off", 20}, {1, "again", 30}});
    channel.setValueLabel({1, "ON", 11});
    channel.setValueLabel({3, "\xC3\xBC", 40});
    EXPECT_EQ(channel.getValueLabels(),
              (std::vector<ValueLabel>{
                  {1, "ON", 11}, {2, "off", 20}, {1, "again", 30}, {3, "\xC3\xBC", 40}}));
    EXPECT_EQ(channel.getValueLabel(1).text, "ON");
    channel.removeValueLabel(1);
    channel.removeValueLabel(99);
    channel.removeValueLabelAt(2);
    channel.replaceValueLabelAt(0, {7, "x", 70});
    EXPECT_EQ(channel.getValueLabels(), (std::vector<ValueLabel>{{7, "x", 70}, {1, "again", 30}}));
    EXPECT_THROW(channel.removeValueLabelAt(2), std::out_of_range);
    EXPECT_THROW(channel.replaceValueLabelAt(0x100000000, {}), std::out_of_range);
    EXPECT_THAT(callsOf([&] { channel.clearValueLabels(); }), EndsWith("removeItem(0)"));
    EXPECT_EQ(channel.getValueLabelCount(), 0);
}

TEST_F(OutputChannelTest, ArrayIsMadeDimensionByDimension) {
    AxisPropertiesFloatLinearFunc first;
    AxisPropertiesString second;
    first.setSize(3);
    second.setSize(1);
    EXPECT_THAT(
        callsOf([&] { channel.setAxes(first, second, true); }),
        StartsWith("Channel.setIsArray(true), Channel.getArrayInfo, ArrayInfo.setFlag(true), "
                   "ArrayInfo.setDimensionCount(2), ArrayInfo.setDimensionSize(0, 3), "
                   "ArrayInfo.setDimensionSize(1, 1), ArrayInfo.commitDimensions, "
                   "ArrayInfo.getAxis(0), AxisInfo.setAxisType(2)"));
    EXPECT_EQ(behind.arrayInfo.axes.at(1)->type, 0);
    EXPECT_THAT((std::vector{channel.getDimensionCount(), channel.getFirstDimensionSize(),
                             channel.getSecondDimensionSize()}),
                ElementsAre(2, 3, 1));
    channel.setAxis(first);
    EXPECT_EQ(behind.arrayInfo.flag, hostFalse);
    EXPECT_EQ(channel.getSecondDimensionSize(), 1);
    first.setSize(0x80000000);
    EXPECT_EQ(hostCodeOf([&] { channel.setAxis(first); }), HostCode::invalidArgument);
    EXPECT_THAT(behind.arrayInfo.sizes, ElementsAre(3)) << "a size was cut";
}

TEST_F(OutputChannelTest, BuffersAreReleasedAroundAChangeInRemountModeOnly) {
    channel.setRemountMode(2);
    EXPECT_EQ(callsOf([&] { channel.setExpectedRate(1.0F); }), "Channel.setExpectedRate(1)");
    channel.setRemountMode(1);
    EXPECT_EQ(callsOf([&] { channel.setExpectedRate(2.0F); }),
              "ChannelExt.releaseBuffers, Channel.setExpectedRate(2), "
              "ChannelExt.allocateBuffers(true)");
    for (const std::string& calls : {callsOf([&] { channel.setBufferAttribute(1); }),
                                     callsOf([&] { channel.setAxis(AxisPropertiesFloat()); })}) {
        EXPECT_THAT(calls, StartsWith("ChannelExt.releaseBuffers, Channel.set"));
        EXPECT_THAT(calls, EndsWith(", ChannelExt.allocateBuffers(true)"));
    }
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
