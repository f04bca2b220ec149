#include <malloc.h>

#include <algorithm>
#include <bit>
#include <numeric>

#include "capture/cmp_channel_canfd.h"
#include "capture/cmp_channel_lin.h"
#include "tests/support/capture_rig.h"
#include "tests/support/sample_frames.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Pair;
using wire::Bytes;
constexpr auto Valid = FakeClock::Status::Valid;
constexpr auto Wait = FakeClock::Status::Wait;
constexpr auto Discard = FakeClock::Status::Discard;
using Reason = Kestrova::Utils::Kcom::Synchronization::GNSSTimeReason;

class ChannelTest : public ::testing::Test {
  protected:
    ChannelTest() {
        canBus.createOutput();
        linBus.createOutput();
    }

    static bool give(CmpChannel& channel, const Bytes& payload) {
        const bool taken =
            channel.onData({}, static_cast<std::uint32_t>(payload.size()), payload.data());
        channel.handOver();
        return taken;
    }
    /// Queues CAN messages with these identifiers.
    void queue(std::initializer_list<std::uint32_t> identifiers) {
        for (const std::uint32_t identifier : identifiers) {
            give(canBus, wire::can(identifier, {}));
        }
    }
    /// Flushes with a clock that gives these answers, and then waits.
    void flush(CmpChannel& channel, std::deque<FakeClock::Result> answers) {
        clock->script = std::move(answers);
        clock->script.push_back({Wait, 0.0});
        channel.takeOver();
        channel.flush(clock);
    }
    static FakeOutput& outputOf(const CmpChannel& channel) {
        return static_cast<FakeOutput&>(*channel.getOutput());
    }
    /// The records that come out for one payload.
    std::vector<Bytes> recordsOf(CmpChannel& channel, const Bytes& payload) {
        const bool taken = give(channel, payload);
        flush(channel, {{Valid, 1.0}});
        std::vector<Bytes> records;
        for (const auto& sample : std::exchange(outputOf(channel).samples, {})) {
            records.push_back(sample.bytes);
        }
        EXPECT_EQ(records.size(), taken ? 1U : 0U);
        return records;
    }

    FakeOutputFactory factory;
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    CmpChannelCanfd canBus{&factory};
    CmpChannelLin linBus{&factory};
};

TEST_F(ChannelTest, PayloadIsTakenOnlyIfItsDataAreAllThereAndFit) {
    for (std::size_t length = 0; length <= 70; ++length) {
        const auto lengthByte = static_cast<std::uint8_t>(length);
        const Bytes data = wire::counting(length);
        Bytes canRecord{0x23, 1, 0, 0, 0, 0, 0, lengthByte};
        wire::put(canRecord, data);
        canRecord.resize(72);
        Bytes linRecord{5, lengthByte, 0, 0};
        wire::put(linRecord, data);
        linRecord.resize(12);
        linRecord.push_back(0x77);
        Bytes can = wire::can(0x123, data);
        can.resize(5 + length);  // what follows the data isn't needed
        Bytes lin = wire::lin(0xC5, data, 0x77);
        EXPECT_THAT(recordsOf(canBus, can), ElementsAreArray(&canRecord, length <= 64 ? 1 : 0));
        EXPECT_THAT(recordsOf(linBus, lin), ElementsAreArray(&linRecord, length <= 8 ? 1 : 0));
        can.pop_back();
        lin.pop_back();
        EXPECT_THAT(recordsOf(canBus, can), IsEmpty()) << length;
        EXPECT_THAT(recordsOf(linBus, lin), IsEmpty()) << length;
    }
    for (const auto& [onWire, head] : {std::pair(0x80000123U, Bytes{0x23, 1, 0, 0, 1}),
                                       {0x40000123U, {0x23, 1, 0, 0, 0}},
                                       {0xFFFFFFFFU, {0xFF, 0xFF, 0xFF, 0x1F, 1}}}) {
        Bytes record = recordsOf(canBus, wire::can(onWire, {})).at(0);
        record.resize(5);
        EXPECT_EQ(record, head);
    }
}

TEST_F(ChannelTest, HostTimeNeverGoesBackNorDoesAFailedWriteLoseASample) {
    queue({1, 2, 3});
    outputOf(canBus).failAt = 1;
    EXPECT_THROW(flush(canBus, {{Valid, 5.0}, {Valid, 9.0}}), std::runtime_error);
    flush(canBus, {{Valid, 4.9}});
    queue({9});
    canBus.reset();  // drops what waits and what was handed over, but not the time
    queue({4, 5});
    flush(canBus, {{Valid, 1.0}});
    canBus.resetLastTime();
    flush(canBus, {{Valid, 1.0}});
    std::vector<std::pair<int, double>> written;
    for (const auto& sample : outputOf(canBus).samples) {
        written.emplace_back(sample.bytes[0], sample.time);
    }
    EXPECT_THAT(written, ElementsAre(Pair(1, 5.0), Pair(2, 5.0), Pair(4, 5.0), Pair(5, 1.0)));
    EXPECT_EQ(canBus.getCounts().raised, 2U);
}

