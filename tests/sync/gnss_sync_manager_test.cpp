#include "host/host_error.h"
#include "setup/xml_exception.h"
#include "tests/support/memory_node.h"
#include "tests/sync/sync_bench.h"

namespace Kestrova::Utils::Kcom::Synchronization {
namespace {

using enum GNSSTimeStatus;

class GNSSSyncManagerTest : public SyncBench {
  protected:
    void tickAt(std::int32_t position) {
        host.data.position = position;
        manager->Tick();
    }
    /// The leading clock's samples, asked for with this in the low half.
    std::uint64_t sampleCount(std::uint32_t low) {
        std::uint32_t high = 1;
        manager->GetMasterSampleCount(low, high);
        return std::uint64_t{high} << 32U | low;
    }
    /// The setup of the present clocks.
    std::shared_ptr<Serialization::Node> saved() {
        auto root = Serialization::MemoryNode::createDocument("root", true);
        manager->Save(*root);
        return root;
    }
    static constexpr std::uint32_t none = GNSSSyncManagerImpl::noSampleCount;
};

TEST_F(GNSSSyncManagerTest, ClockGetsTheLowestFreeIdAndTellsTheHostOfItself) {
    makeClock(pps);
    auto replaced = manager->CreateClock();
    makeClock(pps);
    manager->RemoveClock(replaced);
    EXPECT_FALSE(replaced);
    manager->SetNotifyHost(true);
    std::shared_ptr<GNSSClock> clock;
    EXPECT_EQ(callsOf([&] { clock = manager->GetClock(7); }),
              "getGnssDeviceList() createDevice() setDefaultSyncMode(12) addSyncMode(12) "
              "addSyncMode(2) getSyncMode() notifyDevicesChanged() ");
    EXPECT_EQ(manager->GetClockId(clock), 1U) << "and not 7";
    EXPECT_EQ(callsOf([&] { clock->SetDeviceName("a"); }), "notifyDevicesChanged() ");
    host.script.failOperation("HostApp::notifyDevicesChanged", HostCode::failed);
    EXPECT_EQ(callsOf([&] { manager->RemoveClock(clock); }), "notifyDevicesChanged() ");
}

TEST_F(GNSSSyncManagerTest, ClocksGetPlacesUnderNamesOfTheirOwnAndTheFirstSourceLeads) {
    makeClock(soft, hostTrue);
    makeClock(pps).SetDeviceName("M\xC3\xBCller");
    makeClock(pps, hostTrue).SetDataDelay(0.5F);
    makeClock(pps, hostTrue);
    const std::string attach = "attach(HostGnssDevice) getSyncMode() ";
    EXPECT_EQ(callsOf([&] { manager->UpdateDevices(&host.gnssCollection); }),
              "open(\"GNSS-Device - 1\") " + attach +                              //
                  "open(\"M\xC3\xBCller\") " + attach + "getClockSource() " +      //
                  "open(\"GNSS-Device - 2\") " + attach + "getClockSource() " +    //
                  "open(\"GNSS-Device - 3\") " + attach + "getClockSource() " +    //
                  "getSyncMode() getSyncMode() getClockSource() getSyncMode() " +  // who leads
                  "getClockSource() getData() getSampleRate() getHistoryDepth() ");
    EXPECT_EQ(manager->GetRequiredDelay(), 0.5F);
    EXPECT_TRUE(manager->HasMaster());
    auto leading = manager->GetClock(2);
    manager->RemoveClock(leading);
    EXPECT_FALSE(manager->HasMaster()) << "another one could lead, but wasn't asked";
}

TEST_F(GNSSSyncManagerTest, TickStartsEachRelationAndThenMovesItsWindow) {
    makeClock(7, hostTrue);  // an unknown mode is soft sync
    makeClock(pps, 1);       // 1 is not the host's true
    makeClock(pps, hostTrue);
    const std::string start =
        "getGnssDeviceList() getCount() isSetupMode() getMasterClock() getTimeSeconds() "
        "isSetupMode() isSetupMode() getData() setStartTime(29226) ";
    const std::string move =
        "getData() getWrapCount() getBufferState() getSampleRate() getMasterClock() "
        "getTimeSeconds() getMasterClock() getTimeSeconds() getData() getStartTime() ";
    EXPECT_EQ(callsOf([&] { manager->Tick(); }), start + move);
    EXPECT_EQ(callsOf([&] { manager->Tick(); }), move);
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
    for (const auto& [historyDepth, start] : {std::pair(10, 24.0), {600, 15.0}, {0, 24.9}}) {
        host.data.historyDepth = historyDepth;
        manager->RestartWithHold();
        clock.SetTime(GNSSTime());
        tickAt(50);
        expectWindow(0.0, 5.0, 10.0);
        tickAt(249);
        tickAt(250);
        expectWindow(start, 25.0, start + 10.0);
    }
    host.data.wrapCount = 3;
    host.data.bufferSize = 1000000000;
    tickAt(0);
    EXPECT_EQ(statusAt(clock, 5.0), Wait) << "3,000,000,000 samples are negative in 32 bits";
    host.data.sampleRate = 0.0;
    tickAt(0);
    EXPECT_EQ(statusAt(clock, 5.0), Wait) << "a host without a rate loses nothing";
}

TEST_F(GNSSSyncManagerTest, LeadingClockHoldsAllBackUntilItHasATimeAndTheHostRuns) {
    GNSSClockSwitchable& leading = makeClock(pps, hostTrue);
    manager->UpdateDevices(&host.gnssCollection);
    const auto runs = [&] { return callsOf([&] { tickAt(9); }).ends_with("getSampleRate() "); };
    EXPECT_FALSE(runs()) << "no time";
    leading.SetTime(GNSSTime(1, 1.0));
    host.gnssDevices.infos = {{1, L"antenna"}};
    EXPECT_FALSE(runs()) << "the host has a source, but no time either";
    host.app.setupMode = hostTrue;
    EXPECT_TRUE(runs());
    host.app.setupMode = hostFalse;
    manager->RestartWithHold();
    leading.SetTime(GNSSTime(1, 1.0));
    EXPECT_FALSE(runs());
    host.clock.seconds = 0.5;
    EXPECT_TRUE(runs());
}

TEST_F(GNSSSyncManagerTest, RestartsTakeFromTheHostWhetherDataIsHeld) {
    GNSSClockSwitchable& clock = makeClock(pps);
    const auto statusAfter = [&](auto restart) {
        (*manager.*restart)();
        clock.SetTime(GNSSTime());
        tickAt(1000);
        return statusAt(clock, 0.5);
    };
    EXPECT_EQ(statusAfter(&GNSSSyncManagerImpl::RestartWithHold), Valid);
    host.app.holdValue = 1;
    EXPECT_EQ(statusAfter(&GNSSSyncManagerImpl::RestartWithHold), Wait);
    EXPECT_EQ(statusAfter(&GNSSSyncManagerImpl::RestartWithAcceptAll), Wait);
    manager->EnableClocks();
    EXPECT_EQ(statusAt(clock, 0.5), Valid);
    host.app.setupMode = hostTrue;
    EXPECT_EQ(statusAfter(&GNSSSyncManagerImpl::RestartWithAcceptAll), Valid);
}

TEST_F(GNSSSyncManagerTest, SampleCountIsThatOfTheLeadingClock) {
    GNSSClockSwitchable& leading = makeClock(pps, hostTrue);
    manager->UpdateDevices(&host.gnssCollection);
    EXPECT_EQ(sampleCount(0), ~std::uint64_t{0}) << "no time";
    leading.SetTime(GNSSTime(0, 500000.0));  // the origin is still the start of week 0
    host.data.sampleRate = 10000.0;
    host.data.reductionFactor = 3;
    EXPECT_EQ(sampleCount(0) / 10, 500000000U) << "more than 32 bits";
    EXPECT_EQ(sampleCount(none), 555555555U) << "the square of the factor";
    host.data.reductionFactor = 0;
    EXPECT_EQ(sampleCount(none) / 10, 500000000U);
}

TEST_F(GNSSSyncManagerTest, SetupKeepsIdsOrderModesAndSources) {
    auto first = manager->CreateClock();
    makeClock(pps, hostTrue);
    makeClock(pps);
    manager->RemoveClock(first);
    makeClock(7, hostTrue);  // an unknown mode is saved as soft sync, and loaded without a source
    const auto setup = saved();
    const std::string text = toText(*setup);
    EXPECT_THAT(text, testing::MatchesRegex(".*\"1\".*12.*True.*\"2\".*12.*\"0\".*True\n"));
    const auto add = [&](const char* id, const char* mode) {
        const auto clock = setup->GetChild("GNSSSyncManager")->AddChild("GNSSClock");
        clock->AddAttribute("Id", id);
        clock->WriteValue("SyncMode", mode, "");
    };
    add("x", "12");
    add("2", "2");
    manager->Load(*setup);
    EXPECT_TRUE(manager->HasMaster());
    EXPECT_EQ(toText(*saved()) + "      ClockSource = True\n", text);
    add("5", "abc");
    EXPECT_THROW(manager->Load(*setup), Serialization::XmlException);
    EXPECT_FALSE(manager->HasMaster());
    EXPECT_EQ(toText(*saved()) + "      ClockSource = True\n", text) << "those before it stay";
    setup->ClearChildren();
    manager->Load(*setup);
    EXPECT_EQ(manager->GetClockId(manager->GetClock(1)), 0U) << "there were none";
}

TEST_F(GNSSSyncManagerTest, EachHostCallMayFailOnceAndTheNextRunIsGood) {
    makeClock(soft);
    makeClock(pps, hostTrue);
    makeClock(pps);
    const auto setup = saved();
    host.gnssDevices.infos = {{1, L"antenna"}};
    host.clock.seconds = 0.5;
    const auto wholeLife = [&] {
        manager->Load(*setup);
        manager->CreateClock()->SetDeviceName("bench");
        manager->UpdateDevices(&host.gnssCollection);
        manager->RestartWithHold();
        manager->RestartWithAcceptAll();
        manager->GetClock(1)->SetTime(GNSSTime(2300, 5.2));
        tickAt(1000);
        EXPECT_EQ(sampleCount(none), 200U);
        saved();
    };
    bool met = true;
    for (std::size_t number = 1; met; ++number) {
        for (const HostResult due : {HostCode::invalidPointer, HostCode::failed}) {
            manager.emplace(counter);
            manager->SetHost(&host.app);
            manager->SetNotifyHost(true);
            const std::size_t faultsBefore = host.script.faultsMet();
            due == HostCode::failed ? host.script.failCall(number, due)
                                    : host.script.nullCall(number);
            HostResult raised = HostCode::success;
            try {
                wholeLife();
            } catch (const HostCallException& exception) {
                raised = exception.getCode();
            }
            met = host.script.faultsMet() > faultsBefore;
            EXPECT_EQ(raised, met ? due : HostCode::success) << number;
            host.script.heal();
            ASSERT_NO_THROW(wholeLife());
        }
    }
    EXPECT_THROW(manager->UpdateDevices(nullptr), HostCallException);
}

}  // namespace
}  // namespace Kestrova::Utils::Kcom::Synchronization
