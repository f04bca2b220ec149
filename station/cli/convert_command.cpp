#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "station/cli/commands.h"
#include "station/cli/message_options.h"
#include "station/cli/recordings.h"
#include "station/offline/direct_capture.h"
#include "station/offline/fitted_clocks.h"
#include "station/offline/found_modules.h"
#include "station/offline/message_copy.h"
#include "station/offline/pass_through_clock.h"
#include "station/offline/stored_frames.h"
#include "station/recording/message_filter.h"
#include "station/recording/message_reader.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* convertAbout =
    R"(Turns stored frames (.pcap, .pcapng) or recordings of any format into others.

What IN is follows from its contents. Of stored frames the modules are taken from the status messages
in the file, unless --module names them. A module's times run on its own clock from the moment at which
its first message was captured, or with --clock soft as in a measurement, where the moments at which
the frames were captured count too. Messages of a recording keep their times.

A file that is torn is converted up to its last whole record.)";

constexpr const char* convertExamples = R"(
Examples:
  cmp-station convert stored.pcap drive.pcapng drive.log
  cmp-station convert stored.pcapng drive.pcapng --module "CAN combo:5:Front"
  cmp-station convert evidence.pcapng drive.mf4 --clock soft
  cmp-station convert drive.pcapng part.asc --from 60 --to 90 --channel "Front 0x11"
  cmp-station convert drive.asc part.csv --id 0x100-0x1FF --id 0x7DF)";

constexpr const char* deviceClock = "device";
constexpr const char* softClock = "soft";

struct ConvertOptions {
    std::string input;
    std::vector<std::string> outputs;
    std::vector<std::string> modules;
    std::string clock = deviceClock;
    MessageOptions messages;
    bool overwrite = false;
    bool json = false;
    bool quiet = false;
};

std::vector<Module> chooseModules(const ConvertOptions& options) {
    std::vector<Module> modules;
    for (const std::string& text : options.modules) {
        modules.push_back(parseModule(text));
    }
    if (!modules.empty()) {
        return modules;
    }
    std::error_code ignored;
    if (options.input == "-" ||
        std::filesystem::is_other(std::filesystem::status(options.input, ignored))) {
        throw UserError(
            fmt::format("{} is no file that can be read twice, first for the modules in it; name a "
                        "file, or the modules with --module \"TYPE:CONFIGID\"",
                        options.input));
    }
    modules = findModules(options.input);
    if (modules.empty()) {
        throw UserError(
            fmt::format("{} has no status of a capture module; name the modules with "
                        "--module \"TYPE:CONFIGID\"",
                        options.input));
    }
    return modules;
}

void refuseInputAsOutput(const ConvertOptions& options) {
    for (const std::string& output : options.outputs) {
        std::error_code error;
        if (std::filesystem::equivalent(options.input, output, error)) {
            throw UserError(
                fmt::format("{} is the input; name another file for the recording", output));
        }
    }
}

/// How reading ended, whatever was read.
struct Ending {
    bool isAtEnd = false;       ///< of the file
    bool isIncomplete = false;  ///< records in it were stored in part, or have no place in time
    std::string errorText;      ///< why the rest couldn't be read
    Summary summary;
};

/// What the user and the shell are answered once the recordings are closed.
ExitCode finish(const ConvertOptions& options, RecordingSet& recordings,
                const MessageFilter& filter, const Ending& ending) {
    printReport(ending.summary, options.outputs, options.json, options.quiet);
    if (!ending.errorText.empty()) {
        throw UserError(ExitCode::Unreadable,
                        ending.errorText + "; what came before is in the recordings");
    }
    const bool hasLost = std::ranges::any_of(
        ending.summary.recordings, [](const RecordingSummary& each) { return each.lost != 0; });
    if (recordings.hasFailed() || hasLost || ending.summary.getTotalLost() != 0 ||
        ending.isIncomplete) {
        return ExitCode::Failed;
    }
    if (!ending.isAtEnd) {
        throw UserError(
            ExitCode::Failed,
            "stopped before the end of the file; what came before is in the recordings");
    }
    std::vector<std::string> there;
    for (const auto& channel : ending.summary.channels) {
        there.push_back(channel.name);
    }
    refuseUnknownChannels(filter.getUnknownChannels(), there);
    return ExitCode::Good;
}

std::unique_ptr<OfflineClocks> makeClocks(const ConvertOptions& options,
                                          const PerformanceCounter& counter, std::int64_t start) {
    if (options.clock == softClock) {
        return std::make_unique<FittedClocks>(counter, start);
    }
    return std::make_unique<PassThroughClocks>(counter, start);
}

