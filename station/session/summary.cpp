#include "station/session/summary.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "core/string_helper.h"
#include "station/terminal_text.h"

namespace station {
namespace {

using Json = nlohmann::ordered_json;
using Kestrova::Utils::Kcom::StringHelper;

const char* modeText(const ClockStatistics& clock) {
    switch (clock.mode) {
        case ClockStatistics::softSync:
            return "soft sync";
        case ClockStatistics::ppsSlave:
            return "PPS";
        case ClockStatistics::ppsMaster:
            return "PPS, leading";
        default:
            return "unknown";
    }
}

const char* stateText(const ClockStatistics& clock) {
    return !clock.hasTime ? "not heard" : clock.isPlaced ? "following" : "not placed";
}

/// The messages of a channel in the recordings that can hold them.
Json toJson(const std::vector<RecordingSummary>& recordings, std::size_t channel) {
    Json result = Json::array();
    for (const RecordingSummary& recording : recordings) {
        if (channel < recording.channels.size() && recording.channels[channel].isHeld) {
            const RecordingSummary::Channel& there = recording.channels[channel];
            result.push_back(
                {{"path", recording.path}, {"records", there.records}, {"lost", there.lost}});
            if (there.leftOut != 0) {
                result.back()["leftOut"] = there.leftOut;
            }
        }
    }
    return result;
}

Json toJson(const ClockStatistics& clock) {
    Json result = {{"mode", modeText(clock)}, {"state", stateText(clock)}, {"offset", nullptr},
                   {"ratePpm", nullptr},      {"residual", nullptr},       {"age", nullptr},
                   {"jumps", clock.jumps}};
    if (clock.isPlaced) {
        result["offset"] = clock.offset;
        result["ratePpm"] = clock.ratePpm;
        result["residual"] = clock.residual;
    }
    if (clock.age >= 0.0) {
        result["age"] = clock.age;
    }
    return result;
}

Json toJson(const Module& module) {
    Json result = {{"name", module.name},         {"type", module.type},
                   {"configId", module.configId}, {"cmId", module.cmId},
                   {"serial", module.serial},     {"connected", module.connected}};
    if (module.clock) {
        result["clock"] = toJson(*module.clock);
    }
    if (module.timeStandsStill) {
        result["timeStandsStill"] = true;
    }
    if (module.frames) {
        result["captureFrames"] = module.frames->frames;
        result["sequenceGaps"] = module.frames->sequenceGaps;
        result["missingFrames"] = module.frames->missingFrames;
    }
    if (module.senders.areSeveral != hostFalse) {
        result["rivalSerials"] = module.senders.serials;
    }
    return result;
}

Json toJson(const ReceivedStatistics& interface) {
    const bool isCounted = interface.isCounted != hostFalse;
    return {{"name", StringHelper::ToUtf8(interface.name)},
            {"received", isCounted ? Json(interface.received) : Json()},
            {"kept", interface.kept},
            {"foreign", interface.foreign},
            {"dropped", interface.dropped},
            {"unread", isCounted ? Json(unreadOf(interface)) : Json()},
            {"malformed", interface.malformed}};
}

Json toJson(const MessageStatistics& messages) {
    Json result = {{"data", messages.data},
                   {"moduleStatus", messages.moduleStatus},
                   {"busStatus", messages.busStatus},
                   {"other", messages.other},
                   {"empty", messages.empty},
                   {"unknownModule", messages.unknownModule},
                   {"unknownChannel", messages.unknownChannel},
                   {"unknownCmIds", Json::array()}};
    for (const auto& entry : messages.unknown) {
        if (entry.messages != 0) {
            result["unknownCmIds"].push_back({{"cmId", entry.cmId}, {"messages", entry.messages}});
        }
    }
    return result;
}

/// Of what came from the network, what the user may have to look after.
void addTraffic(const Summary& summary, std::vector<std::string>& lines) {
    for (const ReceivedStatistics& interface : summary.interfaces) {
        if (interface.kept != 0 || interface.dropped != 0) {
            lines.push_back(fmt::format(
                "{}: {}{} capture frames, {} others{}{}{}", nameOf(interface),
                interface.isCounted == hostFalse
                    ? ""
                    : fmt::format("{} frames received: ", interface.received),
                interface.kept, interface.foreign,
                unreadOf(interface) == 0 ? "" : fmt::format(", {} not read", unreadOf(interface)),
                interface.malformed == 0 ? "" : fmt::format(", {} malformed", interface.malformed),
                interface.dropped == 0 ? "" : fmt::format(", LOST {}", interface.dropped)));
        }
    }
    if (const std::string unknown = describeUnknown(summary.messages); !unknown.empty()) {
        lines.push_back("for no channel: " + unknown);
    }
}

Json toJson(const MessageSummary& message) {
    Json result = {{"id", message.id},
                   {"extended", message.isExtended},
                   {"name", message.name},
                   {"count", message.count},
                   {"signals", Json::array()}};
    for (const SignalSummary& signal : message.signals) {
        result["signals"].push_back({{"name", signal.name},
                                     {"value", signal.value},
                                     {"unit", signal.unit},
                                     {"text", signal.text},
                                     {"count", signal.count}});
    }
    return result;
}

Json toJson(const ChannelSummary& channel, const std::vector<Module>& modules) {
    const bool hasModule = channel.module != ChannelSummary::noModule;
    Json result = {{"module", hasModule ? Json(modules.at(channel.module).name) : Json()},
                   {"interfaceId", hasModule ? Json(channel.interfaceId) : Json()},
                   {"busType", channel.busName},
                   {"name", channel.name},
                   {"frames", channel.frames},
                   {"firstTime", nullptr},
                   {"lastTime", nullptr}};
    if (channel.frames != 0) {
        result["firstTime"] = channel.firstTime;
        result["lastTime"] = channel.lastTime;
    }
    if (channel.load) {
        result["load"] = {{"bitRate", channel.load->rates.nominal},
                          {"dataBitRate", channel.load->rates.data},
                          {"lately", channel.load->lately},
                          {"mean", channel.load->mean},
                          {"most", channel.load->most}};
    }
    if (channel.messages) {
        result["undefinedMessages"] = channel.undefined;
        result["messages"] = Json::array();
        for (const MessageSummary& message : *channel.messages) {
            result["messages"].push_back(toJson(message));
        }
    }
    if (!channel.counts) {
        return result;
    }
    const ChannelStatistics& counts = *channel.counts;
    result.update({{"queued", counts.queued},
                   {"delivered", counts.delivered},
                   {"raised", counts.raised},
                   {"beforeStart", counts.beforeStart},
                   {"afterEnd", counts.afterEnd},
                   {"tooOld", counts.tooOld},
                   {"tooNew", counts.tooNew},
                   {"notPlaced", counts.notPlaced},
                   {"leftQueued", counts.leftQueued},
                   {"noOutput", counts.noOutput},
                   {"overwritten", channel.overwritten},
                   {"unusable", counts.unusable}});
    return result;
}

Json toJson(const RecordingSummary& recording) {
    Json result = {{"path", recording.path},
                   {"format", recording.format},
                   {"records", recording.records},
                   {"bytes", recording.bytes},
                   {"lost", recording.lost}};
    if (recording.holdsFrames) {
        result["contents"] = "frames";
    }
    if (recording.parts != 1) {
        result["parts"] = recording.parts;
        result["part"] = recording.partPath;
    }
    if (!recording.error.empty()) {
        result["error"] = recording.error;
    }
    return result;
}

Json toJson(const StreamSummary& stream) {
    Json result = {
        {"servers", stream.servers},           {"station", stream.station},
        {"session", stream.session},           {"spool", stream.spool},
        {"connected", stream.isConnected},     {"published", stream.published},
        {"acknowledged", stream.acknowledged}, {"backlogMessages", stream.backlogMessages},
        {"backlogBytes", stream.backlogBytes}, {"lost", stream.lost},
        {"nameTaken", stream.isNameTaken}};
    if (stream.isConnected) {
        result["server"] = stream.server;
    } else if (!stream.failure.empty()) {
        result["failure"] = stream.failure;
    }
    return result;
}

std::string streamText(const StreamSummary& stream) {
    return fmt::format("stream of {}: {}, {} messages acknowledged{}{}", stream.station,
                       stream.isConnected       ? "connected to " + stream.server
                       : stream.failure.empty() ? std::string("not connected yet")
                                                : "NOT CONNECTED: " + stream.failure,
                       stream.acknowledged,
                       stream.backlogMessages == 0
                           ? ""
                           : fmt::format(", {} in the spool ({} bytes)", stream.backlogMessages,
                                         stream.backlogBytes),
                       stream.lost == 0 ? "" : fmt::format(", LOST {}", stream.lost));
}

Json toJson(const ServeSummary& serve) {
    Json result = {{"address", serve.address},     {"readers", serve.readers},
                   {"connected", serve.connected}, {"refused", serve.refused},
                   {"sent", serve.sent},           {"cutOff", serve.cutOff},
                   {"lost", serve.lost},           {"buses", Json::array()}};
    for (const ServeSummary::Bus& bus : serve.buses) {
        result["buses"].push_back({{"name", bus.name}, {"channel", bus.channel}});
    }
    return result;
}

std::string serveText(const ServeSummary& serve) {
    return fmt::format("served at {}: {} of {} readers there, {} messages sent{}{}", serve.address,
                       serve.readers, serve.connected, serve.sent,
                       serve.refused == 0 ? "" : fmt::format(", {} refused", serve.refused),
                       serve.cutOff == 0 ? ""
                                         : fmt::format(", {} TOO SLOW AND CUT OFF: {} messages not "
                                                       "read",
                                                       serve.cutOff, serve.lost));
}

/// A value of up to 64 bytes doesn't fit a line: its head does.
std::string shortened(const std::string& text, std::size_t most) {
    return text.size() <= most ? text : text.substr(0, most - 2) + "..";
}

void addSignals(const ChannelSummary& channel, std::vector<std::string>& lines) {
    if (!channel.messages) {
        return;
    }
    for (const MessageSummary& message : *channel.messages) {
        lines.push_back(fmt::format("    {}  0x{:X}{}  {}", printable(message.name), message.id,
                                    message.isExtended ? "(ext)" : "", message.count));
        for (const SignalSummary& signal : message.signals) {
            lines.push_back(fmt::format("      {:<28} {} {}  {}", printable(signal.name),
                                        signal.value, printable(signal.unit),
                                        printable(signal.text)));
        }
    }
    if (channel.undefined != 0) {
        lines.push_back(fmt::format("    {} messages without a definition", channel.undefined));
    }
}

/// Nothing where no channel has a bit rate: the column would take the room of the last value.
std::string loadColumn(const Summary& summary, const std::string& text) {
    return summary.getLoad() ? fmt::format(" {:>7}", text) : "";
}

/// Those of one module, or of none.
void addChannels(const Summary& summary, std::size_t module, std::vector<std::string>& lines) {
    constexpr std::size_t longestValue = 40;
    std::size_t silent = 0;
    for (const ChannelSummary& channel : summary.channels) {
        if (channel.module != module) {
            continue;
        }
        if (channel.frames == 0 && channel.getLost() == 0 &&
            (!channel.counts || channel.counts->unusable == 0)) {
            ++silent;
            continue;
        }
        lines.push_back(
            fmt::format("  {:<32} {:<7} {:>12} {:>10.0f}/s{}  {}{}", channel.name, channel.busName,
                        channel.frames, channel.rate,
                        loadColumn(summary, channel.load ? loadText(channel.load->lately) : ""),
                        channel.getLost() == 0 ? "" : fmt::format("LOST {}  ", channel.getLost()),
                        shortened(channel.lastValue, longestValue)));
        for (const std::string& text : channel.describeAccount()) {
            lines.push_back("    " + text);
        }
        addSignals(channel, lines);
    }
    if (silent != 0) {
        lines.push_back(
            fmt::format("  ({} channel{} without frames)", silent, silent == 1 ? "" : "s"));
    }
}

/// "  load 12.3 %"; empty where it isn't known.
std::string loadOf(const Summary& summary, std::optional<std::size_t> module) {
    const auto load = summary.getLoad(module);
    return load ? "  load " + loadText(*load) : "";
}

void addModule(const Summary& summary, std::size_t position, std::vector<std::string>& lines) {
    const Module& module = summary.modules[position];
    lines.push_back(
        fmt::format("{}  [{}]  ConfigId 0x{:X}  serial {}  {}", module.name, module.type,
                    module.configId, module.serial,
                    module.connected ? "Connected" : "Not connected") +
        (module.clock ? "  " + describeClock(*module.clock) : "") +
        (module.frames && module.frames->sequenceGaps != 0
             ? "  sequence counter: " + gapsText(*module.frames)
             : "") +
        (module.senders.areSeveral != hostFalse ? "  SEVERAL MODULES OF THIS CM ID" : "") +
        loadOf(summary, position) + (module.timeStandsStill ? "  TIME STANDS STILL" : ""));
    addChannels(summary, position, lines);
}

std::string awaitedText(const Summary& summary) {
    return fmt::format("waiting for \"{}\", whose clock leads the measurement",
                       printable(summary.awaitedLeader));
}

}  // namespace

std::string loadText(double load) {
    constexpr double percent = 100.0;
    return fmt::format("{:.1f} %", load * percent);
}

std::string describeClock(const ClockStatistics& clock) {
    constexpr double microsecondsPerSecond = 1e6;
    std::string text = modeText(clock);
    if (!clock.isPlaced) {
        return text + ", " + stateText(clock);
    }
    if (clock.mode == ClockStatistics::softSync) {
        text += fmt::format(" {:+.1f} ppm, residual {:.1f} us", clock.ratePpm,
                            clock.residual * microsecondsPerSecond);
    }
    text += fmt::format(", offset {:.6f} s", clock.offset);
    if (clock.age >= 0.0) {
        text += fmt::format(", age {:.2f} s", clock.age);
    }
    if (clock.jumps != 0) {
        text += fmt::format(", {} jump{}", clock.jumps, clock.jumps == 1 ? "" : "s");
    }
    return text;
}

std::vector<std::string> Summary::findDatabases(const ChannelSummary& channel,
                                                const std::filesystem::path& setup) const {
    std::vector<std::string> files;
    if (channel.module < modules.size()) {
        for (const Channel& described : modules[channel.module].channels) {
            if (described.interfaceId == channel.interfaceId) {
                std::ranges::move(databaseFiles(described, setup), std::back_inserter(files));
            }
        }
    }
    return files;
}

std::uint64_t Summary::getTotalFrames() const {
    std::uint64_t total = 0;
    for (const ChannelSummary& channel : channels) {
        total += channel.frames;
    }
    return total;
}

std::optional<double> Summary::getLoad(std::optional<std::size_t> module) const {
    double sum = 0.0;
    std::size_t count = 0;
    for (const ChannelSummary& channel : channels) {
        if (channel.load && (!module || channel.module == *module)) {
            sum += channel.load->lately;
            ++count;
        }
    }
    return count != 0 ? std::optional(sum / static_cast<double>(count)) : std::nullopt;
}

std::uint64_t Summary::getTotalLost() const {
    std::uint64_t total = 0;
    for (const ChannelSummary& channel : channels) {
        total += channel.getLost();
    }
    return total;
}

std::string toIsoText(Summary::Clock::time_point time) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - whole);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z", fmt::gmtime(Summary::Clock::to_time_t(whole)),
                       rest.count());
}

