#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "station/host/plugin_driver.h"
#include "station/toolkit/model/toolkit_window.h"

namespace station {

/// A row of the plug-in's window of modules, as it is shown.
struct ModuleRow {
    std::string type;
    std::string name;
    std::string configId;
    std::string serial;
    std::string status;
};

/// A row of the plug-in's window of channels, as it is shown.
struct ChannelRow {
    std::int32_t row = 0;      ///< in the grid
    std::size_t module = 0;    ///< the row of `ModuleRow`
    std::size_t position = 0;  ///< among the module's channels
    std::uint16_t interfaceId = 0;
    bool used = false;
    std::uint32_t color = 0;  ///< 0xRRGGBB
    std::string name;
    std::string busType;
};

/// The two windows of the plug-in. It has them open all the time, for much of what there is to know
/// of modules and channels stands there and nowhere else: without a screen, until the owner puts
/// windows of another toolkit in their place.
///
/// Called on the host's thread. The driver isn't owned and outlives this. A failing plug-in comes
/// out as `PluginError`.
class PluginWindows {
  public:
    static constexpr const char* modulesGrid = "deviceDrawGrid";
    static constexpr const char* channelsGrid = "channelDrawGrid";
    static constexpr const char* addButton = "addDeviceButton";
    static constexpr const char* removeButton = "removeDeviceButton";

    explicit PluginWindows(PluginDriver& pluginDriver);
    ~PluginWindows();
    PluginWindows(const PluginWindows&) = delete;
    PluginWindows& operator=(const PluginWindows&) = delete;

    /// The window before is closed. An owner whose window goes must put another in its place.
    void showModulesIn(CountedRef<ToolkitWindow> window);
    void showChannelsIn(CountedRef<ToolkitWindow> window);
    /// Shows what is there now: a window keeps the number of its rows, and that of the channels its
    /// rows.
    void remakeModules();
    void remakeChannels();

    std::vector<ModuleRow> modules();
    std::vector<ChannelRow> channels();

  private:
    PluginDriver& driver;
    CountedRef<ToolkitWindow> modulesWindow;
    CountedRef<ToolkitWindow> channelsWindow;
};

}  // namespace station
