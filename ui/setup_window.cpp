#include "ui/setup_window.h"

#include <string>

#include "core/parse_number.h"
#include "core/string_helper.h"
#include "plugin/cmp_plugin_core.h"

using namespace Kestrova::Tessel;
using Kestrova::Utils::Kcom::StringHelper;

namespace {

enum Column : std::int32_t {
    groupColumn,
    idColumn,
    usedColumn,
    colorColumn,
    nameColumn,
    configIdColumn,
    serialColumn,
    busTypeColumn,
    dataColumn,
};

constexpr GridColumn columns[] = {
    {"Group", "+", CellType::groupExpander, 20},
    {"Id", "ID", CellType::number, 32, false},
    {"Used", "Used", CellType::toggle, 70},
    {"Color", "C", CellType::color, 20},
    {"Name", "Name", CellType::editText, 240},
    {"DeviceConfigId", "Config ID", CellType::text, 100},
    {"SerialNumber", "Serial No", CellType::text, 80},
    {"BusType", "Bus type", CellType::text, 80},
    {"Data", "Data", CellType::text, 240, {}, true},
};

std::uint64_t toNumber(const std::string& text) {
    const auto number = parseNumber<std::uint64_t>(text);
    if (!number) {
        throw Kestrova::RT::Core::ConversionFailedException();
    }
    return *number;
}

}  // namespace

BaseSetupWindow::BaseSetupWindow(WindowPtr hostWindow, CmpPluginCore& pluginCore,
                                 std::weak_ptr<void> windowLife)
    : KVWindow(std::move(hostWindow), "ui/setup_window.xml", std::move(windowLife)),
      core(pluginCore),
      channelDrawGrid(window, "channelDrawGrid") {}

SetupWindow::SetupWindow(WindowPtr hostWindow, CmpPluginCore& pluginCore,
                         std::weak_ptr<void> windowLife)
    : BaseSetupWindow(std::move(hostWindow), pluginCore, std::move(windowLife)),
      devices(core.packetReader.getDevices()),
      grid(channelDrawGrid) {
    makeRows();
    describe(grid, rows.size(), columns);
    on(grid.comboItems(), &SetupWindow::onComboItems);
    on(grid.cellInput(), &SetupWindow::onCellInput);
    on(grid.cellProps(), &SetupWindow::onCellProps);
    on(grid.cellAction(), &SetupWindow::onCellAction);
    on(grid.liveValue(), &SetupWindow::onLiveValue);
    on(grid.setGroups(), &SetupWindow::onSetGroups);
    grid.setRowCount(toRow(rows.size()));
    timer = makeTimer();
    on(timer.tick(), &SetupWindow::onTick);
}

void SetupWindow::makeRows() {
    rows.emplace_back();
    for (const auto& device : devices.list()) {
        rows.push_back({ChannelGridRow::deviceRow, nullptr, device});
        for (const auto& channel : *device->getChannels()) {
            rows.push_back({ChannelGridRow::channelRow, channel, device});
        }
    }
}

const ChannelGridRow* SetupWindow::rowAt(std::int32_t row) const {
    return row < 1 || row >= toRow(rows.size()) ? nullptr : &rows[static_cast<std::size_t>(row)];
}

CmpChannel::OutputChannel* SetupWindow::outputAt(std::int32_t row) const {
    const ChannelGridRow* const found = rowAt(row);
    return found != nullptr && found->kind == ChannelGridRow::channelRow
               ? found->channel->getOutput().get()
               : nullptr;
}

void SetupWindow::onSetGroups(const KVDrawGrid&, const DrawGridSetGroupsArgs& args) {
    std::uint64_t group = 0;
    for (std::size_t index = 0; index < rows.size(); ++index) {
        ChannelGridRow& row = rows[index];
        if (row.kind == ChannelGridRow::deviceRow) {
            row.groupIndex = ++group;
            const auto added =
                args.addGroup(StringHelper::ToText(group), toRow(index), row.expanded);
            on(added.expansionChanged(), &SetupWindow::onExpansionChanged);
        } else if (row.kind == ChannelGridRow::channelRow) {
            args.addRow(StringHelper::ToText(group), toRow(index));
        }
    }
}

void SetupWindow::onExpansionChanged(const DrawGridGroup& group, const NoArgs&) {
    const std::uint64_t number = toNumber(group.getName());
    for (ChannelGridRow& row : rows) {
        if (row.kind == ChannelGridRow::deviceRow && row.groupIndex == number) {
            row.expanded = !row.expanded;
        }
    }
}

void SetupWindow::onCellProps(const KVDrawGrid&, const CellProps& args) {
    const ChannelGridRow* const row = rowAt(args.getRow());
    if (row == nullptr) {
        return;
    }
    if (row->kind == ChannelGridRow::deviceRow) {
        showDevice(*row->device, args);
    } else {
        showChannel(*row->channel, *row->device, args);
    }
}

void SetupWindow::showDevice(const CmpDevice& device, const CellProps& args) {
    switch (args.getColumn()) {
        case groupColumn:
            args.setExpander(1);
            break;
        case nameColumn:
            args.setCellType(CellType::text);
            args.setText(device.getName());
            break;
        case configIdColumn:
            args.setText(device.getConfigIdText());
            break;
        case serialColumn:
            args.setText(device.getSerialNumberText());
            break;
        case idColumn:
        case usedColumn:
        case colorColumn:
        case busTypeColumn:
        case dataColumn:
            args.setCellType(CellType::text);
            break;
        default:
            break;
    }
}

void SetupWindow::showChannel(const CmpChannel& channel, const CmpDevice& device,
                              const CellProps& args) {
    const auto& output = channel.getOutput();
    switch (args.getColumn()) {
        case groupColumn:
            args.setExpander(0);
            break;
        case idColumn:
            args.setNumber(channel.getInterfaceId());
            break;
        case usedColumn: {
            const bool used = output && output->isUsed();
            args.setChecked(used);
            args.setText(used ? "Used" : "Unused");
            break;
        }
        case colorColumn:
            args.setColor(output ? output->getColor() : 0);
            break;
        case nameColumn:
            args.setText(channel.getName());
            break;
        case configIdColumn:
            args.setText(device.getConfigIdText());
            break;
        case serialColumn:
            args.setText(device.getSerialNumberText());
            break;
        case busTypeColumn:
            args.setText(channel.getTypeName());
            break;
        case dataColumn:
            args.setText(channel.getLastValueText());
            break;
        default:
            break;
    }
}

/// No column has a combo box; the cell is read all the same, as for every event.
void SetupWindow::onComboItems(const KVDrawGrid&, const DrawGridComboItemsArgs& args) {
    args.getRow();
    args.getColumn();
}

void SetupWindow::onCellAction(const KVDrawGrid&, const DrawGridCellActionEventArgs& args) {
    auto* const output = outputAt(args.getRow());
    if (output != nullptr && args.getColumn() == usedColumn) {
        output->setUsed(args.getChecked());
    }
}

void SetupWindow::onCellInput(const KVDrawGrid&, const DrawGridCellInputArgs& args) {
    auto* const output = outputAt(args.getRow());
    if (output == nullptr) {
        return;
    }
    if (args.getColumn() == colorColumn) {
        output->setColor(args.getColor());
    } else if (args.getColumn() == nameColumn) {
        output->setName(args.getText());
    }
}
