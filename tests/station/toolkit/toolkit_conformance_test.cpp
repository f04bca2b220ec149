#include "tests/station/toolkit/toolkit_conformance.h"

#include <optional>

using namespace Kestrova::Tessel;
using namespace Kestrova::RT::Core;
using testing::ElementsAre;
using testing::IsEmpty;

// The window and its XML.

TEST_P(ToolkitConformance, AControlIsFoundByItsNameAndIsTheSameEachTime) {
    IControl* const found = &window.findControl("remove").target();
    EXPECT_EQ(&window.findControl("remove").target(), found);
    expectFailure<NotFoundException>([&] { window.findControl("delete"); }, "remove");
    expectFailure<NoInterfaceException>([&] { IconButton(window, "grid"); }, "");
}

TEST_P(ToolkitConformance, XmlThatIsNoneLeavesTheContentAsItWas) {
    const std::pair<const char*, const char*> faults[] = {
        {"<Window><Grid>", "line 1"},
        {"<Window>\n<Slider/>\n</Window>", "Slider"},
        {"<Grid/>", "Window"},
        {"<Window><Grid><IconButton Name='a'/><KVDrawGrid Name='a'/></Grid></Window>", "\"a\""},
        {"<Window><Grid Rows='1,wide'/></Window>", "wide"},
        {"<Window><Grid><KVDrawGrid Row='-1'/></Grid></Window>", "-1"},
        {"", ""},
    };
    for (const auto& [text, part] : faults) {
        expectFailure<ParseFailedException>([&, xmlText = text] { window.setXml(xmlText); }, part);
    }
    int clicks = 0;
    const IconButton button(window, "add");
    on(button.click(), [&](const auto&) { ++clicks; });
    EXPECT_TRUE(rig->press("add"));
    EXPECT_EQ(clicks, 1);
}

// Cells.

TEST_P(ToolkitConformance, CellsAreAskedForAndShownByTheirType) {
    describe(1, {CellType::text, CellType::editText, CellType::number, CellType::editNumber,
                 CellType::toggle, CellType::color, CellType::comboBox, CellType::text});
    std::set<std::pair<std::int32_t, std::int32_t>> asked;
    on(grid.cellProps(), [&](const DrawGridCellPropsArgs& args) {
        asked.insert({args.getRow(), args.getColumn()});
        args.setText("text");
        args.setNumber(args.getColumn() == 2 ? 12.0 : 0.5);
        args.setColor(0x00FF80);
        args.setChecked(true);
        if (args.getColumn() == 7) {
            args.setCellType(CellType::number);
        }
    });
    std::vector<std::string> shown;
    for (std::int32_t column = 0; column < 8; ++column) {
        shown.push_back(rig->read({"grid", 1, column}));
    }
    EXPECT_THAT(shown, ElementsAre("text", "text", "12", "0.5", "text", "00FF80", "text", "0.5"));
    EXPECT_EQ(asked.count({0, 0}), 0U) << "the header was asked for";
    EXPECT_THAT(rig->titles("grid"), testing::Contains("Column 7"));
}

TEST_P(ToolkitConformance, InputArrivesWithItsCellAndTheCellIsAskedForAgain) {
    describe(3, {CellType::editText, CellType::editNumber, CellType::comboBox, CellType::color,
                 CellType::toggle});
    std::string cell;
    std::string value;
    on(grid.cellProps(), [&](const DrawGridCellPropsArgs& args) { args.setText(value); });
    on(grid.comboItems(), [&](const DrawGridComboItemsArgs& args) {
        args.addItem("zero");
        args.addItem("one of " + std::to_string(args.getRow()));
    });
    on(grid.cellInput(), [&](const DrawGridCellInputArgs& args) {
        cell = std::to_string(args.getRow()) + "/" + std::to_string(args.getColumn());
        value = args.getText() + "," + std::to_string(args.getSelectedIndex()) + "," +
                std::to_string(args.getColor());
    });
    on(grid.cellAction(), [&](const DrawGridCellActionEventArgs& args) {
        cell = std::to_string(args.getRow()) + "/" + std::to_string(args.getColumn());
        value = args.getChecked() ? "on" : "off";
    });

    EXPECT_TRUE(rig->type({"grid", 2, 0}, "Gr\xC3\xBC\xC3\x9F"));
    EXPECT_EQ(cell + " " + rig->read({"grid", 2, 0}), "2/0 Gr\xC3\xBC\xC3\x9F,0,0");
    EXPECT_TRUE(rig->type({"grid", 1, 1}, "no number"));
    EXPECT_EQ(cell + " " + value, "1/1 no number,0,0");
    EXPECT_THAT(rig->offers({"grid", 3, 2}), ElementsAre("zero", "one of 3"));
    EXPECT_TRUE(rig->pick({"grid", 3, 2}, "one of 3"));
    EXPECT_EQ(cell + " " + value, "3/2 one of 3,1,0");
    EXPECT_TRUE(rig->setColor({"grid", 1, 3}, 0x000010));
    EXPECT_EQ(cell + " " + value, "1/3 ,0,16");
    EXPECT_TRUE(rig->toggle({"grid", 2, 4}));
    EXPECT_EQ(cell + " " + value, "2/4 on");
}

