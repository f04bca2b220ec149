#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>
#include <functional>

#include "station/session/summary.h"

namespace station {

/// Starts and stops a measurement and tells how it goes.
class MeasurementBar final : public QWidget {
  public:
    enum class State { Idle, Running, Ending };

    /// `onStart` gets the recording's path, empty for none.
    MeasurementBar(std::function<void(const QString&)> onStart, std::function<void()> onStop);

    void setState(State state);
    /// Shows it in warning colours if something was lost.
    void show(const Summary& summary, bool hasLost);
    /// Presses start, with what is chosen, or stop.
    void pressStart() { start->click(); }
    void pressStop() { stop->click(); }
    /// For the next measurement a name that isn't taken yet.
    void proposeNextRecording();

  private:
    void choosePath();

    QPushButton* const start;
    QPushButton* const stop;
    QCheckBox* const records;
    QLineEdit* const path;
    QPushButton* const browse;
    QLabel* const elapsed;
    QLabel* const size;
    QLabel* const loss;
};

}  // namespace station
