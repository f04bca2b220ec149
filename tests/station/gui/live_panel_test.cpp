#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QMimeData>
#include <QScrollBar>
#include <QTableWidget>
#include <fstream>
#include <sstream>

#include "tests/station/gui/live_panel_rig.h"

namespace {

using namespace live_panel_rig;

TEST_F(LivePanelTest, EachIdentifierHasARowBelowItsChannel) {
    can(0x200, 1, 1'000'000'000);
    can(0x100, 2, 1'500'000'000);
    can(0x200, 3, 2'000'000'000);
    lin(0x11);
    EXPECT_TRUE(waitFor("Front (CAN FD) 3: 100=1 200=2|Door (LIN) 1: 11=1|"));
    EXPECT_TRUE(tree.isExpanded(tree.model()->index(0, 0)));
    EXPECT_THAT(shown(IdentifierModel::Cycle), HasSubstr("100= 200=1000.000"));
    EXPECT_THAT(shown(IdentifierModel::Age), HasSubstr("100=1.0 200=0.5"));
    EXPECT_THAT(shown(IdentifierModel::Data), HasSubstr("100=02 00 200=03 00"));
    EXPECT_THAT(shown(IdentifierModel::Time), HasSubstr("100=1.500000 200=2.000000"));
    times.setCurrentIndex(1);
    EXPECT_THAT(shown(IdentifierModel::Time), HasSubstr("100=22:13:21.500000"));
    times.setCurrentIndex(2);
    EXPECT_THAT(shown(IdentifierModel::Time), HasSubstr("100= 200=1.000000"));
    const QModelIndex parent = tree.model()->index(0, 0);
    EXPECT_EQ(tree.model()->index(1, IdentifierModel::Data, parent).data(changedBytesRole), 1U);
    tree.sortByColumn(IdentifierModel::Messages, Qt::DescendingOrder);
    EXPECT_THAT(shown(), HasSubstr("200=2 100=1"));
    tree.collapse(parent);
    can(0x300);
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown().find("300=1") != std::string::npos; }));
    EXPECT_FALSE(tree.isExpanded(tree.model()->index(0, 0))) << "what is folded stays so";
    summary.channels[1].counts = {.unusable = 5, .tooOld = 3};
    feed.follow(summary);
    const QModelIndex lost = tree.model()->index(0, IdentifierModel::Lost);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return text(lost) == "3" || text(lost.siblingAtRow(1)) == "3"; }));
    feed.begin(Summary());
    EXPECT_TRUE(waitFor("")) << "another measurement";
}

TEST_F(LivePanelTest, TheListFollowsItsEndOrKeepsTheRowUnderTheEye) {
    QScrollBar& bar = *list.verticalScrollBar();
    for (int i = 0; i < 100; ++i) {
        can(0x100);
    }
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(100));
    EXPECT_GT(bar.maximum(), 0);
    EXPECT_EQ(bar.value(), bar.maximum());
    can(0x200);
    EXPECT_TRUE(waitForRows(101));
    EXPECT_EQ(bar.value(), bar.maximum());
    EXPECT_EQ(list.indexAt(list.viewport()->rect().center()).row() <= 100, true);
    list.setCurrentIndex(list.model()->index(50, 0));
    QTest::keyClick(&list, Qt::Key_PageUp);
    const int row = list.currentIndex().row();
    EXPECT_LT(row, 50);
    EXPECT_TRUE(list.viewport()->rect().contains(list.visualRect(list.currentIndex())));
    bar.setValue(0);
    feed.setHeld(true);  // less memory, so that rows go soon
    std::int64_t time = 0;
    const auto& store = feed.getMessages();
    const auto addUntilSomeGo = [&] {
        const auto before = store.begin();
        for (int i = 0; i < 2'000'000 && store.begin() == before; ++i) {
            can(0x100, 0xAB, time += 1'000'000, 64);
        }
        return static_cast<int>(store.begin() - before);
    };
    EXPECT_GT(addUntilSomeGo(), 1000);
    const auto isUpToDate = [&] {
        return std::cmp_greater(list.model()->rowCount() + 1000, store.end() - store.begin());
    };
    EXPECT_TRUE(QTest::qWaitFor(isUpToDate, 60000));
    EXPECT_EQ(bar.value(), 0) << "what was there has gone";
    const auto seen = [&] { return text(list.indexAt({5, 5}).siblingAtColumn(0)); };
    bar.setValue(100'000);
    const std::string before = seen();
    const int gone = addUntilSomeGo();
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar.value() == 100'000 - gone; }, 60000));
    EXPECT_EQ(seen(), before);
}