std::string toJson(const Summary& summary) {
    Json result = {{"startTime", toIsoText(summary.startTime)},
                   {"seconds", summary.seconds},
                   {"longestPause", summary.longestPause},
                   {"droppedFrames", summary.droppedFrames},
                   {"lostMessages", summary.getTotalLost()},
                   {"outOfOrder", summary.outOfOrder},
                   {"interfaceMessages", summary.interfaceMessages},
                   {"interfaceMessagesLeftOut", summary.interfaceMessagesLeftOut},
                   {"modules", Json::array()},
                   {"channels", Json::array()},
                   {"recordings", Json::array()}};
    if (!summary.awaitedLeader.empty()) {
        result["awaitedLeader"] = summary.awaitedLeader;
    }
    result["messages"] = toJson(summary.messages);
    result["messages"]["unusedChannel"] = summary.unused;
    result["interfaces"] = Json::array();
    for (const ReceivedStatistics& interface : summary.interfaces) {
        result["interfaces"].push_back(toJson(interface));
    }
    if (const auto load = summary.getLoad()) {
        result["load"] = *load;
    }
    for (std::size_t i = 0; i < summary.modules.size(); ++i) {
        Json entry = toJson(summary.modules[i]);
        if (const auto load = summary.getLoad(i)) {
            entry["load"] = *load;
        }
        result["modules"].push_back(std::move(entry));
    }
    for (const ChannelSummary& channel : summary.channels) {
        Json entry = toJson(channel, summary.modules);
        entry["recordings"] = toJson(summary.recordings, result["channels"].size());
        result["channels"].push_back(std::move(entry));
    }
    for (const RecordingSummary& recording : summary.recordings) {
        result["recordings"].push_back(toJson(recording));
    }
    if (summary.stream) {
        result["stream"] = toJson(*summary.stream);
    }
    if (summary.serve) {
        result["serve"] = toJson(*summary.serve);
    }
    return toText(result);
}

