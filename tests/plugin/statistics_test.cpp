#include "tests/plugin/plugin_rig.h"

namespace {

/// What becomes of each message, and what the host may learn of it.
class StatisticsTest : public PluginTest {
  protected:
    void hear(std::initializer_list<double> seconds) {
        for (const double time : seconds) {
            feed.push(canFrame(time));
        }
        EXPECT_TRUE(feed.drain());
    }
    CountedRef<CaptureStatistics> statistics() const {
        CountedRef<CaptureStatistics> found;
        object.queryTo(found);
        return found;
    }
    ClockStatistics clock(std::size_t module) const {
        ClockStatistics all[2];
        std::uint32_t count = 2;
        EXPECT_EQ(statistics()->getClocks(all, &count), 0);
        EXPECT_EQ(count, 2U);
        return all[module];
    }
    /// "module output: " and the counts.
    std::string counts(std::size_t place = 0, std::uint32_t channels = 17) const {
        ChannelStatistics all[20];
        std::uint32_t count = channels;
        EXPECT_EQ(statistics()->getChannels(all, &count), 0);
        EXPECT_EQ(count, channels);
        const ChannelStatistics& c = all[place];
        std::string text = std::to_string(c.module) + ' ' + std::to_string(c.output) + ':';
        for (const std::uint64_t number :
             {c.unusable, c.queued, c.delivered, c.beforeStart, c.afterEnd, c.tooOld, c.tooNew,
              c.notPlaced, c.leftQueued, c.noOutput}) {
            text += ' ' + std::to_string(number);
        }
        return text;
    }
    /// The first module's clock runs free, and goes on a little whenever the host's is looked at.
    void runFree() {
        host.gnssDevices.devices.at(0)->syncMode = HostGnssDevice::syncModeSoft;
        EXPECT_EQ(event(177, variantOf(&host.gnssCollection)), "success");
        host.script.before("HostApp::getMasterClock", [this] { ++counter.count; });
    }
    /// A call in which the host's clock has moved on to `seconds`.
    std::string callAt(double seconds) {
        host.clock.seconds = seconds;
        host.data.position = static_cast<std::int32_t>(seconds * 1000);
        return event(117);
    }
};

TEST_F(StatisticsTest, EachMessageIsInOneCountAndTheSumIsRightAtTheEnd) {
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    EXPECT_EQ(startMeasurement(), "success");
    feed.push(wire::tecmpData(0x41, {{0x10, 1, {1, 2, 3}}}));
    hear({-1.0, 0.5, 50.0, 5.0});
    EXPECT_EQ(callAt(1.0), "success");
    EXPECT_EQ(counts(), "0 0: 1 4 1 1 0 0 1 0 0 0") << "5.0 waits";
    EXPECT_EQ(callAt(20.0), "success");
    EXPECT_EQ(callAt(20.0), "success");
    hear({21.0, 19.5});
    EXPECT_EQ(event(130), "success");
    EXPECT_EQ(counts(), "0 0: 1 6 1 1 1 1 1 0 1 0");
    EXPECT_EQ(event(105), "success");
    EXPECT_EQ(counts(), "0 0: 0 0 0 0 0 0 0 0 0 0");
    EXPECT_EQ(
        settings(settingsWith({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}), false),
        "success");
    EXPECT_EQ(startMeasurement(), "success");  // without channels
    hear({0.5});
    EXPECT_EQ(plugin->onGetData(), 0);
    hear({0.6});
    EXPECT_EQ(plugin->onStartAcquisition(), 0);
    EXPECT_EQ(event(130), "success");
    EXPECT_EQ(counts(), "0 -1: 0 2 0 0 0 0 0 1 0 1");
    EXPECT_EQ(counts(16), "1 -1: 0 0 0 0 0 0 0 0 0 0");

    ChannelStatistics one[2];
    one[1].module = 77;
    std::uint32_t room = 1;
    EXPECT_EQ(statistics()->getChannels(one, &room), 0);
    EXPECT_EQ(std::pair(room, one[1].module), std::pair(17U, 77U));
    room = 0;
    EXPECT_EQ(statistics()->getClocks(nullptr, &room), 0);
    EXPECT_EQ(room, 2U);
}

TEST_F(StatisticsTest, CountsOutlastTheModule) {
    auto& modules = settingsWith({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    EXPECT_EQ(startMeasurement(), "success");
    hear({-1.0, 0.5, 1.5, 50.0});
    EXPECT_EQ(callAt(1.0), "success");
    EXPECT_EQ(settings(modules, false), "success");  // the list is a new one
    EXPECT_EQ(counts(17, 18), "4294967295 0: 0 4 1 1 0 0 0 0 2 0");
    EXPECT_EQ(event(105), "success");
    EXPECT_EQ(counts(), "0 -1: 0 0 0 0 0 0 0 0 0 0") << "of the new measurement";
}

TEST_F(StatisticsTest, EachFrameAndMessageFromTheNetworkIsInOneCount) {
    const wire::Bytes payload = wire::can(1, {1});
    equip({DeviceTypeInfo::canComboId});
    EXPECT_EQ(startMeasurement(), "success");
    const auto push = [this](wire::Bytes frame, std::uint8_t number) {
        frame[16] = 0;
        frame[17] = number;
        feed.push(std::move(frame));
    };
    push(wire::tecmpData(0x41, {{0x10, 1, payload}, {0x99, 2, payload}, {0x20, 3, {1, 2}}}), 7);
    push(wire::tecmp(0x41, 1, {{0, 4, wire::cmStatus(0x41, 1)}}), 8);
    push(wire::tecmp(0x41, 2, {{0, 5, {1}}, {0, 6, {1}}}), 10);
    push(wire::tecmp(0x41, 9, {{0, 7, {1}}}), 11);
    for (std::uint16_t cmId = 0x60; cmId < 0x6A; ++cmId) {  // two more than are kept apart
        push(wire::tecmpData(cmId, {{0x10, 8, payload}, {0x10, 9, payload}}), 0);
    }
    wire::Bytes cut = wire::tecmpData(0x41, {{0x10, 10, payload}, {0x10, 11, payload}});
    cut.pop_back();
    feed.push(wire::asam(0x41, 1, 1, {0x10, 12, wire::Bytes(20)}));
    feed.push(wire::asam(0x41, 3, 2, {0x10, 13, wire::Bytes(20)}));
    push(cut, 12);
    feed.push(wire::ethernet(0x0800));
    EXPECT_TRUE(feed.drain());
    EXPECT_EQ(event(130), "success");

    CountedRef<CaptureTraffic> traffic;
    object.queryTo(traffic);
    MessageStatistics m;
    EXPECT_EQ(traffic->getMessages(&m), 0);
    EXPECT_THAT((std::vector{m.data, m.moduleStatus, m.busStatus, m.other, m.empty, m.unknownModule,
                             m.unknownChannel}),
                testing::ElementsAre(25, 1, 2, 2, 1, 20, 1));
    EXPECT_THAT((std::vector{m.unknown[0].cmId, m.unknown[7].cmId}),
                testing::ElementsAre(0x60, 0x67));
    EXPECT_EQ(m.unknown[7].messages, 2U);
    EXPECT_EQ(counts(0, 7), "0 0: 0 2 0 0 0 0 0 2 0 0");
    EXPECT_EQ(counts(1, 7), "0 1: 1 0 0 0 0 0 0 0 0 0");
    std::vector<InterfaceStatistics> interfaces(3);
    EXPECT_EQ(traffic->getInterfaces(&interfaces), 0);
    ASSERT_EQ(interfaces.size(), 1U);
    const InterfaceStatistics& i = interfaces[0];
    EXPECT_THAT((std::vector{i.kept, i.foreign, i.malformed, i.dropped}),
                testing::ElementsAre(17, 1, 1, 0));
    std::vector<ModuleStatistics> modules;
    EXPECT_EQ(traffic->getModules(&modules), 0);
    EXPECT_EQ(modules.at(0).sequenceGaps, 3U) << "9 is missing, and that of ASAM CMP is another";
    EXPECT_EQ(modules.at(0).missingFrames, 247U) << "a counter that goes back skips none";
    EXPECT_EQ(modules.at(0).frames, 6U);
    EXPECT_EQ(startMeasurement(), "success");
    EXPECT_EQ(traffic->getModules(&modules), 0);
    const ModuleStatistics& its = modules.at(0);
    EXPECT_EQ(its.frames + its.sequenceGaps + its.missingFrames, 0U) << "since the start";
}

TEST_F(StatisticsTest, SeveralModulesOfOneCmIdAreDistinguishedFromOneThatWasReplaced) {
    equip({DeviceTypeInfo::canComboId});
    CountedRef<CaptureReception> reception;
    object.queryTo(reception);
    const auto heard = [&](std::initializer_list<std::uint32_t> serials) {
        EXPECT_EQ(startMeasurement(), "success");
        for (const std::uint32_t serial : serials) {
            feed.push(wire::tecmp(0x41, 1, {{0, 4, wire::cmStatus(0x41, serial)}}));
        }
        EXPECT_TRUE(feed.drain());
        std::vector<SenderStatistics> senders;
        EXPECT_EQ(reception->getSenders(&senders), 0);
        const SenderStatistics& its = senders.at(0);
        return its.areSeveral == hostFalse ? std::vector<std::uint32_t>()
                                           : std::vector{its.serials[0], its.serials[1]};
    };
    EXPECT_THAT(heard({7, 7, 8, 8}), testing::ElementsAre());
    EXPECT_THAT(heard({7, 8, 7}), testing::ElementsAre(7, 8));
    EXPECT_THAT(heard({7, 8}), testing::ElementsAre()) << "of the new measurement";
}

TEST_F(StatisticsTest, EachInterfaceIsListedAndLateOnesTogetherOnceTheyBringFrames) {
    port.add("if1", {});
    port.add("late", {wire::ethernet(0x0800), canFrame(0.5)});
    port.interfaces[2].isLate = true;
    equip({DeviceTypeInfo::canComboId});
    CountedRef<CaptureTraffic> traffic;
    object.queryTo(traffic);
    const auto listedAtTheEnd = [&] {
        EXPECT_EQ(event(130), "success");
        std::vector<InterfaceStatistics> interfaces;
        EXPECT_EQ(traffic->getInterfaces(&interfaces), 0);
        std::wstring text;
        for (const InterfaceStatistics& each : interfaces) {
            text += each.name + L' ' + std::to_wstring(each.kept) + L' ' +
                    std::to_wstring(each.foreign) + L'|';
        }
        return text;
    };
    EXPECT_EQ(startMeasurement(), "success");
    hear({0.5});
    EXPECT_EQ(listedAtTheEnd(), L"if0 1 0|if1 0 0| 1 1|");
    EXPECT_EQ(startMeasurement(), "success");
    hear({0.5});
    EXPECT_EQ(listedAtTheEnd(), L"if0 1 0|if1 0 0|");
}

TEST_F(StatisticsTest, LeadingClockCountsFromAWholeSecond) {
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}, true);
    EXPECT_EQ(startMeasurement(), "success");
    hear({3.5});
    EXPECT_EQ(callAt(0.0), "success");
    EXPECT_TRUE(clock(0).isLeading && clock(0).isPlaced);
    EXPECT_EQ(clock(0).age, 0.0) << "the counter stood still";
    EXPECT_NEAR(clock(0).deviceTime, gnss_arithmetic::weekEpochUnixSeconds + 3.5, 0.01);
    EXPECT_NEAR(clock(0).elapsed, -0.5, 0.01);
    EXPECT_FALSE(clock(1).isLeading || clock(1).isPlaced);
}

TEST_F(StatisticsTest, ClocksTellHowTheyFollow) {
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}, true);
    EXPECT_EQ(clock(0).mode, ClockStatistics::ppsMaster);
    EXPECT_EQ(clock(1).mode, ClockStatistics::ppsSlave);
    runFree();
    EXPECT_EQ(clock(0).jumps, 0U);
    EXPECT_EQ(startMeasurement(), "success");
    const ClockStatistics silent = clock(0);
    EXPECT_EQ(silent.mode, ClockStatistics::softSync);
    EXPECT_FALSE(silent.hasTime || silent.isPlaced);
    EXPECT_EQ(silent.age, -1.0);
    EXPECT_EQ(callAt(0.5), "success");
    for (int second = 1; second < 9; ++second) {
        counter.count = static_cast<std::uint64_t>(second) * 1000;
        hear({100.0 + second * 1.001});  // fast by 1000 parts per million
        EXPECT_EQ(callAt(second), "success");
    }
    counter.count += 250;
    const ClockStatistics heard = clock(0);
    EXPECT_TRUE(heard.hasTime && heard.isPlaced);
    EXPECT_NEAR(heard.offset, gnss_arithmetic::weekEpochUnixSeconds + 100.0, 0.02);
    EXPECT_NEAR(heard.ratePpm, 1000.0, 500.0);  // a look at the counter moves it by a millisecond
    EXPECT_NEAR(heard.age, 0.25, 0.01);
    EXPECT_NEAR(heard.deviceTime, gnss_arithmetic::weekEpochUnixSeconds + 108.008, 0.02);
    EXPECT_EQ(heard.jumps, 0U);
    EXPECT_FALSE(clock(1).hasTime);

    hear({108.259 + 0.5});  // half a second off goes through the fit
    EXPECT_EQ(callAt(8.25), "success");
    EXPECT_LT(clock(0).residual, -0.001) << "the device is ahead of the line";
    hear({200.0});
    EXPECT_EQ(callAt(8.5), "success");
    EXPECT_EQ(clock(0).jumps, 1U);
    EXPECT_EQ(plugin->onPrepareAcquisition(), 0);
    for (const std::int32_t begin : {105, 130}) {
        EXPECT_EQ(event(begin), "success");
        EXPECT_EQ(clock(0).age, -1.0);
    }
    feed.push(wire::tecmp(0x41, 1, {{0, 201'000'000'000, wire::cmStatus(0x41, 1)}}));
    EXPECT_TRUE(feed.drain());
    EXPECT_EQ(clock(0).age, -1.0) << "only in a measurement";
}

/// It is judged by a clock that has heard of it: in this call or, where it comes in during the
/// call, in the next.
TEST_F(StatisticsTest, ModuleThatBeginsToSpeakOrJumpsLosesNothing) {
    equip({DeviceTypeInfo::canComboId});
    runFree();
    EXPECT_EQ(startMeasurement(), "success");
    firstChannel().bufferSize = 100;
    double time = 2.0;
    EXPECT_EQ(callAt(time), "success");
    for (const double device : {100.0, 105.0, 50.0, 50.1}) {
        for (const bool duringTheCall : {false, true}) {
            const double stamp = duringTheCall ? device + 1000 : device;
            const std::int32_t before = firstChannel().writePosition;
            int looks = 0;
            host.script.before("HostMasterClock::getTimeSeconds", [&] {
                // Behind the last look of the clock at what the module has said.
                if (duringTheCall && ++looks == 2) {
                    hear({stamp, stamp});
                }
            });
            duringTheCall ? void() : hear({stamp, stamp});
            EXPECT_EQ(callAt(time += 0.02), "success");
            EXPECT_EQ(firstChannel().writePosition - before, duringTheCall ? 0 : 2) << stamp;
            host.script.before("HostMasterClock::getTimeSeconds", nullptr);
            EXPECT_EQ(callAt(time += 0.02), "success");
            EXPECT_EQ(firstChannel().writePosition - before, 2) << stamp;
        }
    }
}

/// Whatever a host does while it takes a sample, here between two calls of one.
TEST_F(StatisticsTest, HostMayCallBackWhileItTakesASample) {
    equip({DeviceTypeInfo::canComboId});
    const std::function<std::string()> actions[] = {
        [this] { return event(105); },
        [this] { return event(130); },
        [this] { return event(115); },
        [this] { return outcomeOf([this] { return plugin->onClearSetup(); }); },
        [this] { return outcomeOf([this] { return plugin->onDisconnectChannels(); }); },
        [this] { return outcomeOf([this] { return plugin->onGetData(); }); },
        [this] { return outcomeOf([this] { return plugin->onStartAcquisition(); }); }};
    for (const auto& action : actions) {
        EXPECT_EQ(plugin->onClearSetup(), 0);
        ScriptedChannel& channel = firstChannel();
        channel.used = hostTrue;
        channel.writePosition = 0;
        EXPECT_EQ(startMeasurement(), "success");
        hear({0.5, 0.6});
        bool isBack = false;
        host.script.before("HostChannel::getElementSize", [&] {
            if (!std::exchange(isBack, true)) {
                EXPECT_EQ(action(), "success");
            }
        });
        EXPECT_THAT(callAt(1.0),
                    testing::AnyOf("success", "call invalidPointer"));  // without a channel
        EXPECT_TRUE(isBack);
        EXPECT_LE(channel.writePosition, 2) << "nothing twice";
        host.script.heal();
        event(130);
    }
}

}  // namespace
