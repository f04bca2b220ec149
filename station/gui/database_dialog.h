#pragma once

#include <QDialog>
#include <QPushButton>
#include <QTreeWidget>
#include <functional>

#include "station/gui/workspace.h"

namespace station {

/// By which databases the messages of each channel are decoded, to look at and to choose: a row for
/// each channel. What is chosen counts from the next measurement on.
///
/// Shows the channels as they are when it is made. Destroys itself when it is closed.
class DatabaseDialog final : public QDialog {
  public:
    /// The workspace isn't owned and outlives this; its setup stays the same meanwhile. `attempt`
    /// runs what may throw, and tells the user.
    DatabaseDialog(Workspace& shownWorkspace, std::function<void(std::function<void()>)> attempt,
                   QWidget* parent);

  private:
    void fill();
    void choose();
    /// Of the channels that are selected.
    void put(const QStringList& files);

    Workspace& workspace;
    const std::function<void(std::function<void()>)> attempt;
    QTreeWidget* const channels;
};

}  // namespace station
