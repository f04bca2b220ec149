#include "station/session/account_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr std::size_t mostInterfaces = 16;

std::string interfaceText(const std::string& name, const ReceivedStatistics& counts) {
    return fmt::format(
        "{}: {}kept {}, foreign {}, dropped {}, malformed {}\n", name,
        counts.isCounted == hostFalse
            ? ""
            : fmt::format("received {}, unread {}, ", counts.received, unreadOf(counts)),
        counts.kept, counts.foreign, counts.dropped, counts.malformed);
}

/// Of each, or of the first ones and of the others together.
std::string interfacesText(const std::vector<ReceivedStatistics>& interfaces) {
    std::string text;
    ReceivedStatistics others;
    others.isCounted = hostTrue;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        const ReceivedStatistics& counts = interfaces[i];
        if (i < mostInterfaces) {
            text += interfaceText(
                counts.name.empty() ? laterInterfaces : StringHelper::ToUtf8(counts.name), counts);
        } else {
            others.isCounted = counts.isCounted != hostFalse ? others.isCounted : hostFalse;
            others.received += counts.received;
            others.kept += counts.kept;
            others.foreign += counts.foreign;
            others.dropped += counts.dropped;
            others.malformed += counts.malformed;
        }
    }
    return interfaces.size() <= mostInterfaces ? text : text + interfaceText("others", others);
}

std::string channelText(const ChannelSummary& channel) {
    const ChannelStatistics counts = channel.counts.value_or(ChannelStatistics());
    return fmt::format(
        "queued {}, delivered {}, before start {}, after end {}, too old {}, too new {}, "
        "not placed {}, left queued {}, no output {}, overwritten {}, raised {}, unusable {}",
        counts.queued, counts.delivered, counts.beforeStart, counts.afterEnd, counts.tooOld,
        counts.tooNew, counts.notPlaced, counts.leftQueued, counts.noOutput, channel.overwritten,
        counts.raised, counts.unusable);
}

}  // namespace

RecordingAccount toAccount(const Summary& summary) {
    const MessageStatistics& messages = summary.messages;
    RecordingAccount account;
    account.run = fmt::format(
        "of the measurement, {:.1f} s after its start:\n{}data messages {}, module status {}, "
        "bus status {}, other {}; of the data messages empty {}, unknown module {}, "
        "unknown channel {}, unused channel {}",
        summary.seconds, interfacesText(summary.interfaces), messages.data, messages.moduleStatus,
        messages.busStatus, messages.other, messages.empty, messages.unknownModule,
        messages.unknownChannel, summary.unused);
    std::ranges::transform(summary.channels, std::back_inserter(account.channels), channelText);
    return account;
}

}  // namespace station