TEST_P(ToolkitConformance, AUserCanDoWhatTheTypeOfTheCellAllowsAndNothingElse) {
    const std::vector<std::int32_t> types = {
        CellType::text,   CellType::editText, CellType::number,   CellType::editNumber,
        CellType::toggle, CellType::color,    CellType::comboBox, CellType::groupExpander};
    describe(1, types);
    int events = 0;
    on(grid.comboItems(), [&](const DrawGridComboItemsArgs& args) { args.addItem("a"); });
    on(grid.cellInput(), [&](const auto&) { ++events; });
    on(grid.cellAction(), [&](const auto&) { ++events; });
    for (std::int32_t column = 0; column < static_cast<std::int32_t>(types.size()); ++column) {
        const std::int32_t type = types[static_cast<std::size_t>(column)];
        const bool typed = type == CellType::editText || type == CellType::editNumber;
        EXPECT_EQ(rig->type({"grid", 1, column}, "a"), typed) << type;
        EXPECT_EQ(rig->pick({"grid", 1, column}, "a"), type == CellType::comboBox) << type;
        EXPECT_EQ(rig->toggle({"grid", 1, column}), type == CellType::toggle) << type;
        EXPECT_EQ(rig->setColor({"grid", 1, column}, 1), type == CellType::color) << type;
    }
    EXPECT_EQ(events, 5);
    EXPECT_FALSE(rig->pick({"grid", 1, 6}, "b"));
    EXPECT_FALSE(rig->type({"grid", 2, 1}, "a"));
    EXPECT_FALSE(rig->fold("grid", 1));
    EXPECT_EQ(events, 5);
}

// Rows and selection.

TEST_P(ToolkitConformance, TheSelectionIsTheUsersUntilTheNumberOfRowsChanges) {
    describe(3, {CellType::text});
    EXPECT_TRUE(rig->select("grid", {1, 3}));
    grid.refresh();
    grid.setRowCount(4);
    EXPECT_FALSE(grid.isRowSelected(0));
    EXPECT_TRUE(grid.isRowSelected(1));
    EXPECT_FALSE(grid.isRowSelected(2));
    EXPECT_TRUE(grid.isRowSelected(3));
    grid.setRowCount(5);
    EXPECT_FALSE(grid.isRowSelected(1));
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 2, 3, 4));
    grid.setRowCount(1);
    EXPECT_THAT(rig->shownRows("grid"), IsEmpty());
}

TEST_P(ToolkitConformance, WhatIsOutsideTheGridIsAFailureWithItsReason) {
    describe(1, {CellType::text});
    expectFailure<OutOfRangeException>([&] { grid.isRowSelected(2); }, "2");
    expectFailure<OutOfRangeException>([&] { grid.isRowSelected(-1); }, "");
    expectFailure<OutOfRangeException>([&] { grid.getColumn(1); }, "1");
    expectFailure<OutOfRangeException>([&] { grid.setColumn(-1, "", 1, 1, 1, ""); }, "");
    expectFailure<OutOfRangeException>([&] { grid.setRowCount(0); }, "");
    expectFailure<OutOfRangeException>([&] { grid.initialise(1, -1); }, "");
    expectFailure<InvalidValueException>([&] { grid.setColumn(0, "", 5, 1, 1, ""); }, "5");
    EXPECT_EQ(grid.getRowCount(), 2);
}

// Groups.

TEST_P(GroupedGrid, AFoldedGroupHidesItsRowsAndOnlyANewRowCountAsksForTheGroupsAgain) {
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 2, 3, 4, 5));
    const int before = timesAsked;
    EXPECT_EQ(rig->read({"grid", 1, 0}), "-");
    EXPECT_TRUE(rig->select("grid", {2, 5}));
    EXPECT_TRUE(rig->fold("grid", 1));
    EXPECT_EQ(changed, "a");
    asked.clear();
    grid.refresh();
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 4, 5));
    EXPECT_THAT(asked, testing::Not(testing::Contains(2)));
    EXPECT_EQ(rig->read({"grid", 1, 0}), "+");
    EXPECT_FALSE(grid.isRowSelected(2));
    EXPECT_TRUE(grid.isRowSelected(5));
    EXPECT_FALSE(rig->fold("grid", 5));
    EXPECT_FALSE(rig->fold("grid", 3)) << "it is hidden";
    EXPECT_TRUE(rig->fold("grid", 1));
    EXPECT_EQ(changed, "aa");
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(timesAsked, before);
    firstExpanded = false;
    grid.setRowCount(6);
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 4, 5));
    EXPECT_EQ(timesAsked, before + 1);
    EXPECT_TRUE(rig->fold("grid", 1));
    EXPECT_EQ(changed, "aaa");
    EXPECT_THAT(rig->shownRows("grid"), ElementsAre(1, 2, 3, 4, 5));
}

