#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "core/string_helper.h"
#include "station/session/summary.h"
#include "station/terminal_text.h"

namespace station {
namespace {

using Json = nlohmann::ordered_json;
using Kestrova::Utils::Kcom::StringHelper;

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

}  // namespace

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

}  // namespace station
