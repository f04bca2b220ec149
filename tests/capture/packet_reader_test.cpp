#include "capture/cmp_packet_reader.h"

#include "tests/support/capture_rig.h"

namespace {

using ::testing::ElementsAre;
using wire::Bytes;

class PacketReaderTest : public ::testing::Test, protected CaptureRig {
  protected:
    static Bytes frame(std::uint8_t number) {
        return wire::tecmpData(0x41, {{0x10, number, wire::can(number, {})}});
    }
    /// The numbers of the frames that were let through since the last call.
    std::vector<int> arrived() {
        reader.flushAll();
        std::vector<int> numbers;
        for (const auto& sample : std::exchange(samplesOf(device, 0x10), {})) {
            numbers.push_back(sample.bytes[0]);
        }
        return numbers;
    }

    /// What was told of the interfaces since the last call, in brackets where it is harmless.
    std::vector<std::string> told() {
        std::vector<std::string> texts;
        for (const auto& message : reader.takeMessages()) {
            texts.push_back(message.isHarmless ? '(' + message.text + ')' : message.text);
        }
        return texts;
    }

    CmpDevice& device = add(DeviceTypeInfo::canComboId, 1);
};

TEST_F(PacketReaderTest, InterfaceIsDrainedBeforeTheNextIsRead) {
    port.interfaces.clear();
    port.calls.clear();
    port.add("a", {frame(1), frame(2)});
    port.add("late", {frame(4)});
    port.interfaces[1].isLate = true;
    port.add("b", {frame(3)});
    reader.openInterfaces();
    reader.readPass();
    EXPECT_THAT(port.calls, ElementsAre("open a 65536 1 1", "open b 65536 1 1", "late beside 2",
                                        "a:1", "a:1", "a:0", "b:1", "b:0", "late:1", "late:0"));
    EXPECT_THAT(arrived(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(reader.getInterfaces().size(), 2U);
}

TEST_F(PacketReaderTest, WhatCameInIsSeenBeforeThePassEnds) {
    std::vector<std::vector<int>> seen;
    port.onRead = [&] {
        seen.push_back(arrived());
        counter.count += 1;  // a millisecond, half of the longest burst
    };
    const Bytes other = wire::tecmp(0x41, 3, {{0x10, 4, wire::can(4, {})}}, 0x2090);
    Bytes nearly = frame(5);
    nearly[13] = 0xFF;
    read({frame(1), frame(2), frame(3), other, nearly});
    EXPECT_THAT(seen, ElementsAre(ElementsAre(), ElementsAre(), ElementsAre(1, 2), ElementsAre(),
                                  ElementsAre(3), ElementsAre()));
}

TEST_F(PacketReaderTest, ReadErrorRepeatsTheFrameBefore) {
    port.interfaces[0].reads = {{-1, {}}, {1, frame(1)}, {-1, {}}, {-2, {}}, {1, frame(2)}};
    reader.readPass();
    EXPECT_THAT(arrived(), ElementsAre(1, 1, 1, 2));
    reader.readPass();
    EXPECT_THAT(arrived(), ElementsAre());
}

TEST_F(PacketReaderTest, StopAbandonsTheRestOfTheFrame) {
    port.interfaces[0].reads = {{1, frame(1)}, {1, frame(2)}};
    counter.onCount = [this] {  // behind the first read, before the first message
        if (port.interfaces[0].reads.size() == 1) {
            reader.Stop();
        }
    };
    reader.readPass();
    counter.onCount = nullptr;
    EXPECT_EQ(port.interfaces[0].reads.size(), 1U);
    EXPECT_THAT(arrived(), ElementsAre());
}

TEST_F(PacketReaderTest, DroppedFramesCountFromTheStartOfDataRead) {
    std::atomic<bool> hasRead = false;
    port.add("late", {});
    port.interfaces[1].isLate = true;
    reader.openInterfaces();
    port.interfaces[0].dropped = 5;
    port.interfaces[1].dropped = 1;
    port.onRead = [&] {
        port.interfaces[0].dropped = 12;
        port.interfaces[1].dropped = 3;
        hasRead = true;
    };
    reader.startRead();
    while (!hasRead) {
        std::this_thread::yield();
    }
    reader.Stop();
    EXPECT_EQ(reader.getDroppedFrames(), 9U);
    reader.prepareRead(false);
    EXPECT_EQ(reader.getDroppedFrames(), 9U);
    reader.prepareRead(true);
    EXPECT_EQ(reader.getDroppedFrames(), 0U);
}

TEST_F(PacketReaderTest, WhatWaitedAtTheStartIsReceivedToo) {
    port.add("late", {});
    ScriptedInterface& late = port.interfaces[1];
    late.isLate = true;
    reader.openInterfaces();
    late.received = 9;
    late.waiting = 2;
    reader.prepareRead(true);
    late.received = 12;
    reader.publishCounts();
    const auto frames = reader.getFrameCounts();
    EXPECT_FALSE(frames[0].frames.received);
    EXPECT_EQ(frames[1].frames.received, 2U + 3U);
}

TEST_F(PacketReaderTest, InterfaceThatRepeatsOthersIsLeftOutUnlessItIsSelected) {
    port.add("both", {});
    port.interfaces[1].repeated = {"if0", "if7"};
    reader.openInterfaces();
    ASSERT_EQ(reader.getInterfaces().size(), 1U);
    EXPECT_EQ(reader.getInterfaces()[0].name, "if0");
    EXPECT_THAT(told(), ElementsAre("(interface both is left out, as it only repeats if0, if7)"));
    reader.selectInterfaces({"none", "both"});
    reader.openInterfaces();
    ASSERT_EQ(reader.getInterfaces().size(), 1U);
    EXPECT_EQ(reader.getInterfaces()[0].name, "both");
    EXPECT_THAT(told(),
                ElementsAre("there is no Ethernet interface none; it is captured when it appears"));
}

TEST_F(PacketReaderTest, CaptureWithoutInterfacesIsPacedAndMayBeginAgainInEitherMode) {
    port.interfaces.clear();
    reader.openInterfaces();
    std::atomic<int> passes = 0;
    counter.onCount = [&] { ++passes; };
    const auto begun = std::chrono::steady_clock::now();
    reader.startIdle();
    while (passes < 40) {
        std::this_thread::yield();
    }
    reader.startRead();
    reader.startIdle();
    reader.Stop();
    const std::chrono::duration<double, std::milli> passed =
        std::chrono::steady_clock::now() - begun;
    counter.onCount = nullptr;
    EXPECT_LT(passes, 40 + 20 * passed.count()) << "some looks at the clock a millisecond";
}

/// Such an interface never times out, so the pass never ends.
TEST_F(PacketReaderTest, FloodOfForeignFramesHoldsUpNeitherAChangeNorAStop) {
    port.interfaces[0].endless = [] { return ScriptedRead{1, wire::ethernet(0x0800)}; };
    reader.startRead();
    for (int i = 0; i < 20; ++i) {
        add(DeviceTypeInfo::linComboId, 1);
        devices.remove(0);
    }
    reader.Stop();
    EXPECT_EQ(manager.liveClocks(), 1);
}

TEST_F(PacketReaderTest, InterfaceThatCannotBeOpenedIsPassedOver) {
    port.add("good", {frame(1)});
    port.interfaces[0].openFails = true;
    port.interfaces[1].netFails = true;
    reader.openInterfaces();
    EXPECT_EQ(reader.getLastError(), 3);
    EXPECT_EQ(reader.getLastErrorText(), "can't open if0");
    ASSERT_EQ(reader.getInterfaces().size(), 1U);
    EXPECT_THAT(told(),
                ElementsAre(testing::StartsWith("can't open if0; the interface isn't captured")));
    const auto& its = reader.getInterfaces()[0];
    EXPECT_EQ(its.name + ' ' + its.description, "good about good");
    EXPECT_EQ(reader.getInterfaces()[0].net, 0U);
    reader.readPass();
    EXPECT_THAT(arrived(), ElementsAre(1));

    port.interfaces[0].openFails = false;
    reader.openInterfaces();
    EXPECT_EQ(std::to_string(reader.getLastError()) + reader.getLastErrorText(), "0");
    EXPECT_EQ(reader.getInterfaces()[0].net, 0x0AU);
}

}  // namespace