TEST_F(LivePanelTest, APauseHoldsBothFormsAndTheFilterIsAViewInItToo) {
    can(0x100);
    lin(0x17);
    can(0x200);
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|Door (LIN) 1: 17=1|"));
    QTest::mouseClick(&pause, Qt::LeftButton);
    can(0x300);
    lin(0x18);
    QTest::qWait(500);  // the picture would be drawn
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|Door (LIN) 1: 17=1|"));
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(3)) << "not seen before the pause";
    EXPECT_THAT(get<QLabel>("liveStatus").text().toStdString(), HasSubstr("Paused"));
    QTest::keyClicks(&filter, "100-");
    EXPECT_EQ(filter.palette().color(QPalette::Text), QColor(Qt::red));
    EXPECT_TRUE(filter.toolTip().contains("is no filter"));
    EXPECT_TRUE(waitForRows(1)) << "of the filter before";
    QTest::keyClicks(&filter, "1FF !door");
    EXPECT_NE(filter.palette().color(QPalette::Text), QColor(Qt::red));
    mode.setCurrentIndex(0);
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1|")) << "the channel counts all";
    filter.clear();
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|Door (LIN) 1: 17=1|"));
    QTest::mouseClick(&pause, Qt::LeftButton);
    EXPECT_TRUE(waitFor("Front (CAN FD) 3: 100=1 200=1 300=1|Door (LIN) 2: 17=1 18=1|"));
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(5));
    QTest::mouseClick(&get<QPushButton>("liveClear"), Qt::LeftButton);
    EXPECT_TRUE(waitForRows(0));
    mode.setCurrentIndex(0);
    EXPECT_TRUE(waitFor("Front (CAN FD) 0:|Door (LIN) 0:|"));
}

TEST_F(LivePanelTest, RowsAreFoundCopiedAndExported) {
    can(0x100, 0x5A, 1'000'000'000);
    lin(0x11);
    can(0x200, 0x5B, 3'500'000'000);
    mode.setCurrentIndex(1);
    EXPECT_TRUE(waitForRows(3));
    EXPECT_THAT(rows(), ElementsAre("0.000000,Door,11,1,,0F", "1.000000,Front,100,2,,5A 00",
                                    "3.500000,Front,200,2,,5B 00"));
    times.setCurrentIndex(2);
    EXPECT_EQ(rows()[2], "2.500000,Front,200,2,,5B 00");
    times.setCurrentIndex(0);
    QTest::keyClicks(&search, "5b\r");
    EXPECT_EQ(list.currentIndex().row(), 2);
    QTest::keyClick(&search, Qt::Key_Return);
    EXPECT_EQ(list.currentIndex().row(), 2) << "once round";
    list.setFocus();
    QTest::keyClick(&list, Qt::Key_Up, Qt::ShiftModifier);
    QTest::keySequence(&list, QKeySequence::Copy);
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(),
              "1.000000\tFront\t100\t2\t\t5A 00\n3.500000\tFront\t200\t2\t\t5B 00");
    mode.setCurrentIndex(0);
    QTest::keyClicks(&filter, "front");
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|"));
    filter.clear();
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100=1 200=1|Door (LIN) 1: 11=1|"));
    EXPECT_TRUE(tree.isExpanded(tree.model()->index(1, 0))) << "it wasn't folded by the user";
    tree.selectAll();
    tree.setFocus();
    QTest::keySequence(&tree, QKeySequence::Copy);
    const QStringList lines = QApplication::clipboard()->text().split('\n');
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].startsWith("Front") && lines[2].startsWith("200") &&
                lines[3].startsWith("Door") && lines[4].startsWith("11"));
    search.setText("nowhere");
    QTest::keyClick(&search, Qt::Key_Return);
    QTest::qWait(500);
    EXPECT_THAT(get<QLabel>("liveStatus").text().toStdString(), HasSubstr("isn't there"));
    search.setText("5b");
    QTest::keyClicks(&search, "\r");
    EXPECT_EQ(text(tree.currentIndex().siblingAtColumn(0)), "200");
    QTest::keyClicks(&filter, "!200");
    QTest::mouseClick(&get<QPushButton>("liveExport"), Qt::LeftButton);
    auto* const dialog = panel.findChild<QFileDialog*>();
    ASSERT_NE(dialog, nullptr);
    Q_EMIT dialog->fileSelected(folder.filePath("shown.csv"));
    dialog->close();
    EXPECT_TRUE(QTest::qWaitFor([&] {
        return get<QLabel>("liveStatus").text().contains("shown.csv has 2 messages");
    })) << get<QLabel>("liveStatus").text().toStdString();
    std::stringstream written;
    written << std::ifstream(folder.filePath("shown.csv").toStdString()).rdbuf();
    EXPECT_THAT(written.str(), testing::AllOf(HasSubstr("Door"), HasSubstr("Front")));
    EXPECT_THAT(written.str(), testing::Not(HasSubstr("5B")));
}

