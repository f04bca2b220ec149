#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPainter>
#include <QScrollBar>
#include <QTest>
#include <QToolButton>

#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/qt_bench.h"

using namespace Kestrova::Tessel;
using station::GridView;
using testing::ElementsAre;

/// What only a screen, a mouse and a keyboard can show.
class QtToolkit : public ToolkitConformance {
  protected:
    QtBench& qt() { return static_cast<QtBench&>(*bench); }
    GridView& view() { return *qt().user().view("grid"); }
    QModelIndex at(std::int32_t row, std::int32_t column) {
        return qt().user().show("grid", row, column);
    }
    template <typename Widget>
    Widget* editor() {
        QtUser::settle();
        return view().viewport()->findChild<Widget*>();
    }
    void key(Qt::Key pressed, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(&view(), pressed, modifiers);
        QtUser::settle();
    }
    void goTo(std::int32_t row, std::int32_t column) {
        view().setFocus();
        view().setCurrentIndex(at(row, column));
    }
    void refreshOften() {
        for (int i = 0; i < 3; ++i) {
            grid.refresh();
            QtUser::settle();
        }
    }

    std::string input;  ///< of the last one that `noteInput` saw
    void noteInput() {
        on(grid.cellInput(), [this](const DrawGridCellInputArgs& args) {
            input = std::to_string(args.getRow()) + ": " + args.getText();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Qt, QtToolkit, testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));

TEST_P(QtToolkit, ATextBeingTypedIsNotDisturbedByARefreshOrAnotherRowCount) {
    describe(3, {CellType::editText});
    noteInput();
    on(grid.cellProps(), [](const DrawGridCellPropsArgs& args) { args.setText("before"); });
    goTo(2, 0);
    key(Qt::Key_F2);
    auto* const line = editor<QLineEdit>();
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->text(), "before");
    QTest::keyClicks(line, "new");
    refreshOften();
    grid.setRowCount(3);
    refreshOften();
    ASSERT_EQ(editor<QLineEdit>(), line);
    QTest::keyClicks(line, " name");
    QTest::keyClick(line, Qt::Key_Return);
    QtUser::settle();
    EXPECT_EQ(input, "2: new name");
}

TEST_P(QtToolkit, AnEditIsGivenUpWithItsRowOrByEscapeAndUntouchedTextIsNoInput) {
    describe(3, {CellType::editText});
    noteInput();
    goTo(3, 0);
    key(Qt::Key_F2);
    QTest::keyClicks(editor<QLineEdit>(), "lost");
    grid.setRowCount(3);
    EXPECT_EQ(editor<QLineEdit>(), nullptr);
    goTo(1, 0);
    key(Qt::Key_F2);
    QTest::keyClicks(editor<QLineEdit>(), "lost");
    QTest::keyClick(editor<QLineEdit>(), Qt::Key_Escape);
    goTo(2, 0);
    key(Qt::Key_F2);
    QTest::keyClick(editor<QLineEdit>(), Qt::Key_Return);
    QtUser::settle();
    EXPECT_EQ(editor<QLineEdit>(), nullptr);
    EXPECT_EQ(input, "");
}

TEST_P(QtToolkit, AnOpenComboBoxStaysOpenAndIsAskedForItsItemsOnce) {
    describe(2, {CellType::comboBox});
    noteInput();
    int asked = 0;
    on(grid.comboItems(), [&](const DrawGridComboItemsArgs& args) {
        ++asked;
        args.addItem("a");
        args.addItem("b");
    });
    goTo(2, 0);
    key(Qt::Key_Space);
    auto* const box = editor<QComboBox>();
    ASSERT_NE(box, nullptr);
    refreshOften();
    ASSERT_EQ(editor<QComboBox>(), box);
    EXPECT_TRUE(box->view()->isVisible());
    EXPECT_EQ(asked, 1);
    QTest::keyClick(box->view(), Qt::Key_Down);
    QTest::keyClick(box->view(), Qt::Key_Down);
    QTest::keyClick(box->view(), Qt::Key_Return);
    QtUser::settle();
    EXPECT_EQ(input, "2: b");
    EXPECT_EQ(editor<QComboBox>(), nullptr);
}

TEST_P(QtToolkit, OnlyWhatIsInSightIsAskedForAndPaintingAsksForNothing) {
    describe(5000, {CellType::text, CellType::text, CellType::text});
    std::set<std::int32_t> rows;
    int asked = 0;
    on(grid.cellProps(), [&](const DrawGridCellPropsArgs& args) {
        rows.insert(args.getRow());
        ++asked;
        args.setText("t");
    });
    refreshOften();
    asked = 0;
    grid.refresh();
    grid.refresh();
    QtUser::settle();
    const int visible = asked;
    EXPECT_GT(visible, 3);
    EXPECT_LT(visible, 200);
    for (int i = 0; i < 3; ++i) {
        view().viewport()->repaint();
        QtUser::settle();
    }
    EXPECT_EQ(asked, visible);
    rows.clear();
    view().verticalScrollBar()->setValue(view().verticalScrollBar()->maximum());
    QtUser::settle();
    EXPECT_EQ(*rows.rbegin(), 5000);
    refreshOften();
    EXPECT_EQ(view().verticalScrollBar()->value(), view().verticalScrollBar()->maximum());
    rows.clear();
    qt().place()->hide();
    refreshOften();
    EXPECT_TRUE(rows.empty()) << "a window that isn't seen";
}

TEST_P(QtToolkit, EverythingCanBeDoneFromTheKeyboard) {
    window.setXml(
        "<Window><Grid Rows='20,100%'><IconButton Name='remove' IconName='REMOVE'/>"
        "<KVDrawGrid Name='grid' Row='1'/></Grid></Window>");
    grid = KVDrawGrid(window, "grid");
    describe(3, {CellType::groupExpander, CellType::toggle, CellType::editText});
    noteInput();
    std::string done;
    on(grid.setGroups(), [](const DrawGridSetGroupsArgs& args) {
        args.addGroup("g", 1, true);
        args.addRow("g", 2);
    });
    on(grid.cellProps(),
       [](const DrawGridCellPropsArgs& args) { args.setExpander(args.getRow() == 1 ? 1 : 0); });
    on(grid.cellAction(), [&](const DrawGridCellActionEventArgs& args) {
        done += "switched " + std::to_string(args.getRow());
    });
    const IconButton button(window, "remove");
    on(button.click(), [&](const auto&) { done += "removed"; });

    goTo(1, 0);
    key(Qt::Key_Tab);
    EXPECT_EQ(view().currentIndex(), at(1, 1));
    key(Qt::Key_Space);
    EXPECT_EQ(std::exchange(done, ""), "switched 1");
    key(Qt::Key_Tab);
    key(Qt::Key_X);  // typing begins an edit
    ASSERT_NE(editor<QLineEdit>(), nullptr);
    QTest::keyClick(editor<QLineEdit>(), Qt::Key_Return);
    QtUser::settle();
    EXPECT_EQ(input, "1: x");
    goTo(1, 0);
    key(Qt::Key_Space);
    EXPECT_THAT(bench->shownRows("grid"), ElementsAre(1, 3));
    key(Qt::Key_Return);
    EXPECT_THAT(bench->shownRows("grid"), ElementsAre(1, 2, 3));
    key(Qt::Key_A, Qt::ControlModifier);
    EXPECT_TRUE(grid.isRowSelected(1) && grid.isRowSelected(2) && grid.isRowSelected(3));
    key(Qt::Key_Delete);
    EXPECT_EQ(done, "removed");
    goTo(3, 2);
    key(Qt::Key_Tab);
    EXPECT_FALSE(view().hasFocus()) << "from the last cell on to the button";
}

TEST_P(QtToolkit, ColoursAreSeenAndControlsStandWhereTheXmlSays) {
    window.setXml(
        "<Window><Grid Rows='5,20,100%' Columns='10,30,50%,50%'>"
        "<IconButton Name='b' IconName='SPIN' Row='1' Column='1'/>"
        "<KVDrawGrid Name='grid' Row='2' Column='1' ColumnSpan='2'/></Grid></Window>");
    grid = KVDrawGrid(window, "grid");
    describe(1, {CellType::color});
    on(grid.cellProps(), [](const DrawGridCellPropsArgs& args) { args.setColor(0x12AB34); });
    QtUser::settle();
    auto* const button = qt().place()->findChild<QToolButton*>("b");
    EXPECT_EQ(button->geometry(), QRect(10, 5, 30, 20));
    EXPECT_EQ(button->text(), "SPIN");
    const QSize whole = button->parentWidget()->size();
    EXPECT_EQ(view().geometry(), QRect(10, 25, 30 + (whole.width() - 40) / 2, whole.height() - 25));
    const QImage picture = view().viewport()->grab().toImage();
    EXPECT_EQ(picture.pixelColor(view().visualRect(at(1, 0)).center()), QColor(0x12, 0xAB, 0x34));
}

TEST_P(QtToolkit, AWidthThatTheUserChoseStays) {
    describe(2, {CellType::text, CellType::text});
    EXPECT_EQ(view().columnWidth(0), 50);
    view().horizontalHeader()->resizeSection(0, 77);
    refreshOften();
    grid.setRowCount(5);
    refreshOften();
    EXPECT_EQ(view().columnWidth(0), 77);
}

TEST_P(QtToolkit, AClickThatSwitchesLeavesTheSelection) {
    describe(3, {CellType::text, CellType::toggle});
    EXPECT_TRUE(bench->select("grid", {1, 3}));
    EXPECT_TRUE(bench->toggle("grid", 2, 1));
    EXPECT_TRUE(grid.isRowSelected(1) && grid.isRowSelected(3) && !grid.isRowSelected(2));
}

/// The window is deleted in the handler of an event, which the user's action sets off.
class QtClosing : public QtToolkit {
  protected:
    template <typename Slot, typename Action>
    void closesSafelyAt(const Slot& slot, const Action& action) {
        on(slot, [this](const auto&) {
            window = {};
            grid = {};
            if (bench->window() != nullptr) {
                bench->closeWindow();
            }
        });
        action();
        QtUser::settle();
        EXPECT_EQ(bench->window(), nullptr);
    }
};

INSTANTIATE_TEST_SUITE_P(Qt, QtClosing, testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));

