#pragma once

#include <qcustomplot.h>

#include <QPicture>

#include <vector>

#include "station/gui/plot/signal_series.h"

namespace station {

/// A share of the second color, 0 to 1.
QColor mixed(const QColor& color, const QColor& other, double share);
/// The wanted color, or one like it that can be seen on the background of text.
QColor drawnColor(const QColor& wanted, const QPalette& palette);
/// An axis and its grid in that color, with the font and the palette of the widget.
void colorAxis(QCPAxis& axis, const QColor& color, const QWidget& widget);
/// Paints what `PlotView::record` gave, on any thread, with so many times the pixels of the window.
/// Takes a tenth of a second.
QImage painted(const QPicture& recorded, QSize window, double scale);
/// From one time to another, both in nanoseconds.
double secondsSince(std::int64_t start, std::int64_t utc);
/// The points of a line through extents that are in order of time, over seconds since the start.
QVector<QCPGraphData> lineOf(const std::vector<SignalExtent>& extents, std::int64_t start);

}  // namespace station
