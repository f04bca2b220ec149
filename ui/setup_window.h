#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "capture/cmp_devices.h"
#include "ui/kv_window.h"

struct CmpPluginCore;

/// The controls of the window with the channels.
class BaseSetupWindow : public Kestrova::Tessel::KVWindow {
  public:
    ~BaseSetupWindow() override = default;

  protected:
    BaseSetupWindow(Kestrova::Tessel::WindowPtr hostWindow, CmpPluginCore& pluginCore,
                    std::weak_ptr<void> windowLife);

    CmpPluginCore& core;
    Kestrova::Tessel::KVDrawGrid channelDrawGrid;
};

/// What is in one row of the channels' grid.
struct ChannelGridRow {
    static constexpr std::uint32_t header = 0;
    static constexpr std::uint32_t deviceRow = 1;
    static constexpr std::uint32_t channelRow = 2;

    std::uint32_t kind = header;
    std::shared_ptr<CmpChannel> channel;  ///< of a channel's row only
    std::shared_ptr<CmpDevice> device;    ///< also of a channel's row; the header has none
    std::uint64_t groupIndex = 0;  ///< of a device's row: the number that its group is called
    bool expanded = true;          ///< of a device's row
};

/// The channels: a group for each capture module, in it a row for each bus, where the user says
/// whether he wants it, gives it a colour and a name, and watches the last value. Made by
/// `KVWindow::make`.
///
/// The rows are made once: modules and channels that come later show up in a new window. They
/// hold their modules and channels, so what the user removes meanwhile stays visible, and is gone
/// with the window. So the window must go before what those refer to. It writes to output channels
/// only.
class SetupWindow final : public BaseSetupWindow {
  public:
    /// Throws what the toolkit raises, and `InvalidParameterException` without a window. The core
    /// outlives the window.
    SetupWindow(Kestrova::Tessel::WindowPtr hostWindow, CmpPluginCore& pluginCore,
                std::weak_ptr<void> windowLife);

    const std::vector<ChannelGridRow>& getRows() const { return rows; }

  private:
    using KVDrawGrid = Kestrova::Tessel::KVDrawGrid;
    using DrawGridGroup = Kestrova::Tessel::DrawGridGroup;
    using CellProps = Kestrova::Tessel::DrawGridCellPropsArgs;
    using Timer = Kestrova::Tessel::Timer;
    using NoArgs = Kestrova::Tessel::NoArgs;

    void onComboItems(const KVDrawGrid&, const Kestrova::Tessel::DrawGridComboItemsArgs& args);
    void onCellInput(const KVDrawGrid&, const Kestrova::Tessel::DrawGridCellInputArgs& args);
    void onCellProps(const KVDrawGrid&, const CellProps& args);
    void onCellAction(const KVDrawGrid&, const Kestrova::Tessel::DrawGridCellActionEventArgs& args);
    void onLiveValue(const KVDrawGrid&, const Kestrova::Tessel::DrawGridLiveValueArgs&) {}
    void onSetGroups(const KVDrawGrid&, const Kestrova::Tessel::DrawGridSetGroupsArgs& args);
    void onExpansionChanged(const DrawGridGroup& group, const NoArgs&);
    void onTick(const Timer&, const NoArgs&) { grid.refresh(); }

    void makeRows();
    /// Null for what is no row with cells.
    const ChannelGridRow* rowAt(std::int32_t row) const;
    /// The output of a channel's row; null for another row, and for a channel without one.
    CmpChannel::OutputChannel* outputAt(std::int32_t row) const;
    static void showDevice(const CmpDevice& device, const CellProps& args);
    static void showChannel(const CmpChannel& channel, const CmpDevice& device,
                            const CellProps& args);

    std::vector<ChannelGridRow> rows;
    CmpDevices& devices;
    KVDrawGrid& grid;
    Timer timer;
};
