#pragma once

#include <string>
#include <vector>

#include "host/counted_ref.h"
#include "station/toolkit/model/draw_grid.h"

namespace station {

/// The height of a row or the width of a column.
struct GridSize {
    double value = 0.0;
    bool isShare = false;  ///< percent of what is left, not pixels
};

/// One element of a window, with all that its XML says, and its control if it has one. Places are
/// checked: an element lies inside the grid that it is in.
struct WindowElement {
    enum class Kind { Window, CaptionPanel, Grid, IconButton, DrawGrid };

    Kind kind = Kind::Window;
    std::string name;        ///< empty for none
    std::string title;       ///< of a caption panel
    std::string background;  ///< of a window: the name of a colour, or empty
    std::string iconName;    ///< of a button
    std::vector<GridSize> rows;
    std::vector<GridSize> columns;
    int row = 0;
    int column = 0;
    int rowSpan = 1;
    int columnSpan = 1;
    std::vector<WindowElement> children;
    CountedRef<IconButton> button;
    CountedRef<DrawGrid> grid;

    /// The named element at any depth; null if there is none.
    const WindowElement* find(const std::string& wanted) const;
    /// The names of all controls.
    std::vector<std::string> getControlNames() const;
    /// The controls have left the window.
    void detach() const;
};

/// Reads a window's XML and makes its controls. Throws `ParseFailedException`, which names line and
/// element, for what isn't of the toolkit's vocabulary.
WindowElement readWindow(const std::string& xml, const FailureSinkPtr& sink);

}  // namespace station
