#pragma once

#include <fmt/format.h>

#include <utf8.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "capture/capture_messages.h"
#include "capture/pcap_port.h"
#include "station/errors.h"
#include "station/stop_signal.h"

namespace station {

/// What the chosen subcommand does; throws UserError for what the user must know.
using Command = std::function<ExitCode(StopSignal&)>;

/// Has the subcommand do that when it is chosen.
inline void onChosen(CLI::App& subcommand, Command& chosen, Command action) {
    subcommand.callback([&chosen, action = std::move(action)] { chosen = action; });
}

/// An option that may be given again, each time with one value.
inline CLI::Option* addRepeated(CLI::App& command, const char* name,
                                std::vector<std::string>& values, const char* type,
                                const std::string& what) {
    return command.add_option(name, values, what)->type_name(type)->expected(1)->take_all();
}

/// Refuses a text that isn't good with a reason, in which "{}" stands for the text.
template <typename IsGood>
CLI::Validator require(IsGood isGood, const char* reason) {
    const auto check = [isGood, reason](const std::string& text) {
        return isGood(text) ? std::string() : fmt::format(fmt::runtime(reason), text);
    };
    return {check, ""};
}
/// A number from `from` to `to`. "nan" isn't, though `CLI::Range` lets it pass.
inline CLI::Validator within(double from, double to) {
    const auto check = [from, to](const std::string& text) {
        double number = 0.0;
        const bool isNumber = CLI::detail::lexical_cast(text, number) && !std::isnan(number);
        return isNumber && CLI::Range(from, to)(text).empty()
                   ? std::string()
                   : fmt::format("{} is no number from {} to {}", text, from, to);
    };
    return {check, ""};
}
/// A name in another encoding would be none.
inline CLI::Validator isUtf8() {
    return require([](const std::string& text) { return utf8::is_valid(text); },
                   "it is not UTF-8 text");
}
/// An empty text is what a shell makes of a variable that isn't set.
inline CLI::Validator notEmpty() {
    return require([](const std::string& text) { return !text.empty(); }, "it is empty");
}

/// An interface that isn't there may come.
inline CLI::Validator mayCarryEthernet() {
    return {[](const std::string& name) {
                return PcapPort().isOfOtherKind(name) ? otherKindText(name) : std::string();
            },
            ""};
}

/// Each adds one subcommand (`onChosen`).
void addRunCommand(CLI::App& app, Command& chosen);
void addCollectCommand(CLI::App& app, Command& chosen);
void addConvertCommand(CLI::App& app, Command& chosen);
void addDecodeCommand(CLI::App& app, Command& chosen);
void addDumpCommand(CLI::App& app, Command& chosen);
void addExtcapCommand(CLI::App& app, Command& chosen);
void addFleetCommand(CLI::App& app, Command& chosen);
void addGuiCommand(CLI::App& app, Command& chosen);
void addPluginsCommand(CLI::App& app, Command& chosen);
void addSetupCommand(CLI::App& app, Command& chosen);
void addStreamCommand(CLI::App& app, Command& chosen);

}  // namespace station
