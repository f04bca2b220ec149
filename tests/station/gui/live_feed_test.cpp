#include "station/gui/live_feed.h"

#include <QScrollBar>
#include <QTest>

#include "station/gui/live_panel.h"

namespace {

using namespace station;

class LiveFeedTest : public testing::Test {
  protected:
    static constexpr std::int64_t startUtc = 1'700'000'000'000'000'000;

    LiveFeedTest() {
        Summary summary;
        summary.startTime = Summary::Clock::time_point(std::chrono::nanoseconds(startUtc));
        summary.channels.resize(2);
        summary.channels[0].name = "Front";
        summary.channels[1].name = "Door";
        summary.channels[1].bus = BusType::Lin;
        feed.begin(summary);
    }

    void can(std::uint32_t id, std::uint8_t length = 2, std::int64_t nanoseconds = 0) {
        std::array<std::uint8_t, CanRecord::size> record = {};
        std::memcpy(record.data(), &id, sizeof id);
        record[7] = length;
        record[8] = 0xAB;
        feed.onMessage(0, startUtc + nanoseconds, record.data(), record.size());
    }
    void lin(std::uint8_t id) {
        std::array<std::uint8_t, LinRecord::size> record = {id, 1};
        record[4] = 0x0F;
        feed.onMessage(1, startUtc, record.data(), record.size());
    }
    static std::vector<std::string> row(const LiveModel& model, int row) {
        std::vector<std::string> texts;
        for (int column = 0; column < model.columnCount(); ++column) {
            texts.push_back(
                model.data(model.index(row, column), Qt::DisplayRole).toString().toStdString());
        }
        return texts;
    }

    LiveFeed feed;
};

TEST_F(LiveFeedTest, EachChannelShowsItsLastMessageAndTheListAllInOrder) {
    can(0x100, 2, 1'500'000);
    lin(17);
    can(0x18DA00F1, 1, 2'000'000);
    ChannelModel channels(feed);
    channels.update(feed);
    EXPECT_THAT(row(channels, 0), testing::ElementsAre("Front", "", "2", "0", "0x18DA00F1 (ext)",
                                                       "AB", "0.002000", ""));
    Summary summary;
    summary.channels.resize(2);
    summary.channels[1].counts = {.unusable = 5, .tooOld = 3};
    feed.setAccounts(summary);
    channels.update(feed);
    EXPECT_THAT(row(channels, 1),
                testing::ElementsAre("Door", "", "1", "0", "17", "0F", "0.000000", "3"));
    EXPECT_THAT(channels.data(channels.index(1, 7), Qt::ToolTipRole).toString().toStdString(),
                testing::MatchesRegex("lost: 3 came too late.*\nnot delivered: 5 .*"));
    MessageModel messages(feed);
    messages.update(feed);
    ASSERT_EQ(messages.rowCount(), 3);
    EXPECT_THAT(row(messages, 0), testing::ElementsAre("0.000000", "Door", "17", "1", "0F"));
    EXPECT_THAT(row(messages, 1), testing::ElementsAre("0.001500", "Front", "0x100", "2", "AB 00"));
}

TEST_F(LiveFeedTest, TheListHoldsTheLastMessagesAndNoMore) {
    MessageModel messages(feed);
    const auto total = static_cast<std::int64_t>(MessageRing::most) + 3;
    for (std::int64_t i = 0; i < total; ++i) {
        can(1, 0, i * 1000);
        if (i % 4000 == 0) {
            messages.update(feed);
        }
    }
    messages.update(feed);
    ASSERT_EQ(messages.rowCount(), static_cast<int>(MessageRing::most));
    EXPECT_EQ(row(messages, 0)[0], "0.000003");
    EXPECT_EQ(row(messages, messages.rowCount() - 1)[0], "0.010002");
}

TEST_F(LiveFeedTest, TheRateIsOfTheTimeSinceItWasLastWorkedOut) {
    using std::chrono::milliseconds;
    const auto start = LiveFeed::Clock::now() + std::chrono::hours(1);
    feed.updateRates(start);
    const auto rateAt = [&](int time) {
        feed.updateRates(start + milliseconds(time));
        return feed.getChannels()[0].traffic.getRate();
    };
    for (int i = 0; i < 30; ++i) {
        can(1);
    }
    EXPECT_EQ(rateAt(999), 0.0);
    EXPECT_EQ(rateAt(2000), 15.0);
    EXPECT_EQ(rateAt(4000), 0.0);
}

/// The panel with its controls.
class LivePanelTest : public LiveFeedTest {
  protected:
    LivePanelTest() {
        panel.resize(900, 300);
        panel.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
    }
    template <typename Widget>
    Widget& get(const char* name) {
        return *panel.findChild<Widget*>(name);
    }
    int rows() { return list.model()->rowCount(); }
    bool waitForRows(int count) {
        return QTest::qWaitFor([&] { return rows() == count; });
    }
    /// Messages and last identifier, of each channel.
    std::string overwritten() {
        const auto& model = *get<QTableView>("liveChannels").model();
        std::string texts;
        for (int row = 0; row < model.rowCount(); ++row) {
            texts += model.index(row, 2).data().toString().toStdString() + ' ' +
                     model.index(row, 4).data().toString().toStdString() + '|';
        }
        return texts;
    }

