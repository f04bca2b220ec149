#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "capture/pcap_port.h"
#include "station/cli/commands.h"
#include "station/cli/permission.h"
#include "station/cli/recordings.h"
#include "station/live_view.h"
#include "station/offline/direct_capture.h"

namespace station {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* about =
    R"(Captures on all network interfaces until Ctrl-C, SIGTERM or the end of --duration.

All channels of a module given with --module are used. TYPE is "CAN combo", "LIN combo" or
"NeoviFire3"; CONFIGID is decimal or, after 0x, hexadecimal.)";

constexpr const char* examples = R"(
Examples:
  cmp-station run --module "CAN combo:5:Front" --module "LIN combo:2"
  cmp-station run --module "NeoviFire3:7" --record drive.pcapng --record drive.log --duration 60
  cmp-station run --module "CAN combo:5" --json --quiet --duration 10)";

constexpr double longestDuration = 1e9;  // seconds

struct RunOptions {
    std::vector<std::string> modules;
    std::vector<std::string> recordings;
    double duration = 0.0;
    bool json = false;
    bool quiet = false;
};

void startCapture(CmpPacketReader& reader) {
    reader.openAndStartRead();
    if (reader.getInterfaces().empty()) {
        throw CommandError(ExitCode::Failed, "no network interface could be opened" +
                                                 (reader.getLastErrorText().empty()
                                                      ? std::string()
                                                      : ": " + reader.getLastErrorText()) +
                                                 "; check with \"ip link\" that one is up");
    }
}

/// Polls as a host does, until the wish to stop or the end. One period more lets what was under way
/// in the capture thread arrive.
void measure(const RunOptions& options, DirectCapture& capture, RecordingSet& recordings,
             LiveView& view, StopSignal& stop) {
    constexpr auto period = std::chrono::milliseconds(20);
    constexpr auto flushPeriod = std::chrono::milliseconds(500);
    const auto start = SteadyClock::now();
    const auto end = options.duration > 0.0
                         ? start + std::chrono::duration_cast<SteadyClock::duration>(
                                       std::chrono::duration<double>(options.duration))
                         : SteadyClock::time_point::max();
    auto nextPoll = start + period;
    auto nextFlush = start + flushPeriod;
    bool stopping = false;
    while (!stopping) {
        stopping = stop.isRequested() || SteadyClock::now() >= end;
        if (stopping) {
            std::this_thread::sleep_for(period);
        } else {
            stop.waitUntil(std::min(nextPoll, end));
        }
        capture.poll();
        const auto now = SteadyClock::now();
        nextPoll = std::max(nextPoll + period, now);
        if (now >= nextFlush) {
            nextFlush = now + flushPeriod;
            for (const std::string& failure : recordings.flush()) {
                view.tell(failure);
            }
        }
        if (view.isDue(now)) {
            view.show(capture.summarize(), now);
        }
    }
    capture.getReader().Stop();
    capture.poll();
}

ExitCode run(const RunOptions& options, StopSignal& stop) {
    checkCapturePermission();
    RecordingSet recordings;
    openRecordings(recordings, options.recordings);
    PcapPort port;
    const SteadyPerformanceCounter counter;
    DirectCapture capture(port, counter, counter.getNanoseconds(), Summary::Clock::now(),
                          recordings);
    for (const std::string& text : options.modules) {
        capture.addModule(ModuleOption::parse(text));
    }
    tellWhatIsLeftOut(recordings, capture.summarize());
    startCapture(capture.getReader());

    const int tableDescriptor = options.json ? STDERR_FILENO : STDOUT_FILENO;
    LiveView view(LiveView::choose(options.quiet, tableDescriptor), tableDescriptor);
    measure(options, capture, recordings, view, stop);
    view.end();

    for (const std::string& failure : recordings.close()) {
        view.tell(failure);
    }
    const Summary summary = capture.summarize();
    if (options.json) {
        writeText(STDOUT_FILENO, toJson(summary));
    } else if (!options.quiet) {
        for (const std::string& line : toTable(summary)) {
            writeText(STDOUT_FILENO, line + '\n');
        }
    }
    return recordings.hasFailed() ? ExitCode::Failed : ExitCode::Good;
}

}  // namespace

void addRunCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* const command = app.add_subcommand("run", about);
    command->footer(examples);
    command->add_option("--module", options->modules, "A capture module; may be given again")
        ->type_name("\"TYPE:CONFIGID[:NAME]\"")
        ->expected(1)
        ->take_all();
    addRecordOption(*command, options->recordings);
    command->add_option("--duration", options->duration, "End after S seconds")
        ->type_name("S")
        ->check(CLI::Range(0.001, longestDuration).description(""));
    command->add_flag("--json", options->json,
                      "At the end print one JSON object on standard output");
    command->add_flag("--quiet", options->quiet,
                      "Show nothing while it runs, nor a table at the end");
    command->callback([options, &chosen] {
        chosen = [options](StopSignal& stop) { return run(*options, stop); };
    });
}

}  // namespace station
