#include "station/gui/main_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGroupBox>
#include <QHeaderView>
#include <QMenuBar>
#include <QSettings>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "station/gui/clock_dialog.h"
#include "station/gui/database_dialog.h"

namespace station {
namespace {

constexpr const char* fileFilter = "Setups (*.xml);;All files (*)";

constexpr const char* firstStepsText =
    "First steps: 1. Add your capture module with + in the window of modules and choose its type "
    "and ConfigId, or take one that is heard from \"Modules and clocks\" below. 2. Tick \"Used\" "
    "at the channels to measure. 3. Press Start.";

constexpr const char* defaultServe = "socketcand://127.0.0.1:29536";

constexpr const char* recentKey = "recentSetups";

/// The setups that the user had open lately, latest first, kept in his settings.
QStringList recentSetups() {
    return QSettings().value(recentKey).toStringList();
}

/// Puts it first among them, or takes it out if it can't be opened.
void noteRecent(const QString& path, bool opens) {
    constexpr int most = 8;
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QStringList files = recentSetups();
    files.removeAll(absolute);
    if (opens) {
        files.prepend(absolute);
    }
    QSettings().setValue(recentKey, files.mid(0, most));
}

WorkspaceOptions reportingTo(WorkspaceOptions options, MessageBar& messages) {
    options.onMessage = [&messages](const std::string& text) {
        messages.report(QString::fromStdString(text));
    };
    options.onNews = [&messages](const std::string& text, const std::string& topic) {
        messages.settle(QString::fromStdString(topic));
        if (!text.empty()) {
            messages.report(QString::fromStdString(text), QString::fromStdString(topic));
        }
    };
    return options;
}

std::filesystem::path toPath(const QString& text) {
    return text.toStdString();
}

}  // namespace

MainWindow::MainWindow(WorkspaceOptions options)
    : messages(new MessageBar),
      workspace(reportingTo(std::move(options), *messages)),
      bar(new MeasurementBar(
          [this](const QString& path) { attempt([&] { workspace.start(toPath(path)); }, "start"); },
          [this] { attempt([&] { workspace.requestStop(); }); })),
      lockNotice(new QLabel(Workspace::lockReason)),
      firstSteps(new QLabel(firstStepsText)),
      windows(new QSplitter(Qt::Horizontal)),
      parts(new QSplitter(Qt::Vertical)) {
    lockNotice->setObjectName("lockNotice");
    lockNotice->setWordWrap(true);
    firstSteps->setObjectName("firstSteps");
    parts->setObjectName("parts");
    windows->setObjectName("windows");
    firstSteps->setWordWrap(true);
    live = new LivePanel(workspace.getFeed());
    modules = new ModulesPanel(workspace, [this](const Next& action) { attempt(action, "add"); });
    live->addForm("Modules and clocks", modules);
    parts->addWidget(windows);
    parts->addWidget(live);
    auto* const content = new QWidget;
    auto* const layout = new QVBoxLayout(content);
    layout->addWidget(bar);
    layout->addWidget(messages);
    layout->addWidget(lockNotice);
    layout->addWidget(firstSteps);
    layout->addWidget(parts, 1);
    setCentralWidget(content);
    makeMenus();
    placeWindows();
    constexpr int width = 1500;
    constexpr int height = 900;
    resize(width, height);
    parts->setSizes({height / 2, height / 2});
    restoreLayout();

    pollTimer.setTimerType(Qt::PreciseTimer);
    connect(&pollTimer, &QTimer::timeout, this, [this] { tick(); });
    pollTimer.start(Measurement::period);
    connect(&stateTimer, &QTimer::timeout, this, [this] { showState(); });
    constexpr int statePeriod = 250;  // milliseconds
    stateTimer.start(statePeriod);
    showState();
}

MainWindow::~MainWindow() {
    delete live;  // until it is gone it asks the workspace's feed for what it shows
}

void MainWindow::makeMenus() {
    QMenu& file = *menuBar()->addMenu("&File");
    const auto fresh = [this] {
        whenSettled([this] {
            attempt([this] { workspace.begin(); });
            placeWindows();
        });
    };
    addAction(file, "&New", QKeySequence::New, [this, fresh] { whenIdle(fresh); });
    addAction(file, "&Open...", QKeySequence::Open, [this] {
        const QString path = QFileDialog::getOpenFileName(this, "Open a setup", {}, fileFilter);
        if (!path.isEmpty()) {
            openWhenFree(path);
        }
    });
    recentMenu = file.addMenu("Open &Recent");
    fillRecent();
    addAction(file, "&Save", QKeySequence::Save, [this] { saveAndThen({}); });
    addAction(file, "Save &As...", QKeySequence::SaveAs, [this] { askSavePath({}); });
    file.addSeparator();
    addAction(file, "&Quit", QKeySequence::Quit, [this] { close(); });
    QMenu& measurement = *menuBar()->addMenu("&Measurement");
    addAction(measurement, "&Start", Qt::Key_F5, [this] { bar->pressStart(); });
    addAction(measurement, "S&top", Qt::SHIFT | Qt::Key_F5, [this] { bar->pressStop(); });
    measurement.addSeparator();
    addAction(measurement, "&Clocks...", {}, [this] { whenIdle([this] { showClocks(); }); });
    addAction(measurement, "&Databases and bit rates...", {},
              [this] { whenIdle([this] { showDatabases(); }); });
    auto* const serving = measurement.addAction("&Let other programs read the CAN channels");
    serving->setObjectName("serve");
    serving->setCheckable(true);
    serving->setChecked(!workspace.getServe().empty());
    const std::string address = workspace.getServe().empty() ? defaultServe : workspace.getServe();
    serving->setToolTip(QString::fromStdString(address));
    connect(serving, &QAction::toggled, this, [this, address](bool isOn) {
        workspace.setServe(isOn ? address : "");
        if (workspace.isMeasuring()) {
            messages->report(
                "Other programs can read, or no longer, from the next measurement on.");
        }
    });
    QMenu& help = *menuBar()->addMenu("&Help");
    addAction(help, "&About", {}, [this] { showAbout(); });
}

QAction* MainWindow::addAction(QMenu& menu, const QString& text, const QKeySequence& keys,
                               Next action) {
    auto* const made = menu.addAction(text);
    made->setShortcut(keys);
    connect(made, &QAction::triggered, this, [action = std::move(action)] { action(); });
    return made;
}

/// Those of a setup before have gone by themselves.
void MainWindow::placeWindows() {
    if (windows->indexOf(&workspace.getModulesWindow()) >= 0) {
        return;
    }
    const QList<int> widths = windows->sizes();
    while (windows->count() > 0) {
        delete windows->widget(0);
    }
    const auto add = [this](const QString& title, QtWindow& window) {
        auto* const frame = new QGroupBox(title);
        auto* const layout = new QVBoxLayout(frame);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(&window);
        windows->addWidget(frame);
    };
    add("Modules", workspace.getModulesWindow());
    add("Channels", workspace.getChannelsWindow());
    windows->setSizes(widths.size() == 2 ? widths : QList<int>{width() * 2 / 5, width() * 3 / 5});
    // The keyboard's way is the order in which they came: what is below comes behind.
    const QList<int> sizes = parts->sizes();
    live->setParent(nullptr);
    parts->addWidget(live);
    live->show();
    parts->setSizes(sizes);
}

void MainWindow::fillRecent() {
    recentMenu->clear();
    for (const QString& path : recentSetups()) {
        addAction(*recentMenu, path, {}, [this, path] { openWhenFree(path); });
    }
    recentMenu->setEnabled(!recentMenu->isEmpty());
}

bool MainWindow::attempt(const Next& action, const QString& name) {
    try {
        action();
    } catch (const std::exception& failure) {
        messages->report(QString::fromUtf8(failure.what()), name);
        return false;
    }
    if (!name.isEmpty()) {
        messages->settle(name);
    }
    return true;
}

void MainWindow::checkSetup() {
    const QString topic = "shared";
    std::vector<std::string> found = workspace.findSharedIds();
    if (found != sharedIds) {
        messages->settle(topic);
        for (const std::string& text : found) {
            messages->report(QString::fromStdString(text), topic);
        }
        sharedIds = std::move(found);
    }
}

void MainWindow::restoreLayout() {
    const QSettings settings;
    restoreGeometry(settings.value("window").toByteArray());
    windows->restoreState(settings.value("windows").toByteArray());
    parts->restoreState(settings.value("parts").toByteArray());
    modules->horizontalHeader()->restoreState(settings.value("liveModules").toByteArray());
}

void MainWindow::saveLayout() const {
    QSettings settings;
    settings.setValue("window", saveGeometry());
    settings.setValue("windows", windows->saveState());
    settings.setValue("parts", parts->saveState());
    settings.setValue("liveModules", modules->horizontalHeader()->saveState());
    live->saveLayout();
}

void MainWindow::open(const QString& path) {
    const bool opens = attempt([&] { workspace.open(toPath(path)); }, "open " + path);
    if (opens) {
        placeWindows();
    }
    noteRecent(path, opens);
    fillRecent();
    showState();
}

void MainWindow::save(const QString& path, Next next) {
    bool isSaved = false;
    if (!attempt([&] { isSaved = workspace.save(toPath(path)); }, "save")) {
        return;
    }
    if (!isSaved) {
        askWhoseChanges(path, std::move(next));
        return;
    }
    noteRecent(path, true);
    fillRecent();
    showState();
    if (next) {
        next();
    }
}

void MainWindow::askWhoseChanges(const QString& path, Next next) {
    auto* const box = new QMessageBox(
        QMessageBox::Warning, windowTitle(),
        QString("%1 was changed by another program since it was opened or saved here.\n\n"
                "Keep yours: it is written over, and what it holds now becomes the backup "
                "(.bak).\nReload: your changes since the last save are lost.")
            .arg(path),
        QMessageBox::Cancel, this);
    box->setTextFormat(Qt::PlainText);
    box->setAttribute(Qt::WA_DeleteOnClose);
    const auto* const keep = box->addButton("&Keep mine", QMessageBox::AcceptRole);
    const auto* const reload = box->addButton("&Reload", QMessageBox::DestructiveRole);
    connect(box, &QMessageBox::buttonClicked, this,
            [this, keep, reload, path, next = std::move(next)](const QAbstractButton* pressed) {
                const QObject* const chosen = pressed;
                if (chosen == keep) {
                    save(path, next);
                } else if (chosen == reload) {
                    whenIdle([this, path] { open(path); });
                }
            });
    box->open();
}

void MainWindow::saveAndThen(Next next) {
    if (workspace.getPath().empty()) {
        askSavePath(std::move(next));
    } else {
        save(QString::fromStdString(workspace.getPath().string()), std::move(next));
    }
}

void MainWindow::askSavePath(Next next) {
    auto* const dialog = new QFileDialog(this, "Save the setup as", {}, fileFilter);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix("xml");
    connect(dialog, &QFileDialog::fileSelected, this,
            [this, next = std::move(next)](const QString& path) { save(path, next); });
    dialog->open();
}

void MainWindow::openWhenFree(const QString& path) {
    whenIdle([this, path] { whenSettled([this, path] { open(path); }); });
}

void MainWindow::whenSettled(Next next) {
    bool isModified = true;  // if it can't be found out
    attempt([&] { isModified = workspace.isModified(); });
    if (!isModified) {
        next();
        return;
    }
    auto* const box = new QMessageBox(
        QMessageBox::Question, windowTitle(), "The setup was changed. Save the changes?",
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this, next = std::move(next)](int answer) {
        if (answer == QMessageBox::Save) {
            saveAndThen(next);
        } else if (answer == QMessageBox::Discard) {
            next();
        }
    });
    box->open();
}