TEST_F(LivePanelTest, AllThatPassesIsExportedWhateverIsShown) {
    for (int i = 0; i < 1000; ++i) {
        can(0x100, 0xAB, std::int64_t{i} * 1000);
    }
    lin(0x11);
    const auto exported = [&](const char* name) {
        QTest::mouseClick(&get<QPushButton>("liveExport"), Qt::LeftButton);
        auto* const dialog = panel.findChild<QFileDialog*>();
        Q_EMIT dialog->fileSelected(folder.filePath(name));
        delete dialog;
        const auto& status = get<QLabel>("liveStatus");
        EXPECT_TRUE(QTest::qWaitFor([&] { return status.text().contains(QString(name) + " has"); }))
            << status.text().toStdString();
        return status.text().toStdString();
    };
    EXPECT_THAT(exported("all.csv"), HasSubstr("all.csv has 1001 messages"));
    std::stringstream written;
    written << std::ifstream(folder.filePath("all.csv").toStdString()).rdbuf();
    EXPECT_THAT(written.str(), testing::ContainsRegex("22:13:20.000999000Z"));
    EXPECT_THAT(exported("can.log"),
                HasSubstr("can.log has 1000 messages; 1 messages aren't in it"));
    mode.setCurrentIndex(1);
    QTest::mouseClick(&get<QPushButton>("liveClear"), Qt::LeftButton);
    can(0x100);
    EXPECT_TRUE(waitForRows(1));
    EXPECT_THAT(get<QLabel>("liveStatus").text().toStdString(),
                testing::Not(HasSubstr("too fast")));
}

