#include "station/view/live_feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>

#include "station/recording/bus_record.h"
#include "station/view/message_list.h"
#include "station/view/signal_taps.h"

namespace {

using namespace station;
using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr std::int64_t startUtc = 1'700'000'000'000'000'000;

class LiveFeedTest : public testing::Test {
  protected:
    LiveFeedTest() {
        Summary summary;
        summary.startTime = Summary::Clock::time_point(std::chrono::nanoseconds(startUtc));
        summary.channels.resize(2);
        summary.channels[0].name = "Front";
        summary.channels[1].name = "Door";
        summary.channels[1].bus = BusType::Lin;
        feed.begin(summary);
    }

    void can(std::uint32_t id, std::int64_t nanoseconds = 0, std::vector<std::uint8_t> data = {}) {
        std::array<std::uint8_t, CanRecord::size> record = {};
        std::memcpy(record.data(), &id, sizeof id);
        record[7] = static_cast<std::uint8_t>(data.size());
        std::copy(data.begin(), data.end(), record.begin() + 8);
        feed.onMessage(0, startUtc + nanoseconds, record.data(), record.size());
    }
    void extended(std::uint32_t id, const std::vector<std::uint8_t>& data) {
        std::array<std::uint8_t, CanRecord::size> record = {};
        std::memcpy(record.data(), &id, sizeof id);
        record[4] = 1;
        record[7] = static_cast<std::uint8_t>(data.size());
        std::copy(data.begin(), data.end(), record.begin() + 8);
        feed.onMessage(0, startUtc, record.data(), record.size());
    }
    void lin(std::uint8_t id, std::int64_t nanoseconds = 0) {
        std::array<std::uint8_t, LinRecord::size> record = {id, 1};
        record[4] = 0x0F;
        feed.onMessage(1, startUtc + nanoseconds, record.data(), record.size());
    }
    /// Looks until nothing is left to do.
    void look(MessageList& list) {
        list.finish(feed.getMessages(), feed.getBuses(), feed.getNow());
    }
    std::vector<std::string> texts(MessageList& list) {
        look(list);
        std::vector<std::string> found;
        for (std::size_t row = 0; row < list.size(); ++row) {
            const auto message = feed.getMessages().find(list.getNumber(row));
            found.push_back(message ? identifierText({*message, feed.getBuses()[message->channel]})
                                    : "gone");
        }
        return found;
    }
    void refresh() { feed.refresh(now += std::chrono::seconds(1)); }

    LiveFeed feed;
    LiveFeed::Clock::time_point now = LiveFeed::Clock::now() + std::chrono::hours(1);
};

TEST_F(LiveFeedTest, EachIdentifierHasItsCountCycleAndTheBytesThatChangedLately) {
    can(0x100, 0, {1, 2, 3});
    can(0x18DA00F1, 5);
    can(0x100, 20'000'000, {1, 9, 3});
    lin(0x11, 7);
    can(0x100, 30'000'000, {1, 9, 3, 4});
    refresh();
    const auto& rows = feed.getIdentifiers().getRows();
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].traffic.getCount(), 3U);
    EXPECT_EQ(rows[0].cycle, 10'000'000);
    EXPECT_EQ(rows[0].leastCycle, 10'000'000);
    EXPECT_EQ(rows[0].mostCycle, 20'000'000);
    EXPECT_EQ(rows[0].changed, 0b1010U);
    EXPECT_EQ(dataText(rows[0].last), "01 09 03 04");
    EXPECT_EQ(feed.getMessages().find(0)->size, 8U + 3) << "no room for bytes that aren't there";
    EXPECT_GT(rows[0].traffic.getRate(), 0.0);
    EXPECT_FALSE(rows[1].hasCycle());
    EXPECT_EQ(identifierText(rows[1].last), "18DA00F1x");
    EXPECT_EQ(flagsText(rows[1].last), "ext");
    EXPECT_EQ(identifierText(rows[2].last), "11") << "LIN";
    can(0x100, 40'000'000, std::vector<std::uint8_t>(12, 1));
    refresh();
    EXPECT_EQ(feed.getIdentifiers().getRows()[0].changed, 0b111111111110U);
    EXPECT_EQ(flagsText(feed.getIdentifiers().getRows()[0].last), "FD");
    refresh();
    EXPECT_EQ(feed.getIdentifiers().getRows()[0].changed, 0U);
    EXPECT_EQ(feed.getIdentifiers().getRows()[0].traffic.getRate(), 0.0);
    can(0x18DA00F1, 6, {0});
    refresh();
    EXPECT_EQ(feed.getIdentifiers().getRows()[1].changed, 1U) << "it is longer";
    const auto generation = feed.getGeneration();
    feed.clear();
    refresh();
    EXPECT_TRUE(feed.getIdentifiers().getRows().empty());
    EXPECT_EQ(feed.getChannels()[0].traffic.getCount(), 0U);
    EXPECT_NE(feed.getGeneration(), generation);
}