void MainWindow::whenIdle(Next next) {
    if (!workspace.isMeasuring()) {
        next();
        return;
    }
    ask("A measurement is running. Stop it and close its recording?", "&Stop the measurement",
        [this, next = std::move(next)] {
            if (!workspace.isMeasuring()) {  // it has ended by itself
                next();
                return;
            }
            afterMeasurement = next;
            attempt([this] { workspace.requestStop(); });
        });
}

QMessageBox* MainWindow::ask(const QString& text, const QString& button, Next onYes) {
    auto* const box =
        new QMessageBox(QMessageBox::Question, windowTitle(), text, QMessageBox::Cancel, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    const auto* const yes = box->addButton(button, QMessageBox::AcceptRole);
    connect(box, &QMessageBox::buttonClicked, this,
            [yes, onYes = std::move(onYes)](const QAbstractButton* pressed) {
                if (static_cast<const QObject*>(pressed) == static_cast<const QObject*>(yes)) {
                    onYes();
                }
            });
    box->open();
    return box;
}

void MainWindow::watchDisk(const Summary& summary) {
    constexpr auto patience = std::chrono::seconds(5);
    constexpr auto pause = std::chrono::seconds(30);  // until he is asked again
    std::uint64_t bytes = 0;
    for (const RecordingSummary& recording : summary.recordings) {
        bytes += recording.bytes;
    }
    const bool isClosing =
        workspace.isMeasuring() && !workspace.getSession().getDriver().isMeasuring();
    const auto now = Measurement::Clock::now();
    if (!isClosing || bytes != std::exchange(bytesWritten, bytes)) {
        nextDiskQuestion = now + patience;
        delete diskQuestion;
    } else if (now >= nextDiskQuestion && !diskQuestion) {
        nextDiskQuestion = now + pause;
        const std::uint64_t missing = workspace.countMissing();
        const QString text =
            missing == 0
                ? "The recordings are written, but the disk hasn't confirmed yet that it keeps "
                  "them. Leave them as they are?"
                : QString(
                      "The disk takes nothing, so the recordings can't be closed. Leave them "
                      "as they are? Up to %1 messages are missing at their end then.")
                      .arg(missing);
        diskQuestion =
            ask(text, "&Leave them", [this] { attempt([this] { workspace.requestStop(true); }); });
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (mayClose) {
        saveLayout();
        event->accept();
        return;
    }
    event->ignore();
    whenIdle([this] {
        whenSettled([this] {
            mayClose = true;
            // Qt is about to end this attempt, and passes over another one in it.
            QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
        });
    });
}

void MainWindow::closeWithoutQuestion() {
    mayClose = true;
    if (workspace.isMeasuring()) {
        afterMeasurement = [this] { close(); };
        attempt([this] { workspace.requestStop(true); });
    } else {
        close();
    }
}

void MainWindow::tick() {
    attempt([this] { workspace.tick(Measurement::Clock::now()); });
    if (workspace.isMeasuring() != wasMeasuring) {
        wasMeasuring = workspace.isMeasuring();
        showState();
        if (!wasMeasuring) {
            bar->proposeNextRecording();
            if (const Next next = std::exchange(afterMeasurement, {})) {
                next();
            }
        }
    }
}

void MainWindow::showState() {
    attempt([this] {
        using State = MeasurementBar::State;
        bar->setState(!workspace.isMeasuring() ? State::Idle
                      : workspace.isEnding()   ? State::Ending
                                               : State::Running);
        lockNotice->setVisible(workspace.isMeasuring());
        firstSteps->setVisible(workspace.getModules().empty());
        modules->showState();
        const Summary& summary = workspace.summarize();
        bar->show(summary, workspace.hasLost(), workspace.getGaps());
        watchDisk(summary);
        if (!workspace.isMeasuring()) {
            checkSetup();
        }
        const auto name = workspace.getPath().filename().string();
        setWindowTitle(QString::fromStdString(name.empty() ? "New setup" : name) +
                       "[*] - cmp-station");
        setWindowModified(workspace.isModified());
    });
}

void MainWindow::showClocks() {
    attempt([this] {
        auto* const dialog = new ClockDialog(
            workspace, [this](const Next& action) { attempt(action, "clocks"); }, this);
        dialog->setModal(true);  // so the modules stay the ones that it shows
        dialog->open();
    });
}

void MainWindow::showDatabases() {
    attempt([this] {
        auto* const dialog = new DatabaseDialog(
            workspace, [this](const Next& action, const QString& name) { attempt(action, name); },
            this);
        dialog->setModal(true);  // so the channels stay the ones that it shows
        dialog->open();
    });
}

void MainWindow::showAbout() {
    auto* const box = new QMessageBox(
        QMessageBox::Information, "About cmp-station",
        QString("cmp-station %1\n\nReceives CAN, CAN FD and LIN traffic from Ethernet capture "
                "modules, through a plug-in whose windows these are.")
            .arg(QApplication::applicationVersion()),
        QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

}  // namespace station
