#pragma once

#include <QWidget>
#include <vector>

#include "station/toolkit/model/window_content.h"

namespace station {

/// Lays its children out in rows and columns of given pixels and shares, to the pixel.
class GridPanel final : public QWidget {
  public:
    GridPanel(std::vector<GridSize> gridRows, std::vector<GridSize> gridColumns);

    /// Takes the widget over, and puts it where the element is.
    void add(QWidget* widget, const WindowElement& element);

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override { return minimumSizeHint(); }

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    struct Child {
        QWidget* widget;
        int row, column, rowEnd, columnEnd;
    };

    const std::vector<GridSize> rows;
    const std::vector<GridSize> columns;
    std::vector<Child> children;
};

/// Where each row or column begins, and after the last one where it ends, if there are `available`
/// pixels: shares are of what the others leave.
std::vector<int> bordersOf(const std::vector<GridSize>& sizes, int available);

}  // namespace station
