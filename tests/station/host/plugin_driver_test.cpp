#include "station/host/plugin_driver.h"

#include "core/kvrt_exception.h"
#include "tests/station/host/fake_plugin.h"
#include "tests/station/host/stand_ins.h"
#include "tests/support/scripted_document.h"

namespace station {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PluginDrivers : public testing::Test {
  protected:
    PluginDrivers() { makeDriver(); }
    void makeDriver() {
        driver.reset();
        plugin = makeObject<FakePlugin>();
        CountedRef<HostObject> object;
        plugin.queryTo(object);
        driver = std::make_unique<PluginDriver>(
            object, host, [] { return PluginDriver::SystemClock::time_point(); });
    }
    std::vector<std::string> takeCalls() { return std::exchange(plugin->calls, {}); }
    void poll(int times = 1) {
        for (; times > 0; --times) {
            counter.pass(0.02);
            driver->poll();
        }
    }
    void startAndSettle() {
        driver->connect();
        driver->start();
        poll(20);
    }
    /// Host time that passes until the end is drained.
    double drain() {
        const double end = host->getClock().getSeconds();
        while (!driver->isDrained() && host->getClock().getSeconds() < end + 60.0) {
            poll();
        }
        return host->getClock().getSeconds() - end;
    }
    /// What the driver says of it; empty if it doesn't fail.
    static std::string failureOf(const std::function<void()>& step) {
        try {
            step();
        } catch (const PluginError& failure) {
            return failure.what();
        }
        return {};
    }

