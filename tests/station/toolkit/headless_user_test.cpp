#include <gmock/gmock.h>

#include <string>

#include "station/toolkit/headless/headless_user.h"
#include "ui/controls.h"
#include "ui/event_args.h"

namespace {

using namespace Kestrova::Tessel;
using station::HeadlessUser;
using station::HeadlessWindow;
using testing::HasSubstr;

/// A grid of two rows: a text that is only shown, a combo box of "red" and "blue", a time.
class HeadlessUserTest : public testing::Test {
  protected:
    HeadlessUserTest() {
        const WindowPtr plugin = hostWindow(static_cast<IWindow*>(window.get()));
        plugin.setXml(
            "<Window><Grid><KVDrawGrid Name='list'/><IconButton Name='ok'/></Grid></Window>");
        grid = KVDrawGrid(plugin, "list");
        grid.initialise(3, 3);
        grid.setColumn(0, "State", CellType::text, 1, 10, "state");
        grid.setColumn(1, "Wish", CellType::comboBox, 1, 10, "wish");
        grid.setColumn(2, "Time", CellType::text, 1, 10, "time");
        grid.endColumns();
        grid.comboItems().subscribe({[](const KVDrawGrid&, const DrawGridComboItemsArgs& args) {
                                         args.addItem("red");
                                         args.addItem("blue");
                                     },
                                     1});
        grid.cellProps().subscribe({[this](const KVDrawGrid&, const DrawGridCellPropsArgs& args) {
                                        args.setText(std::to_string(ticks));
                                    },
                                    2});
        timer = Timer(ControlFactory(plugin));
        timer.setInterval(100);
        timer.tick().subscribe({[this](const Timer&, const NoArgs&) {
                                    ++ticks;
                                    if (ticks % 10 == 0) {
                                        grid.refresh();
                                    }
                                },
                                3});
    }

    template <typename Action>
    static std::string refusal(const Action& action) {
        try {
            action();
        } catch (const station::UserError& error) {
            return error.what();
        }
        return "done";
    }

    const CountedRef<HeadlessWindow> window = HeadlessWindow::make();
    const HeadlessUser user{*window};
    KVDrawGrid grid;
    Timer timer;
    int ticks = 0;
};

TEST_F(HeadlessUserTest, ARefusalSaysWhatIsThereInstead) {
    const auto list = user.grid("list");
    EXPECT_THAT(refusal([&] { list.type(1, "State", "x"); }), HasSubstr("only shown"));
    EXPECT_THAT(refusal([&] { list.type(1, "Wish", "x"); }), HasSubstr("a combo box"));
    EXPECT_THAT(refusal([&] { list.pick(1, "Wish", "green"); }), HasSubstr("red, blue"));
    EXPECT_THAT(refusal([&] { list.read(1, "Color"); }), HasSubstr("State, Wish, Time"));
    EXPECT_THAT(refusal([&] { list.read(3, "Time"); }), HasSubstr("1, 2"));
    EXPECT_THAT(refusal([&] { list.select({0}); }), HasSubstr("row 0"));
    EXPECT_THAT(refusal([&] { list.setColor(1, "Wish", 0x1000000); }), HasSubstr("colour"));
    EXPECT_THAT(refusal([&] { user.grid("lost").rows(); }), HasSubstr("lost"));
    EXPECT_THAT(refusal([&] { user.press("list"); }), HasSubstr("list"));
}

TEST_F(HeadlessUserTest, TimePassesWhenToldAndTheScreenStaysUntilARefresh) {
    EXPECT_EQ(user.grid("list").read(1, "Time"), "0");
    user.wait(999);
    EXPECT_EQ(ticks, 9);
    EXPECT_EQ(user.grid("list").read(1, "Time"), "0");
    user.wait(1);
    EXPECT_EQ(ticks, 10);
    EXPECT_THAT(user.grid("list").readRow(2), testing::ElementsAre("10", "10", "10"));
}

TEST_F(HeadlessUserTest, AFailedHandlerIsTheUsersErrorWithItsCodeAndMeaning) {
    const IconButton button(hostWindow(static_cast<IWindow*>(window.get())), "ok");
    button.click().subscribe({[](const IconButton&, const NoArgs&) {
                                  throw Kestrova::RT::Core::NotFoundException("dropped");
                              },
                              1});
    const std::string text = refusal([&] { user.press("ok"); });
    EXPECT_THAT(text, HasSubstr("\"ok\", click"));
    EXPECT_THAT(text, HasSubstr("0x80000006, Not found"));
    EXPECT_EQ(refusal([&] { user.wait(1); }), "done");
}

}  // namespace
