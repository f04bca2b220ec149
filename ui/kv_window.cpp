#include "ui/kv_window.h"

#include "ui/resource.h"

namespace Kestrova::Tessel {

KVWindow::KVWindow(WindowPtr hostWindow, const std::string& resourceName,
                   std::weak_ptr<void> windowLife)
    : window(std::move(hostWindow)), life(std::move(windowLife)) {
    if (window) {
        window.setXml(findResource(resourceName, "Tessel").text());
    }
}

void KVWindow::describe(const KVDrawGrid& grid, std::size_t rows,
                        std::span<const GridColumn> columns) {
    grid.initialise(toRow(rows), toRow(columns.size()));
    std::int32_t index = 0;
    for (const GridColumn& column : columns) {
        grid.setColumn(index++, column.title, column.cellType, 1, column.width, column.name);
    }
    index = 0;
    for (const GridColumn& column : columns) {
        if (column.flagA) {
            grid.getColumn(index).setFlagA(*column.flagA);
        }
        if (column.flagB) {
            grid.getColumn(index).setFlagB(*column.flagB);
        }
        ++index;
    }
    grid.endColumns();
}

Timer KVWindow::makeTimer() const {
    constexpr std::uint32_t refreshMilliseconds = 100;
    Timer timer{ControlFactory(window)};
    timer.setInterval(refreshMilliseconds);
    return timer;
}

}  // namespace Kestrova::Tessel
