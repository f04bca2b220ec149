#include <QApplication>
#include <QClipboard>
#include <QPainter>
#include <QScrollBar>

#include "station/gui/bytes_delegate.h"
#include "tests/station/gui/live_panel_rig.h"

namespace {

using namespace live_panel_rig;

constexpr std::int64_t second = 1'000'000'000;
constexpr QRgb marking = 0xFFFF00FF;

/// Which columns of an area have a pixel of that colour: the first and the last.
std::pair<int, int> columnsOf(const QImage& picture, QRgb color, const QRect& area) {
    int first = -1;
    int last = -1;
    for (int x = area.left(); x <= area.right(); ++x) {
        for (int y = area.top(); y <= area.bottom(); ++y) {
            if (picture.pixel(x, y) == color) {
                first = first < 0 ? x : first;
                last = x;
            }
        }
    }
    return {first, last};
}

QPalette markedPalette() {
    QPalette palette;
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::Text, Qt::black);
    palette.setColor(QPalette::HighlightedText, Qt::black);
    palette.setColor(QPalette::Highlight, QColor::fromRgb(marking));
    return palette;
}

TEST_F(LivePanelTest, RowsAreSortedByWhateverAColumnShows) {
    // Next to no two columns have the same order.
    const auto send = [&](std::uint32_t id, std::uint8_t first, std::uint8_t length,
                          std::initializer_list<int> milliseconds) {
        for (const int time : milliseconds) {
            can(id, first, time * 1'000'000LL, length);
        }
    };
    send(0x400, 3, 9, {0, 300, 370, 490});
    send(0x200, 4, 2, {0, 100, 250, 350, 550});
    send(0x100, 5, 1, {0, 50, 200});
    using Model = IdentifierModel;
    EXPECT_TRUE(waitFor("Front (CAN FD) 12: 100=3 200=5 400=4|Door (LIN) 0:|"));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return shown(Model::Rate).find("400=0") == std::string::npos; }, 10000));
    const std::pair<int, const char*> ascending[] = {
        {Model::Name, "100 200 400"},       {Model::Messages, "100 400 200"},
        {Model::Rate, "100 400 200"},       {Model::Cycle, "400 100 200"},
        {Model::LeastCycle, "100 400 200"}, {Model::MostCycle, "100 200 400"},
        {Model::Age, "200 400 100"},        {Model::Length, "100 200 400"},
        {Model::Data, "400 200 100"},       {Model::Time, "100 400 200"}};
    const auto front = [&] {  // channels are sorted, too
        const QModelIndex first = tree.model()->index(0, 0);
        return text(first).starts_with("Front") ? first : first.siblingAtRow(1);
    };
    const auto order = [&] {
        std::string names;
        const QModelIndex parent = front();
        for (int row = 0; row < 3; ++row) {
            names += (row > 0 ? " " : "") + text(tree.model()->index(row, 0, parent));
        }
        return names;
    };
    for (const auto& [column, names] : ascending) {
        tree.sortByColumn(column, Qt::AscendingOrder);
        EXPECT_EQ(order(), names) << "by column " << column;
    }
    for (int column = Model::Messages; column <= Model::Time; ++column) {
        const QModelIndex cell = tree.model()->index(0, column, front());
        const auto font = cell.data(Qt::FontRole).value<QFont>();
        EXPECT_EQ(font, fixedFont()) << "digits below each other";
        if (column != Model::Data) {  // up to 64 bytes
            EXPECT_LT(QFontMetrics(font).horizontalAdvance(cell.data().toString()),
                      tree.columnWidth(column))
                << "of column " << column;
        }
    }
    EXPECT_THAT(shown(Model::LeastCycle), HasSubstr("100=50.000 400=70.000 200=100.000"));
    EXPECT_THAT(shown(Model::MostCycle), HasSubstr("100=150.000 400=300.000 200=200.000"));
    tree.sortByColumn(Model::Flags, Qt::AscendingOrder);
    EXPECT_EQ(order().substr(8), "400") << "the one with FD";
    // What comes later is sorted again, and the order is there again with the next start.
    tree.sortByColumn(Model::Messages, Qt::DescendingOrder);
    for (int i = 0; i < 5; ++i) {
        can(0x400, 3, second, 9);
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return order() == "400 200 100"; }));
    mode.setCurrentIndex(1);
    panel.saveLayout();
    LivePanel other(feed);
    EXPECT_EQ(other.findChild<QTreeView*>("liveIdentifiers")->header()->sortIndicatorSection(),
              Model::Messages);
    EXPECT_EQ(other.findChild<QComboBox*>("liveMode")->currentIndex(), 1);
}

