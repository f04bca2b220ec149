#include "station/cli/streaming.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "station/cli/commands.h"
#include "station/cli/recordings.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* group = "Stream";
constexpr std::size_t longestName = 64;  // bytes
constexpr std::uint64_t leastBatch = 4096;
constexpr std::uint64_t mostBatch = std::uint64_t{32} << 20U;
constexpr std::uint64_t leastSpool = std::uint64_t{1} << 20U;
constexpr std::uint64_t batchesOfSpool = 16;      // at least
constexpr std::int64_t mostAge = 60'000'000'000;  // nanoseconds
constexpr double longestWait = 1e6;               // seconds
constexpr int mostReplicas = 5;

/// That of a service, of the user's state, or below the home folder.
fs::path defaultSpool(const std::string& token) {
    const auto fromEnvironment = [](const char* variable) {
        const char* const value = std::getenv(variable);
        return value != nullptr && *value == '/' ? fs::path(value) : fs::path();
    };
    if (const fs::path state = fromEnvironment("STATE_DIRECTORY"); !state.empty()) {
        return state / "spool" / token;
    }
    if (const fs::path state = fromEnvironment("XDG_STATE_HOME"); !state.empty()) {
        return state / "cmp" / "spool" / token;
    }
    if (const fs::path home = fromEnvironment("HOME"); !home.empty()) {
        return home / ".local" / "state" / "cmp" / "spool" / token;
    }
    throw UserError("there is no home folder for the spool: name a folder with --spool");
}

struct Adder {
    template <class Target>
    CLI::Option* operator()(const char* name, Target& target, const char* type,
                            const char* what) const {
        return command.add_option(name, target, what)->type_name(type)->group(group);
    }
    CLI::App& command;
};

template <class Number>
Number bounded(const char* option, const std::string& text, Number value, Number least,
               Number most) {
    if (value < least || value > most) {
        throw UserError(
            fmt::format("{}: {} is too {}", option, text, value < least ? "small" : "large"));
    }
    return value;
}

bool isOfStream(const CLI::Option& option) {
    return option.get_group() == group || option.get_group() == natsGroup;
}

}  // namespace

void StreamArguments::addDefaults(const std::map<std::string, std::string>& options) {
    for (const auto& [name, value] : options) {
        CLI::Option* const option = command->get_option_no_throw("--" + name);
        if (option == nullptr || !isOfStream(*option)) {
            throw UserError(ExitCode::Unreadable,
                            fmt::format("the setup's stream has \"{}\", which is no option of one; "
                                        "set it again with \"cmp-station setup stream\"",
                                        name));
        }
        if (option->count() != 0) {
            continue;
        }
        try {
            option->add_result(value);
            option->run_callback();
        } catch (const CLI::Error& error) {
            throw UserError(ExitCode::Unreadable,
                            fmt::format("the setup's stream: {}", error.what()));
        }
    }
}

std::map<std::string, std::string> StreamArguments::getGiven() const {
    std::map<std::string, std::string> given;
    for (const CLI::Option* const option : command->get_options()) {
        if (option->count() == 0 || !isOfStream(*option)) {
            continue;
        }
        const std::string& value = option->results().back();
        const bool isPath =
            option->get_type_name() == "FILE" || option->get_type_name() == "FOLDER";
        given[option->get_lnames().front()] = isPath ? fs::absolute(value).string() : value;
    }
    return given;
}

bool StreamArguments::isWanted() const {
    if (!nats.servers.empty()) {
        return true;
    }
    for (const CLI::Option* const option : command->get_options()) {
        if (option->count() != 0 && isOfStream(*option)) {
            throw UserError(option->get_name() +
                            " is for a stream: name its brokers with --stream");
        }
    }
    return false;
}

void addStreamOptions(CLI::App& command, StreamArguments& arguments) {
    arguments.command = &command;
    const Adder add{command};
    add("--stream", arguments.nats.servers, "SERVERS",
        "Stream all messages to these NATS brokers with JetStream: nats://HOST:4222[,HOST...], or "
        "tls://")
        ->check(notEmpty());
    add("--stream-split", arguments.split, "WHAT",
        "A subject for each station, the default, or for each channel (an interface of a module): "
        "readers choose channels then, and small batches cost more")
        ->check(CLI::IsMember({"station", "channel"}).description(""));
    add("--stream-batch", arguments.batch, "SIZE",
        "Send a batch of messages when it has this size, 256KiB by default");
    add("--stream-age", arguments.age, "TIME",
        "Send a batch at the latest when its first message is this old, 200ms by default");
    add("--stream-wait", arguments.wait, "S",
        "At the end wait for the broker S seconds at most, 5 by default, or until another Ctrl-C; "
        "what it hasn't stored by then is sent by the next run")
        ->check(within(0.0, longestWait));
    add("--spool-limit", arguments.spoolLimit, "SIZE",
        "Keep this much there at most, 4GiB by default; beyond that the oldest messages are lost "
        "and "
        "counted");
    addSendingOptions(command, arguments);
}

