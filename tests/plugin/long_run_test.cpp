#include <malloc.h>

#include <filesystem>
#include <random>

#include "tests/plugin/plugin_bench.h"

namespace {

namespace fs = std::filesystem;
using testing::AnyOf;

std::ptrdiff_t entriesOf(const char* folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}
std::ptrdiff_t threads() {
    return entriesOf("/proc/self/task");
}
std::ptrdiff_t descriptors() {
    return entriesOf("/proc/self/fd");
}

class LongRunTest : public PluginTest {
  protected:
    void measureOnce() {
        ASSERT_EQ(startMeasurement(), "0");
        ASSERT_EQ(deliver(3), 3);
        ASSERT_EQ(event(130), "0");
        firstChannel().writePosition = 0;
        host.script.forget();
        port.calls.clear();
    }
};

TEST_F(LongRunTest, TwoHundredMeasurementsLeaveThreadsDescriptorsAndMemoryLevel) {
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    for (int i = 0; i < 20; ++i) {
        measureOnce();
    }
    const std::ptrdiff_t threadsThen = threads();  // the capture thread, and a sanitizer's own
    const std::ptrdiff_t descriptorsThen = descriptors();
    const std::size_t memoryThen = mallinfo2().uordblks;
    const std::int64_t referencesThen = host.app.references();
    for (int i = 0; i < 200; ++i) {
        measureOnce();
    }
    EXPECT_EQ(threads(), threadsThen);
    EXPECT_EQ(descriptors(), descriptorsThen);
    EXPECT_EQ(port.openHandles, 1);
    EXPECT_EQ(host.app.references(), referencesThen);
    constexpr std::size_t slack = 16 * 1024;  // less than 100 bytes a measurement
    EXPECT_LT(mallinfo2().uordblks, memoryThen + slack);
    dropPlugin();
    EXPECT_EQ(threads(), threadsThen - 1);
}

/// A host that sends whatever comes to its mind, while frames come in.
class RandomWalkTest : public PluginTest {
  protected:
    std::uint32_t pick(std::size_t count) { return static_cast<std::uint32_t>(random() % count); }

    std::string step() {
        using Operation = HostResult (IPlugin3::*)();
        constexpr Operation operations[] = {
            &IPlugin3::onStartAcquisition, &IPlugin3::onPrepareAcquisition, &IPlugin3::onGetData,
            &IPlugin3::onClearSetup, &IPlugin3::onDisconnectChannels};
        constexpr std::int32_t numbers[] = {105, 106, 109, 111, 115, 117, 117, 117,
                                            129, 130, 133, 136, 156, 169, 186};
        host.data.position += static_cast<std::int32_t>(pick(500));
        host.app.setupMode = toHostBool(pick(4) == 0);
        host.data.channelSetFixed = toHostBool(pick(4) == 0);
        feed.push(canFrame(host.data.position / host.data.sampleRate + pick(20) - 5.0));
        switch (pick(4)) {
            case 0:
                return outcomeOf([&] { return (plugin.get()->*operations[pick(5)])(); });
            case 1:
                return pick(2) == 0 ? settings(*document, false) : setup(*channels, false);
            default:
                return event(numbers[pick(std::size(numbers))]);
        }
    }

    std::mt19937 random{1};
    Document* const document = &newDocument();
    Document* const channels = &newDocument();
};

TEST_F(RandomWalkTest, EventsInAnyOrderGiveDocumentedResultsAndLeaveAWorkingPlugin) {
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    EXPECT_EQ(settings(*document, true), "0");
    EXPECT_EQ(setup(*channels, true), "0");
    for (int i = 0; i < 8000; ++i) {
        ASSERT_THAT(step(), AnyOf("0", "1", "call 80004003")) << i;
    }
    host.app.setupMode = host.data.channelSetFixed = hostFalse;
    host.data.startTime = GNSSTime().ToDayCount();
    EXPECT_EQ(event(105), "0");
    EXPECT_TRUE(feed.drain());
    equip({DeviceTypeInfo::canComboId});
    firstChannel().writePosition = 0;
    ASSERT_EQ(startMeasurement(), "0");
    EXPECT_EQ(deliver(5), 5);
}

}  // namespace
