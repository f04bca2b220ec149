#pragma once

#include <QTableWidget>
#include <functional>

#include "station/gui/workspace.h"

namespace station {

/// The capture modules as they are heard, their traffic and clocks; and those that are heard and
/// aren't set up, with a button that adds them.
class ModulesPanel final : public QTableWidget {
  public:
    /// The workspace isn't owned and outlives this. `attempt` runs what may throw, and shows
    /// the user the failure.
    ModulesPanel(Workspace& shownWorkspace, std::function<void(std::function<void()>)> attempt);

    /// What the workspace has now. Several times a second.
    void showState();
    void show(const Summary& summary, const std::vector<Module>& modules,
              const std::vector<Module>& unlisted, bool isMeasuring);

  private:
    void put(int row, int column, const QString& text);
    /// Without a summary its traffic isn't known.
    void showModule(int row, const Summary* summary, std::size_t position, const Module& module);
    void showUnlisted(int row, const Module& module, bool isMeasuring);

    Workspace& workspace;
    const std::function<void(std::function<void()>)> attempt;
};

}  // namespace station
