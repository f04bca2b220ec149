#include "station/bench/setup_editor.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <strings.h>
#include <algorithm>

namespace station {
namespace {

/// Columns of the plug-in's windows, by their titles.
constexpr const char* typeTitle = "Type";
constexpr const char* nameTitle = "Name";
constexpr const char* configIdTitle = "Config Id";
constexpr const char* usedTitle = "Used";
constexpr const char* colorTitle = "C";

std::int32_t toRow(std::size_t module) {
    return static_cast<std::int32_t>(module) + 1;
}

}  // namespace

SetupEditor::SetupEditor(Bench& editedBench)
    : bench(editedBench),
      modulesWindow(HeadlessWindow::make()),
      channelsWindow(HeadlessWindow::make()),
      modulesUser(*modulesWindow),
      modulesGrid(*modulesWindow, PluginWindows::modulesGrid),
      channelsGrid(*channelsWindow, PluginWindows::channelsGrid) {
    bench.windows().showModulesIn(modulesWindow);
    bench.windows().showChannelsIn(channelsWindow);
}

std::size_t SetupEditor::addModule(const ModuleChange& module) {
    modulesUser.press(PluginWindows::addButton);
    const auto row = static_cast<std::size_t>(modulesGrid.rows().back()) - 1;
    changeModule(row, module);
    bench.refreshChannels();
    return row;
}

void SetupEditor::changeModule(std::size_t module, const ModuleChange& change) {
    const std::int32_t row = toRow(module);
    if (change.type) {
        pickType(row, *change.type);
    }
    if (change.configId) {
        setConfigId(row, *change.configId);
    }
    if (change.name) {
        modulesGrid.type(row, nameTitle, *change.name);
    }
    if (change.type || change.configId) {
        requireOwnCmId(module);
    }
    if (change.type) {
        bench.refreshChannels();
    }
}

void SetupEditor::pickType(std::int32_t row, const std::string& type) {
    const auto offered = modulesGrid.offers(row, typeTitle);
    const auto found = std::find_if(offered.begin(), offered.end(), [&](const auto& item) {
        return strcasecmp(item.c_str(), type.c_str()) == 0;
    });
    if (found == offered.end()) {
        throw SetupEditError(fmt::format("there is no module type \"{}\"; there are: {}", type,
                                         fmt::join(offered, ", ")));
    }
    modulesGrid.pick(row, typeTitle, *found);
}

void SetupEditor::setConfigId(std::int32_t row, std::uint16_t configId) {
    if (modulesGrid.look(row, configIdTitle).type != Kestrova::Tessel::CellType::comboBox) {
        modulesGrid.type(row, configIdTitle, fmt::format("{}", configId));
        // A number below 16 changes the last hexadecimal digit only.
        const std::uint16_t taken = bench.modules().at(static_cast<std::size_t>(row) - 1).configId;
        if (taken != configId) {
            throw SetupEditError(
                fmt::format("the ConfigId can't go from 0x{:X}0 and more to {}: remove the module "
                            "and add it again",
                            taken >> 4U, configId));
        }
        return;
    }
    const auto offered = modulesGrid.offers(row, configIdTitle);
    if (configId >= offered.size()) {
        throw SetupEditError(fmt::format("there is no ConfigId {} for a {}; there are 0 to {}",
                                         configId, modulesGrid.read(row, typeTitle),
                                         offered.size() - 1));
    }
    modulesGrid.pick(row, configIdTitle, offered[configId]);
}

void SetupEditor::requireOwnCmId(std::size_t module) {
    const auto modules = bench.modules();
    for (std::size_t other = 0; other < modules.size(); ++other) {
        if (other != module && modules[other].cmId == modules[module].cmId) {
            throw SetupEditError(
                fmt::format("\"{}\" and \"{}\" both listen to CM ID 0x{:X}; give them different "
                            "ConfigIds",
                            modules[other].name, modules[module].name, modules[module].cmId));
        }
    }
}

void SetupEditor::removeModules(const std::vector<std::size_t>& modules) {
    std::vector<std::int32_t> rows;
    std::transform(modules.begin(), modules.end(), std::back_inserter(rows), toRow);
    modulesGrid.select(rows);
    modulesUser.press(PluginWindows::removeButton);
    bench.refreshChannels();
}

void SetupEditor::changeChannel(const ChannelRow& channel, const ChannelChange& change) {
    if (change.used && *change.used != channelsGrid.look(channel.row, usedTitle).checked) {
        channelsGrid.toggle(channel.row, usedTitle);
    }
    if (change.name) {
        channelsGrid.type(channel.row, nameTitle, *change.name);
    }
    if (change.color) {
        channelsGrid.setColor(channel.row, colorTitle, *change.color);
    }
}

void SetupEditor::useAllChannels(std::size_t module) {
    for (const ChannelRow& channel : bench.windows().channels()) {
        if (channel.module == module) {
            changeChannel(channel, {true, {}, {}});
        }
    }
}

}  // namespace station
