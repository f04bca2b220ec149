#pragma once

#include <cstdint>
#include <memory>

#include "capture/cmp_devices.h"
#include "ui/kv_window.h"

struct CmpPluginCore;

/// The controls of the window in which the user keeps the list of capture modules.
class BaseSettingsWindow : public Kestrova::Tessel::KVWindow {
  public:
    ~BaseSettingsWindow() override = default;

  protected:
    BaseSettingsWindow(Kestrova::Tessel::WindowPtr hostWindow, CmpPluginCore& pluginCore,
                       std::weak_ptr<void> windowLife);

    CmpPluginCore& core;
    Kestrova::Tessel::IconButton addDeviceButton;
    Kestrova::Tessel::IconButton removeDeviceButton;
    Kestrova::Tessel::KVDrawGrid deviceDrawGrid;
};

/// The list of capture modules: a row for each, in list order, with its type, name and ConfigId,
/// and what it was last heard of. Made by `KVWindow::make`.
///
/// It keeps no copy of the list: all cells are asked for ten times a second, which is how
/// serial numbers and states stay current. Only its own buttons change the number of rows.
class SettingsWindow final : public BaseSettingsWindow {
  public:
    /// Throws what the toolkit raises, and `InvalidParameterException` without a window. The core
    /// outlives the window.
    SettingsWindow(Kestrova::Tessel::WindowPtr hostWindow, CmpPluginCore& pluginCore,
                   std::weak_ptr<void> windowLife);

  private:
    using KVDrawGrid = Kestrova::Tessel::KVDrawGrid;
    using IconButton = Kestrova::Tessel::IconButton;
    using Timer = Kestrova::Tessel::Timer;
    using NoArgs = Kestrova::Tessel::NoArgs;

    void onComboItems(const KVDrawGrid&, const Kestrova::Tessel::DrawGridComboItemsArgs& args);
    void onCellInput(const KVDrawGrid&, const Kestrova::Tessel::DrawGridCellInputArgs& args);
    void onCellProps(const KVDrawGrid&, const Kestrova::Tessel::DrawGridCellPropsArgs& args);
    void onCellAction(const KVDrawGrid&, const Kestrova::Tessel::DrawGridCellActionEventArgs&) {}
    void onLiveValue(const KVDrawGrid&, const Kestrova::Tessel::DrawGridLiveValueArgs&) {}
    void onAdd(const IconButton&, const NoArgs&);
    void onRemove(const IconButton&, const NoArgs&);
    void onTick(const Timer&, const NoArgs&) { grid.refresh(); }

    /// The device of a grid row; null for the header and for a row behind the list.
    std::shared_ptr<CmpDevice> deviceAt(std::int32_t row) const;
    void showDevices();

    CmpDevices& devices;
    KVDrawGrid& grid;
    IconButton& addButton;
    IconButton& removeButton;
    Timer timer;
};
