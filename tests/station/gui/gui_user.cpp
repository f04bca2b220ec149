#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QMessageBox>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <map>
#include <nlohmann/json.hpp>

#include "benchmarks/desktop_pictures.h"
#include "benchmarks/latency_probe.h"
#include "station/stop_signal.h"
#include "tests/support/qt_rig.h"

// The desktop program with a user for a live run: opens a setup, measures, looks at the live view
// in both forms, closes the window on Ctrl-C and answers its question. At the end it prints one
// JSON object: the report as `cmp-station run --json` has it, and the latency of the event loop.

namespace {

using namespace station;

class User {
  public:
    std::string setup;
    std::string recording;  ///< empty for none
    std::string pictures;   ///< folder, empty for none
    bool withoutQuestion = false;
    bool disturbs = false;
    bool addsHeard = false;
    int plots = 0;
    std::string serve;
    bool wasAsked = false;                     ///< whether to stop the measurement
    std::map<std::string, std::string> shown;  ///< by form, what the line below it said last

    void start(MainWindow& mainWindow) {
        window = &mainWindow;
        window->open(QString::fromStdString(setup));
        if (addsHeard) {
            addHeard();
        }
        window->findChild<QCheckBox*>("records")->setChecked(!recording.empty());
        window->findChild<QLineEdit*>("recordingPath")->setText(QString::fromStdString(recording));
        QTest::mouseClick(window->findChild<QPushButton*>("start"), Qt::LeftButton);
        if (!window->getWorkspace().isMeasuring()) {
            throw std::runtime_error("the measurement hasn't started: " + getMessages());
        }
    }

    /// Now this, now that.
    void work() {
        ++turn;
        auto* const mode = window->findChild<QComboBox*>("liveMode");
        shown[mode->currentText().toStdString()] =
            window->findChild<QLabel*>("liveStatus")->text().toStdString();
        mode->setCurrentIndex((mode->currentIndex() + 1) % mode->count());
        if (disturbs) {
            disturb();
        }
        if (plots > 0 && turn == pictureTurn) {
            mode->setCurrentIndex(0);
            plotSignals(*window->findChild<QTreeView*>("liveIdentifiers"), plots);
        }
        if (!pictures.empty() && turn == pictureTurn) {
            savePictures(*window, pictures);
        }
    }

    void closeWindow() {
        if (withoutQuestion) {
            window->closeWithoutQuestion();
        } else {
            window->close();
        }
    }

    /// Answers the question that there is: the measurement is to stop, and no change is worth
    /// keeping.
    void answer() {
        const auto* const question = window->findChild<QMessageBox*>();
        if (question == nullptr || !question->isVisible()) {
            return;
        }
        for (QAbstractButton* const button : question->buttons()) {
            const auto role = question->buttonRole(button);
            const bool stops =
                role == QMessageBox::AcceptRole && !question->button(QMessageBox::Save);
            if (stops || role == QMessageBox::DestructiveRole) {
                wasAsked = wasAsked || stops;
                QTest::mouseClick(button, Qt::LeftButton);
                return;
            }
        }
    }

  private:
    static constexpr int pictureTurn = 4;
    /// All that would silence the measurement.
    void disturb() {
        Workspace& workspace = window->getWorkspace();
        const QtUser modules(workspace.getModulesWindow());
        const QtUser channels(workspace.getChannelsWindow());
        const char* const grid = "deviceDrawGrid";
        constexpr std::int32_t type = 1;
        constexpr std::int32_t configId = 3;
        constexpr std::int32_t used = 2;
        modules.press("addDeviceButton");
        modules.pick({grid, 1, type}, "LIN combo");
        modules.pick({grid, 1, configId}, "E");
        modules.select(grid, {1});
        modules.press("removeDeviceButton");
        channels.toggle({"channelDrawGrid", 2, used});
    }

    std::string getMessages() const {
        return window->findChild<QLabel*>("messages")->text().toStdString();
    }
    /// From the list of modules, with one click.
    void addHeard() {
        auto* const table = window->findChild<QTableWidget*>("liveModules");
        QPushButton* button = nullptr;
        const auto isThere = [&] {
            button = table->findChild<QPushButton*>();
            return button != nullptr;
        };
        constexpr int patience = 30000;
        constexpr std::int32_t used = 2;
        const QtUser channels(window->getWorkspace().getChannelsWindow());
        const char* const grid = "channelDrawGrid";
        if (!QTest::qWaitFor(isThere, patience)) {
            throw std::runtime_error("no module was heard: " + getMessages());
        }
        window->findChild<QComboBox*>("liveMode")->setCurrentIndex(2);
        QTest::mouseClick(button, Qt::LeftButton);
        const auto hasRows = [&] { return channels.shownRows(grid).size() > 2; };
        if (!QTest::qWaitFor(hasRows, patience) || !channels.toggle({grid, 2, used})) {
            throw std::runtime_error("it has no channels: " + getMessages());
        }
    }

    MainWindow* window = nullptr;
    int turn = 0;
};

}  // namespace

int main(int argc, char** argv) {
    StopSignal stop;
    stop.setPatience(std::chrono::seconds(30));
    QApplication application(argc, argv);
    QCoreApplication::setOrganizationName("cmp-station-test");
    const QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
    User user;
    CLI::App app{"The desktop program with a user for a live run."};
    app.add_option("--setup", user.setup, "The setup's file")->required();
    app.add_option("--record", user.recording, "The recording");
    app.add_option("--pictures", user.pictures, "A folder for pictures of the windows");
    app.add_flag("--without-question", user.withoutQuestion, "It ends as by a signal");
    app.add_flag("--disturb", user.disturbs, "Tries to change modules and channels meanwhile");
    app.add_option("--serve", user.serve, "As of cmp-station gui");
    app.add_option("--plots", user.plots, "So many signals are plotted");
    app.add_flag("--add-heard", user.addsHeard,
                 "Sets up a module that is heard, with its channels");
    CLI11_PARSE(app, argc, argv);
    MainWindow window(
        {.plugin = {}, .listens = user.addsHeard, .serve = user.serve, .onMessage = {}});
    window.show();
    user.start(window);
    LatencyProbe probe;
    QTimer worker;
    QObject::connect(&worker, &QTimer::timeout, &window, [&] { user.work(); });
    worker.start(500);
    QTimer stopper;
    QObject::connect(&stopper, &QTimer::timeout, &window, [&] {
        if (stop.isRequested() && worker.isActive()) {
            worker.stop();
            probe.end();
            user.closeWindow();
        } else if (!worker.isActive()) {
            user.answer();
        }
    });
    stopper.start(50);
    QApplication::exec();
    Workspace& workspace = window.getWorkspace();
    fmt::print(
        "{{\"report\": {}, \"hasLost\": {}, \"hasAsked\": {}, \"latencyMs\": {}, \"shown\": {}}}\n",
        toJson(workspace.summarize()), workspace.hasLost(), user.wasAsked, probe.toJson(),
        nlohmann::json(user.shown).dump());
    return workspace.isMeasuring() ? 1 : 0;
}
