#include "bridge/output/output_channel_impl.h"

#include <regex>
#include <tuple>

#include "bridge/output/axis_properties.h"
#include "station/document/setup_document.h"
#include "station/host/station_channel.h"
#include "tests/bridge/bridge_rig.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using OutputChannel::OutputChannelImpl;
using OutputChannel::ValueLabel;

class OutputChannelTest : public BridgeTest {
  protected:
    OutputChannelTest() { channel.attachHostChannel(CountedRef<HostChannel>(&behind)); }

    ScriptedChannel& behind = host.makeChannel({8, 0, 5});
    OutputChannelImpl channel{factory, app};
};

/// The same at a channel of the station, which keeps labels and documents.
class OutputChannelOfStationTest : public OutputChannelTest {
  protected:
    OutputChannelOfStationTest() {
        const station::ChannelEnvironment environment{1000.0,
                                                      makeObject<station::SetupDocumentFactory>()};
        channel.attachHostChannel(
            makeObject<station::StationChannel>(std::vector<std::int32_t>{8, 0, 5}, environment));
    }
};

TEST_F(OutputChannelTest, NewDefaultChangesOnlyWhatTheUserLeft) {
    const auto changedTo = [&](const char* name, const char* unit, std::uint32_t color) {
        channel.setDefaultName(name);
        channel.setDefaultUnit(unit);
        channel.setDefaultColor(color);
        return std::tuple(channel.isAutomaticName(), behind.name, channel.isAutomaticUnit(),
                          behind.unit, channel.isAutomaticColor(), behind.color);
    };
    EXPECT_EQ(changedTo("a", "V", 1), std::tuple(true, L"a", true, L"V", true, 1U));
    behind.name = L"A";
    behind.unit = L"v";
    channel.setColor(2);
    EXPECT_EQ(changedTo("b", "W", 3), std::tuple(false, L"A", false, L"v", false, 2U));
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
    EXPECT_EQ(offsetAt(60, 5), 0) << "it is where it should be";
    EXPECT_EQ(offsetAt(40 * 1000000000LL + 3, 9), 7) << "3 - 36 wraps at 40";
    behind.bufferSize = behind.rateDivider = 2000000000;
    EXPECT_EQ(offsetAt(5, 0), 5) << "the product is more than 32 bits";
    behind.rateDivider = 0;
    EXPECT_THROW(channel.alignWritePosition(1), std::domain_error);
    behind.singleValue = hostTrue;
    EXPECT_EQ(offsetAt(30, 5), -1) << "a single value was aligned";
}

TEST_F(OutputChannelTest, BuffersAreReleasedAroundAChangeInRemountModeOnly) {
    channel.setRemountMode(2);
    EXPECT_EQ(host.callsOf([&] { channel.setExpectedRate(1); }), "Channel.setExpectedRate(1)");
    channel.setRemountMode(1);
    EXPECT_EQ(host.callsOf([&] { channel.setExpectedRate(3), channel.setBufferAttribute(4); }),
              "ChannelExt.releaseBuffers, Channel.setExpectedRate(3), "
              "ChannelExt.allocateBuffers(true), ChannelExt.releaseBuffers, "
              "Channel.setBufferAttribute(4), ChannelExt.allocateBuffers(true)");
    const std::vector<std::int32_t> indices = {4, 5};
    EXPECT_EQ(host.callsOf([&] { channel.setChannelIndices(indices); }),
              "Channel.setIndexFormat(2), Channel.setIndexCount(4), Channel.setIndices([4 5])");
    EXPECT_EQ(channel.samplesToSeconds(250), 0.25) << "at 1000 samples a second";
}

TEST_F(OutputChannelTest, EachAttributeIsTheHostsOwn) {
    channel.setDoubleAttributeA(1.5);
    channel.setDoubleAttributeB(2.5);
    channel.setDoubleAttributeC(3.5);
    channel.setDoubleAttributeD(4.5);
    channel.setExtDoubleAttributeA(5.5);
    channel.setExtDoubleAttributeB(6.5);
    EXPECT_THAT((std::vector{channel.getDoubleAttributeA(), channel.getDoubleAttributeB(),
                             channel.getDoubleAttributeC(), channel.getDoubleAttributeD(),
                             channel.getExtDoubleAttributeA(), channel.getExtDoubleAttributeB()}),
                testing::ElementsAre(1.5, 2.5, 3.5, 4.5, 5.5, 6.5));
    channel.setIntAttributeA(1);
    channel.setIntAttributeB(2);
    channel.setExtIntAttribute(3);
    EXPECT_THAT((std::vector{channel.getIntAttributeA(), channel.getIntAttributeB(),
                             channel.getExtIntAttribute()}),
                testing::ElementsAre(1, 2, 3));
    channel.setBoolAttributeA(true);
    EXPECT_TRUE(channel.getBoolAttributeA() && !channel.getBoolAttributeB());
    channel.setBoolAttributeB(true);
    EXPECT_TRUE(channel.getBoolAttributeB());
}