    LivePanel panel{feed};
    QComboBox& mode = get<QComboBox>("liveMode");
    QPushButton& pause = get<QPushButton>("livePause");
    QLineEdit& filter = get<QLineEdit>("liveFilter");
    QTableView& list = get<QTableView>("liveMessages");
};

TEST_F(LivePanelTest, TheListFollowsItsEndUntilTheUserScrollsAway) {
    QScrollBar& bar = *list.verticalScrollBar();
    for (int i = 0; i < 100; ++i) {
        can(0x100);
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return overwritten() == "100 0x100|0 |"; }));
    mode.setCurrentIndex(1);
    EXPECT_EQ(rows(), 100) << "up to date at once";
    EXPECT_GT(bar.maximum(), 0);
    EXPECT_EQ(bar.value(), bar.maximum());
    can(0x200);
    EXPECT_TRUE(waitForRows(101));
    EXPECT_EQ(bar.value(), bar.maximum());
    bar.setValue(1);
    can(0x200);
    EXPECT_TRUE(waitForRows(102));
    EXPECT_EQ(bar.value(), 1);
}

TEST_F(LivePanelTest, TheFilterIsAViewInAPauseTooAndAPauseHoldsInBothForms) {
    can(0x100);
    lin(17);
    can(0x200);
    QTest::mouseClick(&pause, Qt::LeftButton);
    can(0x300);
    lin(18);
    QTest::qWait(500);  // the picture would be drawn
    EXPECT_EQ(overwritten(), "2 0x200|1 17|");
    mode.setCurrentIndex(1);
    EXPECT_EQ(rows(), 3) << "not seen before the pause";
    QTest::keyClicks(&filter, "0x100-");
    EXPECT_EQ(filter.palette().color(QPalette::Text), QColor(Qt::red));
    EXPECT_EQ(rows(), 1) << "of the filter before";
    EXPECT_TRUE(filter.toolTip().contains("no identifier"));
    QTest::keyClicks(&filter, "0x1FF");
    EXPECT_NE(filter.palette().color(QPalette::Text), QColor(Qt::red));
    EXPECT_EQ(rows(), 1);
    mode.setCurrentIndex(0);
    EXPECT_EQ(overwritten(), "2 0x100|1 |") << "it counts all";
    filter.clear();
    EXPECT_EQ(overwritten(), "2 0x200|1 17|");
    QTest::mouseClick(&get<QPushButton>("liveClear"), Qt::LeftButton);
    EXPECT_EQ(overwritten(), "0 |0 |");
    can(0x100);
    lin(17);
    QTest::mouseClick(&pause, Qt::LeftButton);
    EXPECT_EQ(overwritten(), "1 0x100|1 17|");
    EXPECT_EQ(rows(), 2) << "in the other form too";
}

TEST_F(LivePanelTest, AnotherFilterFindsWhatCameAndRareMessagesStay) {
    mode.setCurrentIndex(1);
    can(0x100);
    lin(17);
    QTest::keyClicks(&filter, "0x100");
    for (std::size_t i = 0; i < MessageRing::most; ++i) {
        can(0x300);
    }
    can(0x100);
    EXPECT_TRUE(waitForRows(2)) << "the frequent ones haven't pushed the first one out";
    QTest::keyClicks(&filter, ",17");
    EXPECT_EQ(rows(), 3) << "the channel's last one";
    filter.clear();
    QTest::keyClicks(&filter, "0x101");
    EXPECT_EQ(rows(), 0);
    can(0x101);
    EXPECT_TRUE(waitForRows(1));
    filter.clear();
    EXPECT_EQ(rows(), static_cast<int>(MessageRing::most));
    mode.setCurrentIndex(0);
    EXPECT_EQ(overwritten(), "10003 0x101|1 17|");
    mode.setCurrentIndex(1);
    QTest::keyClicks(&filter, "17");
    EXPECT_EQ(rows(), 1);
    QTest::mouseClick(&get<QPushButton>("liveClear"), Qt::LeftButton);
    EXPECT_EQ(rows(), 0);
}

TEST_F(LiveFeedTest, ARecordOfAnotherSizeOrChannelIsPassedOver) {
    const std::array<std::uint8_t, 80> bytes = {};
    feed.onMessage(0, startUtc, bytes.data(), LinRecord::size);
    feed.onMessage(1, startUtc, bytes.data(), CanRecord::size);
    feed.onMessage(2, startUtc, bytes.data(), CanRecord::size);
    EXPECT_TRUE(feed.lastMessages().empty());
}

TEST(IdentifierFilterTest, ATextThatIsNoneSaysWhatOneLooksLike) {
    for (const char* const text : {"x", "0x", "1-", "-1", "5-4", "1,,2", "0x100000000", "1 2"}) {
        EXPECT_THROW(IdentifierFilter::parse(text), UserError) << text;
    }
    EXPECT_TRUE(IdentifierFilter::parse("  ").passes(0x1FFFFFFF));
    EXPECT_TRUE(IdentifierFilter::parse("0X10 - 0x20,").passes(32));
}

}  // namespace
