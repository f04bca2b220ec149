#pragma once

#include <QObject>
#include <functional>

namespace station {

/// Runs things from the event loop, where nothing of Qt's is under way that could be disturbed.
/// What is still to be run when this goes is forgotten; it may go in what it runs.
class Later final : public QObject {
  public:
    void run(std::function<void()> action);

  protected:
    bool event(QEvent* event) override;
};

}  // namespace station