TEST_F(LiveFeedTest, TheListIsInTheOrderOfTimeAndItsFilterMayChange) {
    MessageList list;
    can(1, 50'000'000);
    can(2, 300'000'000);
    lin(3, 10'000'000);
    lin(4, 299'999'999);
    const auto update = [&] {
        return list.update(feed.getMessages(), feed.getBuses(), startUtc, milliseconds(10000));
    };
    EXPECT_TRUE(update());
    EXPECT_EQ(list.size(), 2U) << "the newest tenth of a second waits";
    lin(5, 250'000'000);
    EXPECT_THAT(texts(list), ElementsAre("03", "001", "05", "04", "002"));
    list.setFilter(LiveFilter::parse("2-4", {}));
    EXPECT_THAT(texts(list), ElementsAre("03", "04", "002"));
    can(2, 400'000'000);
    can(6, 400'000'000);
    EXPECT_THAT(texts(list), ElementsAre("03", "04", "002", "002"));
    list.setFilter(LiveFilter::parse("front 1-4", {"Front", "Door"}));
    EXPECT_THAT(texts(list), ElementsAre("001", "002", "002")) << "of the other channel nothing";
    // A clock an hour ahead is no reason to put others where they don't belong.
    list.setFilter({});
    texts(list);
    can(0x7F, 3'600'000'000'000);
    can(0x10, 900'000'000);
    EXPECT_TRUE(update());
    can(0x0F, 850'000'000);
    EXPECT_TRUE(update());
    EXPECT_TRUE(update()) << "nothing more comes";
    const auto all = texts(list);
    EXPECT_THAT(std::vector(all.end() - 3, all.end()), ElementsAre("07F", "00F", "010"));
    EXPECT_EQ(list.getMissed(), 0U);
    feed.clear();
    list.clear();
    can(1);
    EXPECT_THAT(texts(list), ElementsAre("001"));
    EXPECT_EQ(list.getMissed(), 0U) << "what was forgotten isn't missing";
}

TEST_F(LiveFeedTest, MemoryIsBoundedTheNewestStayAndAPictureKeepsWhatItHas) {
    MessageList list;
    can(0x7FF);
    look(list);
    const LiveFeed picture = feed;
    feed.setHeld(true);
    // More than a quarter of the memory holds, with 88 bytes each.
    constexpr int count = 1'500'000;
    const std::vector<std::uint8_t> data(64);
    for (int i = 1; i <= count; ++i) {
        can(static_cast<std::uint32_t>(i) % 0x700, std::int64_t{i} * 1000, data);
        if (i % 400'000 == 0) {
            look(list);
        }
    }
    const MessageStore& store = feed.getMessages();
    EXPECT_EQ(store.end(), 1U + count);
    const std::uint64_t kept = store.end() - store.begin();
    EXPECT_LT(kept * 88, LiveFeed::memory / 4);
    EXPECT_GT(kept * 100, LiveFeed::memory / 4 / 10 * 9);
    EXPECT_FALSE(store.find(store.begin() - 1) || store.find(store.end()));
    look(list);
    EXPECT_EQ(list.size(), kept);
    EXPECT_EQ(list.getNumber(0), store.begin());
    EXPECT_EQ(list.getGone() + list.size() + list.getMissed(), 1U + count);
    EXPECT_EQ(list.getNumber(list.size() - 1), store.end() - 1);
    refresh();
    EXPECT_EQ(feed.getMissed() + kept, 1U + count);
    ASSERT_TRUE(picture.getMessages().find(0));
    EXPECT_EQ(CanRecord(picture.getMessages().find(0)->record).id, 0x7FFU);
    EXPECT_EQ(picture.getMessages().end(), 1U);
}

