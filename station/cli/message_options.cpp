#include "station/cli/message_options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <set>

#include "station/cli/commands.h"
#include "station/cli/live_view.h"
#include "station/recording/message_reader.h"

namespace station {

void addFilterOptions(CLI::App& command, MessageOptions& options) {
    const auto isMoment =
        require([](const std::string& text) { return parseMoment(text).has_value(); },
                "{} is no time; give seconds since the first message, or UTC as "
                "2023-11-14T22:13:20Z");
    command
        .add_option("--from", options.from,
                    "Leave out what was before TIME: UTC as 2023-11-14T22:13:20.5Z, or seconds "
                    "since the first message")
        ->type_name("TIME")
        ->check(isMoment);
    command.add_option("--to", options.to, "Leave out what was at TIME or later")
        ->type_name("TIME")
        ->check(isMoment);
    addRepeated(command, "--channel", options.channels, "NAME",
                "Take messages of the channel NAME only; may be given again")
        ->check(isUtf8());
    addRepeated(command, "--id", options.identifiers, "ID",
                "Take messages with this identifier only, or of a range (0x100-0x1FF); may be "
                "given again")
        ->check(require([](const std::string& text) { return parseIdentifiers(text).has_value(); },
                        "{} is no identifier, and no range of them as 0x100-0x1FF"));
}

MessageFilter::Options readFilter(const MessageOptions& options) {
    MessageFilter::Options wanted;
    if (!options.from.empty()) {
        wanted.from = parseMoment(options.from);
    }
    if (!options.to.empty()) {
        wanted.to = parseMoment(options.to);
    }
    if (wanted.from && wanted.to && wanted.from->isSinceFirst == wanted.to->isSinceFirst &&
        wanted.from->nanoseconds >= wanted.to->nanoseconds) {
        throw UserError(fmt::format("--from {} isn't before --to {}: no message is between them",
                                    options.from, options.to));
    }
    wanted.channels = options.channels;
    for (const std::string& text : options.identifiers) {
        wanted.identifiers.push_back(parseIdentifiers(text).value());
    }
    return wanted;
}

CLI::Option* addDatabaseOption(CLI::App& command, std::vector<std::string>& databases) {
    return addRepeated(command, "--db", databases, "[CHANNEL=]FILE",
                       "A database of signals (.dbc, .ldf), for all channels of its bus or for the "
                       "channel that is named; may be given again")
        ->check(notEmpty());
}

Progress::Progress(bool wanted) : shown(wanted && isTerminal(STDERR_FILENO)) {}

Progress::~Progress() {
    if (written) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::show(double share, std::uint64_t messages) {
    const auto now = Clock::now();
    if (shown && now - last > std::chrono::milliseconds(200)) {
        const std::chrono::duration<double> passed = now - start;
        std::fputs(fmt::format("\r{:3.0f} %  {:.0f} messages/s\033[K", share * 100,
                               static_cast<double>(messages) / passed.count())
                       .c_str(),
                   stderr);
        last = now;
        written = true;
    }
}

void refuseUnknownChannels(const std::vector<std::string>& unknown,
                           const std::vector<std::string>& there) {
    if (!unknown.empty()) {
        const std::set<std::string> names(there.begin(), there.end());
        throw UserError(fmt::format(
            "no channel is named \"{}\"; {}", fmt::join(unknown, "\", \""),
            names.empty() ? "there are none"
                          : fmt::format("there are \"{}\"", fmt::join(names, "\", \""))));
    }
}

void findChannels(std::vector<std::string> names, const std::string& recording, StopSignal& stop) {
    constexpr int atOnce = 4096;
    const auto reader = openMessages(recording);
    RecordedMessage message;
    std::vector<std::string> there;
    bool isMore = reader != nullptr;
    while (isMore && !names.empty()) {
        for (int i = 0; i < atOnce && isMore; ++i) {
            isMore = reader->next(message);
        }
        const auto& channels = reader->getChannels();
        while (there.size() < channels.size()) {
            there.push_back(channels[there.size()].name);
            std::erase(names, there.back());
        }
        if (stop.isRequested()) {
            return;
        }
    }
    if (reader != nullptr && reader->getErrorText().empty()) {
        refuseUnknownChannels(names, there);
    }
}

}  // namespace station
