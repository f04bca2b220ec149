#include "station/gui/main_window.h"

#include <fmt/format.h>
#include <sched.h>

#include <QComboBox>
#include <QFileDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <atomic>
#include <regex>

#include "benchmarks/desktop_pictures.h"
#include "tests/support/qt_rig.h"

namespace {

std::atomic<bool> isDiskDead = false;

}  // namespace

/// In place of the system's: what a recording ends with.
extern "C" int fsync(int /*file*/) {
    isDiskDead.wait(true);
    return 0;
}

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
    /// A network of its own: nothing is captured on the machine's.
    static void leaveNetwork() {
        ASSERT_TRUE(::unshare(CLONE_NEWNET) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0)
            << "the tests need root, or user namespaces";
    }
    bool waitUntilOver() {
        return QTest::qWaitFor([&] { return !workspace().isMeasuring(); }, 60000);
    }
    /// With a row for each module.
    bool waitForChannels(std::size_t rows) {
        return QTest::qWaitFor([&] { return channels().shownRows(channelsGrid).size() == rows; },
                               60000);
    }
    /// Type, ConfigId, name and used channels of each module in a file, and how many outputs it has
    /// in all.
    std::string saved(const char* name) {
        Session other({PLUGIN_FILE, MasterClock::defaultSampleRate, [](const std::string&) {}});
        other.open(SetupFile(file(name)));
        std::string texts;
        for (const station::Module& module : other.getModules()) {
            texts += fmt::format("{} {} {}:", module.type, module.configId, module.name);
            for (const station::Channel& channel : module.channels) {
                texts += channel.isUsed ? ' ' + channel.name : "";
            }
            texts += '|';
        }
        const std::regex output("<Output>");
        const std::string text = contents(file(name));
        return texts + std::to_string(std::distance(
                           std::sregex_iterator(text.begin(), text.end(), output), {}));
    }
    static std::string contents(const std::string& path) {
        return (std::stringstream() << std::ifstream(path).rdbuf()).str();
    }

    QTemporaryDir folder;
    std::optional<MainWindow> window;
};

TEST_F(MainWindowTest, WhatIsSetUpByHandIsWhatTheSavedSetupSays) {
    addModule("CAN combo", "B");
    addModule("LIN combo", "2");
    EXPECT_TRUE(modules().type({modulesGrid, 2, ModuleName}, "Doors"));
    ASSERT_TRUE(waitForChannels(2 + 7 + 10));
    EXPECT_TRUE(channels().select(channelsGrid, {3, 5}));
    EXPECT_TRUE(channels().toggle({channelsGrid, 3, Used})) << "and with it the other one";
    EXPECT_TRUE(channels().select(channelsGrid, {4, 6}));
    EXPECT_TRUE(channels().toggle({channelsGrid, 7, Used}) &&
                channels().toggle({channelsGrid, 7, Used}))
        << "alone, as it isn't selected";
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

    EXPECT_EQ(saved("bench.xml"),
              "CAN combo 11 Technica CAN combo: Technica CAN combo 0x20 Technica CAN combo "
              "0x40|LIN combo 2 Doors:|17");
    window->open(QString::fromStdString(file("bench.xml")));
    const std::vector<ClockChoice> clocks = {{HostGnssDevice::syncModeSoft, false},
                                             {HostGnssDevice::syncModePps, true}};
    EXPECT_EQ(workspace().session().clocks(), clocks);
    EXPECT_EQ(channels().read({channelsGrid, 2, ChannelName}), "Engine");
    EXPECT_EQ(channels().read({channelsGrid, 2, Color}), "12AB34");
    EXPECT_TRUE(modules().select(modulesGrid, {1}));
    EXPECT_TRUE(modules().press("removeDeviceButton"));
    EXPECT_TRUE(waitForChannels(1 + 10));
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
    leaveNetwork();
    auto& start = *window->findChild<QPushButton*>("start");
    auto& stop = *window->findChild<QPushButton*>("stop");
    auto& path = *window->findChild<QLineEdit*>("recordingPath");
    const auto isOver = [&] { return !workspace().isMeasuring(); };
    QTest::mouseClick(&start, Qt::LeftButton);
    EXPECT_THAT(told(), HasSubstr("No channel is used"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return stop.isEnabled() && !start.isEnabled(); }));
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(1 + 10));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    QTest::mouseClick(window->findChild<QCheckBox*>("records"), Qt::LeftButton);
    path.setText(folder.filePath("no such folder/a.pcapng"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("no such folder"));
    EXPECT_TRUE(isOver()) << "nothing has started";
    path.setText(folder.filePath("a-9.log"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("can't hold LIN: 1 channels"));
    const auto& badge = *window->findChild<QLabel*>("loss");
    const auto shows = [&](const char* text) {
        return QTest::qWaitFor([&] { return badge.toolTip().contains(text); }, 60000);
    };
    EXPECT_TRUE(shows("can't hold LIN")) << badge.text().toStdString();
    EXPECT_TRUE(shows("isn't heard")) << "the module, which there isn't";
    EXPECT_THAT(told(), HasSubstr("check its connection and ConfigId"));
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_TRUE(workspace().isMeasuring() && !workspace().isEnding());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(shows("isn't heard")) << "it stays";
    EXPECT_EQ(path.text(), folder.filePath("a-10.log")) << "the next recording's";
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole)) << "of the setup";
    EXPECT_TRUE(workspace().session().getModules().empty());
}

