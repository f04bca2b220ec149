#include "station/signals/dbc_switches.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {
namespace {

constexpr std::size_t mostSwitches = 256;  ///< of a message

void checkSwitches(const MessageDefinition& message, const DbcMessageNotes& notes,
                   DefinitionText& text) {
    std::size_t switches = 0;
    for (std::size_t i = 0; i < message.signals.size(); ++i) {
        if (!message.signals[i].multiplexing.isSwitch) {
            continue;
        }
        if (++switches > mostSwitches) {
            text.failAt(notes.signalLines[i],
                        fmt::format("{} has more than {} switches", message.name, mostSwitches));
        }
        std::size_t steps = 0;
        for (std::size_t at = i; at != Multiplexing::none;
             at = message.signals[at].multiplexing.switchIndex) {
            if (++steps > mostSwitches) {
                text.failAt(notes.signalLines[i],
                            fmt::format("{} depends on itself", message.signals[i].name));
            }
        }
    }
}

}  // namespace

void connectSwitches(Database& database, std::size_t index, const DbcMessageNotes& notes,
                     DefinitionText& text) {
    MessageDefinition& message = database.messages[index];
    const auto isFirst = [](const SignalDefinition& signal) {
        return signal.multiplexing.isSwitch && signal.multiplexing.ranges.empty();
    };
    const auto first = std::ranges::find_if(message.signals, isFirst);
    const auto count = std::ranges::count_if(message.signals, isFirst);
    for (std::size_t i = 0; i < message.signals.size(); ++i) {
        Multiplexing& own = message.signals[i].multiplexing;
        const std::size_t line = notes.signalLines[i];
        if (own.ranges.empty()) {
            continue;
        }
        if (own.switchName.empty()) {
            if (first == message.signals.end()) {
                text.failAt(line, fmt::format("{} depends on a switch, and {} has none (M)",
                                              message.signals[i].name, message.name));
            }
            if (count > 1) {
                text.notice(database, line,
                            fmt::format("which of {} switches {} depends on isn't said "
                                        "(SG_MUL_VAL_): {} is taken",
                                        count, message.signals[i].name, first->name));
            }
            own.switchIndex = static_cast<std::size_t>(first - message.signals.begin());
        } else if (const auto found = notes.signals.find(own.switchName);
                   found != notes.signals.end()) {
            own.switchIndex = found->second;
        } else {
            text.failAt(line, fmt::format("{} depends on {}, which isn't in {}",
                                          message.signals[i].name, own.switchName, message.name));
        }
        message.signals[own.switchIndex].multiplexing.isSwitch = true;
    }
    checkSwitches(message, notes, text);
}

}  // namespace station