    ManualCounter counter{1'000'000'000, 5'000'000'000};
    CountedRef<StationHost> host = makeObject<StationHost>(counter, StationHostOptions{});
    CountedRef<FakePlugin> plugin;
    std::unique_ptr<PluginDriver> driver;
    CountedRef<StationChannel> channel = mountChannel(*host);
    CallScript script;
    ScriptedDocument& document = script.make<ScriptedDocument>(false);
    ScriptedElement& element = script.make<ScriptedElement>(L"Station");
};

TEST_F(PluginDrivers, ChannelsAreFoundByTheIndicesThatTheyHave) {
    channel->setIndices(std::vector<std::int32_t>{4}.data(), 1);
    EXPECT_TRUE(host->getChannels().find({8, 0, 4}) && !host->getChannels().find({8, 0, 0}));
    const auto behind = mountChannel(*host);
    host->getChannels().unmountChannel(channel.get());
    EXPECT_THAT(host->getChannels().all(), testing::ElementsAre(behind));
    EXPECT_FALSE(host->getChannels().find({8, 0, 4}));
}

TEST_F(PluginDrivers, CallsComeInTheirOrder) {
    driver->connect();
    driver->loadSettings(document, element);
    EXPECT_THAT(plugin->arguments, ElementsAre("object", "object", "0"));
    driver->loadSetup(document, element);
    EXPECT_THAT(plugin->arguments, ElementsAre("object", "object", "0", "0"));
    EXPECT_NE(document.mode, HostDocument::modeWriting);
    driver->updateDevices();
    EXPECT_THAT(takeCalls(), ElementsAre("connect", "159", "158", "111", "129", "134", "177"));
    driver->start();
    EXPECT_THAT(takeCalls(), ElementsAre("prepare", "118", "start", "115", "105", "156"));
    poll(2);
    EXPECT_THAT(takeCalls(), ElementsAre("117", "117"));
    driver->endPart();
    EXPECT_THAT(takeCalls(), ElementsAre("136"));
    drain();
    EXPECT_THAT(takeCalls(), Each("117"));
    driver->stop();
    driver->stop();
    poll();
    driver->saveSettings(document, element);
    EXPECT_EQ(document.mode, HostDocument::modeWriting);
    driver->saveSetup(document, element);
    EXPECT_THAT(plugin->arguments, ElementsAre("object", "object", "65535", "0"));
    EXPECT_THAT(takeCalls(), ElementsAre("130", "159", "158"));
    driver.reset();
    EXPECT_THAT(takeCalls(), ElementsAre("disconnect"));
    EXPECT_THAT(script.referenceFaults(), IsEmpty());
}

TEST_F(PluginDrivers, TheTailIsDrainedAtAPositionThatStandsStill) {
    startAndSettle();
    driver->endPart();
    const std::int64_t end = host->getClock().getPosition();
    int late = 30;
    plugin->actions["117"] = [&] {
        const double value = 0.0;
        if (late-- > 0) {
            addSample(*channel, &value, sizeof value, value);
        }
        return HostCode::success;
    };
    EXPECT_FALSE(driver->isDrained());
    EXPECT_NEAR(drain(), 0.6 + PluginDriver::quietSeconds, 0.03);
    EXPECT_EQ(host->getClock().getPosition(), end);
    EXPECT_EQ(channel->getWritten(), 30U);
}

TEST_F(PluginDrivers, TheEndWaitsAsLongAsThePluginAsksForAlsoWhereNothingHasCome) {
    startAndSettle();
    driver->endPart();
    EXPECT_NEAR(drain(), 0.2, 0.03);
}

TEST_F(PluginDrivers, ALeaderThatBeginsLateStartsTheMeasurementLate) {
    plugin->leads = true;
    plugin->clocks = {{.isPlaced = true, .elapsed = 7.0},
                      {.isLeading = true, .isPlaced = true, .elapsed = 0.0304}};
    plugin->droppedFrames = 5;
    startAndSettle();
    EXPECT_TRUE(driver->isAwaitingLeader());
    EXPECT_EQ(driver->getDroppedFrames(), 0U) << "no loss before the start";
    EXPECT_EQ(host->getClock().getSeconds(), 0.0);
    plugin->leaderSamples = 30;
    poll();
    EXPECT_FALSE(driver->isAwaitingLeader());
    EXPECT_DOUBLE_EQ(host->getClock().getSeconds(), 0.0304) << "not the rounded number of samples";
    poll(9);
    EXPECT_EQ(host->getClock().getPosition(), 0) << "the clocks learn the time first";
    poll(3);
    EXPECT_EQ(host->getClock().getPosition(), 270);
    plugin->droppedFrames = 7;
    EXPECT_EQ(driver->getDroppedFrames(), 2U);
    driver->stop();

    plugin->leaderSamples = FakePlugin::notBegun;
    driver->start();
    poll(20);
    driver->endPart();
    EXPECT_TRUE(driver->isDrained()) << "what never began has no tail";
}

TEST_F(PluginDrivers, TheNextPartOverlapsTheLastAndKeepsTheCapture) {
    startAndSettle();
    EXPECT_FALSE(driver->needsNewPart());
    counter.pass(2147300.0);
    poll();
    EXPECT_TRUE(driver->needsNewPart());
    const MasterClock& clock = host->getClock();
    EXPECT_GT(clock.getWrapCount(), 0);
    EXPECT_EQ(std::int64_t{clock.getWrapCount()} * 65536 + clock.getPositionInBuffer(),
              clock.getPosition());
    driver->endPart();
    const double end = host->getClock().getPositionSeconds();
    const auto partStart = host->data().getStart();
    drain();
    takeCalls();
    const double late = host->getClock().getSeconds() - end;
    driver->startNextPart();
    EXPECT_THAT(takeCalls(), ElementsAre("start", "115", "156"));
    EXPECT_EQ(host->getClock().getPosition(), 0);
    EXPECT_NEAR(host->getClock().getSeconds(), late + 1.0, 1e-6);
    const std::chrono::duration<double> between = host->data().getStart() - partStart;
    EXPECT_NEAR(between.count(), end - 1.0, 1e-6);
    poll(20);
    EXPECT_GT(host->getClock().getPositionSeconds(), 1.0);
    EXPECT_FALSE(driver->needsNewPart());
}

TEST_F(PluginDrivers, EachKindOfFailureIsReportedAndStopsTheMeasurement) {
    const std::vector<std::pair<std::function<HostResult()>, std::string>> failures = {
        {[]() -> HostResult { throw std::runtime_error("the text"); }, "the text"},
        {[]() -> HostResult { raiseHostError(HostCode::invalidPointer); }, "0x80004003"},
        {[]() -> HostResult { throw HostArrayException(HostCode::invalidArgument); }, "0x80070057"},
        {[]() -> HostResult { throw Kestrova::RT::Core::NotFoundException("gone"); },
         "gone (code 0x80000006)"},
        {[]() -> HostResult { throw 7; }, "unknown kind"},
        {[] { return HostCode::failed; }, "it answered 0x80004005"},
        {[this]() -> HostResult {
             callHost(channel, &HostChannel::setDataType, 99);
             return HostCode::success;
         },
         "there is no data type 99"}};
    for (const auto& [failure, text] : failures) {
        makeDriver();
        startAndSettle();
        plugin->actions["117"] = failure;
        takeCalls();
        EXPECT_THAT(failureOf([this] { poll(); }), HasSubstr(text));
        EXPECT_THAT(takeCalls(), ElementsAre("117", "130"));
        EXPECT_FALSE(driver->isMeasuring());
        plugin->actions.clear();
        driver->start();
        poll();
        EXPECT_TRUE(driver->isMeasuring()) << "a later measurement works";
    }
}

TEST_F(PluginDrivers, AFailureInAnyStepLeavesNothingRunning) {
    for (const std::string step :
         {"159", "158", "177", "prepare", "start", "115", "105", "156", "117", "136", "130"}) {
        makeDriver();
        plugin->actions[step] = []() -> HostResult { throw std::runtime_error("no"); };
        const std::string text = failureOf([this] {
            driver->connect();
            driver->loadSettings(document, element);
            driver->loadSetup(document, element);
            driver->updateDevices();
            driver->start();
            poll();
            driver->endPart();
            drain();
            driver->stop();
        });
        EXPECT_THAT(text, HasSubstr(": no")) << step;
        EXPECT_FALSE(driver->isMeasuring()) << step;
        const auto calls = takeCalls();
        const bool captured = std::count(calls.begin(), calls.end(), "105") != 0;
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "130"), captured ? 1 : 0) << step;
    }
}

}  // namespace
}  // namespace station
