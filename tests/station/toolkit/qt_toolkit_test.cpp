#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QScrollBar>
#include <QTest>
#include <QToolButton>

#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/qt_rig.h"
#include "ui/resource.h"

using namespace Kestrova::Tessel;
using station::GridView;

/// What only a screen, a mouse and a keyboard can show.
class QtToolkit : public ToolkitConformance {
  protected:
    QtRig& qt() { return static_cast<QtRig&>(*rig); }
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

INSTANTIATE_TEST_SUITE_P(Qt, QtToolkit, testing::Values(MakeToolkitRig{"Qt", &QtRig::make}));

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

TEST_P(QtToolkit, CellsAndIconsArePaintedAsTheyAre) {
    describe(2, {CellType::groupExpander, CellType::color});
    on(grid.setGroups(), [](const DrawGridSetGroupsArgs& args) {
        args.addGroup("a", 1, true);
        args.addRow("a", 2);
    });
    on(grid.cellProps(), [](const DrawGridCellPropsArgs& args) {
        args.setExpander(args.getRow() == 1 ? 1 : 0);
        args.setColor(0x12AB34);
    });
    const auto picture = [this](std::int32_t column) {
        const QRect area = view().visualRect(at(1, column));
        return view().viewport()->grab(area).toImage();
    };
    EXPECT_EQ(view().columnWidth(1), 50);
    EXPECT_EQ(picture(1).pixelColor(25, 10).rgb(), 0xFF12AB34U);
    const auto pointsDown = [&] {
        const QImage cell = picture(0);
        QRect arrow;
        for (int x = 0; x < cell.width(); ++x) {
            for (int y = 0; y < cell.height(); ++y) {
                arrow |= cell.pixel(x, y) != cell.pixel(0, 0) ? QRect(x, y, 1, 1) : QRect();
            }
        }
        return arrow.width() > arrow.height();
    };
    EXPECT_TRUE(pointsDown());
    qt().model("grid")->toggleGroup(1);
    EXPECT_FALSE(pointsDown());
    const auto icon = [this](const char* name, int x, int y) {
        return qt().place()->findChild<QToolButton*>(name)->icon().pixmap(32).toImage().pixel(x, y);
    };
    EXPECT_EQ(icon("add", 16, 8), 0xFF008000U);
    EXPECT_EQ(icon("remove", 8, 16), 0xFFC00000U);
    EXPECT_EQ(icon("remove", 16, 8), 0U);
}

TEST_P(QtToolkit, DeleteRemovesAndTabLeavesTheGridAtItsEnds) {
    describe(2, {CellType::text, CellType::text});
    int removals = 0;
    on(IconButton(window, "remove").click(), [&](const auto&) { ++removals; });
    goTo(1, 1);
    key(Qt::Key_Delete);
    EXPECT_EQ(removals, 1);
    const auto leaves = [this](std::int32_t row, std::int32_t column, Qt::Key pressed) {
        goTo(row, column);
        key(pressed);
        EXPECT_EQ(qt().place()->focusWidget() != &view(), view().currentIndex() == at(row, column));
        return qt().place()->focusWidget() != &view();
    };
    EXPECT_FALSE(leaves(1, 1, Qt::Key_Tab) || leaves(2, 0, Qt::Key_Tab));
    EXPECT_TRUE(leaves(2, 1, Qt::Key_Tab));
    EXPECT_FALSE(leaves(2, 1, Qt::Key_Backtab) || leaves(1, 1, Qt::Key_Backtab));
    EXPECT_TRUE(leaves(1, 0, Qt::Key_Backtab));
}

TEST_P(QtToolkit, ThePluginsWindowsAreLaidOutToThePixel) {
    const auto place = [this](const char* name) {
        const auto* const widget = qt().place()->findChild<QWidget*>(name);
        return QRect(widget->mapTo(qt().place(), QPoint()), widget->size());
    };
    window.setXml(findResource("ui/settings_window.xml", "Tessel").text());
    QtUser::settle();
    EXPECT_EQ(place("settingsWindow"), QRect(0, 0, 900, 400));
    EXPECT_EQ(place("addDeviceButton"), QRect(10, 5, 20, 20));
    EXPECT_EQ(place("removeDeviceButton"), QRect(35, 5, 20, 20));
    EXPECT_EQ(place("deviceDrawGrid"), QRect(5, 35, 890, 365));
    const auto* const root = qt().place()->findChild<QWidget*>("settingsWindow");
    EXPECT_EQ(root->palette().color(root->backgroundRole()), QColor(Qt::white));
    window.setXml(findResource("ui/setup_window.xml", "Tessel").text());
    QtUser::settle();
    const auto& panel = *qt().place()->findChild<QWidget*>("channelDrawGrid")->parentWidget();
    EXPECT_EQ(panel.findChild<QWidget*>("channelDrawGrid")->geometry(),
              QRect(10, 21, panel.width() - 20, panel.height() - 21));
    EXPECT_EQ(qt().place()->findChild<QGroupBox*>()->title(), "CMP");
}

TEST_P(QtToolkit, TheWindowMayBeDeletedInAHandlerWhileATextIsBeingTyped) {
    for (const bool byTimer : {false, true}) {
        open();
        describe(1, {CellType::editText});
        goTo(1, 0);
        key(Qt::Key_F2);
        auto* const line = editor<QLineEdit>();
        QTest::keyClicks(line, "x");
        const auto close = [this](const auto&) {
            window = {};
            grid = {};
            if (rig->window() != nullptr) {
                rig->closeWindow();
            }
        };
        const Timer timer{ControlFactory(window)};
        timer.setInterval(1);
        if (byTimer) {
            on(timer.tick(), close);
        } else {
            on(grid.cellInput(), close);
            QTest::keyClick(line, Qt::Key_Return);
        }
        EXPECT_TRUE(QTest::qWaitFor([this] { return rig->window() == nullptr; }));
        QtUser::settle();
    }
}