TEST_F(MainWindowTest, ADiskThatDoesNotConfirmIsLeftIfTheUserWantsIt) {
    leaveNetwork();
    QTest::mouseClick(window->findChild<QCheckBox*>("records"), Qt::LeftButton);
    window->findChild<QLineEdit*>("recordingPath")->setText(folder.filePath("a.pcapng"));
    EXPECT_TRUE(choose("&Start"));
    isDiskDead = true;
    window->close();
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    const auto asks = [&] {
        const auto* const box = window->findChild<QMessageBox*>();
        return box != nullptr && box->text().contains("hasn't confirmed");
    };
    EXPECT_TRUE(QTest::qWaitFor(asks, 60000));
    EXPECT_TRUE(workspace().isMeasuring() && window->isVisible());
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window->isVisible(); }, 60000));
    EXPECT_THAT(told(), HasSubstr("the disk hasn't confirmed"));
    isDiskDead = false;
    isDiskDead.notify_all();
}

TEST_F(MainWindowTest, WhatWouldSilenceAMeasurementIsLockedAndTheSetupIsSavedWhole) {
    leaveNetwork();
    const auto& notice = *window->findChild<QLabel*>("lockNotice");
    const auto isUsed = [&] { return channels().read({channelsGrid, 2, Used}) == "Used"; };
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(1 + 10));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    EXPECT_TRUE(modules().press("addDeviceButton"));
    workspace().save(file("setup.xml"));
    EXPECT_FALSE(notice.isVisible());
    QTest::mouseClick(window->findChild<QPushButton*>("start"), Qt::LeftButton);
    ASSERT_TRUE(workspace().isMeasuring());
    EXPECT_TRUE(QTest::qWaitFor([&] { return notice.isVisible(); }));
    EXPECT_THAT(notice.text().toStdString(), HasSubstr("stop it to"));
    EXPECT_EQ(window->findChild<QToolButton*>("addDeviceButton")->toolTip(), notice.text());
    const auto& live = *window->findChild<QTreeView*>("liveIdentifiers")->model();
    EXPECT_TRUE(QTest::qWaitFor([&] { return live.rowCount() == 1; })) << "the used one";
    for (const char* const type : {"CAN combo", "LIN combo"}) {
        EXPECT_FALSE(modules().pick({modulesGrid, 1, Type}, type));
    }
    EXPECT_FALSE(modules().pick({modulesGrid, 1, ConfigId}, "3"));
    EXPECT_FALSE(modules().type({modulesGrid, 2, ConfigId}, "7")) << "a number that is typed";
    modules().press("addDeviceButton");
    modules().select(modulesGrid, {1});
    modules().press("removeDeviceButton");
    QTest::keyClick(modules().view(modulesGrid), Qt::Key_Delete);
    channels().toggle({channelsGrid, 2, Used});
    EXPECT_TRUE(isUsed());
    EXPECT_TRUE(modules().type({modulesGrid, 1, ModuleName}, "Doors"));
    EXPECT_TRUE(channels().type({channelsGrid, 2, ChannelName}, "Left"));
    EXPECT_TRUE(choose("&Save"));
    EXPECT_EQ(saved("setup.xml"), "LIN combo 2 Doors: Left|Unknown 0 :|10");
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !notice.isVisible(); }));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    EXPECT_FALSE(isUsed());
    EXPECT_TRUE(modules().press("addDeviceButton"));
    EXPECT_EQ(modules().shownRows(modulesGrid).size(), 3U);
}