TEST_F(LivePanelTest, SignalsStandBelowTheirMessageAndGoIntoThePlot) {
    auto database = std::make_shared<Database>();
    SignalDefinition speed;
    speed.name = "Speed";
    speed.unit = "km/h";
    speed.size = 8;
    speed.factor = 0.5;
    speed.maximum = 250;
    SignalDefinition gear;
    gear.name = "Gear";
    gear.startBit = 8;
    gear.texts = {{0, "Forward"}};
    MessageDefinition engine;
    engine.id = 0x100;
    engine.name = "Engine";
    engine.length = 2;
    engine.sender = "Body";
    engine.cycleTime = 0.035;
    engine.signals = {speed, gear};
    database->messages.push_back(engine);
    const auto decoder = std::make_shared<const Decoder>(database);
    feed.begin(summary, {decoder});
    can(0x100, 20, 1'000'000'000);
    can(0x200, 20);
    const auto signalRow = [&](int row, int column) {
        const QModelIndex message = tree.model()->index(0, 0, tree.model()->index(0, 0));
        return tree.model()->index(row, column, message);
    };
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100  Engine=1 200=1|Door (LIN) 0:|"));
    EXPECT_FALSE(tree.isExpanded(signalRow(0, 0).parent()));
    EXPECT_EQ(text(signalRow(0, IdentifierModel::Name)), "Speed");
    EXPECT_EQ(text(signalRow(0, IdentifierModel::Data)), "10 km/h");
    EXPECT_EQ(text(signalRow(1, IdentifierModel::Data)), "0 (Forward)");
    EXPECT_THAT(signalRow(0, 0).data(Qt::ToolTipRole).toString().toStdString(),
                HasSubstr("Speed, 0 to 250 km/h"));
    EXPECT_THAT(signalRow(0, 0).parent().data(Qt::ToolTipRole).toString().toStdString(),
                HasSubstr("Engine, sent by Body, every 35 ms"));
    QTest::keyClicks(&filter, "engine");
    EXPECT_TRUE(waitFor("Front (CAN FD) 2: 100  Engine=1|Door (LIN) 0:|"));

    QTest::keyClicks(&search, "gear\r");
    EXPECT_EQ(text(tree.currentIndex()), "Gear") << "below a message that wasn't unfolded";
    tree.collapse(tree.model()->index(0, 0));
    QTest::keyClick(&search, Qt::Key_Return);
    EXPECT_EQ(text(tree.currentIndex()), "Gear");
    EXPECT_TRUE(tree.isExpanded(tree.model()->index(0, 0)));

    auto& plot = get<PlotPanel>("plot");
    auto& plotTable = get<QTableWidget>("plotTable");
    EXPECT_FALSE(plot.isVisible());
    Q_EMIT tree.activated(signalRow(0, 0));
    Q_EMIT tree.activated(signalRow(0, 0));
    EXPECT_EQ(plotTable.rowCount(), 1) << "each once";
    EXPECT_TRUE(plot.isVisible());
    const std::unique_ptr<QMimeData> carried(tree.model()->mimeData({signalRow(1, 0)}));
    ASSERT_TRUE(carried && carried->hasFormat(PlotPanel::mimeType));
    QDragEnterEvent enter({10, 10}, Qt::CopyAction, carried.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&plot, &enter);
    QDropEvent drop({10, 10}, Qt::CopyAction, carried.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&plot, &drop);
    can(0x100, 40, 2'000'000'000);
    int exports = 0;
    /// Once this is the greatest value of the first signal: what is drawn is exported.
    const auto plotted = [&](const char* greatest) {
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return plotTable.item(0, 6)->text() == greatest; }, 60000));
        const QString path = folder.filePath(QString("plot%1.csv").arg(++exports));
        EXPECT_TRUE(plot.exportCsv(path));
        const auto& notice = get<QLabel>("plotNotice");
        EXPECT_TRUE(QTest::qWaitFor([&] { return notice.text().contains(path); }, 60000));
        std::stringstream written;
        written << std::ifstream(path.toStdString()).rdbuf();
        return written.str();
    };
    const std::string all = plotted("20");
    EXPECT_THAT(all, testing::AllOf(HasSubstr("Speed (Front)"), HasSubstr("Gear (Front)")));
    EXPECT_THAT(all, testing::AllOf(HasSubstr(",10\n"), HasSubstr(",20\n")))
        << "what came before, too";
    // Another measurement has the channels in another order, and no Gear.
    std::swap(summary.channels[0], summary.channels[1]);
    auto other = std::make_shared<Database>(*database);
    other->messages[0].signals.pop_back();
    feed.begin(summary, {nullptr, std::make_shared<const Decoder>(other)});
    EXPECT_TRUE(waitFor("Door (LIN) 0:|Front (CAN FD) 0:|"));
    std::array<std::uint8_t, CanRecord::size> record = {0x00, 0x01, 0, 0, 0, 0, 0, 2, 60};
    feed.onMessage(1, startUtc, record.data(), record.size());
    const std::string later = plotted("30");
    EXPECT_THAT(later, testing::AllOf(HasSubstr("Speed (Front)"), HasSubstr(",30\n")));
    EXPECT_THAT(later, testing::Not(testing::AnyOf(HasSubstr("Gear"), HasSubstr(",20\n"))));
    // What is held is of the channels before; its signal is found among those of now.
    QTest::mouseClick(&pause, Qt::LeftButton);
    std::swap(summary.channels[0], summary.channels[1]);
    feed.begin(summary, {decoder, nullptr});
    const QModelIndex held =
        tree.model()->index(0, 0, tree.model()->index(0, 0, tree.model()->index(1, 0)));
    EXPECT_EQ(text(held), "Speed") << shown();
    plotTable.setCurrentCell(0, 0);
    QTest::keyClick(&plotTable, Qt::Key_Delete);
    Q_EMIT tree.activated(held);
    can(0x100, 80);
    QTest::mouseClick(&pause, Qt::LeftButton);
    EXPECT_THAT(plotted("40"), testing::AllOf(HasSubstr("Speed (Front)"), HasSubstr(",40\n")));
}

TEST_F(LivePanelTest, ColumnsStayAsTheUserHasThem) {
    tree.setColumnWidth(IdentifierModel::Data, 333);
    list.getHeader()->resizeSection(MessageModel::Channel, 77);
    times.setCurrentIndex(1);
    panel.saveLayout();
    LivePanel other(feed);
    EXPECT_EQ(other.findChild<QTreeView*>("liveIdentifiers")->columnWidth(IdentifierModel::Data),
              333);
    EXPECT_EQ(
        other.findChild<RowView*>("liveMessages")->getHeader()->sectionSize(MessageModel::Channel),
        77);
    EXPECT_EQ(other.findChild<QComboBox*>("liveTimes")->currentIndex(), 1);
}

}  // namespace
