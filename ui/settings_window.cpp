#include "ui/settings_window.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "plugin/cmp_plugin_core.h"

using namespace Kestrova::Tessel;

namespace {

enum Column : std::int32_t {
    idColumn,
    typeColumn,
    nameColumn,
    configIdColumn,
    serialColumn,
    statusColumn
};

constexpr GridColumn columns[] = {
    {"id", "ID", CellType::number, 32, false},
    {"type", "Type", CellType::comboBox, 80},
    {"name", "Name", CellType::editText, 130},
    {"configId", "Config Id", CellType::comboBox, 70, false},
    {"serialNumber", "SN", CellType::text, 120, false},
    {"status", "Status", CellType::text, 120},
};

/// Without a base ID there is no range to pick a ConfigId from: it is typed in as a number.
bool hasTypedConfigId(const CmpDevice& device) {
    return device.getType().baseId == 0;
}

const DeviceTypeInfo& typeAt(std::int32_t index) {
    const auto types = deviceTypes();
    if (index < 0 || static_cast<std::size_t>(index) >= types.size()) {
        throw Kestrova::RT::Core::OutOfRangeException();
    }
    return types[static_cast<std::size_t>(index)];
}

/// The decimal number at the beginning of a text, 0 if there is none.
std::uint16_t toConfigId(const std::string& text) {
    constexpr int decimal = 10;
    return static_cast<std::uint16_t>(std::strtol(text.c_str(), nullptr, decimal));
}

}  // namespace

BaseSettingsWindow::BaseSettingsWindow(WindowPtr hostWindow, CmpPluginCore& pluginCore,
                                       std::weak_ptr<void> windowLife)
    : KVWindow(std::move(hostWindow), "ui/settings_window.xml", std::move(windowLife)),
      core(pluginCore),
      addDeviceButton(window, "addDeviceButton"),
      removeDeviceButton(window, "removeDeviceButton"),
      deviceDrawGrid(window, "deviceDrawGrid") {}

SettingsWindow::SettingsWindow(WindowPtr hostWindow, CmpPluginCore& pluginCore,
                               std::weak_ptr<void> windowLife)
    : BaseSettingsWindow(std::move(hostWindow), pluginCore, std::move(windowLife)),
      devices(core.packetReader.getDevices()),
      grid(deviceDrawGrid),
      addButton(addDeviceButton),
      removeButton(removeDeviceButton) {
    describe(grid, devices.list().size() + 1, columns);
    on(grid.comboItems(), &SettingsWindow::onComboItems);
    on(grid.cellInput(), &SettingsWindow::onCellInput);
    on(grid.cellProps(), &SettingsWindow::onCellProps);
    on(grid.cellAction(), &SettingsWindow::onCellAction);
    on(grid.liveValue(), &SettingsWindow::onLiveValue);
    on(addButton.click(), &SettingsWindow::onAdd);
    on(removeButton.click(), &SettingsWindow::onRemove);
    timer = makeTimer();
    on(timer.tick(), &SettingsWindow::onTick);
}

std::shared_ptr<CmpDevice> SettingsWindow::deviceAt(std::int32_t row) const {
    const auto list = devices.list();
    return row < 1 || row > toRow(list.size()) ? nullptr : list[static_cast<std::size_t>(row - 1)];
}

void SettingsWindow::onCellProps(const KVDrawGrid&, const DrawGridCellPropsArgs& args) {
    const auto row = args.getRow();
    const auto device = deviceAt(row);
    if (!device) {
        return;
    }
    switch (args.getColumn()) {
        case idColumn:
            args.setNumber(row);
            break;
        case typeColumn:
            args.setText(device->getType().name);
            break;
        case nameColumn:
            args.setText(device->getName());
            break;
        case configIdColumn:
            if (hasTypedConfigId(*device)) {
                args.setCellType(CellType::editNumber);
                args.setNumber(device->getConfigId());
            } else {
                args.setText(device->getConfigIdText());
            }
            break;
        case serialColumn:
            args.setText(device->getSerialNumberText());
            break;
        case statusColumn:
            args.setText(device->getStatusText());
            break;
        default:
            break;
    }
}

void SettingsWindow::onComboItems(const KVDrawGrid&, const DrawGridComboItemsArgs& args) {
    if (!deviceAt(args.getRow())) {
        return;
    }
    if (args.getColumn() == typeColumn) {
        for (const DeviceTypeInfo& type : deviceTypes()) {
            args.addItem(type.name);
        }
    } else if (args.getColumn() == configIdColumn) {
        for (const char digit : std::string("0123456789ABCDEF")) {
            args.addItem(std::string(1, digit));
        }
    }
}

void SettingsWindow::onCellInput(const KVDrawGrid&, const DrawGridCellInputArgs& args) {
    const auto device = deviceAt(args.getRow());
    if (!device) {
        return;
    }
    switch (args.getColumn()) {
        case typeColumn:
            device->setType(typeAt(args.getSelectedIndex()));
            break;
        case nameColumn:
            device->setName(args.getText());
            break;
        case configIdColumn:
            device->setConfigId(hasTypedConfigId(*device)
                                    ? toConfigId(args.getText())
                                    : static_cast<std::uint16_t>(args.getSelectedIndex()));
            break;
        default:
            break;
    }
}

void SettingsWindow::onAdd(const IconButton&, const NoArgs&) {
    devices.add()->setTypeById(DeviceTypeInfo::unknownId);
    showDevices();
}

void SettingsWindow::onRemove(const IconButton&, const NoArgs&) {
    std::vector<std::uint64_t> positions;
    for (std::int32_t row = 1; row < grid.getRowCount(); ++row) {
        if (grid.isRowSelected(row)) {
            positions.push_back(static_cast<std::uint64_t>(row - 1));
        }
    }
    if (positions.empty()) {
        return;
    }
    // From the last to the first, so that those still to come keep their positions.
    for (auto position = positions.rbegin(); position != positions.rend(); ++position) {
        devices.remove(*position);
    }
    showDevices();
}

void SettingsWindow::showDevices() {
    grid.setRowCount(toRow(devices.list().size() + 1));
    grid.refresh();
}