TEST_F(MainWindowTest, ATypeThatChangesToAndFroBetweenTwoLooksLeavesNothingOfTheOldChannels) {
    leaveNetwork();
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    const auto flip = [&] {
        for (const wchar_t* const type : {L"LIN combo", L"CAN combo"}) {
            workspace().session().driver().callModules(
                "", [&](ModuleList& list) { return list.setType(0, type); });
        }
    };
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    flip();
    workspace().save(file("setup.xml"));
    EXPECT_EQ(saved("setup.xml"), "CAN combo 1 Technica CAN combo:|7");
    EXPECT_TRUE(channels().toggle({channelsGrid, 3, Used})) << "it shows the new ones";
    flip();
    EXPECT_TRUE(channels().read({channelsGrid, 3, Used}) != "" && choose("&Start"));
    EXPECT_TRUE(workspace().summarize().channels.empty());
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    workspace().start({});
    flip();
    EXPECT_THROW(workspace().save(file("setup.xml")), UserError) << "it has no channels now";
    EXPECT_EQ(saved("setup.xml"), "CAN combo 1 Technica CAN combo:|7");
    workspace().requestStop();
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !workspace().session().needsChannels(); }, 60000));
    EXPECT_TRUE(channels().toggle({channelsGrid, 4, Used}));
    workspace().start({});
    EXPECT_EQ(workspace().summarize().channels.size(), 1U) << "of one that is alive";
}

TEST_F(MainWindowTest, ASetupThatAnotherProgramChangedIsNotWrittenOverUnasked) {
    const auto save = [&] {
        EXPECT_TRUE(choose("&Save"));
        return contents(file("setup.xml"));
    };
    const auto changeIt = [&](const char* by) {
        std::ofstream(file("setup.xml"), std::ios::app) << "<!-- " << by << " -->";
        return contents(file("setup.xml"));
    };
    addModule("CAN combo", "1");
    workspace().save(file("other.xml"));
    workspace().save(file("setup.xml"));
    window->open(QString::fromStdString(file("setup.xml")));
    addModule("LIN combo", "2");
    {
        const SetupLock lock(file("setup.xml"));
        save();
        EXPECT_THAT(told(), HasSubstr("another program is changing setups"));
    }
    save();
    EXPECT_EQ(saved("setup.xml"),
              "CAN combo 1 Technica CAN combo:|LIN combo 2 Technica LIN combo:|17")
        << "its own changes are no reason to ask";
    std::string theirs = changeIt("first");
    EXPECT_EQ(save(), theirs);
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    changeIt("second");
    EXPECT_FALSE(workspace().save(file("./setup.xml"))) << "the same by another name";
    theirs = changeIt("third");
    EXPECT_EQ(save(), theirs) << "again";
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_EQ(contents(file("setup.xml.bak")), theirs);
    EXPECT_NE(contents(file("setup.xml")), theirs);
    EXPECT_TRUE(modules().type({modulesGrid, 1, ModuleName}, "Mine"));
    std::filesystem::copy_file(file("other.xml"), file("setup.xml"),
                               std::filesystem::copy_options::overwrite_existing);
    save();
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole));
    EXPECT_EQ(modules().shownRows(modulesGrid).size(), 1U);
    EXPECT_EQ(modules().read({modulesGrid, 1, ModuleName}), "Technica CAN combo");
    EXPECT_FALSE(workspace().isModified());
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
    RecordingSummary small, lossy, failed;
    small.bytes = 999'949;
    lossy.bytes = 50'000;
    lossy.lost = 3;
    failed.error = "disk full";
    const auto shown = [&](double seconds, std::vector<RecordingSummary> recordings, bool hasLost,
                           const std::vector<std::string>& gaps = {}) {
        Summary summary;
        summary.seconds = seconds;
        summary.recordings = std::move(recordings);
        bar.show(summary, hasLost, gaps);
        std::string texts;
        for (const char* const name : {"elapsed", "recordingSize", "loss"}) {
            texts += bar.findChild<QLabel*>(name)->text().toStdString() + '|';
        }
        const int red = bar.findChild<QLabel*>("loss")->palette().color(QPalette::Window).red();
        return texts + (red == 198 ? "red" : red == 255 ? "amber" : "green");
    };
    EXPECT_EQ(shown(-1.0, {}, false), "00:00:00.0|not recorded|Nothing lost|green");
    EXPECT_EQ(shown(7199.97, {small}, false), "01:59:59.9|999.9 kB|Nothing lost|green");
    EXPECT_EQ(shown(360'000.0, {small, lossy}, false),
              "100:00:00.0|1.0 MB|Recording failed, 3 messages not in it|red");
    EXPECT_EQ(shown(61.25, {failed}, false),
              "00:01:01.2|0.0 kB|Recording failed, 0 messages not in it|red");
    EXPECT_EQ(shown(0.0, {}, true, {"a"}), "00:00:00.0|not recorded|Messages lost|red");
    EXPECT_EQ(shown(0.0, {}, false, {"a <b>"}), "00:00:00.0|not recorded|a <b>|amber");
    EXPECT_EQ(shown(0.0, {}, false, {std::string(61, 'a'), "b", "c"}),
              "00:00:00.0|not recorded|" + std::string(60, 'a') + "... (and 2 more)|amber");
}

