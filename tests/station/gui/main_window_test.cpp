#include "station/gui/main_window.h"

#include <fmt/format.h>
#include <sched.h>

#include <QComboBox>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include "tests/support/qt_bench.h"

namespace {

using namespace station;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* modulesGrid = "deviceDrawGrid";
constexpr const char* channelsGrid = "channelDrawGrid";

// Columns of the two windows.
enum Module { Type = 1, ModuleName = 2, ConfigId = 3 };
enum Channel { Used = 2, Color = 3, ChannelName = 4 };

/// The desktop program with a user who sets up modules and channels with mouse and keyboard.
class MainWindowTest : public testing::Test {
  protected:
    MainWindowTest() {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
        QCoreApplication::setOrganizationName("cmp-station-test");
        window.emplace(WorkspaceOptions{.plugin = PLUGIN_FILE, .onMessage = {}});
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
    /// Presses the question's first button of that role.
    bool answer(QMessageBox::ButtonRole role) {
        QtUser::settle();
        const auto* const box = window->findChild<QMessageBox*>();
        for (QAbstractButton* const button :
             box != nullptr ? box->buttons() : QList<QAbstractButton*>()) {
            if (box->buttonRole(button) == role) {
                QTest::mouseClick(button, Qt::LeftButton);
                QtUser::settle();
                return true;
            }
        }
        return false;
    }

    QTemporaryDir folder;
    std::optional<MainWindow> window;
};

TEST_F(MainWindowTest, WhatIsSetUpByHandIsWhatTheSavedSetupSays) {
    addModule("CAN combo", "B");
    addModule("LIN combo", "2");
    EXPECT_TRUE(modules().type({modulesGrid, 2, ModuleName}, "Doors"));
    const auto channelsOf = [](const std::vector<station::Module>& modules) {
        std::vector<station::Channel> all;
        for (const station::Module& module : modules) {
            all.insert(all.end(), module.channels.begin(), module.channels.end());
        }
        return all;
    };
    const auto rows = [&] { return channelsOf(workspace().session().getModules()); };
    const auto hasChannels = [&] { return !workspace().session().needsChannels(); };
    ASSERT_TRUE(QTest::qWaitFor(hasChannels, 60000));
    EXPECT_EQ(rows().size(), 7U + 10U);
    EXPECT_TRUE(channels().toggle({channelsGrid, 3, Used}));
    EXPECT_TRUE(channels().setColor({channelsGrid, 2, Color}, 0x12AB34));
    EXPECT_TRUE(channels().type({channelsGrid, 2, ChannelName}, "Engine"));
    EXPECT_TRUE(workspace().isModified());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());
    EXPECT_TRUE(choose("&Clocks..."));
    const auto lists = window->findChild<QDialog*>()->findChildren<QComboBox*>();
    ASSERT_EQ(lists.size(), 2);
    EXPECT_EQ(lists[0]->currentText(), "Follows by a fit (soft sync)");
    QTest::keyClick(lists[1], Qt::Key_End);
    EXPECT_EQ(lists[1]->currentText(), "Leads the measurement (PPS)");
    EXPECT_TRUE(workspace().isModified());
    EXPECT_TRUE(window->findChild<QDialog*>()->close());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());

    Session other({PLUGIN_FILE, MasterClock::defaultSampleRate, [](const std::string&) {}});
    other.open(SetupFile(file("bench.xml")));
    std::string saved;
    for (const station::Module& module : other.getModules()) {
        saved += fmt::format("{} 0x{:X} {}, ", module.type, module.configId, module.name);
    }
    EXPECT_EQ(saved, "CAN combo 0xB Technica CAN combo, LIN combo 0x2 Doors, ");
    const auto savedRows = channelsOf(other.getModules());
    const std::vector<ClockChoice> clocks = {{HostGnssDevice::syncModeSoft, false},
                                             {HostGnssDevice::syncModePps, true}};
    EXPECT_EQ(other.clocks(), clocks);
    ASSERT_EQ(savedRows.size(), rows().size());
    EXPECT_EQ(savedRows[0].name, "Engine");
    EXPECT_EQ(savedRows[0].color, 0x12AB34U);
    EXPECT_FALSE(savedRows[0].isUsed);
    EXPECT_TRUE(savedRows[1].isUsed);

    EXPECT_TRUE(modules().select(modulesGrid, {1}));
    EXPECT_TRUE(modules().press("removeDeviceButton"));
    EXPECT_TRUE(QTest::qWaitFor(hasChannels, 60000));
    EXPECT_EQ(rows().size(), 10U);
}

