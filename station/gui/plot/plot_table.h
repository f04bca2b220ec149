#pragma once

#include <QTableWidget>
#include <functional>

#include "station/gui/plot/plot_view.h"

namespace station {

/// The legend of a plot: a row for each signal, with its color and its values at the cursors.
class PlotTable final : public QTableWidget {
  public:
    PlotTable();

    /// The user has asked what can be done with that signal, or to remove it.
    void setOnMenu(std::function<void(std::size_t, QPoint)> call) { onMenu = std::move(call); }
    void setOnRemove(std::function<void(std::size_t)> call) { onRemove = std::move(call); }

    /// The signals are others, or have other colors.
    void rebuild(const PlotView::PlotSignals& plotSignals);
    /// Of the signals that it was built with: the values at the cursors, the difference, and the
    /// least and greatest one between them, or of all that is shown.
    void showValues(const PlotView::PlotSignals& plotSignals, SignalSeries::Range shown,
                    const PlotView::Cursors& cursors);

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    std::size_t signalOf(int row) const;

    std::function<void(std::size_t, QPoint)> onMenu;
    std::function<void(std::size_t)> onRemove;
};

}  // namespace station
