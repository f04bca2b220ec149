#include <CLI/CLI.hpp>
#include <QApplication>
#include <QTimer>
#include <cstdlib>
#include <utility>

#include "station/gui/main_window.h"
#include "station/permission.h"
#include "station/program.h"
#include "station/serve/bus_address.h"
#include "station/stop_signal.h"
#include "station/terminal_text.h"

#ifndef CMP_VERSION
#define CMP_VERSION "unknown"
#endif

namespace {

using station::ExitCode;

struct Options {
    std::string setup;
    station::WorkspaceOptions workspace;
};

/// Without a screen Qt would abort and advise to install the program again.
void reportToolkit(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (type != QtFatalMsg) {
        station::printMessage(text.toStdString());
        return;
    }
    station::printMessage(
        "there is no screen to show the desktop on: start it in a graphical session (DISPLAY or "
        "WAYLAND_DISPLAY names its screen), or measure with \"cmp-station run\"");
    std::_Exit(static_cast<int>(ExitCode::Failed));
}

/// The window toolkit gets no word of the command line: it has options of its own, some of which
/// name code to load, and would look for them in the values of ours.
ExitCode show(const Options& options, station::StopSignal& stop) {
    char name[] = "cmp-station-gui";
    char* arguments[] = {name, nullptr};
    int count = 1;
    qInstallMessageHandler(reportToolkit);
    QApplication application(count, arguments);  // may wait for a display that doesn't answer
    qInstallMessageHandler(nullptr);
    QApplication::setApplicationName("cmp-station");
    QApplication::setOrganizationName("cmp-station");
    QApplication::setApplicationVersion(CMP_VERSION);
    station::MainWindow window(options.workspace);
    if (!options.setup.empty()) {
        window.open(QString::fromStdString(options.setup));
    }
    window.show();
    QTimer stopTimer;
    bool isClosing = false;
    QObject::connect(&stopTimer, &QTimer::timeout, &window, [&] {
        // Looked for until the end, which shows that it isn't held up.
        if (stop.isRequested() && !std::exchange(isClosing, true)) {
            window.closeWithoutQuestion();
        }
    });
    constexpr int period = 50;  // milliseconds
    stopTimer.start(period);
    return static_cast<ExitCode>(QApplication::exec());
}

ExitCode execute(int argc, char** argv) {
    station::guardDesktop();
    CLI::App app{"The desktop of cmp-station; \"cmp-station gui\" starts it.", "cmp-station-gui"};
    Options options;
    std::string plugin;
    app.add_option("--setup", options.setup, "The setup to open")->type_name("FILE");
    app.add_option("--plugin", plugin, "The plug-in's module")->type_name("FILE");
    app.add_option("--serve", options.workspace.serve,
                   "Let other programs read the CAN channels, as of cmp-station run")
        ->type_name("socketcand://ADDRESS:PORT");
    app.add_option("--sample-rate", options.workspace.sampleRate,
                   "Samples a second of the acquisition, 1000 by default")
        ->type_name("N")
        ->check(CLI::Range(1.0, station::MasterClock::highestSampleRate).description(""));
    if (!station::readCommandLine(app, argc, argv, "cmp-station gui --help")) {
        return ExitCode::Good;
    }
    if (!options.workspace.serve.empty()) {
        station::parseBusAddress(options.workspace.serve);
    }
    options.workspace.plugin = plugin;
    options.workspace.listens = true;
    station::StopSignal stop;
    return show(options, stop);
}

}  // namespace

int main(int argc, char** argv) {
    return station::runProgram([&] { return execute(argc, argv); });
}