std::vector<std::string> toTable(const Summary& summary) {
    std::vector<std::string> lines;
    lines.push_back(fmt::format("{:.1f} s since {}   {} frames{}", summary.seconds,
                                toIsoText(summary.startTime).substr(0, 19) + 'Z',
                                summary.getTotalFrames(), loadOf(summary, {})));
    if (summary.droppedFrames != 0) {
        lines.push_back(fmt::format("LOST {} Ethernet frames before they could be read",
                                    summary.droppedFrames));
    }
    if (!summary.awaitedLeader.empty()) {
        lines.push_back(awaitedText(summary));
    }
    lines.push_back(fmt::format("  {:<32} {:<7} {:>12} {:>12}{}  {}", "channel", "bus", "frames",
                                "rate", loadColumn(summary, "load"), "last value"));
    for (std::size_t i = 0; i < summary.modules.size(); ++i) {
        addModule(summary, i, lines);
    }
    addChannels(summary, ChannelSummary::noModule, lines);
    addTraffic(summary, lines);
    for (const RecordingSummary& recording : summary.recordings) {
        lines.push_back(
            fmt::format("{}: {} {}, {} bytes{}{}{}", recording.path, recording.records,
                        recording.holdsFrames ? "frames" : "records", recording.bytes,
                        recording.parts == 1 ? "" : fmt::format(", {} parts", recording.parts),
                        recording.lost == 0 ? "" : fmt::format(", LOST {}", recording.lost),
                        recording.error.empty() ? "" : "  FAILED: " + recording.error));
    }
    if (summary.stream) {
        lines.push_back(streamText(*summary.stream));
    }
    if (summary.serve) {
        lines.push_back(serveText(*summary.serve));
    }
    std::transform(lines.begin(), lines.end(), lines.begin(), printable);
    return lines;
}

std::string toProgressLine(const Summary& summary) {
    const auto connected = std::count_if(summary.modules.begin(), summary.modules.end(),
                                         [](const auto& module) { return module.connected; });
    double rate = 0.0;
    for (const ChannelSummary& channel : summary.channels) {
        rate += channel.rate;
    }
    if (!summary.awaitedLeader.empty()) {
        return awaitedText(summary);
    }
    return fmt::format(
        "{:.0f} s: {} of {} modules connected, {} frames, {:.0f}/s{}{}", summary.seconds, connected,
        summary.modules.size(), summary.getTotalFrames(), rate,
        summary.getTotalLost() == 0 ? "" : fmt::format(", {} LOST", summary.getTotalLost()),
        summary.stream ? printable(", " + streamText(*summary.stream)) : "");
}

}  // namespace station
