#include "station/session/coverage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace station {
namespace {

/// As long as a module may be silent and still counts as connected, in seconds.
constexpr double longestSilence = 2.0;

bool isMeasured(const Summary& summary, std::size_t module) {
    return std::any_of(summary.channels.begin(), summary.channels.end(),
                       [&](const ChannelSummary& channel) { return channel.module == module; });
}

}  // namespace

void Coverage::begin(std::vector<std::string> notRecorded) {
    *this = {};
    left = std::move(notRecorded);
}

void Coverage::note(const Summary& summary) {
    modules.resize(std::max(modules.size(), summary.modules.size()));
    doubts.clear();
    for (std::size_t i = 0; i < summary.modules.size(); ++i) {
        const Module& module = summary.modules[i];
        if (module.frames && module.frames->sequenceGaps != 0) {
            doubts.push_back(sequenceText(module.name, *module.frames));
        }
        if (module.senders.areSeveral != hostFalse) {
            doubts.push_back(rivalsText(module, module.senders));
        }
        modules[i].hasStood = modules[i].hasStood || module.timeStandsStill;
        if (modules[i].hasStood) {
            doubts.push_back(standingText(module.name));
        }
        if (module.clock && module.clock->jumps != 0) {
            doubts.push_back(jumpsText(module.name, module.clock->jumps));
        }
    }
    for (const ChannelSummary& channel : summary.channels) {
        if (channel.counts && channel.counts->unusable != 0) {
            doubts.push_back(unusableText(channel.name, channel.counts->unusable));
        }
        if (channel.counts && channel.counts->raised != 0) {
            doubts.push_back(raisedText(channel.name, channel.counts->raised));
        }
    }
    for (const InterfaceStatistics& interface : summary.interfaces) {
        if (interface.malformed != 0) {
            doubts.push_back(fmt::format("{} malformed frames came in on {}", interface.malformed,
                                         nameOf(interface)));
        }
    }
}

std::vector<Coverage::News> Coverage::look(const Summary& summary,
                                           const std::vector<ChannelStatistics>& statistics) {
    std::vector<News> news;
    note(summary);
    for (std::size_t i = 0; i < summary.modules.size(); ++i) {
        if (!isMeasured(summary, i) || !summary.modules[i].clock) {
            continue;
        }
        Watched& module = modules[i];
        module.name = summary.modules[i].name;
        const double age = summary.modules[i].clock->age;  // negative before the first message
        const bool wasSilent = module.isSilent;
        module.isSilent = (age < 0.0 ? summary.seconds : age) > longestSilence;
        module.wasSilent = module.wasSilent || module.isSilent;
        if (module.isSilent && !wasSilent) {
            const bool wasHeard = module.isHeard || age >= 0.0;
            news.push_back(
                {fmt::format("\"{}\" {} {:.0f} s{}", module.name,
                             wasHeard ? "has fallen silent: nothing has come from it for"
                                      : "isn't heard: nothing has come from it in the first",
                             longestSilence, wasHeard ? "" : "; check its connection and ConfigId"),
                 module.name});
        } else if (wasSilent && !module.isSilent) {
            news.push_back({fmt::format("\"{}\" is heard again", module.name), module.name});
        } else if (!module.isHeard && age >= 0.0) {
            news.push_back({"", module.name});
        }
        module.isHeard = module.isHeard || age >= 0.0;
    }
    hasInterfaceGap = summary.hasInterfaceGap;
    if (!summary.recordings.empty()) {
        unused = findBusyUnused(summary, statistics);
    }
    return news;
}

std::vector<std::string> Coverage::findBusyUnused(
    const Summary& summary, const std::vector<ChannelStatistics>& statistics) {
    std::vector<std::string> names;
    for (const Module& module : summary.modules) {
        for (const Channel& channel : module.channels) {
            const bool isBusy =
                std::any_of(statistics.begin(), statistics.end(), [&](const auto& entry) {
                    return entry.output == channel.output && entry.delivered > 0;
                });
            if (!channel.isUsed && isBusy) {
                names.push_back(channel.name);
            }
        }
    }
    return names;
}

std::vector<std::string> Coverage::getGaps() const {
    std::vector<std::string> gaps;
    for (const Watched& module : modules) {
        if (module.wasSilent) {
            gaps.push_back(fmt::format("\"{}\" {}", module.name,
                                       !module.isSilent ? "was silent for a time"
                                       : module.isHeard ? "is silent"
                                                        : "isn't heard"));
        }
    }
    if (hasInterfaceGap) {
        gaps.emplace_back("A network interface wasn't captured on all the time");
    }
    gaps.insert(gaps.end(), doubts.begin(), doubts.end());
    gaps.insert(gaps.end(), left.begin(), left.end());
    if (!unused.empty()) {
        gaps.push_back(fmt::format("Not recorded, as not used: {}", fmt::join(unused, ", ")));
    }
    return gaps;
}

}  // namespace station
