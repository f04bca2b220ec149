#pragma once

#include <QDialog>
#include <QFormLayout>
#include <functional>

#include "station/gui/workspace.h"

namespace station {

/// How each module's clock follows the host's, to look at and to choose: a row with a list for each
/// module. What is chosen counts at once.
///
/// Shows the modules as they are when it is made. Destroys itself when it is closed.
class ClockDialog final : public QDialog {
  public:
    /// The workspace isn't owned and outlives this; its setup stays the same meanwhile. `attempt`
    /// runs what may throw, and shows the user the failure.
    ClockDialog(Workspace& shownWorkspace, std::function<void(std::function<void()>)> attempt,
                QWidget* parent);

  private:
    void addRow(QFormLayout& rows, std::size_t module, const std::string& name,
                const ClockChoice& present);

    Workspace& workspace;
    const std::function<void(std::function<void()>)> attempt;
};

}  // namespace station