TEST_F(LiveFeedTest, IdentifiersAreBoundedAndARecordOfAnotherSizeOrChannelIsPassedOver) {
    const std::array<std::uint8_t, 80> bytes = {};
    feed.onMessage(0, startUtc, bytes.data(), LinRecord::size);
    feed.onMessage(1, startUtc, bytes.data(), CanRecord::size);
    feed.onMessage(2, startUtc, bytes.data(), CanRecord::size);
    EXPECT_EQ(feed.getMessages().end(), 0U);
    for (std::uint32_t id = 0; id < IdentifierTable::most + 5; ++id) {
        can(id);
    }
    can(0, 1);
    refresh();
    EXPECT_EQ(feed.getIdentifiers().getRows().size(), IdentifierTable::most);
    EXPECT_EQ(feed.getIdentifiers().getLeftOut(), 5U);
    EXPECT_EQ(feed.getIdentifiers().getRows()[0].traffic.getCount(), 2U);
}

TEST_F(LiveFeedTest, TapsGiveEachSignalOnceAndWhatIsGoneIsCounted) {
    auto database = std::make_shared<Database>();
    MessageDefinition engine;
    engine.id = 0x100;
    engine.signals.resize(2);
    for (SignalDefinition& signal : engine.signals) {
        signal.size = 8;
    }
    engine.signals[1].startBit = 8;
    database->messages.push_back(engine);
    feed.setDecoders({std::make_shared<const Decoder>(database)});
    SignalTaps taps;
    std::vector<double> values[2];
    const auto add = [&](std::size_t number) {
        taps.add(
            number, feed, {0, 0x100, false, number},
            [&values, number](std::int64_t, double value) { values[number].push_back(value); });
    };
    const auto update = [&] { taps.update(feed, milliseconds(10000)); };
    can(0x100, 0, {1, 2});
    add(0);
    update();
    can(0x100, 1, {3, 4});
    extended(0x100, {5, 6});
    can(0x101, 3, {7, 8});
    add(1);
    update();
    EXPECT_THAT(values[0], ElementsAre(1, 3));
    EXPECT_THAT(values[1], ElementsAre(2, 4)) << "also what came before it was wanted";
    taps.remove(0);
    can(0x100, 4, {9, 10});
    update();
    update();
    EXPECT_THAT(values[0], ElementsAre(1, 3));
    EXPECT_THAT(values[1], ElementsAre(2, 4, 10));
    EXPECT_EQ(taps.getMissed(), 0U);
    feed.setHeld(true);  // less memory
    const std::uint64_t before = feed.getMessages().end();
    for (int i = 0; i < 1'000'000; ++i) {
        can(0x101, i, std::vector<std::uint8_t>(64));
    }
    EXPECT_GT(feed.getMessages().begin(), before);
    update();
    EXPECT_EQ(taps.getMissed(), feed.getMessages().begin() - before);
    refresh();
    EXPECT_GT(feed.getMissed(), 0U);
    feed.clear();
    EXPECT_EQ(feed.getMissed(), 0U);
}

}  // namespace
