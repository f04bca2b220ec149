#pragma once

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <functional>
#include <memory>

#include "station/gui/plot/file_job.h"
#include "station/gui/workspace.h"

namespace station {

/// By which databases the messages of each channel are decoded, and how fast its bus is, to look at
/// and to choose: a row for each channel. What is chosen counts from the next measurement on.
///
/// Shows the channels as they are when it is made. Destroys itself when it is closed.
class DatabaseDialog final : public QDialog {
  public:
    /// Runs what may throw and shows the user the failure, until the same goes well.
    using Attempt = std::function<void(const std::function<void()>& action, const QString& name)>;

    /// The workspace isn't owned and outlives this; its setup stays the same meanwhile.
    DatabaseDialog(Workspace& shownWorkspace, Attempt toAttempt, QWidget* parent);

  private:
    /// What a file is a database of, and what the user must know of it.
    struct Read {
        std::vector<Workspace::DatabaseFile> files;
        std::vector<std::string> notices;
    };

    QLayout* makeRates();
    void fill();
    void choose();
    /// Reads them on a thread of its own, each once.
    void read(const QStringList& files);
    void takeRead();
    /// Of the channels that are selected.
    void put(const std::vector<Workspace::DatabaseFile>& files);
    void putRates();
    void showButtons();

    Workspace& workspace;
    const Attempt attempt;
    QTreeWidget* const channels;
    QPushButton* const chooser;
    QPushButton* const none;
    QComboBox* const nominal;
    QComboBox* const data;
    QPushButton* const setter;
    QLabel* const state;
    FileJob reading;
    std::shared_ptr<Read> found;  ///< of the job that runs
    QTimer timer;
};

}  // namespace station