TEST_F(OutputChannelOfStationTest, LabelsAreFoundByValueAndByPlace) {
    const ValueLabel off{0, "off", 1}, on{1, "\xC3\xA4", 2}, odd{1, "odd", 3}, added{7, "new", 4};
    channel.setValueLabels({off});
    channel.setValueLabels({off, odd});
    channel.addValueLabel(odd);
    channel.setValueLabel(on);
    channel.setValueLabel(added);
    EXPECT_THAT(channel.getValueLabels(), testing::ElementsAre(off, on, odd, added));
    const auto found = channel.getValueLabel(1), none = channel.getValueLabel(2);
    EXPECT_EQ(std::tie(found.found, found.text, found.color), std::tuple(true, on.text, 2));
    EXPECT_EQ(std::tie(none.found, none.text, none.color), std::tuple(false, "", 0xFFFFFF));
    channel.removeValueLabel(0);
    channel.replaceValueLabelAt(2, off);
    channel.removeValueLabelAt(0);
    EXPECT_THAT(channel.getValueLabels(), testing::ElementsAre(odd, off));
    EXPECT_THROW(channel.removeValueLabelAt(2), std::out_of_range);
    channel.clearValueLabels();
    EXPECT_EQ(channel.getValueLabelCount(), 0);
}

TEST_F(OutputChannelTest, AxesAreWrittenToTheirCommittedDimensions) {
    const auto callsOf = [&](auto action) {
        const std::regex interfaces("A(rray|xis)(Info|Display)\\.(set)?");
        return std::regex_replace(host.callsOf(action), interfaces, "");
    };
    const auto shape = [&] {
        return std::tuple(channel.isArray(), channel.getDimensionCount(),
                          channel.getFirstDimensionSize(), channel.getSecondDimensionSize());
    };
    EXPECT_EQ(shape(), std::tuple(false, 1, 1, 1));
    AxisPropertiesString texts;
    texts.setSize(2);
    texts.setValue(1, "\xC3\xA4");
    texts.setLabelA("A");
    texts.setLabelB("B");
    EXPECT_THAT(
        callsOf([&] { channel.setAxis(texts); }),
        testing::EndsWith("Flag(false), DimensionCount(1), DimensionSize(0, 2), commitDimensions, "
                          "getAxis(0), AxisType(0), LabelB(\"B\"), LabelA(\"A\"), Style(3), "
                          "getDisplay, Value(0), getDisplay, Flag(false), TextValue(0, \"\"), "
                          "TextValue(1, \"\xC3\xA4\")"));
    EXPECT_EQ(shape(), std::tuple(true, 1, 2, 1));
    AxisPropertiesFloat numbers;
    numbers.setSize(1);
    numbers.setValue(0, 7.5);
    numbers.setSize(2);
    numbers.setValue(1, 2.5);
    numbers.setStyle(0);
    numbers.setStyle(-1);
    numbers.setDisplayValue(9);
    numbers.setDisplayFlag(true);
    AxisPropertiesFloatLinearFunc line;
    line.setSize(5);
    line.setStart(1.5);
    line.setStep(0.5);
    channel.setRemountMode(1);
    EXPECT_EQ(
        callsOf([&] { channel.setAxes(numbers, line, true); }),
        "ChannelExt.releaseBuffers, Channel.setIsArray(true), Channel.getArrayInfo, Flag(true), "
        "DimensionCount(2), DimensionSize(0, 2), DimensionSize(1, 5), commitDimensions, "
        "getAxis(0), AxisType(1), LabelB(\"-\"), LabelA(\"-\"), Style(0), getDisplay, Value(9), "
        "getDisplay, Flag(true), NumericValue(0, 0), NumericValue(1, 2.5), "
        "getAxis(1), AxisType(2), LabelB(\"-\"), LabelA(\"-\"), Style(3), getDisplay, Value(0), "
        "getDisplay, Flag(false), Start(1.5), Step(0.5), ChannelExt.allocateBuffers(true)");
    EXPECT_EQ(shape(), std::tuple(true, 2, 2, 5));
    EXPECT_EQ(AxisPropertiesFloatLinearFunc().getSize() + AxisPropertiesFloat().getSize(), 0U);
    line.setSize(0x7FFFFFFF);
    EXPECT_THAT(callsOf([&] { channel.setAxis(line); }),
                testing::HasSubstr("DimensionSize(0, 2147483647)"));
    line.setSize(0x80000000);
    EXPECT_EQ(hostCodeOf([&] { channel.setAxes(texts, line); }), HostCode::invalidArgument);
    struct Unknown final : AxisPropertiesAxisValues<int> {
        std::int32_t getAxisType() const override { return 3; }
    };
    EXPECT_THAT(callsOf([&] { channel.setAxis(Unknown()); }), testing::HasSubstr("AxisType(0)"));
}

TEST_F(OutputChannelOfStationTest, PropertiesAreTreesByName) {
    auto& properties = channel.getProperties();
    EXPECT_FALSE(properties.getNode("a") || properties.getChildNode("a", {}));
    properties.addNode("a")->SetText("text");
    EXPECT_EQ(properties.getChildNode("a", properties.addNode("b"))->GetName(), "a");
    EXPECT_EQ(properties.getNode("a")->GetText(), "text");
    EXPECT_EQ(properties.getNode("a")->GetChild(0)->GetName(), "b");
    channel.attachHostChannel(nullptr);
    EXPECT_EQ(hostCodeOf([&] { properties.getNode("a"); }), HostCode::invalidPointer);
}

}  // namespace
