#include "simulator/report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace sim {
namespace {

double seconds(std::int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

nlohmann::json toJson(const SimulatedModule& module) {
    const ModuleSettings& settings = module.getSettings();
    nlohmann::json channels = nlohmann::json::array();
    for (std::size_t i = 0; i < settings.interfaces().size(); ++i)
        channels.push_back({{"interfaceId", settings.interfaces()[i]},
                            {"bus", toText(settings.type->bus)},
                            {"messages", module.messagesSentOn(i)}});
    return {{"type", settings.type->name},
            {"configId", settings.type->configIdOf(settings.cmId)},
            {"cmId", settings.cmId},
            {"serial", settings.serial},
            {"framing", toText(settings.framing)},
            {"canFd", module.getSender().canFd},
            {"lengths",
             nlohmann::json::array_t(module.getLengths().begin(), module.getLengths().end())},
            {"messages", module.getMessagesSent()},
            {"channels", channels}};
}

}  // namespace

nlohmann::json toJson(const Report& report) {
    const Totals& totals = report.simulation.getTotals();
    nlohmann::json modules = nlohmann::json::array();
    for (const SimulatedModule& module : report.simulation.getModules())
        modules.push_back(toJson(module));
    nlohmann::json result = {{"seconds", seconds(report.clock.elapsed())},
                             {"startUtcNs", report.clock.getStartUtc()},
                             {"startStampNs", report.clock.getStartStamp()},
                             {"frames", totals.frames},
                             {"bytes", totals.bytes},
                             {"dataMessages", totals.dataMessages},
                             {"badFrames", totals.badFrames},
                             {"statusFrames", totals.statusFrames},
                             {"maxLateSeconds", seconds(totals.maxLateNs)},
                             {"modules", modules}};
    if (report.options.file.empty())
        result["interface"] = report.options.interface;
    else
        result["file"] = report.options.file;
    return result;
}

std::string printable(std::string_view text) {
    std::string safe;
    for (const char c : text) {
        const bool isHarmless = c >= ' ' && c <= '~';
        safe += isHarmless ? std::string(1, c)
                           : fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
    }
    return safe;
}

std::string toText(const Report& report) {
    const Totals& totals = report.simulation.getTotals();
    const double time = seconds(report.clock.elapsed());
    std::string text = fmt::format(
        "{} frames ({} bytes) in {:.3f} s on {}: {} data messages, {} status frames, {} "
        "malformed\n",
        totals.frames, totals.bytes, time,
        printable(report.options.file.empty() ? report.options.interface : report.options.file),
        totals.dataMessages, totals.statusFrames, totals.badFrames);
    for (const SimulatedModule& module : report.simulation.getModules()) {
        const ModuleSettings& settings = module.getSettings();
        text +=
            fmt::format("  {} {:#x} (CM ID {:#x}, serial {}, {}): {} messages on {} {} channels\n",
                        settings.type->name, settings.type->configIdOf(settings.cmId),
                        settings.cmId, settings.serial, toText(settings.framing),
                        module.getMessagesSent(), settings.channels, toText(settings.type->bus));
    }
    return text;
}

std::string progressText(const Totals& totals, double seconds) {
    return fmt::format("{:.0f} s: {} frames, {} data messages, {} malformed\n", seconds,
                       totals.frames, totals.dataMessages, totals.badFrames);
}

}  // namespace sim
