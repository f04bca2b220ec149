#include "host/host_error.h"
#include "setup/xml_exception.h"
#include "tests/support/setup_tree.h"
#include "tests/sync/sync_rig.h"

namespace Kestrova::Utils::Kcom::Synchronization {
namespace {

using enum GNSSTimeStatus;

class GNSSSyncManagerTest : public SyncRig {
  protected:
    void tickAt(std::int32_t position) {
        host.data.position = position;
        manager.Tick();
    }
    /// The setup of the present clocks.
    std::shared_ptr<Serialization::Node> saved() {
        auto root = makeSetupTree("root");
        manager.Save(*root);
        return root;
    }
};

TEST_F(GNSSSyncManagerTest, ClockGetsTheLowestFreeIdAndTellsTheHostOfItself) {
    makeClock(pps);
    auto replaced = manager.CreateClock();
    makeClock(pps);
    manager.RemoveClock(replaced);
    EXPECT_FALSE(replaced);
    manager.SetNotifyHost(true);
    std::shared_ptr<GNSSClock> clock;
    EXPECT_EQ(host.callsOf([&] { clock = manager.GetClock(7); }),
              "App.getGnssDeviceList, GnssDeviceList.createDevice, "
              "GnssDevice.setDefaultSyncMode(12), GnssDevice.addSyncMode(12), "
              "GnssDevice.addSyncMode(2), GnssDevice.getSyncMode, App.notifyDevicesChanged");
    EXPECT_EQ(manager.GetClockId(clock), 1U) << "and not 7";
    EXPECT_EQ(host.callsOf([&] { clock->SetDeviceName("a"); }), "App.notifyDevicesChanged");
    host.script.failOperation("HostApp::notifyDevicesChanged", HostCode::failed);
    EXPECT_EQ(host.callsOf([&] { manager.RemoveClock(clock); }), "App.notifyDevicesChanged");
}

TEST_F(GNSSSyncManagerTest, WindowFollowsThePosition) {
    GNSSClockSwitchable& clock = makeClock(pps);
    host.data.sampleRate = 10.0;
    const auto expectWindow = [&](double start, double current, double limit) {
        EXPECT_EQ(statusAt(clock, start), Valid) << start;
        EXPECT_EQ(statusAt(clock, start - 1e-6), Discard) << start;
        EXPECT_EQ(statusAt(clock, current), Valid) << current;
        EXPECT_EQ(statusAt(clock, limit), limit > current ? Wait : Valid) << limit;
        EXPECT_EQ(statusAt(clock, limit + 1e-6), Discard) << limit;
    };
    manager.UpdateDevices(&host.gnssCollection);
    clock.SetTime(GNSSTime());
    tickAt(50);
    EXPECT_EQ(statusAt(clock, 5.0), Wait) << "nothing has begun";
    manager.EnableClocks();
    tickAt(50);
    EXPECT_EQ(statusAt(clock, 5.0), Valid) << "also without a restart before it";
    manager.UpdateDevices(&host.gnssCollection);
    clock.SetTime(GNSSTime());
    tickAt(50);
    EXPECT_EQ(statusAt(clock, 5.0), Valid) << "a change of the devices holds nothing back";
    for (const auto& [historyDepth, start] : {std::pair(10, 24.0), {600, 15.0}, {0, 24.9}}) {
        host.data.historyDepth = historyDepth;
        manager.RestartWithHold();
        clock.SetTime(GNSSTime());
        tickAt(50);
        expectWindow(0.0, 5.0, 10.0);
        tickAt(249);
        tickAt(250);
        expectWindow(start, 25.0, start + 10.0);
    }
    GNSSClockSwitchable& free = makeClock(soft);
    manager.RestartWithHold();
    free.SetTime(GNSSTime());
    tickAt(50);
    EXPECT_EQ(free.GetTime(GNSSTime()).reason, GNSSTimeReason::NotPlaced) << "no host time";
    clock.SetTime(GNSSTime());
    host.data.wrapCount = 3;
    host.data.bufferSize = 1000000000;
    tickAt(0);
    EXPECT_EQ(statusAt(clock, 5.0), Wait) << "3,000,000,000 samples are negative in 32 bits";
    host.data.wrapCount = 0;
    host.data.sampleRate = 0.0;
    tickAt(5);
    EXPECT_EQ(statusAt(clock, 5.0), Wait) << "a host without a rate loses nothing";
    host.data.historyDepth = 600;
    manager.RestartWithHold();
    clock.SetTime(GNSSTime());
    host.data.sampleRate = 10.0;
    tickAt(249);
    tickAt(250);
    expectWindow(24.9, 25.0, 34.9);  // the history is that of the last known rate
}

TEST_F(GNSSSyncManagerTest, LeadingClockHoldsAllBackUntilItHasATimeAndTheHostRuns) {
    GNSSClockSwitchable& leading = makeClock(pps, hostTrue);
    manager.UpdateDevices(&host.gnssCollection);
    const auto runs = [&] {
        return host.callsOf([&] { tickAt(9); }).ends_with("Data.getSampleRate");
    };
    EXPECT_FALSE(runs()) << "no time";
    leading.SetTime(GNSSTime(1, 1.0));
    host.gnssDevices.infos = {{1, L"antenna"}};
    EXPECT_FALSE(runs()) << "the host has a source, but no time either";
    host.app.setupMode = hostTrue;
    EXPECT_TRUE(runs());
    host.app.setupMode = hostFalse;
    manager.RestartWithHold();
    leading.SetTime(GNSSTime(1, 1.0));
    EXPECT_FALSE(runs());
    host.clock.seconds = 0.5;
    EXPECT_TRUE(runs());
}

TEST_F(GNSSSyncManagerTest, SetupFlagAndHoldValueDecideWhetherDataWaitsForTheClocks) {
    GNSSClockSwitchable& clock = makeClock(pps);
    const auto statusNow = [&] {
        clock.SetTime(GNSSTime());
        tickAt(5000);
        return statusAt(clock, 5.0);
    };
    for (const bool isSetup : {true, false}) {
        host.app.setupMode = toHostBool(isSetup);
        host.app.holdValue = isSetup ? 1 : 0;
        manager.RestartWithHold();
        EXPECT_EQ(statusNow(), isSetup ? Wait : Valid);
        manager.RestartWithAcceptAll();
        EXPECT_EQ(statusNow(), isSetup ? Valid : Wait);
    }
    manager.EnableClocks();
    EXPECT_EQ(statusNow(), Valid);
}

TEST_F(GNSSSyncManagerTest, ClocksAreNamedAndAttachedInOrderAndTheFirstSourceLeads) {
    EXPECT_EQ(manager.GetRequiredDelay(), 0.01F);
    EXPECT_THROW(manager.UpdateDevices(nullptr), HostCallException);
    for (const char* name : {"a", "b", "a", "a"}) {
        EXPECT_THAT(host.callsOf([&] { makeClock(pps).SetDeviceName(name); }),
                    testing::Not(testing::HasSubstr("notify")));
    }
    auto clocks = std::vector{manager.GetClock(1), manager.GetClock(2)};
    host.gnssDevices.devices[1]->clockSource = host.gnssDevices.devices[2]->clockSource = hostTrue;
    EXPECT_THAT(host.callsOf([&] { manager.UpdateDevices(&host.gnssCollection); }),
                testing::MatchesRegex(".*open..a - 1.*attach.*open..b.., .*attach.*open..a - 2.*"
                                      "attach.*open..a - 3.*attach.*getHistoryDepth"));
    const auto count = [&](std::uint32_t low) {
        std::uint32_t high = 0;
        manager.GetMasterSampleCount(low, high);
        return static_cast<std::int64_t>(std::uint64_t{high} << 32 | low);
    };
    constexpr std::uint32_t reduced = 0xFFFFFFFF;
    clocks[1]->SetTime(GNSSTime(0, 8.0));
    EXPECT_EQ(count(0), -1) << "the first one leads, and has no time";
    clocks[0]->SetTime(GNSSTime(0, 7.0));
    tickAt(1000);
    clocks[0]->SetTime(GNSSTime(0, 6.0));
    EXPECT_EQ(count(0), -1) << "before the start";
    clocks[0]->SetTime(GNSSTime(0, 17.0));
    host.data.reductionFactor = 3;
    host.data.sampleRate = 1000.53;
    EXPECT_EQ(std::pair(count(0), count(reduced)), std::pair(10005L, 1111L));
    host.data.sampleRate = 1000.56;
    EXPECT_EQ(std::pair(count(0), count(reduced)), std::pair(10006L, 1112L));
    host.data.reductionFactor = 0;
    EXPECT_EQ(count(reduced), 10006);
    host.data.sampleRate = 1e9;
    EXPECT_EQ(count(0) >> 32, 2);
    clocks[1]->SetDataDelay(0.01F);
    for (const float seconds : {10.1F, 10.0F, 0.009F}) {
        EXPECT_EQ(manager.GetRequiredDelay(), seconds == 0.009F ? 10.0F : 0.2F);
        clocks[0]->SetDataDelay(seconds);
    }
    EXPECT_EQ(std::pair(clocks[0]->GetDataDelay(), clocks[1]->GetDataDelay()),
              std::pair(10.0F, 0.01F));
    const auto removed = clocks[0];
    host.gnssDevices.devices[1]->clockSource = hostFalse;
    manager.UpdateDevices(&host.gnssCollection);
    EXPECT_TRUE(manager.IsMaster(clocks[1])) << "the first isn't a source any more";
    EXPECT_FALSE(manager.IsMaster(removed));
    EXPECT_EQ(manager.GetClockPosition(clocks[1]), 2);
    EXPECT_EQ(manager.GetClockPosition(nullptr), -1);
    manager.RemoveClock(clocks[1]);
    manager.RemoveClock(clocks[0]);
    EXPECT_FALSE(manager.HasMaster());
    EXPECT_EQ(count(0), -1);
    EXPECT_EQ(manager.GetClockId(removed), 0xFFFFFFFFU);
}

TEST_F(GNSSSyncManagerTest, SetupKeepsIdsOrderModesAndSources) {
    auto first = manager.CreateClock();
    makeClock(pps, hostTrue);
    makeClock(pps);
    manager.RemoveClock(first);
    makeClock(7, hostTrue);  // an unknown mode is saved as soft sync, and loaded without a source
    const auto setup = saved();
    const std::string text = toText(*setup);
    const std::string loaded =
        text.substr(0, text.find("0\">")) + "0\" />\n  </GNSSSyncManager>\n</root>\n";
    EXPECT_THAT(text, testing::MatchesRegex(".*\"1\".*12.*True.*\"2\".*12.*\"0\".*True.*"));
    const auto add = [&](const char* id, const char* mode) {
        const auto clock = setup->GetChild("GNSSSyncManager")->AddChild("GNSSClock");
        clock->AddAttribute("Id", id);
        clock->WriteValue("SyncMode", mode, "");
    };
    add("x", "12");
    add("2", "2");
    manager.Load(*setup);
    EXPECT_EQ(manager.GetClock(1)->GetState().mode, GNSSClockMode::PPSMaster);
    EXPECT_TRUE(manager.HasMaster());
    EXPECT_EQ(toText(*saved()), loaded);
    add("5", "abc");
    EXPECT_THROW(manager.Load(*setup), Serialization::XmlException);
    EXPECT_FALSE(manager.HasMaster());
    EXPECT_EQ(toText(*saved()), loaded) << "those before it stay";
    setup->ClearChildren();
    manager.Load(*setup);
    EXPECT_EQ(manager.GetClockId(manager.GetClock(1)), 0U) << "there were none";
}

}  // namespace
}  // namespace Kestrova::Utils::Kcom::Synchronization