/// Reads on one thread and writes on another.
Ending convertFrames(const ConvertOptions& options, const std::shared_ptr<RecordingSet>& recordings,
                     StopSignal& stop) {
    constexpr std::size_t mostWaiting = std::size_t{4} << 20U;  // stays in the processor's cache
    const std::vector<Module> modules = chooseModules(options);
    StoredFrames frames(options.input);
    openRecordings(*recordings, options.outputs, options.overwrite);
    RecordingQueue queue(recordings, mostWaiting, RecordingQueue::WhenFull::Wait);
    // Messages are stamped before the frame that carries them is captured: what the first frame
    // brings would else lie before host time 0.
    constexpr std::int64_t lead = 2'000'000'000;
    const std::int64_t start = frames.getFirstTime() - lead;
    const std::unique_ptr<OfflineClocks> clocks = makeClocks(options, frames, start);
    DirectCapture capture(
        frames, frames, *clocks, start,
        Summary::Clock::time_point(
            std::chrono::duration_cast<Summary::Clock::duration>(std::chrono::nanoseconds(start))),
        queue);
    for (const Module& module : modules) {
        capture.addModule(module);
    }
    reportLeftOut(*recordings, capture.summarize());
    {
        Progress progress(!options.quiet);
        capture.run(frames, [&] {
            progress.show(frames.getProgress(), capture.getCount());
            return !stop.isRequested() && !queue.haveAllFailed();
        });
        queue.beginClose();
        queue.waitClosed();
    }
    printMessages(queue.flush());
    printMessages(capture.describeClocks());
    const std::string cut = frames.getCutText();
    if (!cut.empty()) {
        printMessage(cut);
    }
    return {frames.isAtEnd(), !cut.empty() || capture.countOutside() != 0, frames.getErrorText(),
            capture.summarize()};
}

Ending convertMessages(const ConvertOptions& options, MessageReader& reader,
                       RecordingSet& recordings, StopSignal& stop) {
    if (!options.modules.empty() || options.clock != deviceClock) {
        throw UserError(fmt::format("{} holds messages and no frames of modules; leave out {}",
                                    options.input,
                                    options.modules.empty() ? "--clock" : "--module"));
    }
    findChannels(options.messages.channels, options.input, stop);
    openRecordings(recordings, options.outputs, options.overwrite);
    MessageCopy copy(reader, recordings);
    bool isMore = true;
    {
        Progress progress(!options.quiet);
        while (isMore && !stop.isRequested() && !recordings.haveAllFailed()) {
            isMore = copy.poll();
            progress.show(reader.getProgress(), recordings.getCount());
        }
    }
    copy.end();
    printMessages(recordings.close());
    if (copy.getLate() != 0) {
        printMessage(lateText(copy.getLate()));
    }
    if (reader.getSkipped() != 0) {
        printMessage(
            fmt::format("{} records in {} are no CAN, CAN FD or LIN messages (errors, "
                        "remote frames, others) and were left out",
                        reader.getSkipped(), options.input));
    }
    Ending ending{!isMore, false, reader.getErrorText(), copy.summarize()};
    reportLeftOut(recordings, ending.summary);
    return ending;
}

ExitCode convert(const ConvertOptions& options, StopSignal& stop) {
    refuseInputAsOutput(options);
    takesStandardOutput(options.outputs, options.json);
    const MessageFilter::Options wanted = readFilter(options.messages);
    const auto filter = std::make_shared<MessageFilter>(wanted);
    const auto recordings = std::make_shared<RecordingSet>();
    if (!wanted.isEmpty()) {
        recordings->setFilter(filter);
    }
    std::error_code ignored;
    const auto reader = std::filesystem::is_regular_file(options.input, ignored)
                            ? openMessages(options.input)
                            : nullptr;
    const Ending ending = reader ? convertMessages(options, *reader, *recordings, stop)
                                 : convertFrames(options, recordings, stop);
    return finish(options, *recordings, *filter, ending);
}

}  // namespace

void addConvertCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* const command = app.add_subcommand("convert", convertAbout);
    command->footer(convertExamples);
    command
        ->add_option(
            "IN", options->input,
            "Stored frames (.pcap, .pcapng) or a recording: .pcapng, .blf, .mf4, .log, .asc, .csv")
        ->required();
    command->add_option("OUT", options->outputs, "Recordings: " + describeRecordingFormats())
        ->required();
    addRepeated(*command, "--module", options->modules, "\"TYPE:CONFIGID[:NAME]\"",
                "A capture module; may be given again")
        ->check(isUtf8());
    command
        ->add_option("--clock", options->clock,
                     "Of stored frames: times by each module's own clock (device, the default), or "
                     "by the clock that a measurement fits to it (soft)")
        ->type_name("device|soft")
        ->check(CLI::IsMember({deviceClock, softClock}));
    addFilterOptions(*command, options->messages);
    addOverwriteOption(*command, options->overwrite);
    command->add_flag("--json", options->json, "Print one JSON object on standard output");
    command->add_flag("--quiet", options->quiet, "Print neither progress nor a table");
    onChosen(*command, chosen, [options](StopSignal& stop) { return convert(*options, stop); });
}

}  // namespace station
