#include "tests/plugin/plugin_bench.h"

namespace {

/// The calls that the plug-in makes at the host, in their order, with seven channels and a module
/// on a pulse per second, and what the capture thread does meanwhile.
class HostCallsTest : public PluginTest {
  protected:
    HostCallsTest() { equip({DeviceTypeInfo::canComboId}); }

    static std::string sevenTimes(const std::string& calls) {
        std::string text;
        for (int i = 0; i < 7; ++i) {
            text += calls + ' ';
        }
        return text;
    }
    const std::string position = "App.getData Data.getBufferState App.getData Data.getWrapCount";
    const std::string restart = "App.getData Data.getSampleRate Data.getHistoryDepth";
    const std::string window =
        "App.getData Data.getWrapCount Data.getBufferState Data.getSampleRate";
    const std::string startTime = "App.getData Data.getStartTime";

    /// How many interfaces the event tries to open, and how many are open.
    std::string captureAfter(std::int32_t number) {
        port.calls.clear();
        EXPECT_EQ(event(number), "0");
        return std::to_string(port.calls.size()) + " tried, " + std::to_string(port.openHandles) +
               " open";
    }
};

TEST_F(HostCallsTest, StartRefreshesTheChannelsAndThenRestartsTheClocks) {
    const std::string calls = callsOf([&] { plugin->onStartAcquisition(); });
    EXPECT_EQ(calls, sevenTimes("App.isSetupMode channels") + "App.isSetupMode " + restart +
                         " App.isSetupMode");
    EXPECT_EQ(callsOf([&] { plugin->position20(); }), calls);
}

TEST_F(HostCallsTest, PreparationRestartsTheClocksAndLeavesTheChannels) {
    EXPECT_EQ(callsOf([&] { plugin->onPrepareAcquisition(); }), "App.getHoldValue " + restart);
}

TEST_F(HostCallsTest, PeriodicCallReadsMovesTheWindowWritesAndAligns) {
    startMeasurement();
    const std::string first = callsOf([&] { EXPECT_EQ(deliver(1), 1); });
    const std::string read = "App.isSetupMode " + position + ' ';
    EXPECT_EQ(first, "channels " + read +
                         "App.getGnssDeviceList GnssDeviceList.getCount App.isSetupMode " + window +
                         ' ' + startTime + " channels " + position + " channels");
    const std::string later = callsOf([&] { plugin->onGetData(); });
    EXPECT_EQ(later, read + window + ' ' + startTime + ' ' + position + " channels");
    EXPECT_EQ(callsOf([&] { plugin->position30(); }), later);
}

TEST_F(HostCallsTest, PeriodicCallDoesAllOfThisWithoutModulesToo) {
    EXPECT_EQ(settings(newDocument(), false), "0");
    EXPECT_EQ(plugin->onClearSetup(), 0);
    plugin->onGetData();
    EXPECT_EQ(callsOf([&] { plugin->onGetData(); }),
              "App.isSetupMode " + position + ' ' + window + ' ' + position);
}

TEST_F(HostCallsTest, ClearedSetupMountsNewChannelsWithoutTellingOfThem) {
    const std::string isFixed = "App.getData Data.isChannelSetFixed";
    EXPECT_EQ(callsOf([&] { plugin->onClearSetup(); }),
              sevenTimes("channels " + isFixed + " channels App.isSetupMode channels " + isFixed) +
                  "channels " + isFixed);
}

TEST_F(HostCallsTest, DisconnectLetsGoOfTheHostsChannelsWithoutACall) {
    EXPECT_EQ(callsOf([&] { EXPECT_EQ(plugin->onDisconnectChannels(), 0); }), "");
    for (const auto* const channel : host.groupOfPlugins.mounted) {
        EXPECT_EQ(channel->references(), 0);
    }
    EXPECT_EQ(outcomeOf([&] { return plugin->onClearSetup(); }), "0");
}

TEST_F(HostCallsTest, OnlyTheStartOfAMeasurementOpensInterfaces) {
    port.add("if1", {});
    port.interfaces[1].endless = std::ref(feed);
    port.interfaces[1].openFails = true;
    EXPECT_EQ(captureAfter(130), "0 tried, 0 open");
    EXPECT_EQ(captureAfter(105), "2 tried, 1 open");
    port.interfaces[1].openFails = false;
    EXPECT_EQ(captureAfter(130), "0 tried, 1 open");
    EXPECT_EQ(captureAfter(105), "2 tried, 2 open");
}

TEST_F(HostCallsTest, FramesReachChannelsOnlyBetweenStartAndEndAndAfterTheClocksAreEnabled) {
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