TEST_F(MainWindowTest, MessagesStandThereAndAreCountedUntilTheyAreDismissed) {
    auto* const bar = dynamic_cast<MessageBar*>(window->findChild<QFrame*>("messageBar"));
    ASSERT_NE(bar, nullptr);
    EXPECT_FALSE(bar->isVisible());
    bar->tell("lost");
    bar->tell("<b>\n\u202E");
    bar->tell("lost");
    EXPECT_THAT(told(), testing::MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]  lost "
                                              "\\(2 times\\)\n[0-9:]+  <b> \\?"));
    for (const char* const text : {"c", "d", "e"}) {
        bar->tell(text);
    }
    EXPECT_THAT(told(), testing::StartsWith("(1 earlier ones"));
    EXPECT_TRUE(window->findChild<QLabel*>("messages")->toolTip().contains("lost (2 times)"));
    bar->dismiss();
    EXPECT_FALSE(bar->isVisible());
    window->open(QString::fromStdString(file("none.xml")));
    bar->tell("stays");
    EXPECT_THAT(told(), HasSubstr("none.xml"));
    workspace().save(file("none.xml"));
    window->open(QString::fromStdString(file("none.xml")));
    EXPECT_THAT(told(), testing::MatchesRegex("[0-9:]+  stays")) << "a later success settles it";
}

TEST_F(MainWindowTest, TheSetupIsCheckedAndFirstStepsStandInAnEmptyOne) {
    const auto& firstSteps = *window->findChild<QLabel*>("firstSteps");
    EXPECT_TRUE(firstSteps.isVisible());
    addModule("CAN combo", "1");
    EXPECT_TRUE(QTest::qWaitFor([&] { return !firstSteps.isVisible(); }));
    addModule("CAN combo", "1");
    EXPECT_TRUE(QTest::qWaitFor([&] { return told().find("same CM ID 0x41") != told().npos; }));
    EXPECT_TRUE(modules().pick({modulesGrid, 2, ConfigId}, "2"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return told().empty(); })) << "it is settled";
    const auto& states = *window->findChild<QTableWidget*>("liveModules");
    EXPECT_EQ(states.rowCount(), 2);
    EXPECT_EQ(states.item(1, 2)->text(), "0x42");
    EXPECT_EQ(states.item(1, 3)->text(), "Not connected");
}

