#include <malloc.h>

#include <filesystem>
#include <functional>
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
    const std::ptrdiff_t threadsBefore = threads();
    equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId});
    for (int i = 0; i < 20; ++i) {
        measureOnce();
    }
    const std::ptrdiff_t descriptorsThen = descriptors();
    const std::size_t memoryThen = mallinfo2().uordblks;
    const std::int64_t referencesThen = host.app.references();
    for (int i = 0; i < 200; ++i) {
        measureOnce();
    }
    EXPECT_EQ(threads(), threadsBefore + 1);
    EXPECT_EQ(descriptors(), descriptorsThen);
    EXPECT_EQ(port.openHandles, 1);
    EXPECT_EQ(host.app.references(), referencesThen);
    constexpr std::size_t slack = 16 * 1024;  // less than 100 bytes a measurement
    EXPECT_LT(mallinfo2().uordblks, memoryThen + slack);
    dropPlugin();
    EXPECT_EQ(threads(), threadsBefore);
}

/// A host that sends whatever comes to its mind, while frames come in.
class RandomWalk : public PluginBench {
  public:
    explicit RandomWalk(std::uint32_t seed) : random(seed) {
        equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}, pick(2) == 0);
        EXPECT_EQ(settings(*document, true), "0");
        EXPECT_EQ(setup(*channelDocument, true), "0");
    }

    /// One of the things that a host may do; what came out of it.
    std::string step() {
        const std::uint32_t action = pick(10);
        if (action < 3) {
            return eventWithoutInput();
        }
        if (action < 5) {
            return position();
        }
        if (action == 5) {
            return eventWithObject();
        }
        if (action == 6) {
            return eventWithArray();
        }
        action == 7 ? changeHost() : pushFrames();
        return "0";
    }

    /// Makes the host an ordinary one again, with nothing under way.
    void calmDown() {
        EXPECT_EQ(event(105), "0");
        EXPECT_TRUE(feed.drain());
        host.app.setupMode = hostFalse;
        host.data.channelSetFixed = hostFalse;
        host.data.startTime = GNSSTime().ToDayCount();
        firstChannel().writePosition = 0;
    }

  private:
    std::uint32_t pick(std::size_t count) { return static_cast<std::uint32_t>(random() % count); }
    bool toss() { return pick(2) == 0; }

    std::string eventWithoutInput() {
        constexpr std::int32_t often[] = {105, 115, 117, 117, 117, 130, 156, 186};
        const auto any = static_cast<std::int32_t>(104 + pick(84));
        const std::int32_t number = toss() ? often[pick(std::size(often))] : any;
        const bool needsInput = number == 118 || number == 131 || number == 177 ||
                                (number >= 157 && number <= 159) ||
                                (number >= 179 && number <= 182) || number == 185;
        isReading = isReading || number == 105;
        return needsInput ? "0" : event(number);
    }
    std::string position() {
        using Operation = HostResult (IPlugin3::*)();
        constexpr Operation operations[] = {
            &IPlugin3::onStartAcquisition,   &IPlugin3::position20,
            &IPlugin3::onPrepareAcquisition, &IPlugin3::onGetData,
            &IPlugin3::position30,           &IPlugin3::onClearSetup,
            &IPlugin3::onDisconnectChannels, &IPlugin3::position39};
        return outcomeOf([&] { return (plugin.get()->*operations[pick(8)])(); });
    }
    std::string eventWithObject() {
        HostObject* const objects[] = {nullptr, &list, &host.gnssCollection, &firstChannel()};
        constexpr std::int32_t numbers[] = {118, 131, 177};
        return event(numbers[pick(3)], variantOf(objects[pick(4)]));
    }
    std::string eventWithArray() {
        Document* const documents[] = {document, channelDocument, nullptr};
        const std::int32_t number = static_cast<std::int32_t>(157 + pick(3));
        const bool writing = pick(4) == 0;
        Document* const chosen = writing        ? &newDocument()
                                 : pick(8) == 0 ? nullptr
                                                : documents[number == 158 ? 1 : 0];
        HostElement* const element = chosen == nullptr || pick(4) == 0 ? nullptr : chosen->root;
        std::vector<HostVariant> elements = {variantOf(chosen), variantOf(element),
                                             variantOf(writing), variantOf(toss())};
        elements.resize(pick(8) == 0 ? pick(4) : 4);
        return eventOf(number, elements);
    }
    void changeHost() {
        host.data.position += static_cast<std::int32_t>(pick(500));
        host.app.setupMode = toHostBool(pick(4) == 0);
        host.app.holdValue = static_cast<std::int32_t>(pick(2));
        host.data.channelSetFixed = toHostBool(pick(4) == 0);
        counter.count += pick(300);
        for (ScriptedChannel* const channel : host.groupOfPlugins.mounted) {
            channel->used = toHostBool(pick(4) != 0);
        }
    }
    void pushFrames() {
        const double now = host.data.position / host.data.sampleRate;
        for (std::uint32_t i = pick(4); i > 0; --i) {
            feed.push(canFrame(now + pick(20) - 5.0));
        }
        if (isReading && toss()) {
            EXPECT_TRUE(feed.drain());
        }
    }

    std::mt19937 random;
    bool isReading = false;
    ScriptedChannelList list{host.script};
    Document* const document = &newDocument();
    Document* const channelDocument = &newDocument();
};

TEST(RandomWalkTest, EventsInAnyOrderGiveDocumentedResultsAndLeaveAWorkingPlugin) {
    std::ptrdiff_t written = 0;
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        RandomWalk walk(seed);
        for (int i = 0; i < 400; ++i) {
            ASSERT_THAT(walk.step(), AnyOf("0", "1", "call 80004003", "array 80070057",
                                           "KCOM document is not set!"))
                << "seed " << seed << ", step " << i << " after "
                << walk.host.script.calls().back();
        }
        const auto calls = walk.host.script.operations();
        written += std::count(calls.begin(), calls.end(), "HostChannel::advanceWritePosition");
        walk.calmDown();
        walk.equip({DeviceTypeInfo::canComboId});
        ASSERT_EQ(walk.startMeasurement(), "0");
        EXPECT_EQ(walk.deliver(5), 5) << "seed " << seed;
    }
    EXPECT_GT(written, 20) << "the walks led past the data";
}

}  // namespace
