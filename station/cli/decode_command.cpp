#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core/whole_file.h"
#include "station/cli/commands.h"
#include "station/cli/message_options.h"
#include "station/cli/recordings.h"
#include "station/offline/message_copy.h"
#include "station/recording/message_reader.h"
#include "station/signals/signal_recording.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* decodeAbout =
    R"(Writes the signals in the messages of a recording, as databases define them.

A database is a .dbc (CAN, CAN FD) or a .ldf (LIN). It is for all channels of its bus, or with a
channel's name and "=" in front for that one. Where several define an identifier, one that was named
for the channel counts first, and else the one that was named first.

OUT is a table (.csv, a line a signal), or measured values (.mf4, a group a message). Without OUT the
table goes to standard output. Until it is complete it is OUT.XXXXXXXX.tmp, and what was there before stays.
Messages that no database defines are counted and left out.)";

constexpr const char* decodeExamples = R"(
Examples:
  cmp-station decode drive.pcapng --db powertrain.dbc
  cmp-station decode drive.blf drive.mf4 --db powertrain.dbc --db doors.ldf
  cmp-station decode drive.pcapng part.csv --db "Front 0x11=body.dbc" --from 60 --to 90
  cmp-station decode drive.mf4 gear.csv --db powertrain.dbc --channel "Front 0x10" --id 0x123)";

struct DecodeOptions {
    std::string input;
    std::string output = AppendFile::standardOutput;
    std::vector<std::string> databases;
    MessageOptions messages;
    bool overwrite = false;
    bool json = false;
    bool quiet = false;
};

using Json = nlohmann::ordered_json;

/// Where the output is written: beside its place, which it takes once it is complete. So neither a
/// failure nor a kill leaves a part of it there, or harms what was there before, whose permissions
/// it gets. A pipe is written as it is.
class PendingOutput {
  public:
    /// Throws FileError if there is something that isn't to be overwritten, and UserError if there
    /// is a link to nothing.
    PendingOutput(const std::string& output, bool overwrite) : place(output), path(output) {
        if (AppendFile::isStreamPath(output)) {
            return;
        }
        std::error_code none;
        isReplacing = std::filesystem::exists(place, none);
        if (isReplacing) {
            AppendFile former(output, overwrite);
            former.discard();
            place = std::filesystem::canonical(place);
        } else if (std::filesystem::is_symlink(place, none)) {
            throw UserError(fmt::format("{} is a link to nothing; name another file", output));
        }
        path = temporaryName(place);
        if (isReplacing) {
            makeLikeFormer();
        }
    }
    ~PendingOutput() {
        std::error_code ignored;
        if (path != place) {
            std::filesystem::remove(path, ignored);
        }
    }
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;

    const std::filesystem::path& getPath() const { return path; }
    bool isToReplace() const { return isReplacing; }
    /// Once it is closed. Throws FileError.
    void finish() {
        if (path == place) {
            return;
        }
        if (const std::error_code error = moveIntoPlace(); error) {
            throw FileError(
                fmt::format("{} can't be written: {}", place.string(), error.message()));
        }
        path = place;
    }

  private:
    void makeLikeFormer() const {
        try {
            createFileLike(path, place);
        } catch (const std::runtime_error& cause) {
            throw FileError(fmt::format("{} can't be replaced: {}", place.string(), cause.what()));
        }
    }
    /// Where nothing was, not onto a file that came meanwhile; some file systems can't tell.
    std::error_code moveIntoPlace() const {
        const unsigned flags = isReplacing ? 0 : RENAME_NOREPLACE;
        std::error_code error;
        if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, place.c_str(), flags) != 0) {
            error = std::error_code(errno, std::generic_category());
        }
        if (error == std::errc::invalid_argument) {
            std::filesystem::rename(path, place, error);
        }
        return error;
    }

    std::filesystem::path place;
    std::filesystem::path path;
    bool isReplacing = false;
};

void refuseInput(const DecodeOptions& options, const std::string& output) {
    std::error_code error;
    if (std::filesystem::equivalent(options.input, output, error)) {
        throw UserError(fmt::format("{} is the input; name another file", output));
    }
}

std::unique_ptr<MessageReader> openInput(const DecodeOptions& options) {
    auto reader = openMessages(options.input);
    if (!reader) {
        throw UserError(
            ExitCode::Unreadable,
            fmt::format("{} is no recording of messages that can be read; stored frames "
                        "become one with \"cmp-station convert\"",
                        options.input));
    }
    return reader;
}

void reportAll(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        printMessage(text);
    }
}

