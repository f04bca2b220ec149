#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "station/cli/commands.h"
#include "station/cli/live_view.h"
#include "station/cli/recordings.h"
#include "station/offline/direct_capture.h"
#include "station/offline/found_modules.h"
#include "station/offline/stored_frames.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* about =
    R"(Turns stored frames (.pcap, .pcapng) into recordings (.pcapng, .log).

Without --module the modules are taken from the status messages in the file. A module's times run on
its own clock from the moment at which its first message was captured.)";

constexpr const char* examples = R"(
Examples:
  cmp-station convert stored.pcap drive.pcapng drive.log
  cmp-station convert stored.pcapng drive.pcapng --module "CAN combo:5:Front")";

struct ConvertOptions {
    std::string input;
    std::vector<std::string> outputs;
    std::vector<std::string> modules;
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
            fmt::format("no capture module tells its status in {}; name the modules with "
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

/// One line on a terminal, written over and over.
class Progress {
  public:
    explicit Progress(bool wanted) : shown(wanted && isTerminal(STDERR_FILENO)) {}
    ~Progress() {
        if (written) {
            std::fputs("\r\033[K", stderr);
        }
    }
    void show(double share) {
        const auto now = std::chrono::steady_clock::now();
        if (shown && now - last > std::chrono::milliseconds(200)) {
            std::fputs(fmt::format("\r{:3.0f} %", share * 100).c_str(), stderr);
            last = now;
            written = true;
        }
    }

  private:
    const bool shown;
    bool written = false;
    std::chrono::steady_clock::time_point last;
};

void convertAll(StoredFrames& frames, DirectCapture& capture, RecordingSet& recordings,
                bool showProgress, StopSignal& stop) {
    Progress progress(showProgress);
    CmpPacketReader& reader = capture.getReader();
    reader.openInterfaces();
    reader.prepareRead(true);
    while (!frames.isAtEnd() && !stop.isRequested() && !recordings.haveAllFailed()) {
        reader.readPass();
        capture.poll();
        progress.show(frames.getProgress());
    }
    capture.poll();  // a clock lets its first message wait for a second look
    capture.end();
}

ExitCode convert(const ConvertOptions& options, StopSignal& stop) {
    refuseInputAsOutput(options);
    const std::vector<Module> modules = chooseModules(options);
    StoredFrames frames(options.input);
    RecordingSet recordings;
    openRecordings(recordings, options.outputs, options.overwrite);
    // Messages are stamped before the frame that carries them is captured: what the first frame
    // brings would else lie before host time 0.
    constexpr std::int64_t lead = 2'000'000'000;
    const std::int64_t start = frames.getFirstTime() - lead;
    DirectCapture capture(
        frames, frames, start,
        Summary::Clock::time_point(
            std::chrono::duration_cast<Summary::Clock::duration>(std::chrono::nanoseconds(start))),
        recordings);
    for (const Module& module : modules) {
        capture.addModule(module);
    }
    tellWhatIsLeftOut(recordings, capture.summarize());
    convertAll(frames, capture, recordings, !options.quiet, stop);

    for (const std::string& text : capture.describeClocks()) {
        printMessage(text);
    }
    const std::string cut = frames.getCutText();
    if (!cut.empty()) {
        printMessage(cut);
    }
    for (const std::string& failure : recordings.close()) {
        printMessage(failure);
    }
    const Summary summary = capture.summarize();
    if (options.json) {
        printResult(toJson(summary));
    } else if (!options.quiet) {
        for (const std::string& line : toTable(summary)) {
            printResult(line + '\n');
        }
    }
    if (!frames.getErrorText().empty()) {
        throw UserError(ExitCode::Unreadable,
                        frames.getErrorText() + "; what came before is in the recordings");
    }
    if (recordings.hasFailed() || summary.totalLost() != 0 || !cut.empty()) {
        return ExitCode::Failed;
    }
    if (!frames.isAtEnd()) {
        throw UserError(
            ExitCode::Failed,
            "stopped before the end of the file; what came before is in the recordings");
    }
    return ExitCode::Good;
}

}  // namespace

void addConvertCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* const command = app.add_subcommand("convert", about);
    command->footer(examples);
    command->add_option("IN", options->input, "Stored frames, .pcap or .pcapng")->required();
    command->add_option("OUT", options->outputs, "Recordings, .pcapng or .log (CAN only)")
        ->required();
    command->add_option("--module", options->modules, "A capture module; may be given again")
        ->type_name("\"TYPE:CONFIGID[:NAME]\"")
        ->check(isUtf8())
        ->expected(1)
        ->take_all();
    addOverwriteOption(*command, options->overwrite);
    command->add_flag("--json", options->json, "Print one JSON object on standard output");
    command->add_flag("--quiet", options->quiet, "Print neither progress nor a table");
    command->callback([options, &chosen] {
        chosen = [options](StopSignal& stop) { return convert(*options, stop); };
    });
}

}  // namespace station
