#include "station/gui/main_window.h"

#include <gmock/gmock.h>

#include <QComboBox>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <fstream>

#include "tests/support/qt_bench.h"

namespace {

using namespace station;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* modulesGrid = PluginWindows::modulesGrid;
constexpr const char* channelsGrid = PluginWindows::channelsGrid;

WorkspaceOptions workspaceOptions() {
    WorkspaceOptions options;
    options.plugin = PLUGIN_FILE;
    return options;
}

// Columns of the two windows.
enum Module { Type = 1, ModuleName = 2, ConfigId = 3 };
enum Channel { Used = 2, Color = 3, ChannelName = 4 };

/// The desktop program with a user who sets up modules and channels with mouse and keyboard.
class MainWindowTest : public testing::Test {
  protected:
    MainWindowTest() {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
        QCoreApplication::setOrganizationName("cmp-station-test");
        window.emplace(workspaceOptions());
        window->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&*window));
    }

    Workspace& workspace() { return window->getWorkspace(); }
    QtUser modules() { return QtUser(workspace().modulesWindow()); }
    QtUser channels() { return QtUser(workspace().channelsWindow()); }
    std::string file(const char* name) { return folder.filePath(name).toStdString(); }
    std::string told() {
        QtUser::settle();
        return window->findChild<QLabel*>("messages")->text().toStdString();
    }
    /// Types and ConfigIds; the channels come by themselves.
    void addModule(const std::string& type, const std::string& configId) {
        EXPECT_TRUE(modules().press("addDeviceButton"));
        const std::int32_t row = modules().shownRows(modulesGrid).back();
        EXPECT_TRUE(modules().pick({modulesGrid, row, Type}, type));
        EXPECT_TRUE(modules().pick({modulesGrid, row, ConfigId}, configId));
    }
    bool choose(const char* menuText) {
        for (QAction* const action : window->findChildren<QAction*>()) {
            if (action->text() == menuText) {
                action->trigger();
                QtUser::settle();
                return true;
            }
        }
        return false;
    }
    bool answer(QMessageBox::StandardButton button) {
        QtUser::settle();
        auto* const box = window->findChild<QMessageBox*>();
        if (box == nullptr) {
            return false;
        }
        QTest::mouseClick(box->button(button), Qt::LeftButton);
        QtUser::settle();
        return true;
    }

    QTemporaryDir folder;
    std::optional<MainWindow> window;
};

TEST_F(MainWindowTest, WhatIsSetUpByHandIsWhatTheSavedSetupSays) {
    addModule("CAN combo", "B");
    addModule("LIN combo", "2");
    EXPECT_TRUE(modules().type({modulesGrid, 2, ModuleName}, "Doors"));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto rows = workspace().bench().windows().channels();
            return !rows.empty() && rows.back().module == 1;
        },
        60000));
    const auto rows = workspace().bench().windows().channels();
    const std::int32_t first = rows.front().row;
    EXPECT_TRUE(channels().toggle({channelsGrid, first, Used}));
    EXPECT_EQ(channels().read({channelsGrid, first, Used}), "Used");
    EXPECT_TRUE(channels().toggle({channelsGrid, first, Used}));
    EXPECT_EQ(channels().read({channelsGrid, first, Used}), "Unused");
    EXPECT_TRUE(channels().toggle({channelsGrid, first + 1, Used}));
    EXPECT_TRUE(channels().setColor({channelsGrid, first, Color}, 0x12AB34));
    EXPECT_TRUE(channels().type({channelsGrid, first, ChannelName}, "Engine"));
    EXPECT_TRUE(workspace().isModified());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());

    Bench other({PLUGIN_FILE, MasterClock::defaultSampleRate, [](const std::string&) {}});
    other.open(SetupFile(file("bench.xml")));
    const auto saved = other.modules();
    ASSERT_EQ(saved.size(), 2U);
    EXPECT_EQ(saved[0].type + " " + std::to_string(saved[0].configId), "CAN combo 11");
    EXPECT_EQ(saved[1].type + " " + std::to_string(saved[1].configId), "LIN combo 2");
    EXPECT_EQ(saved[1].name, "Doors");
    const auto savedRows = other.windows().channels();
    ASSERT_EQ(savedRows.size(), rows.size());
    EXPECT_EQ(savedRows[0].name, "Engine");
    EXPECT_EQ(savedRows[0].color, 0x12AB34U);
    EXPECT_FALSE(savedRows[0].used);
    EXPECT_TRUE(savedRows[1].used);

    EXPECT_TRUE(modules().select(modulesGrid, {1}));
    EXPECT_TRUE(modules().press("removeDeviceButton"));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return channels().read({channelsGrid, first, ChannelName}) != "Engine";
        },
        60000));
}

