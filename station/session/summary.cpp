#include "station/session/summary.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "station/terminal_text.h"

namespace station {
namespace {

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

double Summary::getRate(std::optional<std::size_t> module) const {
    double rate = 0.0;
    for (const ChannelSummary& channel : channels) {
        rate += !module || channel.module == *module ? channel.rate : 0.0;
    }
    return rate;
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
    if (!summary.awaitedLeader.empty()) {
        return awaitedText(summary);
    }
    return fmt::format(
        "{:.0f} s: {} of {} modules connected, {} frames, {:.0f}/s{}{}", summary.seconds, connected,
        summary.modules.size(), summary.getTotalFrames(), summary.getRate(),
        summary.getTotalLost() == 0 ? "" : fmt::format(", {} LOST", summary.getTotalLost()),
        summary.stream ? printable(", " + streamText(*summary.stream)) : "");
}

}  // namespace station
