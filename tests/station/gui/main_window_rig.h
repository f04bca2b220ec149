#pragma once

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
#include <regex>

#include "station/gui/main_window.h"
#include "tests/support/qt_rig.h"

namespace main_window_rig {

using namespace station;
using testing::ElementsAre;
using testing::HasSubstr;

inline constexpr const char* modulesGrid = "deviceDrawGrid";
inline constexpr const char* channelsGrid = "channelDrawGrid";

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
    QtUser modules() { return QtUser(workspace().getModulesWindow()); }
    QtUser channels() { return QtUser(workspace().getChannelsWindow()); }
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

}  // namespace main_window_rig
