#pragma once

#include <qcustomplot.h>

#include <QPicture>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "station/gui/plot/signal_series.h"

namespace station {

struct PlotSignal {
    QString name;
    QString unit;
    QColor color;  ///< as it was asked for; drawn so that it can be seen on the background
    bool hasOwnAxis = false;
    SignalSeries series = SignalSeries();
};

/// The picture of a plot: an axis of time, one of values for each unit, the signals, and two
/// cursors, with what mouse and keyboard do to them. It draws when it is asked to.
///
/// Times are UTC in nanoseconds everywhere but in QCustomPlot, which gets seconds since the start:
/// as they are doubles, they'd be microseconds apart in UTC.
class PlotView final : public QCustomPlot {
  public:
    using Range = SignalSeries::Range;
    using PlotSignals = std::vector<std::unique_ptr<PlotSignal>>;  ///< null for removed ones
    using Cursors = std::array<std::optional<std::int64_t>, 2>;

    /// The signals must outlive it.
    explicit PlotView(const PlotSignals& plotSignals);

    /// After the user has changed something here.
    void setOnChange(std::function<void()> call) { onChange = std::move(call); }
    /// The user has asked what can be done with that signal.
    void setOnMenu(std::function<void(std::size_t, QPoint)> call) { onMenu = std::move(call); }

    /// Which signals there are, or their colours or axes have changed.
    void rebuild();
    void redraw();
    /// What is drawn, with a legend, for `painted`.
    QPicture record();

    /// The newest value is to be seen, and what is before it for so many nanoseconds; 0 for all.
    void follow(std::int64_t newWidth);
    void follow() { isFollowingNewest = true; }
    bool isFollowing() const { return isFollowingNewest; }
    void setAutoscaled(bool autoscaled) { isAutoscaling = autoscaled; }
    bool isAutoscaled() const { return isAutoscaling; }
    /// What came later than that isn't shown.
    void setEnd(std::optional<std::int64_t> newEnd) { end = newEnd; }
    void setStart(std::int64_t utc) { start = utc; }
    std::int64_t getStart() const { return start; }
    Range getShown() const;
    const Cursors& getCursors() const { return cursors; }
    /// Those that are later than all that is shown are at its end.
    Cursors getShownCursors() const;
    void setCursors(const Cursors& newCursors) { cursors = newCursors; }

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void changeEvent(QEvent* event) override;
    QSize minimumSizeHint() const override { return {200, 120}; }

  private:
    struct CursorItems {
        QCPItemStraightLine* line;
        QCPItemText* label;
    };
    /// What the mouse does while its button is down.
    struct Drag {
        QPoint from;
        Range shown;                          ///< when it began
        std::map<QCPAxis*, QCPRange> values;  ///< of the axes that it moves
        std::optional<std::size_t> cursor;    ///< that it moves instead
        bool movesTime = false;
        bool hasMoved = false;
    };

    void takePalette();
    QCPAxis* axisFor(std::size_t index);
    void followNewest();
    void drawSignal(const PlotSignal& plotSignal, QCPGraph& graph);
    void drawTimeAxis();
    void drawCursors();
    /// The first and last time of all signals; empty without values.
    std::optional<Range> held() const;
    std::int64_t utcAt(double x) const;
    double pixelOf(std::int64_t utc) const;
    std::optional<std::size_t> cursorAt(const QPoint& position) const;
    /// The axis of values whose numbers are there; null for none.
    QCPAxis* valueAxisAt(const QPoint& position) const;
    void show(Range range);
    void zoomTime(double factor, double x);
    /// Of that axis, or of all for null.
    void zoomValues(const QCPAxis* only, double factor, double y);
    void moveCursor(std::size_t cursor, std::int64_t utc);
    /// Draws, and says that something has changed.
    void changed();

    const PlotSignals& plotSignals;
    std::function<void()> onChange;
    std::function<void(std::size_t, QPoint)> onMenu;
    std::map<std::size_t, QCPGraph*> signalGraphs;  ///< by position of their signals
    std::map<QString, QCPAxis*> valueAxes;          ///< by unit, or number of the only signal
    std::vector<CursorItems> cursorItems;
    Range shown = {0, 10'000'000'000};
    std::int64_t width = 10'000'000'000;
    std::int64_t start = 0;
    std::optional<std::int64_t> end;
    bool isFollowingNewest = true;
    bool isAutoscaling = true;
    Cursors cursors;
    Cursors cursorsBeforeClick;
    std::optional<Drag> drag;
};

}  // namespace station
