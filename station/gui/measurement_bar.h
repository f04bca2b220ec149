#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "station/session/summary.h"

namespace station {

/// Starts and stops a measurement and shows how it goes.
class MeasurementBar final : public QWidget {
  public:
    enum class State { Idle, Running, Ending };

    /// `onStart` gets the recording's path, empty for none.
    MeasurementBar(std::function<void(const QString&)> onStart, std::function<void()> onStop);

    void setState(State state);
    /// Shows in warning colours that something was lost, and in others that it may lack something:
    /// `gaps` says what.
    void show(const Summary& summary, bool hasLost, const std::vector<std::string>& gaps);
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
