#include <QComboBox>
#include <QLineEdit>
#include <QScrollBar>
#include <QTest>

#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/qt_bench.h"

using namespace Kestrova::Tessel;
using station::GridView;

/// What only a screen, a mouse and a keyboard can show.
class QtToolkit : public ToolkitConformance {
  protected:
    QtBench& qt() { return static_cast<QtBench&>(*bench); }
    GridView& view() { return *qt().view("grid"); }
    QModelIndex at(std::int32_t row, std::int32_t column) {
        return qt().show({"grid", row, column});
    }
    template <typename Widget>
    Widget* editor() {
        QtUser::settle();
        return view().viewport()->findChild<Widget*>();
    }
    void key(Qt::Key pressed) {
        QTest::keyClick(&view(), pressed);
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

TEST_P(QtClosing, WhenATextIsTyped) {
    describe(1, {CellType::editText});
    goTo(1, 0);
    key(Qt::Key_F2);
    auto* const line = editor<QLineEdit>();
    QTest::keyClicks(line, "x");
    closesSafelyAt(grid.cellInput(), [&] { QTest::keyClick(line, Qt::Key_Return); });
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
