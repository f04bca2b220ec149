#include "station/cli/setup_show.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>

#include "host/host_clock.h"
#include "station/cli/commands.h"
#include "station/cli/setups.h"
#include "station/terminal_text.h"

namespace station {
namespace {

using Json = nlohmann::ordered_json;

const char* syncText(const ClockChoice& clock) {
    return clock.syncMode == HostGnssDevice::syncModePps ? "pps" : "soft";
}

}  // namespace

void showSetupAsJson(Session& session) {
    const auto clocks = session.getClocks();
    auto list = Json::array();
    for (const Module& module : session.getModules()) {
        const std::size_t row = list.size();
        auto own = Json::array();
        for (const Channel& channel : module.channels) {
            own.push_back({{"interfaceId", channel.interfaceId},
                           {"busType", channel.busType},
                           {"used", channel.isUsed},
                           {"name", channel.name},
                           {"color", fmt::format("{:06X}", channel.color)}});
            if (!channel.databases.empty()) {
                own.back()["databases"] = channel.databases;
            }
            if (channel.bitRates.nominal != 0) {
                own.back()["bitRate"] = channel.bitRates.nominal;
                own.back()["dataBitRate"] = channel.bitRates.data;
            }
        }
        list.push_back({{"row", row + 1},
                        {"name", module.name},
                        {"type", module.type},
                        {"configId", module.configId},
                        {"cmId", module.cmId},
                        {"sync", syncText(clocks.at(row))},
                        {"clockSource", clocks.at(row).isSource},
                        {"channels", std::move(own)}});
    }
    Json setup{{"modules", std::move(list)}};
    if (const auto stream = session.getStreamOptions(); !stream.empty()) {
        setup["stream"] = stream;
    }
    printResult(toText(setup));
}

void showSetup(Session& session) {
    const auto clocks = session.getClocks();
    const auto modules = session.getModules();
    std::string text = modules.empty() ? "The setup has no modules.\n" : "";
    for (std::size_t row = 0; row < modules.size(); ++row) {
        const Module& module = modules[row];
        text +=
            fmt::format("{:>3}  {}  [{}]  ConfigId 0x{:X}  sync {}{}\n", row + 1,
                        printable(module.name), module.type, module.configId,
                        syncText(clocks.at(row)), clocks.at(row).isSource ? ", clock source" : "");
        for (const Channel& channel : module.channels) {
            text += fmt::format("     0x{:<4X} {:<7} {:<6}  {:06X}  {}\n", channel.interfaceId,
                                channel.busType, channel.isUsed ? "used" : "unused", channel.color,
                                printable(channel.name));
            for (const std::string& path : channel.databases) {
                text += fmt::format("            database {}\n", printable(path));
            }
            if (const BitRates& rates = channel.bitRates; rates.nominal != 0) {
                text += fmt::format("            bit rate {}{}\n", rates.nominal,
                                    rates.data == 0 ? "" : fmt::format(", data {}", rates.data));
            }
        }
    }
    if (const auto stream = session.getStreamOptions(); !stream.empty()) {
        text += "Streams with";
        for (const auto& [name, value] : stream) {
            text += fmt::format(" --{} {}", name, printable(value));
        }
        text += '\n';
    }
    printResult(text);
}

}  // namespace station