TEST_F(ChannelTest, LongQueueKeepsItsOrderAndGivesItsMemoryBack) {
    const auto memory = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t before = memory();
    std::uint32_t given = 0;
    std::uint32_t taken = 0;
    for (const std::uint32_t count : {40000U, 3U, 80000U, 1U, 1U}) {
        for (std::uint32_t i = 0; i < count; ++i, ++given) {
            give(canBus, wire::can(given, wire::counting(given % 65)));
        }
        const bool hasWaiting = given > 80000;  // from then on there is always one that waits
        flush(canBus,
              std::deque<FakeClock::Result>(given - taken - (hasWaiting ? 1 : 0), {Valid, 1.0}));
        for (const auto& sample : std::exchange(outputOf(canBus).samples, {})) {
            ASSERT_EQ(std::memcmp(sample.bytes.data(), &taken, 4), 0) << taken;
            ASSERT_TRUE(CaptureRig::isWholeRecord(sample)) << taken;
            ++taken;
        }
        EXPECT_EQ(given - taken, hasWaiting ? 1U : 0U);
        EXPECT_LT(memory(), before + (1U << 20)) << "a bounded part is kept";
    }
}

TEST(ChannelCountsTest, EachIsAddedToItsOwn) {
    std::array<std::uint64_t, sizeof(ChannelCounts) / 8> numbers;
    std::iota(numbers.begin(), numbers.end(), 1U);
    auto sum = std::bit_cast<ChannelCounts>(numbers);
    sum += sum;
    std::ranges::transform(numbers, numbers.begin(), [](auto number) { return 2 * number; });
    EXPECT_EQ(std::bit_cast<decltype(numbers)>(sum), numbers);
}

TEST_F(ChannelTest, EachFateHasItsCount) {
    const auto counts = [this] {
        return std::bit_cast<std::array<std::uint64_t, 11>>(canBus.getCounts());
    };
    give(canBus, Bytes(4));
    queue({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    flush(canBus, {{Discard, 0.0, Reason::BeforeStart},
                   {Valid, 1.0},
                   {Valid, 1.0},
                   {Discard, 0.0, Reason::BeforeStart},
                   {Discard, 0.0, Reason::TooOld},
                   {Discard, 0.0, Reason::TooNew},
                   {Discard, 0.0, Reason::NotPlaced}});
    canBus.releaseOutput();
    flush(canBus, {{Valid, 1.0}});
    EXPECT_THAT(counts(), ElementsAre(1, 12, 2, 0, 1, 0, 2, 1, 1, 0, 1));
    queue({13, 14});  // handed over, but not taken over
    clock->script = {{Wait, 0.0, Reason::AheadOfPosition},
                     {Wait, 0.0, Reason::FarAhead},
                     {Wait, 0.0, Reason::NotBegun},
                     {Discard, 0.0, Reason::TooOld},
                     {Valid, 0.0},
                     {Valid, 0.0}};
    canBus.endCounting(clock);
    EXPECT_THAT(counts(), ElementsAre(1, 14, 2, 0, 1, 1, 3, 2, 2, 2, 1));
    canBus.beginCounting();
    EXPECT_THAT(counts(), testing::Each(0));
}

TEST_F(ChannelTest, OutputsAreDescribedAndNotUsedYet) {
    const auto describe = [](CmpChannel& channel) {
        const FakeOutput& output = outputOf(channel);
        return output.name + ' ' + output.description + (output.used ? " used" : "") + ' ' +
               std::to_string(channel.outputType().dataType);
    };
    EXPECT_EQ(describe(canBus), "CANFD channel 10000 14");
    EXPECT_EQ(describe(linBus), "LIN channel 100/11 12");
}

TEST_F(ChannelTest, LastValueIsTheSampleLookedAtLastByAFlushThatWrote) {
    queue({1, 2, 3});
    flush(canBus, {{Discard, 0.0}});
    EXPECT_EQ(canBus.getLastValueText(), "");
    flush(canBus, {{Valid, 1.0}});
    EXPECT_EQ(canBus.getLastValueText(), "0x3: ") << "the one that waits";
    queue({4, 5});
    flush(canBus, {{Valid, 1.0}, {Valid, 1.0}, {Discard, 0.0}});
    EXPECT_EQ(canBus.getLastValueText(), "0x5: ") << "the one that was thrown out";
    canBus.reset();
    EXPECT_EQ(canBus.getLastValueText(), "");

    give(canBus, wire::can(0x98FF0010, {0x01, 0xA2}));
    flush(canBus, {{Valid, 1.0}});
    EXPECT_EQ(canBus.getLastValueText(), "0x18FF0010(ext): 01 A2 ");
    give(linBus, wire::lin(33, {0x0F, 0xA1}, 0x55));
    flush(linBus, {{Valid, 1.0}});
    EXPECT_EQ(linBus.getLastValueText(), "33: 0F A1 ");
}

}  // namespace
