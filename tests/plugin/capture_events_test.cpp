#include "tests/plugin/plugin_bench.h"

namespace {

/// What the capture thread does between the events.
class CaptureEventsTest : public PluginTest {
  protected:
    CaptureEventsTest() { equip({DeviceTypeInfo::canComboId}); }

    /// How many interfaces the event tries to open, and how many are open.
    std::string captureAfter(std::int32_t number) {
        port.calls.clear();
        EXPECT_EQ(event(number), "0");
        return std::to_string(port.calls.size()) + " tried, " + std::to_string(port.openHandles) +
               " open";
    }
};

TEST_F(CaptureEventsTest, OnlyTheStartOfAMeasurementOpensInterfaces) {
    port.add("if1", {});
    port.interfaces[1].endless = std::ref(feed);
    port.interfaces[1].openFails = true;
    EXPECT_EQ(captureAfter(130), "0 tried, 0 open");
    EXPECT_EQ(captureAfter(105), "2 tried, 1 open");
    port.interfaces[1].openFails = false;
    EXPECT_EQ(captureAfter(130), "0 tried, 1 open");
    EXPECT_EQ(captureAfter(105), "2 tried, 2 open");
}

TEST_F(CaptureEventsTest, FramesReachChannelsOnlyBetweenStartAndEndAndAfterTheClocksAreEnabled) {
    EXPECT_EQ(startMeasurement(), "0");
    EXPECT_EQ(deliver(3), 3);
    EXPECT_EQ(event(130), "0");
    EXPECT_EQ(deliver(3), 0) << "in status mode data goes nowhere";
    EXPECT_EQ(event(105), "0");
    EXPECT_EQ(deliver(2), 2);
    EXPECT_EQ(plugin->onStartAcquisition(), 0);
    EXPECT_EQ(deliver(2), 0) << "held back";
    EXPECT_EQ(event(156), "0");
    EXPECT_EQ(deliver(0), 2);
}

}  // namespace