TEST_F(LivePanelTest, ChannelsAreSortedByLossAndShowRateLoadAccountAndColour) {
    summary.modules.resize(1);
    summary.modules[0].channels = {{0x10, "CAN FD", -1, "Front", true, 0x112233},
                                   {0x20, "LIN", -1, "Door", true, 0x445566}};
    for (std::size_t i = 0; i < 2; ++i) {
        summary.channels[i].module = 0;
        summary.channels[i].interfaceId = static_cast<std::uint16_t>(0x10 * (i + 1));
    }
    feed.begin(summary);
    summary.channels[0].load = BusLoadSummary{{500'000, 0}, 0.124, 0.2, 0.3};
    summary.channels[1].load = BusLoadSummary{{19'200, 0}, 0.5, 0.2, 0.5};
    summary.channels[0].overwritten = 7;
    feed.follow(summary);
    for (int i = 0; i < 30; ++i) {
        can(0x100);
    }
    lin(0x11);
    const auto top = [&](int row, int column) { return tree.model()->index(row, column); };
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return text(top(0, IdentifierModel::Rate)).size() > 1; }, 10000));
    EXPECT_THAT(shown(IdentifierModel::Rate), testing::ContainsRegex(": 11=[01]\\.[0-9]\\|"))
        << "with a decimal, if it is low";
    EXPECT_EQ(text(top(0, IdentifierModel::Load)), "12.4 %");
    EXPECT_EQ(text(top(1, IdentifierModel::Load)), "50.0 %");
    EXPECT_THAT(get<QLabel>("liveStatus").text().toStdString(), HasSubstr("Bus load 31.2 %"));
    EXPECT_EQ(text(top(0, IdentifierModel::Lost)), "7");
    EXPECT_TRUE(top(0, IdentifierModel::Lost).data(Qt::ToolTipRole).toString().contains("7"));
    EXPECT_EQ(top(0, 0).data(Qt::DecorationRole).value<QColor>(), QColor(0x112233));
    for (int column = IdentifierModel::Cycle; column < IdentifierModel::columns; ++column) {
        if (column != IdentifierModel::Time) {
            EXPECT_FALSE(
                tree.model()->headerData(column, Qt::Horizontal, Qt::ToolTipRole).isNull());
        }
    }
    tree.sortByColumn(IdentifierModel::Lost, Qt::AscendingOrder);
    EXPECT_EQ(text(top(0, 0)), "Door (LIN)");
    tree.sortByColumn(IdentifierModel::Load, Qt::AscendingOrder);
    EXPECT_EQ(text(top(0, 0)), "Front (CAN FD)");
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(31));
    EXPECT_EQ(
        list.model()->index(0, MessageModel::Channel).data(Qt::DecorationRole).value<QColor>(),
        QColor(0x112233));
}

TEST_F(LivePanelTest, APauseHoldsWhatCameUpToItAndClearEmptiesWhatIsShown) {
    can(0x100);
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(1));
    can(0x200);  // isn't drawn yet
    QTest::mouseClick(&pause, Qt::LeftButton);
    EXPECT_TRUE(waitForRows(2)) << "it belongs to the picture";
    can(0x300);
    QTest::qWait(500);
    EXPECT_EQ(list.model()->rowCount(), 2);
    // Both forms are those of the pause, also when the other one is shown.
    mode.setCurrentIndex(0);
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|Door (LIN) 0:|")) << shown();
    auto& plotPause = *get<PlotPanel>("plot").findChild<QPushButton*>("plotPause");
    EXPECT_TRUE(plotPause.isChecked());
    QTest::mouseClick(&get<QPushButton>("liveClear"), Qt::LeftButton);
    EXPECT_TRUE(waitFor("Front (CAN FD) 0:|Door (LIN) 0:|"));
    can(0x400);
    QTest::mouseClick(&pause, Qt::LeftButton);
    EXPECT_FALSE(plotPause.isChecked());
    EXPECT_TRUE(waitFor("Front (CAN FD) 1: 400=1|Door (LIN) 0:|"));
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(1));
}