void addSendingOptions(CLI::App& command, StreamArguments& arguments) {
    const Adder add{command};
    add("--station", arguments.station, "NAME",
        "The name of this station in the stream; the machine's name by default")
        ->check(notEmpty())
        ->check(isUtf8());
    add("--spool", arguments.spool, "FOLDER",
        "Keep what the broker hasn't stored in this folder; ~/.local/state/cmp/spool/NAME by "
        "default");
    add("--stream-name", arguments.streamName, "NAME", "The stream at the broker, CMP by default")
        ->check(notEmpty());
    add("--stream-replicas", arguments.replicas, "N",
        "If the stream isn't there yet: how many brokers keep it, 1 by default")
        ->check(within(1, mostReplicas));
    add("--stream-max-age", arguments.maxAge, "TIME",
        "If the stream isn't there yet: it drops what is older, such as 7d; by default nothing");
    add("--stream-max-bytes", arguments.maxBytes, "SIZE",
        "If the stream isn't there yet: beyond that it drops the oldest; by default nothing");
    addNatsOptions(command, arguments.nats);
}

StreamSettings parseStreamSettings(const StreamArguments& arguments, const char* servers) {
    constexpr std::int64_t millisecond = 1'000'000;  // nanoseconds
    StreamSettings settings;
    settings.nats = readNatsOptions(arguments.nats, servers);
    settings.streamName = arguments.streamName.empty() ? defaultStreamName : arguments.streamName;
    if (settings.streamName.find_first_of(" \t.*>/\\") != std::string::npos) {
        throw UserError(
            fmt::format("--stream-name: \"{}\" has a character that the name of a "
                        "stream can't have: a blank, or one of . * > / \\",
                        settings.streamName));
    }
    settings.replicas = arguments.replicas;
    if (!arguments.maxAge.empty()) {
        settings.mostNanoseconds = parseTime("--stream-max-age", arguments.maxAge);
    }
    if (!arguments.maxBytes.empty()) {
        settings.mostBytes =
            static_cast<std::int64_t>(parseSize("--stream-max-bytes", arguments.maxBytes));
    }
    settings.station = arguments.station.empty() ? nameOfMachine() : arguments.station;
    if (settings.station.size() > longestName) {
        throw UserError(fmt::format("--station: a name has {} bytes at most", longestName));
    }
    settings.isByChannel = arguments.split == "channel";
    settings.spool = arguments.spool.empty() ? defaultSpool(toToken(settings.station)).string()
                                             : arguments.spool;
    settings.spoolBytes =
        bounded("--spool-limit", arguments.spoolLimit,
                parseSize("--spool-limit", arguments.spoolLimit), leastSpool, UINT64_MAX);
    settings.batchBytes =
        bounded("--stream-batch", arguments.batch, parseSize("--stream-batch", arguments.batch),
                leastBatch, mostBatch);
    if (settings.batchBytes > settings.spoolBytes / batchesOfSpool) {
        throw UserError(fmt::format(
            "--spool-limit: {} is too small for batches of {}: {} of them must fit in. "
            "Raise it to {} bytes, or lower --stream-batch to {} bytes",
            arguments.spoolLimit, arguments.batch, batchesOfSpool,
            settings.batchBytes * batchesOfSpool, settings.spoolBytes / batchesOfSpool));
    }
    settings.batchAge = std::chrono::milliseconds(bounded("--stream-age", arguments.age,
                                                          parseTime("--stream-age", arguments.age),
                                                          millisecond, mostAge) /
                                                  millisecond);
    return settings;
}

void finishStream(Stream& stream, double seconds, LiveView& view, StopSignal& stop) {
    constexpr auto period = std::chrono::milliseconds(20);
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(seconds));
    stop.setPatience(std::chrono::seconds(10));  // for `end`
    const bool hadRequest = stop.isRequested();
    if (hadRequest) {
        stop.keepSecond();
    }
    const auto isRequested = [&] {
        const bool isAny = stop.isRequested();
        return hadRequest ? stop.isRequestedTwice() : isAny;
    };
    while (stream.summarize().backlogBytes != 0 && std::chrono::steady_clock::now() < end &&
           !isRequested()) {
        std::this_thread::sleep_for(period);
        view.report(stream.takeTexts());
    }
    stream.end();
    view.report(stream.takeTexts());
    const StreamSummary left = stream.summarize();
    if (left.backlogBytes != 0) {
        view.report(
            fmt::format("{} messages are in the spool {} and not in the stream yet; the next "
                        "run with --stream sends them",
                        left.backlogMessages, left.spool));
    }
}

bool hasFailed(const StreamSummary& stream) {
    return stream.lost != 0 || stream.isNameTaken;
}

}  // namespace station