TEST_F(MainWindowTest, DatabasesAreChosenForChannelsAndKeptInTheSetup) {
    leaveNetwork();
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    workspace().save(file("setup.xml"));
    std::ofstream(file("engine.dbc")) << "BU_: A\nBO_ 256 Engine: 8 A\n SG_ Speed : 0|8@1+ (1,0) "
                                         "[0|0] \"\" A\n";
    std::ofstream(file("torn.dbc")) << "BO_ 256 Engine";
    EXPECT_TRUE(choose("&Databases..."));
    auto& rows = *window->findChild<QTreeWidget*>("databases");
    auto& put = *window->findChild<QPushButton*>("chooseDatabases");
    EXPECT_FALSE(put.isEnabled());
    rows.topLevelItem(0)->child(0)->setSelected(true);
    const auto pick = [&](const char* name) {
        QTest::mouseClick(&put, Qt::LeftButton);
        auto* const dialog = rows.window()->findChild<QFileDialog*>();
        Q_EMIT dialog->filesSelected({QString::fromStdString(file(name))});
        delete dialog;
        QtUser::settle();
    };
    pick("torn.dbc");
    EXPECT_THAT(told(), HasSubstr("torn.dbc"));
    EXPECT_EQ(rows.topLevelItem(0)->child(0)->text(2), "");
    EXPECT_FALSE(workspace().isModified());
    pick("engine.dbc");
    EXPECT_EQ(rows.topLevelItem(0)->child(0)->text(2).toStdString(), file("engine.dbc"));
    EXPECT_TRUE(workspace().isModified());
    rows.window()->close();
    workspace().save(file("setup.xml"));
    window->open(QString::fromStdString(file("setup.xml")));
    EXPECT_TRUE(choose("&Start"));
    const auto& shown = workspace().getFeed().getChannels();
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_NE(shown[0].findMessage(256, false), nullptr);
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    std::filesystem::remove(file("engine.dbc"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("engine.dbc")) << "it measures without";
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
}

TEST_F(MainWindowTest, TheKeyboardGoesFromTheTopLeftToTheBottomRight) {
    for (const bool isAnother : {false, true}) {
        if (isAnother) {
            EXPECT_TRUE(choose("&New"));
        }
        QtUser::settle();
        const QWidget* const first = window->findChild<QPushButton*>("start");
        std::vector<std::string> wrong;
        int last = 0;
        for (const QWidget* at = first->nextInFocusChain(); at != first;
             at = at->nextInFocusChain()) {
            const bool isReached = at->isVisible() && at->isEnabled() && at->window() == &*window &&
                                   (at->focusPolicy() & Qt::TabFocus) != 0;
            if (isReached && at->mapTo(&*window, QPoint()).y() + 40 < last) {
                wrong.push_back(at->objectName().toStdString());
            }
            last = isReached ? at->mapTo(&*window, QPoint()).y() : last;
        }
        EXPECT_THAT(wrong, testing::IsEmpty());
    }
}

TEST_F(MainWindowTest, ADarkPaletteIsDarkEverywhere) {
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    const QPalette usual = QApplication::palette();
    QApplication::setPalette(makeDarkPalette());
    for (int form = 0; form < 3; ++form) {
        window->findChild<QComboBox*>("liveMode")->setCurrentIndex(form);
        QtUser::settle();
        const QImage picture = window->grab().toImage();
        int light = 0;
        for (int y = 0; y < picture.height(); y += 3) {
            for (int x = 0; x < picture.width(); x += 3) {
                light += picture.pixelColor(x, y).lightness() > 150 ? 1 : 0;
            }
        }
        EXPECT_LT(light, picture.width() * picture.height() / 9 / 20) << "texts and colours alone";
    }
    QApplication::setPalette(usual);
}

TEST_F(MainWindowTest, TheWindowComesBackWhereItWas) {
    window->resize(1111, 777);
    auto* const parts = window->findChild<QSplitter*>("parts");
    parts->setSizes({300, 200});
    QtUser::settle();
    const QList<int> sizes = parts->sizes();
    window->close();
    QtUser::settle();
    MainWindow again(WorkspaceOptions{.plugin = PLUGIN_FILE, .onMessage = {}});
    again.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&again));
    EXPECT_EQ(again.size(), QSize(1111, 777));
    EXPECT_EQ(again.findChild<QSplitter*>("parts")->sizes(), sizes);
    auto* const sides = again.findChild<QSplitter*>("windows");
    sides->setSizes({700, 400});
    const QList<int> widths = sides->sizes();
    again.open(QString::fromStdString(file("none.xml")));
    again.getWorkspace().begin();
    again.getWorkspace().save(file("empty.xml"));
    again.open(QString::fromStdString(file("empty.xml")));
    QtUser::settle();
    EXPECT_EQ(sides->sizes(), widths) << "of another setup, too";
}

}  // namespace
