#include "station/cli/recordings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <span>
#include <string_view>
#include <utility>

#include "station/cli/commands.h"
#include "station/errors.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr double mostKept = 1e6;  // files

struct Unit {
    std::string_view name;
    double amount;
};
constexpr Unit sizeUnits[] = {{"kB", 1e3},
                              {"MB", 1e6},
                              {"GB", 1e9},
                              {"TB", 1e12},
                              {"KiB", 1024.0},
                              {"MiB", 1024.0 * 1024.0},
                              {"GiB", 1073741824.0},
                              {"TiB", 1099511627776.0},
                              {"B", 1.0}};
constexpr Unit timeUnits[] = {  // nanoseconds
    {"ms", 1e6},
    {"min", 60e9},
    {"s", 1e9},
    {"h", 3600e9},
    {"d", 86400e9}};
constexpr Unit countUnits[] = {{"", 1.0}};

/// A number above 0 and one of the units, at least 1 in all.
std::uint64_t parseAmount(const char* option, const std::string& text,
                          std::span<const Unit> units) {
    constexpr double most = 1e18;
    double number = 0.0;
    const char* const end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    const std::string_view unit(rest, static_cast<std::size_t>(end - rest));
    const auto found = std::ranges::find(units, unit, &Unit::name);
    if (failure == std::errc() && found != units.end()) {
        const double amount = number * found->amount;
        if (amount >= 1.0 && amount <= most) {
            return static_cast<std::uint64_t>(amount);
        }
    }
    std::string known;
    for (const Unit& each : units) {
        known += (known.empty() ? "" : ", ") + std::string(each.name);
    }
    throw UserError(fmt::format("{}: \"{}\" is no amount; write a number{}", option, text,
                                known.empty() ? "" : " and one of " + known));
}

}  // namespace

std::uint64_t parseSize(const char* option, const std::string& text) {
    return parseAmount(option, text, sizeUnits);
}

std::int64_t parseTime(const char* option, const std::string& text) {
    return static_cast<std::int64_t>(parseAmount(option, text, timeUnits));
}

void addOverwriteOption(CLI::App& command, bool& overwrites) {
    command.add_flag("--overwrite", overwrites,
                     "Overwrite recordings that are there; without it they are refused");
}

void addPartOptions(CLI::App& command, PartOptions& options) {
    addRepeated(command, "--rotate", options.rotate, "RULE",
                "Record into one file after the other, each up to size=2GB, time=1h or count=N "
                "messages; may be given again. SIGHUP begins another one at once");
    command
        .add_option("--keep", options.keep,
                    "Of these files keep the newest N, and remove the others")
        ->type_name("N")
        ->check(within(1, mostKept));
    command
        .add_option("--compress", options.compression,
                    "Compress each of these files once it is closed, as FILE.zst; convert reads "
                    "those too")
        ->type_name("zstd")
        ->check(CLI::IsMember({"zstd"}).description(""));
    command
        .add_option("--min-free", options.minFree,
                    "Record nothing while less than SIZE, such as 2GB, is free on the disk")
        ->type_name("SIZE");
}

PartRules parsePartRules(const PartOptions& options) {
    PartRules rules;
    rules.goesOn = true;
    rules.keep = options.keep;
    for (const std::string& rule : options.rotate) {
        const std::string name = rule.substr(0, rule.find('='));
        const std::string amount = rule.substr(std::min(name.size() + 1, rule.size()));
        if (name == "size") {
            rules.bytes = parseSize("--rotate", amount);
        } else if (name == "time") {
            rules.nanoseconds = parseTime("--rotate", amount);
        } else if (name == "count") {
            rules.records = parseAmount("--rotate", amount, countUnits);
        } else {
            throw UserError(fmt::format(
                "--rotate: \"{}\" is no rule; there are size=2GB, time=1h and count=N", rule));
        }
    }
    if (!options.minFree.empty()) {
        rules.leastFreeBytes = parseSize("--min-free", options.minFree);
    }
    if (rules.keep != 0 && !rules.isRotating()) {
        throw UserError("--keep is for recordings in several files: say when with --rotate");
    }
    if (!options.compression.empty()) {
        if (!rules.isRotating()) {
            throw UserError(
                "--compress is for recordings in several files: say when with --rotate");
        }
        rules.compressor = std::make_shared<PartCompressor>();
    }
    return rules;
}

void refuseUnusedParts(const PartOptions& options, const std::vector<std::string>& paths,
                       bool isStreamed) {
    const bool hasFile = !std::ranges::all_of(paths, AppendFile::isStreamPath);
    const std::pair<const char*, bool> ofFiles[] = {
        {"--rotate", !options.rotate.empty()},
        {"--min-free", !options.minFree.empty() && !isStreamed}};
    for (const auto& [option, isGiven] : ofFiles) {
        if (isGiven && !hasFile) {
            throw UserError(fmt::format(
                "{} is for recordings in files: {}", option,
                paths.empty() ? "name one with --record" : "a pipe takes a single one"));
        }
    }
}

void openRecordings(RecordingSet& recordings, const std::vector<std::string>& paths,
                    bool overwrites, const PartRules& rules) {
    for (const std::string& path : paths) {
        recordings.open(path, overwrites, rules);
    }
}

bool takesStandardOutput(const std::vector<std::string>& paths, bool json) {
    const auto taking = std::ranges::count(paths, AppendFile::standardOutput);
    if (taking > 1) {
        throw UserError("standard output (-) can take one recording only");
    }
    if (taking == 1 && json) {
        throw UserError(
            "--json prints on standard output, which the recording (-) takes: record into a file, "
            "or leave out --json");
    }
    return taking == 1;
}

void printReport(const Summary& summary, const std::vector<std::string>& recordings, bool json,
                 bool quiet) {
    const bool isTaken = takesStandardOutput(recordings, json);
    if (json) {
        printResult(toJson(summary));
        return;
    }
    for (const std::string& line : quiet ? std::vector<std::string>() : toTable(summary)) {
        if (isTaken) {
            fmt::print(stderr, "{}\n", line);
        } else {
            printResult(line + '\n');
        }
    }
}

void reportLeftOut(const RecordingSet& recordings, const Summary& summary) {
    if (std::ranges::count(summary.channels, BusType::Lin, &ChannelSummary::bus) != 0) {
        for (const std::string& path : recordings.thatRefuse(BusType::Lin)) {
            printMessage(fmt::format("{} holds CAN only: LIN channels are left out", path));
        }
    }
}

}  // namespace station
