#include "station/bench/plugin_windows.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/host/plugin_failure.h"
#include "station/toolkit/headless/headless_window.h"

namespace station {
namespace {

/// A grid of a window, cell by cell, by the names of its columns.
class GridReader {
  public:
    GridReader(const CountedRef<ToolkitWindow>& window, const char* gridName) {
        const WindowElement* const content = window->getContent();
        const WindowElement* const found = content != nullptr ? content->find(gridName) : nullptr;
        if (found == nullptr || !found->grid) {
            throw PluginError(fmt::format("the plug-in's window has no grid \"{}\"", gridName));
        }
        grid = found->grid;
    }

    /// Rows are counted from 1.
    std::int32_t lastRow() const { return grid->countRows() - 1; }
    CellContent look(std::int32_t row, const char* column) const {
        const auto& columns = grid->getColumns();
        const auto found = std::find_if(columns.begin(), columns.end(),
                                        [&](const auto& other) { return other.name == column; });
        if (found == columns.end()) {
            throw PluginError(fmt::format("the plug-in's window has no column \"{}\"", column));
        }
        return grid->askCell({row, static_cast<std::int32_t>(found - columns.begin())});
    }

  private:
    CountedRef<DrawGrid> grid;
};

std::string shownText(const CellContent& content) {
    return content.text.empty() ? numberText(content.number) : content.text;
}

void closeWindow(const CountedRef<ToolkitWindow>& window) {
    if (window) {
        window->close();
    }
}

}  // namespace

PluginWindows::PluginWindows(PluginDriver& pluginDriver) : driver(pluginDriver) {
    showModulesIn(HeadlessWindow::make());
    showChannelsIn(HeadlessWindow::make());
}

PluginWindows::~PluginWindows() {
    try {
        driver.closeModules();
        driver.closeChannels();
    } catch (const PluginError&) {
        // They go anyway.
    }
    closeWindow(modulesWindow);
    closeWindow(channelsWindow);
}

void PluginWindows::showModulesIn(CountedRef<ToolkitWindow> window) {
    driver.showModules(*static_cast<Kestrova::Tessel::IWindow*>(window.get()));
    if (!(window == modulesWindow)) {
        closeWindow(modulesWindow);
    }
    modulesWindow = std::move(window);
}

void PluginWindows::showChannelsIn(CountedRef<ToolkitWindow> window) {
    driver.showChannels(*static_cast<Kestrova::Tessel::IWindow*>(window.get()));
    if (!(window == channelsWindow)) {
        closeWindow(channelsWindow);
    }
    channelsWindow = std::move(window);
}

void PluginWindows::remakeModules() {
    showModulesIn(modulesWindow);
}

void PluginWindows::remakeChannels() {
    showChannelsIn(channelsWindow);
}

std::vector<ModuleRow> PluginWindows::modules() {
    const GridReader grid(modulesWindow, modulesGrid);
    std::vector<ModuleRow> rows;
    for (std::int32_t row = 1; row <= grid.lastRow(); ++row) {
        rows.push_back({grid.look(row, "type").text, grid.look(row, "name").text,
                        shownText(grid.look(row, "configId")), grid.look(row, "serialNumber").text,
                        grid.look(row, "status").text});
    }
    return rows;
}

std::vector<ChannelRow> PluginWindows::channels() {
    const GridReader grid(channelsWindow, channelsGrid);
    std::vector<ChannelRow> rows;
    std::size_t modulesSeen = 0;
    std::size_t position = 0;
    for (std::int32_t row = 1; row <= grid.lastRow(); ++row) {
        if (grid.look(row, "Group").expander) {  // a module, at the head of its channels
            ++modulesSeen;
            position = 0;
            continue;
        }
        if (modulesSeen == 0) {
            continue;
        }
        const CellContent used = grid.look(row, "Used");
        rows.push_back({row, modulesSeen - 1, position++,
                        static_cast<std::uint16_t>(grid.look(row, "Id").number), used.checked,
                        grid.look(row, "Color").color, grid.look(row, "Name").text,
                        grid.look(row, "BusType").text});
    }
    return rows;
}

}  // namespace station
