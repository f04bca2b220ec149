#pragma once

#include "station/runtime/runtime_exports.h"
#include "tests/support/toolkit_rig.h"
#include "ui/controls.h"
#include "ui/event_args.h"

/// What every toolkit must do. A test program instantiates the suite with its toolkit's rig; the
/// tests are in toolkit_conformance_test.cpp.
///
/// At the end of each test no handler is left alive.
class ToolkitConformance : public testing::TestWithParam<MakeToolkitRig> {
  protected:
    static constexpr const char* xml =
        "<Window Name='w' Background='white'><CaptionPanel Title='T'>"
        "<Grid Rows='5,20,100%' Columns='5,100%'>"
        "<Grid Row='1' ColumnSpan='2' Columns='20,20'>"
        "<IconButton Name='add' IconName='ADD'/><IconButton Name='remove' IconName='REMOVE' "
        "Column='1'/></Grid>"
        "<KVDrawGrid Name='grid' Row='7' Column='1'/></Grid></CaptionPanel></Window>";

    ToolkitConformance() { open(); }
    ~ToolkitConformance() override {
        window = {};
        rig.reset();
        grid = {};
        EXPECT_EQ(kvRtTrackedCount(), handlersBefore);
    }

    void open() {
        rig = GetParam()();
        window = Kestrova::Tessel::hostWindow(rig->window());
        window.setXml(xml);
        grid = Kestrova::Tessel::KVDrawGrid(window, "grid");
    }

    /// Rows of cells, without the header, and a column for each cell type.
    void describe(std::int32_t rows, const std::vector<std::int32_t>& types) {
        grid.initialise(rows + 1, static_cast<std::int32_t>(types.size()));
        for (std::size_t i = 0; i < types.size(); ++i) {
            const auto index = static_cast<std::int32_t>(i);
            grid.setColumn(index, "Column " + std::to_string(i), types[i], 1, 50, "c");
        }
        grid.endColumns();
    }

    /// Calls `action` at each event of the slot.
    template <typename Sender, typename Args, typename Action>
    void on(const Kestrova::Tessel::EventSlot<Sender, Args>& slot, Action action) {
        slot.subscribe({[action](const Sender&, const Args& args) { action(args); }, ++lastKey});
    }

    template <typename Expected, typename Action>
    static void expectFailure(const Action& action, const std::string& textPart) {
        try {
            action();
            ADD_FAILURE() << "nothing has failed";
        } catch (const Kestrova::RT::Core::KvrtException& failure) {
            EXPECT_EQ(failure.getCode(), Expected::classCode) << failure.what();
            EXPECT_THAT(failure.what(), testing::HasSubstr(textPart));
        }
    }

    const std::size_t handlersBefore = kvRtTrackedCount();
    std::unique_ptr<ToolkitRig> rig;
    Kestrova::Tessel::WindowPtr window;
    Kestrova::Tessel::KVDrawGrid grid;
    std::uint64_t lastKey = 0;
};

/// Row 1 heads group "a" with the rows 2 and 3, row 4 group "b" with none; row 5 is in none.
class GroupedGrid : public ToolkitConformance {
  protected:
    GroupedGrid() {
        describe(5, {Kestrova::Tessel::CellType::groupExpander, Kestrova::Tessel::CellType::text});
        on(grid.setGroups(), [this](const Kestrova::Tessel::DrawGridSetGroupsArgs& args) {
            ++timesAsked;
            const auto first = args.addGroup("a", 1, firstExpanded);
            args.addRow("a", 2);
            args.addRow("a", 3);
            const auto second = args.addGroup("b", 4, true);
            for (const auto& group : {first, second}) {
                group.expansionChanged().subscribe(
                    {[this](const Kestrova::Tessel::DrawGridGroup& sender,
                            const Kestrova::Tessel::NoArgs& none) {
                         changed += sender.getName() + (none ? "?" : "");
                     },
                     ++lastKey});
            }
        });
        on(grid.cellProps(), [this](const Kestrova::Tessel::DrawGridCellPropsArgs& args) {
            asked.insert(args.getRow());
            args.setExpander(args.getRow() == 1 || args.getRow() == 4 ? 1 : 0);
        });
    }

    int timesAsked = 0;
    bool firstExpanded = true;
    std::string changed;
    std::set<std::int32_t> asked;
};