TEST_P(QtClosing, WhenACellIsAskedFor) {
    describe(2, {CellType::text});
    closesSafelyAt(grid.cellProps(), [] { QtUser::settle(); });
}

TEST_P(QtClosing, WhenTheGroupsAreAskedFor) {
    describe(2, {CellType::text});
    closesSafelyAt(grid.setGroups(), [] { QtUser::settle(); });
}

TEST_P(QtClosing, WhenAComboBoxIsOpened) {
    describe(1, {CellType::comboBox});
    goTo(1, 0);
    closesSafelyAt(grid.comboItems(), [this] { QTest::keyClick(&view(), Qt::Key_Space); });
}

TEST_P(QtClosing, WhenAnItemIsPicked) {
    describe(1, {CellType::comboBox});
    on(grid.comboItems(), [](const DrawGridComboItemsArgs& args) { args.addItem("a"); });
    goTo(1, 0);
    key(Qt::Key_Space);
    auto* const list = editor<QComboBox>()->view();
    closesSafelyAt(grid.cellInput(), [&] {
        list->setCurrentIndex(list->model()->index(0, 0));
        QTest::keyClick(list, Qt::Key_Return);
    });
}

TEST_P(QtClosing, WhenATextIsTyped) {
    describe(1, {CellType::editText});
    goTo(1, 0);
    key(Qt::Key_F2);
    auto* const line = editor<QLineEdit>();
    QTest::keyClicks(line, "x");
    closesSafelyAt(grid.cellInput(), [&] { QTest::keyClick(line, Qt::Key_Return); });
}

TEST_P(QtClosing, WhenAToggleIsSwitched) {
    describe(1, {CellType::toggle});
    goTo(1, 0);
    closesSafelyAt(grid.cellAction(), [this] { QTest::keyClick(&view(), Qt::Key_Space); });
}

TEST_P(QtClosing, WhileATextIsBeingTypedAndATimerTicks) {
    describe(1, {CellType::editText});
    goTo(1, 0);
    key(Qt::Key_F2);
    const Timer timer{ControlFactory(window)};
    timer.setInterval(1);
    closesSafelyAt(timer.tick(), [this] {
        EXPECT_TRUE(QTest::qWaitFor([this] { return bench->window() == nullptr; }));
    });
}