TEST_P(GroupedGrid, AClosedWindowLetsGoOfAllHandlersAndRaisesNothingWhileThePluginHoldsIt) {
    rig->shownRows("grid");
    rig->closeWindow();
    EXPECT_EQ(kvRtTrackedCount(), handlersBefore) << "those of the groups, too";
    asked.clear();
    grid.refresh();
    grid.setRowCount(3);
    EXPECT_THAT(asked, IsEmpty());
    expectFailure<NotFoundException>([&] { window.findControl("add"); }, "");
}

// Handlers.

TEST_P(ToolkitConformance, AHandlerThatFailsIsReportedAndTheOthersAreCalled) {
    const IconButton button(window, "add");
    std::string called;
    on(button.click(), [&](const auto&) {
        called += "1";
        throw NotFoundException();
    });
    on(button.click(), [&](const auto&) {
        called += "2";
        throw std::runtime_error("any");
    });
    on(button.click(), [&](const auto&) { called += "3"; });
    EXPECT_TRUE(rig->press("add"));
    EXPECT_EQ(called, "123");
    EXPECT_THAT(rig->takeFailures(), ElementsAre(0x80000006U, 0x80000014U));
    EXPECT_TRUE(rig->press("remove"));
    EXPECT_THAT(rig->takeFailures(), IsEmpty());
    EXPECT_FALSE(rig->press("grid"));
}

TEST_P(ToolkitConformance, AnEqualHandlerIsTheOneToUnsubscribe) {
    const IconButton button(window, "add");
    int calls = 0;
    const BoundHandler<IconButton, NoArgs> one{[&](const auto&, const auto&) { ++calls; }, 1};
    const BoundHandler<IconButton, NoArgs> other{[&](const auto&, const auto&) { calls += 10; }, 2};
    button.click().subscribe(one);
    button.click().subscribe(other);
    const auto equal = makeObject<EventHandlerImpl<IconButton, NoArgs>>(button.getRuntime(), one);
    button.call(&IComponent::unsubscribe, IIconButton::click, equal.get());
    EXPECT_TRUE(rig->press("add"));
    EXPECT_EQ(calls, 10);
    const auto unsubscribe = [&](std::int32_t slot, IEventHandler* handler) {
        button.call(&IComponent::unsubscribe, slot, handler);
    };
    expectFailure<NotFoundException>([&] { unsubscribe(1, equal.get()); }, "");
    expectFailure<OutOfRangeException>([&] { unsubscribe(2, equal.get()); }, "");
    expectFailure<ArgumentNullException>([&] { unsubscribe(1, nullptr); }, "");
    const auto subscribe = [&](std::int32_t slot) {
        grid.call(&IComponent::subscribe, slot, equal.get());
    };
    expectFailure<OutOfRangeException>([&] { subscribe(0); }, "");
    EXPECT_NO_THROW(subscribe(13));
    expectFailure<OutOfRangeException>([&] { subscribe(14); }, "");
}

TEST_P(ToolkitConformance, AHandlerMayReplaceTheContentThatItBelongsTo) {
    const IconButton button(window, "add");
    on(button.click(), [this](const auto&) { window.setXml(xml); });
    EXPECT_TRUE(rig->press("add"));
    EXPECT_TRUE(rig->press("add")) << "the new button";
    describe(1, {CellType::editText});
    grid = KVDrawGrid(window, "grid");
    describe(1, {CellType::editText});
    on(grid.cellInput(), [this](const auto&) {
        window.setXml("<Window/>");
        grid = {};
    });
    EXPECT_TRUE(rig->type({"grid", 1, 0}, "x"));
    EXPECT_FALSE(rig->press("add"));
}

TEST_P(ToolkitConformance, AHandlerMayCloseItsWindow) {
    const IconButton button(window, "add");
    on(button.click(), [this](const auto&) {
        window = {};
        grid = {};
        rig->closeWindow();
    });
    EXPECT_TRUE(rig->press("add"));
    EXPECT_EQ(rig->window(), nullptr);
}

// Timers.

TEST_P(ToolkitConformance, ATimerTicksUntilItsLastReferenceGoesAlsoInATick) {
    int ticks = 0;
    std::optional<Timer> timer(ControlFactory{window});
    timer->setInterval(20);
    on(timer->tick(), [&](const auto&) {
        if (++ticks == 2) {
            timer.reset();
        }
    });
    expectFailure<OutOfRangeException>([&] { timer->setInterval(0); }, "");
    rig->passTime(200);
    EXPECT_EQ(ticks, 2);
    expectFailure<NotFoundException>([&] { ControlFactory(window).create("Clock", ""); }, "Timer");
}