TEST_F(MainWindowTest, AChosenClockIsAChangeAndIsSaved) {
    addModule("CAN combo", "1");
    addModule("CAN combo", "2");
    workspace().save(file("bench.xml"));
    EXPECT_TRUE(choose("&Clocks..."));
    auto* const dialog = window->findChild<QDialog*>();
    ASSERT_NE(dialog, nullptr);
    const auto lists = dialog->findChildren<QComboBox*>();
    ASSERT_EQ(lists.size(), 2);
    EXPECT_EQ(lists[0]->currentText(), "Follows by a fit (soft sync)");
    QTest::keyClick(lists[1], Qt::Key_End);
    EXPECT_EQ(lists[1]->currentText(), "Leads the measurement (PPS)");
    EXPECT_TRUE(workspace().isModified());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());
    EXPECT_TRUE(dialog->close());

    window->open(QString::fromStdString(file("bench.xml")));
    const std::vector<ClockChoice> saved = {{HostGnssDevice::syncModeSoft, false},
                                            {HostGnssDevice::syncModePps, true}};
    EXPECT_EQ(workspace().bench().clocks(), saved);
}

TEST_F(MainWindowTest, ChangesAreNotLostWithoutAQuestion) {
    EXPECT_TRUE(choose("&New"));
    EXPECT_FALSE(answer(QMessageBox::Cancel)) << "there is nothing to lose";
    addModule("CAN combo", "1");
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::Cancel));
    EXPECT_EQ(workspace().bench().modules().size(), 1U);
    window->close();
    EXPECT_TRUE(answer(QMessageBox::Cancel));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::Discard));
    EXPECT_TRUE(workspace().bench().modules().empty());
    EXPECT_TRUE(QTest::qWaitFor([&] { return modules().shownRows(modulesGrid).empty(); }));
    window->close();
    QtUser::settle();
    EXPECT_FALSE(window->isVisible());
}

TEST_F(MainWindowTest, ASetupThatCannotBeReadIsToldAndLeavesTheOneThatIsOpen) {
    addModule("CAN combo", "1");
    workspace().save(file("good.xml"));
    std::ofstream(file("bad.xml")) << "<Setup><";
    for (const char* const name : {"bad.xml", "none.xml"}) {
        window->open(QString::fromStdString(file(name)));
        EXPECT_THAT(told(), HasSubstr(name));
        EXPECT_EQ(workspace().getPath(), file("good.xml"));
        EXPECT_EQ(workspace().bench().modules().size(), 1U);
    }
    window->open(QString::fromStdString(file("good.xml")));
    EXPECT_EQ(modules().read({modulesGrid, 1, Type}), "CAN combo") << "in the new windows";
    EXPECT_THAT(RecentFiles().all(), ElementsAre(QString::fromStdString(file("good.xml"))));
}

TEST_F(MainWindowTest, ARecordingThatCannotBeMadeIsToldAndNothingStarts) {
    try {
        workspace().start(file("no such folder/a.pcapng"));
        FAIL() << "it has started";
    } catch (const std::exception& failure) {
        EXPECT_THAT(failure.what(),
                    testing::AnyOf(HasSubstr("no such folder"), HasSubstr("not allowed")));
    }
    EXPECT_FALSE(workspace().isMeasuring());
}

TEST_F(MainWindowTest, MessagesStandThereAndAreCountedUntilTheyAreDismissed) {
    auto* const bar = dynamic_cast<MessageBar*>(window->findChild<QFrame*>("messageBar"));
    ASSERT_NE(bar, nullptr);
    EXPECT_FALSE(bar->isVisible());
    bar->tell("lost");
    bar->tell("<b>");
    bar->tell("lost");
    EXPECT_EQ(told(), "lost (2 times)\n<b>");
    bar->dismiss();
    EXPECT_FALSE(bar->isVisible());
}

}  // namespace