/// What was left out, for people.
std::vector<std::string> describeRest(const SignalCounts& counts, const MessageReader& reader,
                                      std::uint64_t late) {
    std::vector<std::string> texts;
    if (counts.undefined != 0) {
        texts.push_back(
            fmt::format("{} messages have no definition in the databases of their "
                        "channels and were left out",
                        counts.undefined));
    }
    if (counts.noDatabase != 0) {
        texts.push_back(
            fmt::format("{} messages are of channels without a database (--db) and "
                        "were left out",
                        counts.noDatabase));
    }
    if (counts.empty != 0) {
        texts.push_back(
            fmt::format("{} messages are too short for any of their signals, or have "
                        "none",
                        counts.empty));
    }
    if (reader.getSkipped() != 0) {
        texts.push_back(
            fmt::format("{} records are no CAN, CAN FD or LIN messages (errors, remote "
                        "frames, others) and were left out",
                        reader.getSkipped()));
    }
    if (late != 0) {
        texts.push_back(lateText(late));
    }
    return texts;
}

/// What the user and the shell are answered once the output is closed.
ExitCode finish(const DecodeOptions& options, const RecordingSet& recordings,
                const SignalCounts& counts, const MessageReader& reader, bool isAtEnd,
                PendingOutput& pending) {
    const RecordingSummary output = recordings.summarize().front();
    const bool hasFailed = recordings.hasFailed() || output.lost != 0;
    const bool staysAsItWas = hasFailed || (!isAtEnd && pending.isToReplace());
    if (!staysAsItWas) {
        pending.finish();
    }
    if (options.json) {
        printResult(toText(Json{{"messages", recordings.getCount()},
                                {"decoded", counts.decoded},
                                {"undefined", counts.undefined},
                                {"withoutDatabase", counts.noDatabase},
                                {"withoutSignals", counts.empty},
                                {"skipped", reader.getSkipped()},
                                {"path", options.output},
                                {"format", output.format},
                                {"bytes", output.bytes},
                                {"lost", output.lost}}));
    } else if (!options.quiet && options.output != AppendFile::standardOutput) {
        printResult(fmt::format("{}: {} of {} messages decoded, {} bytes\n", options.output,
                                output.records, recordings.getCount(), output.bytes));
    }
    if (staysAsItWas) {
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} is left as it was, since {}", options.output,
                        hasFailed ? "not all could be written" : "decoding was stopped"));
    }
    if (!reader.getErrorText().empty()) {
        throw UserError(ExitCode::Unreadable,
                        reader.getErrorText() + "; what came before is decoded");
    }
    if (!isAtEnd) {
        throw UserError(ExitCode::Failed,
                        "stopped before the end of the file; what came before is decoded");
    }
    return ExitCode::Good;
}

ExitCode decode(const DecodeOptions& options, StopSignal& stop) {
    takesStandardOutput({options.output}, options.json);
    const MessageFilter::Options wanted = readFilter(options.messages);
    refuseInput(options, options.output);
    PendingOutput pending(options.output, options.overwrite);
    refuseInput(options, pending.getPath());
    const auto reader = openInput(options);
    ChannelDecoders decoders;
    for (const std::string& text : options.databases) {
        decoders.add(text);
    }
    reportAll(decoders.takeNotices());
    std::vector<std::string> named = decoders.getUnknownChannels();
    std::ranges::copy(wanted.channels, std::back_inserter(named));
    findChannels(std::move(named), options.input, stop);
    const auto filter = std::make_shared<MessageFilter>(wanted);
    SignalCounts counts;
    RecordingSet recordings;
    recordings.add(openSignalRecording(options.output, pending.getPath(), decoders, counts));
    recordings.setFilter(filter);
    MessageCopy copy(*reader, recordings);
    bool isMore = true;
    {
        Progress progress(!options.quiet && options.output != AppendFile::standardOutput);
        while (isMore && !stop.isRequested() && !recordings.haveAllFailed()) {
            isMore = copy.poll();
            progress.show(reader->getProgress(), recordings.getCount());
        }
    }
    copy.end();
    if (!isMore && counts.decoded == 0 && reader->getErrorText().empty()) {
        const auto unused = decoders.describeUnused();
        if (unused.size() == options.databases.size()) {
            throw UserError(fmt::format("{}", fmt::join(unused, "; ")));
        }
    }
    reportAll(recordings.close());
    reportAll(decoders.takeNotices());
    reportAll(describeRest(counts, *reader, copy.getLate()));
    reportAll(decoders.describeUnused());
    return finish(options, recordings, counts, *reader, !isMore, pending);
}

}  // namespace

void addDecodeCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<DecodeOptions>();
    CLI::App* const command = app.add_subcommand("decode", decodeAbout);
    command->footer(decodeExamples);
    command
        ->add_option("IN", options->input,
                     "A recording: .pcapng, .blf, .mf4, .log, .asc or .csv, also with .zst behind")
        ->required();
    command->add_option("OUT", options->output,
                        ".csv or .mf4; - or nothing for .csv on standard output");
    addDatabaseOption(*command, options->databases)->required();
    addFilterOptions(*command, options->messages);
    addOverwriteOption(*command, options->overwrite);
    command->add_flag("--json", options->json,
                      "Print what became of the messages as one JSON object on standard output");
    command->add_flag("--quiet", options->quiet, "Print neither progress nor a summary");
    command->callback([options, &chosen] {
        chosen = [options](StopSignal& stop) { return decode(*options, stop); };
    });
}

}  // namespace station