TEST_F(MainWindowTest, ChangesAreNotLostWithoutAQuestion) {
    EXPECT_TRUE(choose("&New"));
    EXPECT_FALSE(answer(QMessageBox::RejectRole)) << "there is nothing to lose";
    addModule("CAN combo", "1");
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_EQ(workspace().session().getModules().size(), 1U);
    window->close();
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole));
    EXPECT_TRUE(workspace().session().getModules().empty());
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
        EXPECT_EQ(workspace().session().getModules().size(), 1U);
    }
    window->open(QString::fromStdString(file("good.xml")));
    EXPECT_EQ(modules().read({modulesGrid, 1, Type}), "CAN combo") << "in the new windows";
    EXPECT_THAT(QSettings().value("recentSetups").toStringList(),
                ElementsAre(QString::fromStdString(file("good.xml"))));
}

TEST_F(MainWindowTest, AMeasurementRunsAndSaysWhatItLeavesOutAndIsEndedByTheUser) {
    ASSERT_TRUE(::unshare(CLONE_NEWNET) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0)
        << "the tests need root, or user namespaces";
    auto& start = *window->findChild<QPushButton*>("start");
    auto& stop = *window->findChild<QPushButton*>("stop");
    auto& path = *window->findChild<QLineEdit*>("recordingPath");
    const auto isOver = [&] { return !workspace().isMeasuring(); };
    QTest::mouseClick(&start, Qt::LeftButton);
    EXPECT_THAT(told(), HasSubstr("No channel is used"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return stop.isEnabled() && !start.isEnabled(); }));
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(QTest::qWaitFor(isOver, 60000));
    addModule("LIN combo", "2");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return channels().shownRows(channelsGrid).size() > 1; }, 60000));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    QTest::mouseClick(window->findChild<QCheckBox*>("records"), Qt::LeftButton);
    path.setText(folder.filePath("no such folder/a.pcapng"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("no such folder"));
    EXPECT_TRUE(isOver()) << "nothing has started";
    path.setText(folder.filePath("a-9.log"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("can't hold LIN: 1 channels"));
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_TRUE(workspace().isMeasuring() && !workspace().isEnding());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_TRUE(QTest::qWaitFor(isOver, 60000));
    EXPECT_EQ(path.text(), folder.filePath("a-10.log")) << "the next recording's";
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole)) << "of the setup";
    EXPECT_TRUE(workspace().session().getModules().empty());
}

TEST_F(MainWindowTest, MenusHaveTheirUsualKeys) {
    std::vector<std::string> keys;  // a platform may have more
    for (const QAction* const action : window->menuBar()->findChildren<QAction*>()) {
        keys.push_back((action->text() + ' ' + action->shortcut().toString()).toStdString());
    }
    EXPECT_THAT(keys, testing::IsSupersetOf({"&New Ctrl+N", "&Open... Ctrl+O", "&Save Ctrl+S",
                                             "&Start F5", "S&top Shift+F5"}));
}

TEST(MeasurementBarTest, TellsTimeSizeAndLosses) {
    MeasurementBar bar({}, {});
    const RecordingSummary small{"a", "", 0, 999'949, 0, ""};
    const RecordingSummary lossy{"b", "", 0, 50'000, 3, ""};
    const RecordingSummary failed{"c", "", 0, 0, 0, "disk full"};
    const auto shown = [&](double seconds, std::vector<RecordingSummary> recordings, bool hasLost) {
        Summary summary;
        summary.seconds = seconds;
        summary.recordings = std::move(recordings);
        bar.show(summary, hasLost);
        std::string texts;
        for (const char* const name : {"elapsed", "recordingSize", "loss"}) {
            texts += bar.findChild<QLabel*>(name)->text().toStdString() + '|';
        }
        const bool isRed =
            bar.findChild<QLabel*>("loss")->palette().color(QPalette::Window).red() == 198;
        return texts + (isRed ? "red" : "green");
    };
    EXPECT_EQ(shown(-1.0, {}, false), "00:00:00.0|not recorded|Nothing lost|green");
    EXPECT_EQ(shown(7199.97, {small}, false), "01:59:59.9|999.9 kB|Nothing lost|green");
    EXPECT_EQ(shown(360'000.0, {small, lossy}, false),
              "100:00:00.0|1.0 MB|Recording failed, 3 messages not in it|red");
    EXPECT_EQ(shown(61.25, {failed}, false),
              "00:01:01.2|0.0 kB|Recording failed, 0 messages not in it|red");
    EXPECT_EQ(shown(0.0, {}, true), "00:00:00.0|not recorded|Messages lost|red");
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
