#pragma once

#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QSplitter>
#include <QTimer>
#include <functional>

#include "station/gui/live_panel.h"
#include "station/gui/measurement_bar.h"
#include "station/gui/message_bar.h"
#include "station/gui/modules_panel.h"
#include "station/gui/workspace.h"

namespace station {

/// The desktop program: the plug-in's two windows, the live view below them, the measurement's bar
/// above, and what can be done with a setup in the menus.
///
/// Nothing here holds the event loop up, for it is also what keeps the measurement going: questions
/// are windows that stay open while it runs, with the answer as what is done next.
class MainWindow final : public QMainWindow {
  public:
    /// Throws as `Workspace`.
    explicit MainWindow(WorkspaceOptions options);
    ~MainWindow() override;
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    /// Shows the user what failed, if it does.
    void open(const QString& path);
    /// Stops the measurement, closes the recordings and then this window, without a question.
    void closeWithoutQuestion();

    Workspace& getWorkspace() { return workspace; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    using Next = std::function<void()>;

    void makeMenus();
    QAction* addAction(QMenu& menu, const QString& text, const QKeySequence& keys, Next action);
    void placeWindows();
    void fillRecent();
    void tick();
    void showState();
    /// Runs it and shows the user what it throws; whether it threw nothing. Then what was shown of
    /// earlier attempts by the same name is settled.
    bool attempt(const Next& action, const QString& name = {});
    /// What the user must know of the setup as it is.
    void checkSetup();
    void restoreLayout();
    void saveLayout() const;
    /// Saves, and goes on if that went well.
    void save(const QString& path, Next next);
    /// Somebody else has changed the file.
    void askWhoseChanges(const QString& path, Next next);
    /// Saves under the name that the setup has, or asks for one; then goes on.
    void saveAndThen(Next next);
    void askSavePath(Next next);
    /// Goes on at once, or when the user has decided about what he changed.
    void whenSettled(Next next);
    /// Goes on at once, or when the measurement has been stopped, if the user wants that.
    void whenIdle(Next next);
    void openWhenFree(const QString& path);
    QMessageBox* ask(const QString& text, const QString& button, Next onYes);
    /// A disk that takes nothing would keep the measurement from its end.
    void watchDisk(const Summary& summary);
    void showClocks();
    void showDatabases();
    void showAbout();

    MessageBar* const messages;
    Workspace workspace;
    MeasurementBar* const bar;
    QLabel* const lockNotice;
    QLabel* const firstSteps;
    QSplitter* const windows;
    QSplitter* const parts;
    LivePanel* live = nullptr;
    ModulesPanel* modules = nullptr;
    std::vector<std::string> sharedIds;  ///< as the user knows them
    QMenu* recentMenu = nullptr;
    Next afterMeasurement;
    QPointer<QMessageBox> diskQuestion;
    Measurement::Clock::time_point nextDiskQuestion;
    std::uint64_t bytesWritten = 0;  ///< when it was looked at last
    bool wasMeasuring = false;
    bool mayClose = false;
    QTimer pollTimer;
    QTimer stateTimer;
};

}  // namespace station
