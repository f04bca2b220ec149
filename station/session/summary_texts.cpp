#include <fmt/format.h>
#include <fmt/ranges.h>

#include "core/string_helper.h"
#include "station/session/summary.h"

// What the user reads of losses and of other doubts, in the table and in messages.

namespace station {

using Kestrova::Utils::Kcom::StringHelper;

std::string gapsText(const ModuleStatistics& frames) {
    const char* const plural = frames.sequenceGaps == 1 ? "" : "s";
    if (frames.missingFrames == 0) {
        return fmt::format("{} time{} out of sequence, no frame missing", frames.sequenceGaps,
                           plural);
    }
    return fmt::format("{} gap{}, {} frame{} missing", frames.sequenceGaps, plural,
                       frames.missingFrames, frames.missingFrames == 1 ? "" : "s");
}

std::string ChannelSummary::describeLoss() const {
    std::string text = counts ? lossReasons({}, *counts) : "";
    if (overwritten != 0) {
        text += fmt::format("{}{} were overwritten before they could be read",
                            text.empty() ? "" : ", ", overwritten);
    }
    return text;
}

std::vector<std::string> ChannelSummary::describeAccount() const {
    std::vector<std::string> texts;
    if (getLost() != 0) {
        texts.push_back("lost: " + describeLoss());
    }
    if (counts && counts->unusable != 0) {
        texts.push_back(fmt::format("not delivered: {} whose contents are no message of this bus",
                                    counts->unusable));
    }
    if (counts && counts->raised != 0) {
        texts.push_back(fmt::format("with the time of the one before, as their own was earlier: {}",
                                    counts->raised));
    }
    return texts;
}

std::string nameOf(const InterfaceStatistics& interface) {
    return interface.name.empty() ? laterInterfaces : StringHelper::ToUtf8(interface.name);
}

std::int64_t unreadOf(const ReceivedStatistics& interface) {
    const std::uint64_t read = interface.kept + interface.foreign + interface.dropped;
    return interface.isCounted != hostFalse ? static_cast<std::int64_t>(interface.received - read)
                                            : 0;
}

std::string describeUnknown(const MessageStatistics& messages) {
    std::vector<std::string> parts;
    if (messages.unknownModule != 0) {
        std::vector<std::string> ids;
        std::uint64_t others = messages.unknownModule;
        for (const auto& entry : messages.unknown) {
            if (entry.messages != 0) {
                ids.push_back(fmt::format("0x{:X}: {}", entry.cmId, entry.messages));
                others -= entry.messages;
            }
        }
        if (others != 0) {
            ids.push_back(fmt::format("others: {}", others));
        }
        parts.push_back(fmt::format("{} of CM IDs that no module has ({})", messages.unknownModule,
                                    fmt::join(ids, ", ")));
    }
    if (messages.unknownChannel != 0) {
        parts.push_back(fmt::format("{} of interfaces that their module doesn't have",
                                    messages.unknownChannel));
    }
    if (messages.empty != 0) {
        parts.push_back(fmt::format("{} that hold no CAN message", messages.empty));
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string lossReasons(const ChannelStatistics& before, const ChannelStatistics& now) {
    struct Reason {
        std::uint64_t ChannelStatistics::*count;
        const char* text;
    };
    static constexpr Reason reasons[] = {
        {&ChannelStatistics::tooOld, "came too late to be written"},
        {&ChannelStatistics::tooNew, "were stamped too far ahead of the measurement"},
        {&ChannelStatistics::notPlaced, "had a module's clock without relation to the host's time"},
        {&ChannelStatistics::leftQueued, "were still waiting at the end"},
        {&ChannelStatistics::noOutput, "had no channel to go to"}};
    std::vector<std::string> parts;
    for (const Reason& reason : reasons) {
        if (const std::uint64_t lost = now.*reason.count - before.*reason.count; lost != 0) {
            parts.push_back(fmt::format("{} {}", lost, reason.text));
        }
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string lossText(const std::string& channel, const ChannelStatistics& before,
                     const ChannelStatistics& now) {
    return fmt::format("channel \"{}\" lost {} messages: {}", channel,
                       now.getLost() - before.getLost(), lossReasons(before, now));
}

std::string raisedText(const std::string& channel, std::uint64_t messages) {
    return fmt::format(
        "channel \"{}\": {} messages have the time of the one before, as their own was earlier: "
        "the module's clock went back, a time of it was wrong, or the machine was too busy to read "
        "the clocks in time",
        channel, messages);
}

std::string unusableText(const std::string& channel, std::uint64_t messages) {
    return fmt::format(
        "channel \"{}\": {} messages aren't delivered, as their contents are no message of this "
        "bus",
        channel, messages);
}

std::string jumpsText(const std::string& module, std::uint64_t jumps) {
    return fmt::format("the device time of \"{}\" jumped, or had a wrong value ({} so far)", module,
                       jumps);
}

std::string sequenceText(const std::string& module, const ModuleStatistics& frames) {
    return fmt::format(
        "the sequence counter of \"{}\" isn't continuous ({}): {}", module, gapsText(frames),
        frames.missingFrames == 0
            ? "the module was restarted, or frames came twice or in another order"
            : "frames were lost on the way, or the module was restarted or has several "
              "counters");
}

std::string rivalsText(const Module& module, const SenderStatistics& senders) {
    return fmt::format(
        "several modules send with the CM ID of \"{}\" (0x{:X}), among them those with the serial "
        "numbers {} and {}: their messages are mixed, at times of different clocks; give each a "
        "ConfigId of its own",
        module.name, module.cmId, senders.serials[0], senders.serials[1]);
}

std::string standingText(const std::string& module) {
    return fmt::format(
        "the device time of \"{}\" stands still while its messages come: their times are wrong; "
        "restart the module, or check its time source",
        module);
}

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

}  // namespace station
