#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QMessageBox>
#include <QTest>

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
    bool wasAsked = false;  ///< whether to stop the measurement

    explicit User(MainWindow& mainWindow) : window(mainWindow) {}

    void start() {
        window.open(QString::fromStdString(setup));
        window.findChild<QCheckBox*>("records")->setChecked(!recording.empty());
        window.findChild<QLineEdit*>("recordingPath")->setText(QString::fromStdString(recording));
        QTest::mouseClick(window.findChild<QPushButton*>("start"), Qt::LeftButton);
        if (!window.getWorkspace().isMeasuring()) {
            throw std::runtime_error("the measurement hasn't started: " +
                                     window.findChild<QLabel*>("messages")->text().toStdString());
        }
    }

    /// Now this, now that.
    void work() {
        ++turn;
        auto* const mode = window.findChild<QComboBox*>("liveMode");
        mode->setCurrentIndex(1 - mode->currentIndex());
        if (disturbs) {
            disturb();
        }
        if (!pictures.empty() && turn == pictureTurn) {
            savePictures(window, pictures);
        }
    }

    void closeWindow() {
        if (withoutQuestion) {
            window.closeWithoutQuestion();
        } else {
            window.close();
        }
    }

    /// Answers the question that there is: the measurement is to stop, and no change is worth
    /// keeping.
    void answer() {
        const auto* const question = window.findChild<QMessageBox*>();
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
        Workspace& workspace = window.getWorkspace();
        const QtUser modules(workspace.modulesWindow());
        const QtUser channels(workspace.channelsWindow());
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

    MainWindow& window;
    int turn = 0;
};

}  // namespace

int main(int argc, char** argv) {
    StopSignal stop;
    stop.setPatience(std::chrono::seconds(30));
    QApplication application(argc, argv);
    QCoreApplication::setOrganizationName("cmp-station-test");
    MainWindow window({});
    User user(window);
    CLI::App app{"The desktop program with a user for a live run."};
    app.add_option("--setup", user.setup, "The setup's file")->required();
    app.add_option("--record", user.recording, "The recording");
    app.add_option("--pictures", user.pictures, "A folder for pictures of the windows");
    app.add_flag("--without-question", user.withoutQuestion, "It ends as by a signal");
    app.add_flag("--disturb", user.disturbs, "Tries to change modules and channels meanwhile");
    CLI11_PARSE(app, argc, argv);
    window.show();
    user.start();
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
    fmt::print("{{\"report\": {}, \"hasLost\": {}, \"hasAsked\": {}, \"latencyMs\": {}}}\n",
               toJson(workspace.summarize()), workspace.hasLost(), user.wasAsked, probe.toJson());
    return workspace.isMeasuring() ? 1 : 0;
}