TEST_F(LivePanelTest, KeysFindTheNextRowAndChooseRows) {
    for (int i = 0; i < 40; ++i) {
        can(0x100 + (i % 20 == 7 ? 0xABU : 0U), 1, i * 10'000'000LL);
    }
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(40));
    list.setFocus();
    QTest::keySequence(&list, QKeySequence::Find);
    EXPECT_TRUE(search.hasFocus());
    QTest::keyClicks(&search, "1aB\r");
    EXPECT_EQ(list.currentIndex().row(), 7);
    QTest::keySequence(&panel, QKeySequence::FindNext);
    EXPECT_EQ(list.currentIndex().row(), 27);
    list.setCurrentIndex(list.model()->index(0, 0));
    list.setFocus();
    const int page = list.verticalScrollBar()->pageStep();
    ASSERT_GT(page, 3);
    QTest::keyClick(&list, Qt::Key_PageDown);
    EXPECT_EQ(list.currentIndex().row(), page);
    // Chosen from below, and copied in the order in which they are shown.
    list.verticalScrollBar()->setValue(0);
    const auto press = [&](int row, Qt::KeyboardModifiers keys) {
        QTest::mouseClick(list.viewport(), Qt::LeftButton, keys,
                          list.visualRect(list.model()->index(row, 0)).center());
    };
    press(3, Qt::NoModifier);
    press(1, Qt::ControlModifier);
    QTest::keySequence(&list, QKeySequence::Copy);
    EXPECT_THAT(QApplication::clipboard()->text().toStdString(),
                testing::StartsWith("0.010000\tFront"));
    press(0, Qt::NoModifier);
    press(3, Qt::ShiftModifier);
    EXPECT_EQ(list.selectionModel()->selectedRows().size(), 4);
    for (int i = 0; i < 20'000; ++i) {
        can(0x100);
    }
    EXPECT_TRUE(waitForRows(20'040));
    list.selectAll();
    QTest::keySequence(&list, QKeySequence::Copy);
    EXPECT_EQ(QApplication::clipboard()->text().count('\n'), 19'999);
    EXPECT_THAT(get<QLabel>("liveStatus").text().toStdString(), HasSubstr("20,000 rows"));
}

TEST_F(LivePanelTest, TheListDrawsItsRowsTheChosenOnesAndFollowsTheHeader) {
    list.setPalette(markedPalette());
    can(0x111, 1, 0);
    can(0x7FF, 0xFF, second, 8);
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(2));
    list.setCurrentIndex(list.model()->index(1, 0));
    const auto picture = [&] {
        QCoreApplication::processEvents();
        return list.viewport()->grab().toImage();
    };
    const QImage image = picture();
    const auto rowArea = [&](int row) {
        QRect area = list.visualRect(list.model()->index(row, MessageModel::Identifier));
        return area.intersected(image.rect());
    };
    EXPECT_EQ(columnsOf(image, marking, rowArea(0)).first, -1);
    EXPECT_GE(columnsOf(image, marking, rowArea(1)).first, 0) << "it is chosen";
    EXPECT_NE(image.copy(rowArea(0)), QImage(rowArea(0).size(), image.format()));
    list.clearSelection();
    const QImage plain = picture();
    EXPECT_NE(plain.copy(rowArea(0)), plain.copy(rowArea(1))) << "each its own row";
    EXPECT_GE(columnsOf(plain, qRgb(0, 0, 0), rowArea(0)).first, 0) << "texts";
    list.getHeader()->resizeSection(MessageModel::Channel, 2000);
    QCoreApplication::processEvents();
    list.horizontalScrollBar()->setValue(500);
    EXPECT_EQ(list.getHeader()->offset(), 500);
    EXPECT_EQ(list.visualRect(list.model()->index(0, 0)).left(), -500);
}

TEST(BytesDelegateTest, MarksTheBytesThatChangedAndDrawsAll) {
    QTreeView view;
    view.setPalette(markedPalette());
    view.setFont(fixedFont());
    struct Model final : QAbstractListModel {
        qulonglong changed = 0;
        int rowCount(const QModelIndex&) const override { return 1; }
        QVariant data(const QModelIndex&, int role) const override {
            return role == Qt::DisplayRole    ? QVariant("11 22 33 44")
                   : role == Qt::FontRole     ? QVariant(fixedFont())
                   : role == changedBytesRole ? QVariant::fromValue(changed)
                                              : QVariant();
        }
    } model;
    BytesDelegate delegate;
    QStyleOptionViewItem option;
    option.widget = &view;
    option.palette = view.palette();
    option.rect = {0, 0, 300, 20};
    const auto drawn = [&](qulonglong changed) {
        model.changed = changed;
        QImage image(300, 20, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::TextAntialiasing, false);
        delegate.paint(&painter, option, model.index(0));
        return image;
    };
    const int digit = QFontMetrics(fixedFont()).horizontalAdvance('0');
    const auto [first, last] = columnsOf(drawn(0b100), marking, {0, 0, 300, 20});
    EXPECT_NEAR(first, 6 * digit, digit) << "the third byte";
    EXPECT_NEAR(last - first, 2 * digit, 2);
    EXPECT_EQ(columnsOf(drawn(0), marking, {0, 0, 300, 20}).first, -1);
    const QImage marked = drawn(0b1);
    for (int byte = 0; byte < 4; ++byte) {
        const QRect area(byte * 3 * digit + 3, 0, 2 * digit, 20);
        const QImage part = marked.copy(area);
        bool hasText = false;
        for (int x = 0; x < part.width(); ++x) {
            for (int y = 0; y < part.height(); ++y) {
                hasText = hasText || qGray(part.pixel(x, y)) < 60;
            }
        }
        EXPECT_TRUE(hasText) << "byte " << byte;
    }
}

TEST_F(LivePanelTest, TimesAreCutToMicrosecondsInEachForm) {
    EXPECT_EQ(clockText(1'999), "00:00:00.000001");
    EXPECT_EQ(clockText(-1'000'000), "23:59:59.999000") << "before 1970";
    EXPECT_EQ(clockText(86'399'999'999'999), "23:59:59.999999") << "cut, not rounded up";
    can(0x100, 1, 500'000'000);
    can(0x100, 1, 2'750'000'000);
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(2));
    const char* const wanted[] = {"2.750000", "22:13:22.750000", "2.250000"};
    for (int form = 0; form < 3; ++form) {
        times.setCurrentIndex(form);
        EXPECT_THAT(rows()[1], testing::StartsWith(wanted[form]));
    }
}

TEST_F(LivePanelTest, WhatIsntShownIsSaid) {
    const auto status = [&] { return get<QLabel>("liveStatus").text().toStdString(); };
    for (std::uint32_t id = 0; id < IdentifierTable::most + 5; ++id) {
        can(id);
    }
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return status().find("5 messages of more than 20,000") != std::string::npos; },
        20000));
    feed.setHeld(true);  // less memory
    std::array<std::uint8_t, CanRecord::size> record = {};
    record[7] = 64;
    for (int i = 0; i < 1'200'000; ++i) {  // more than it takes, and nothing is looked at
        feed.onMessage(0, startUtc, record.data(), record.size());
    }
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return status().find("came too fast to be shown") != std::string::npos; }, 20000));
    feed.awaitDecoders();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return status().find("databases are being read") != std::string::npos; }, 20000));
    feed.setDecoders({});
    EXPECT_FALSE(feed.isAwaitingDecoders());
}

}  // namespace
