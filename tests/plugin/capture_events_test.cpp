#include <malloc.h>

#include "tests/plugin/plugin_rig.h"

namespace {

/// What the capture thread does between the events.
class CaptureEventsTest : public PluginTest {
  protected:
    CaptureEventsTest() { equip({DeviceTypeInfo::canComboId}); }

    /// How many interfaces the event tries to open, and how many are open.
    std::string captureAfter(std::int32_t number) {
        port.calls.clear();
        EXPECT_EQ(event(number), "success");
        return std::to_string(port.calls.size()) + " tried, " + std::to_string(port.openHandles) +
               " open";
    }
};

TEST_F(CaptureEventsTest, SelectedInterfacesAloneAreOpened) {
    port.add("if1", {});
    port.interfaces[1].endless = std::ref(feed);
    CountedRef<CaptureSelection> selection;
    ASSERT_EQ(object.queryTo(selection), 0);
    std::vector<std::wstring> names{L"left from before"};
    EXPECT_EQ(selection->getInterfaces(&names), 0);
    EXPECT_THAT(names, testing::ElementsAre(L"if0", L"if1"));
    const wchar_t* const chosen[] = {L"if1", L"if9", nullptr};
    EXPECT_EQ(selection->selectInterfaces(chosen, 3), 0);
    EXPECT_EQ(captureAfter(130), "0 tried, 0 open") << "that is for the start of a measurement";
    EXPECT_EQ(captureAfter(105), "1 tried, 1 open");
    EXPECT_EQ(port.calls[0].substr(0, 8), "open if1");
    EXPECT_EQ(captureAfter(130), "0 tried, 1 open");
    EXPECT_EQ(selection->selectInterfaces(nullptr, 0), 0);
    port.interfaces[0].openFails = true;
    EXPECT_EQ(captureAfter(105), "2 tried, 1 open");
    std::vector<InterfaceMessage> messages(1);
    EXPECT_EQ(selection->takeMessages(&messages), 0);
    port.listFails = true;
    EXPECT_EQ(selection->getInterfaces(&names), HostCode::failed);
    EXPECT_THAT(names, testing::SizeIs(2)) << "as they were";
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_THAT(messages[0].text, testing::StartsWith(L"can't open if0"));
    EXPECT_EQ(messages[0].isHarmless, hostFalse);
}

TEST_F(CaptureEventsTest, FramesReachChannelsOnlyBetweenStartAndEndAndAfterTheClocksAreEnabled) {
    EXPECT_EQ(startMeasurement(), "success");
    EXPECT_EQ(deliver(3), 3);
    EXPECT_EQ(event(130), "success");
    EXPECT_EQ(deliver(3), 0) << "in status mode data goes nowhere";
    EXPECT_EQ(event(105), "success");
    EXPECT_EQ(deliver(2), 2);
    EXPECT_EQ(plugin->onStartAcquisition(), 0);
    EXPECT_EQ(deliver(2), 0) << "held back";
    EXPECT_EQ(event(156), "success");
    EXPECT_EQ(deliver(0), 2);
}

TEST_F(CaptureEventsTest, TimesOfANewMeasurementBeginAgainWithEitherOperation) {
    std::int32_t sample = 0;
    const auto expectTime = [&](double seconds) {
        host.data.position = static_cast<std::int32_t>(seconds * 1000.0) + 1;
        feed.push(canFrame(seconds));
        EXPECT_TRUE(feed.drain());
        EXPECT_EQ(event(156), "success");
        EXPECT_EQ(event(117), "success");
        EXPECT_EQ(firstChannel().timeAt(sample++), seconds);
    };
    EXPECT_EQ(startMeasurement(), "success");
    expectTime(8.0);
    EXPECT_EQ(plugin->onPrepareAcquisition(), 0);
    expectTime(0.5);
    expectTime(9.0);
    EXPECT_EQ(plugin->onStartAcquisition(), 0);
    expectTime(0.5);
}

TEST_F(CaptureEventsTest, TwoHundredMeasurementsLeaveThreadsAndMemoryLevel) {
    const auto measure = [this](int times) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(startMeasurement(), "success");
            ASSERT_EQ(deliver(3), 3);
            ASSERT_EQ(event(130), "success");
            firstChannel().writePosition = 0;
            host.script.forget();
            port.calls.clear();
        }
    };
    const auto threads = [] {
        const std::filesystem::directory_iterator entries("/proc/self/task");
        return std::distance(begin(entries), end(entries));
    };
    measure(20);
    const std::ptrdiff_t threadsThen = threads();  // the capture thread, and a sanitizer's own
    const std::size_t memoryThen = mallinfo2().uordblks;
    const std::int64_t referencesThen = host.app.references();
    measure(200);
    EXPECT_EQ(threads(), threadsThen);
    EXPECT_EQ(host.app.references(), referencesThen);
    constexpr std::size_t slack = 16 * 1024;  // less than 100 bytes a measurement
    EXPECT_LT(mallinfo2().uordblks, memoryThen + slack);
    dropPlugin();
    EXPECT_EQ(threads(), threadsThen - 1);
}

}  // namespace
