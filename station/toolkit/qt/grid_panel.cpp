#include "station/toolkit/qt/grid_panel.h"

#include <algorithm>
#include <cmath>

namespace station {

namespace {

constexpr int leastShare = 60;  // pixels that a share is to have if possible

int leastOf(const std::vector<GridSize>& sizes) {
    double pixels = 0.0;
    for (const GridSize& size : sizes) {
        pixels += size.isShare ? leastShare : size.value;
    }
    return static_cast<int>(pixels);
}

}  // namespace

std::vector<int> bordersOf(const std::vector<GridSize>& sizes, int available) {
    double fixed = 0.0;
    double shares = 0.0;
    for (const GridSize& size : sizes) {
        (size.isShare ? shares : fixed) += size.value;
    }
    const double left = std::max(0.0, available - fixed);
    double at = 0.0;
    std::vector<int> borders{0};
    for (const GridSize& size : sizes) {
        at += !size.isShare ? size.value : shares > 0.0 ? left * size.value / shares : 0.0;
        borders.push_back(static_cast<int>(std::lround(at)));
    }
    return borders;
}

GridPanel::GridPanel(std::vector<GridSize> gridRows, std::vector<GridSize> gridColumns)
    : rows(std::move(gridRows)), columns(std::move(gridColumns)) {}

void GridPanel::add(QWidget* widget, const WindowElement& element) {
    widget->setParent(this);
    children.push_back({widget, element.row, element.column, element.row + element.rowSpan,
                        element.column + element.columnSpan});
}

QSize GridPanel::minimumSizeHint() const {
    return {leastOf(columns), leastOf(rows)};
}

void GridPanel::resizeEvent(QResizeEvent*) {
    const auto at = [](const std::vector<int>& borders, int place) {
        return borders[static_cast<std::size_t>(place)];
    };
    const std::vector<int> x = bordersOf(columns, width());
    const std::vector<int> y = bordersOf(rows, height());
    for (const Child& child : children) {
        const QPoint first(at(x, child.column), at(y, child.row));
        const QPoint end(at(x, child.columnEnd), at(y, child.rowEnd));
        child.widget->setGeometry(QRect(first, end - QPoint(1, 1)));
    }
}

}  // namespace station
