#include <fmt/format.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "station/cli/commands.h"
#include "station/cli/live_view.h"
#include "station/cli/message_options.h"
#include "station/cli/recordings.h"
#include "station/cli/run_signals.h"
#include "station/cli/service_manager.h"
#include "station/cli/serving.h"
#include "station/cli/setups.h"
#include "station/cli/streaming.h"
#include "station/cli/waiting.h"
#include "station/metrics/metrics_module.h"
#include "station/permission.h"
#include "station/session/measurement.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* runAbout =
    R"(Captures on all network interfaces, or on those named, until Ctrl-C, SIGTERM or the end of
--duration. Interfaces that only repeat others, such as bridges, are left out unless they are named;
those that appear or come up later are captured from then on.

A setup says what is captured, or the modules named here, all of whose channels are used then.
TYPE is "CAN combo", "LIN combo" or "NeoviFire3"; CONFIGID is decimal or, after 0x, hexadecimal. The
plug-in is the registered one, else the one beside this program.)";

constexpr const char* runExamples = R"(
Examples:
  cmp-station run --setup bench.xml --record drive.pcapng
  cmp-station run --module "CAN combo:5:Front" --module "LIN combo:2"
  cmp-station run --module "NeoviFire3:7" --record drive.pcapng --record drive.log --duration 60
  cmp-station run --module "CAN combo:5" --interface eth1 --interface eth2
  cmp-station run --module "CAN combo:5" --record - | tshark -r -
  cmp-station run --setup bench.xml --record-raw evidence.pcapng
  cmp-station run --setup bench.xml --db powertrain.dbc --signals
  cmp-station run --setup bench.xml --metrics 9464
  cmp-station run --setup bench.xml --serve socketcand://127.0.0.1:29536
  cmp-station run --setup bench.xml --stream nats://broker:4222 --station bench-7
  cmp-station run --setup bench.xml --interface eth1 --wait --record drive.pcapng --duration 60
  cmp-station run --module "CAN combo:5" --json --quiet --duration 10)";

constexpr double longestDuration = 1e9;  // seconds
constexpr double mostWaiting = 1e6;      // megabytes

constexpr double megabyte = 1U << 20U;

constexpr auto summaryPeriod = std::chrono::milliseconds(500);

struct RunOptions {
    std::string setup;
    std::vector<std::string> modules;
    std::vector<std::string> interfaces;
    std::string plugin;
    double sampleRate = MasterClock::defaultSampleRate;
    std::vector<std::string> recordings;
    std::vector<std::string> frameRecordings;
    std::vector<std::string> databases;
    bool showsSignals = false;
    PartOptions parts;
    StreamArguments stream;
    ServeArguments serve;
    bool hasNoStream = false;
    double duration = 0.0;
    std::string metrics;  ///< empty: no page
    double waitingMegabytes = static_cast<double>(RecordingQueue::defaultLimit) / megabyte;
    bool waits = false;
    bool overwrite = false;
    bool json = false;
    bool quiet = false;
};

using Clock = Measurement::Clock;

/// Where the messages go beside the recordings; null: not there.
struct Outlets {
    Stream* stream;
    BusServer* server;

    std::vector<std::string> takeTexts() const {
        std::vector<std::string> texts;
        if (stream != nullptr) {
            texts = stream->takeTexts();
        }
        if (server != nullptr) {
            std::ranges::move(server->takeTexts(), std::back_inserter(texts));
        }
        return texts;
    }
};

/// With what becomes of the stream, which has to know how the measurement does, and of readers.
Summary summarize(Measurement& measurement, const Outlets& outlets) {
    Summary summary = measurement.summarize();
    if (outlets.stream != nullptr) {
        outlets.stream->noteMeasurement(summary.getRate(), summary.getTotalLost());
        summary.stream = outlets.stream->summarize();
    }
    if (outlets.server != nullptr) {
        summary.serve = outlets.server->summarize();
    }
    return summary;
}

/// Polls as a host does, until a stop request or the end, and on until the last messages are in.
/// Returns why the plug-in failed, empty if it didn't: what came before it is recorded and shown
/// all the same.
std::string measure(const RunOptions& options, Measurement& measurement, const Outlets& outlets,
                    RunSignals& signals, LiveView& view, MetricsPage* page, ServiceManager& manager,
                    StopSignal& stop) {
    std::string failure;
    const auto start = Clock::now();
    const auto end = options.duration > 0.0
                         ? start + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(options.duration))
                         : Clock::time_point::max();
    auto nextPoll = start + Measurement::period;
    auto nextSummary = start;
    while (!measurement.isOver()) {
        if (stop.waitUntil(std::min(nextPoll, end)) || Clock::now() >= end) {
            measurement.leaveStalledDisk();
            measurement.requestStop();
            std::this_thread::sleep_until(nextPoll);
        }
        if (stop.takeHangup()) {
            measurement.endParts();
        }
        const auto now = Clock::now();
        nextPoll = std::max(nextPoll + Measurement::period, now);
        try {
            view.report(measurement.poll(now));
            manager.notifyAlive(now, "Measuring");
        } catch (const PluginError& error) {
            failure = error.what();
        }
        view.report(outlets.takeTexts());
        if (view.isDue(now)) {
            Summary latest = summarize(measurement, outlets);
            if (options.showsSignals) {
                signals.addTo(latest);
            }
            view.show(latest, now);
        }
        if ((page != nullptr || outlets.stream != nullptr) && now >= nextSummary) {
            const auto latest = std::make_shared<Summary>(summarize(measurement, outlets));
            if (page != nullptr) {
                page->show(latest);
            }
            nextSummary = now + summaryPeriod;
        }
    }
    manager.notifyStopping();
    return failure;
}

void addModules(Session& session, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        const std::size_t place = session.addModule(parseModule(text));
        const Module module = session.getModules()[place];
        for (const Channel& channel : module.channels) {
            session.findOutput(channel).setUsed(hostTrue);
        }
    }
}

/// One that isn't there is waited for: the plug-in says so.
void selectInterfaces(PluginDriver& driver, const std::vector<std::string>& names) {
    constexpr std::size_t longest = IFNAMSIZ - 1;
    for (const std::string& name : names) {
        if (name.empty() || name.size() > longest ||
            name.find_first_of("/: \t\n\v\f\r") != std::string::npos) {
            throw UserError(
                fmt::format("--interface: \"{}\" can't be the name of an interface; "
                            "\"ip link\" lists those that there are",
                            name));
        }
    }
    if (!names.empty()) {
        driver.selectInterfaces(names);
    }
}

void requireModules(bool areThere, const std::string& otherwise) {
    if (!areThere) {
        throw UserError(otherwise +
                        "; name modules with --module \"TYPE:CONFIGID\", or a setup that has some "
                        "with --setup FILE");
    }
}

std::vector<std::string> allRecordings(const RunOptions& options) {
    std::vector<std::string> all = options.recordings;
    std::ranges::copy(options.frameRecordings, std::back_inserter(all));
    return all;
}

/// A session begins with it.
void openAll(const RunOptions& options, PartRules rules, Stream* stream, RecordingSet& messages,
             RecordingSet& frames) {
    rules.session = newSession(allRecordings(options), rules);
    openRecordings(messages, options.recordings, options.overwrite, rules);
    for (const std::string& path : options.frameRecordings) {
        frames.openForFrames(path, options.overwrite, rules);
    }
    if (stream != nullptr) {
        messages.add(stream->openSession(rules.session, rules.leastFreeBytes));
    }
}

/// Throws what `openAll` would throw, and leaves everything as it is. A pipe isn't opened: its
/// reader would take that for its end.
void tryAll(RunOptions options, const PartRules& rules) {
    std::ranges::for_each(options.recordings, checkRecordingFormat);
    for (auto* const paths : {&options.recordings, &options.frameRecordings}) {
        std::erase_if(*paths, [](const std::string& path) {
            return path != AppendFile::standardOutput && AppendFile::isStreamPath(path);
        });
    }
    RecordingSet messages;
    RecordingSet frames;
    openAll(options, rules, nullptr, messages, frames);
}

ExitCode run(RunOptions& options, StopSignal& stop) {
    requireModules(!options.setup.empty() || !options.modules.empty(),
                   "there is nothing to capture");
    const std::vector<std::string> paths = allRecordings(options);
    const bool isPiped = takesStandardOutput(paths, options.json);
    const auto page = options.metrics.empty() ? nullptr : openMetricsPage(options.metrics);
    RunSignals signals(options.databases);
    const auto server = openServer(options.serve);
    checkCapturePermission();
    const auto session = openSession(options.plugin, options.setup, options.sampleRate);
    if (!options.hasNoStream) {
        options.stream.addDefaults(session->getStreamOptions());
    }
    const bool isStreamed = options.stream.isWanted();
    const auto streamSettings = isStreamed ? parseStreamSettings(options.stream) : StreamSettings();
    const auto stream = isStreamed ? openStream(streamSettings) : nullptr;
    const auto recordings = std::make_shared<RecordingSet>();
    const PartRules rules = parsePartRules(options.parts);
    refuseUnusedParts(options.parts, paths, isStreamed);
    const auto frameRecordings = std::make_shared<RecordingSet>();
    if (options.waits) {
        tryAll(options, rules);
    } else {
        openAll(options, rules, stream.get(), *recordings, *frameRecordings);
    }
    addModules(*session, options.modules);
    requireModules(!session->getModules().empty(), options.setup + " has no modules");
    if (options.json || options.showsSignals) {
        signals.readSetup(options.setup, session->getModules());
    }
    selectInterfaces(session->getDriver(), options.interfaces);
    if (!paths.empty() && !isTerminal(STDOUT_FILENO) && !isTerminal(STDERR_FILENO)) {
        stop.keepHangups();
    }
    ServiceManager manager;
    if (options.waits) {
        if (!waitForModule(*session, options.interfaces, manager, stop)) {
            if (options.json) {
                printResult("{\"heard\": false}\n");
            }
            stop.beginCleanUp();
            return ExitCode::Good;
        }
        openAll(options, rules, stream.get(), *recordings, *frameRecordings);
    }
    Measurement measurement(*session, recordings,
                            static_cast<std::size_t>(options.waitingMegabytes * megabyte));
    signals.open(measurement.summarize());
    if (signals.isWanted()) {
        measurement.addListener(signals);
    }
    if (stream) {
        measurement.setFlushPeriod(streamSettings.batchAge / 2);
    }
    reportLeftOut(*recordings, measurement.summarize());
    if (!frameRecordings->empty()) {
        measurement.recordFrames(frameRecordings);
    }
    const Outlets outlets{stream.get(), server.get()};
    if (server) {
        beginServing(*server, measurement);
    }
    if (page) {
        page->show(std::make_shared<Summary>(summarize(measurement, outlets)));
    }
    measurement.start();

    const int tableDescriptor = options.json || isPiped ? STDERR_FILENO : STDOUT_FILENO;
    LiveView view(LiveView::choose(options.quiet, tableDescriptor), tableDescriptor);
    stop.setFarewell(view.getRestore(), tableDescriptor);
    if (measurement.summarize().channels.empty()) {
        view.report(
            fmt::format("{}\"cmp-station setup channel {} MODULE all --used yes\" uses those "
                        "of a module",
                        noChannelIsUsed, options.setup));
    }
    const std::string failure =
        measure(options, measurement, outlets, signals, view, page.get(), manager, stop);
    if (server) {
        finishServing(*server, view, stop);
    }
    if (stream) {
        finishStream(*stream, options.stream.wait, view, stop);
    }
    view.end();
    Summary summary = summarize(measurement, outlets);
    if (options.json || options.showsSignals) {
        signals.addTo(summary);
    }
    printReport(summary, paths, options.json, options.quiet);
    if (rules.compressor) {
        waitForCompression(*rules.compressor, options.quiet, stop);
    }
    stop.beginCleanUp();
    if (!failure.empty()) {
        throw UserError(ExitCode::Failed, failure);
    }
    const bool hasLost = measurement.hasLost() || (summary.stream && hasFailed(*summary.stream));
    return hasLost ? ExitCode::Failed : ExitCode::Good;
}

}  // namespace

void addRunCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* const command = app.add_subcommand("run", runAbout);
    command->footer(runExamples);
    auto* const setup =
        command->add_option("--setup", options->setup, "The setup: modules, channels, clocks")
            ->type_name("FILE")
            ->check(notEmpty());
    addRepeated(*command, "--module", options->modules, "\"TYPE:CONFIGID[:NAME]\"",
                "A capture module; may be given again")
        ->check(isUtf8())
        ->excludes(setup);
    addRepeated(*command, "--interface", options->interfaces, "NAME",
                "Capture on this network interface alone, also if it appears later; may be given "
                "again")
        ->check(mayCarryEthernet());
    command->add_option("--plugin", options->plugin, "The plug-in's module")
        ->type_name("FILE")
        ->check(notEmpty());
    command
        ->add_option("--sample-rate", options->sampleRate,
                     "Samples a second of the acquisition, 1000 by default")
        ->type_name("N")
        ->check(within(1.0, MasterClock::highestSampleRate));
    addRepeated(*command, "--record", options->recordings, "FILE",
                "Record into FILE: " + describeRecordingFormats() +
                    ", or - for .pcapng on standard output; may be given again");
    addRepeated(*command, "--record-raw", options->frameRecordings, "FILE",
                "Record the frames of EtherType 0x99FE into FILE (.pcapng), as they were "
                "captured; \"convert\" makes recordings of them. May be given again");
    addDatabaseOption(*command, options->databases);
    command->add_flag("--signals", options->showsSignals,
                      "Show the signals of the databases in the table too; --json has them always");
    addOverwriteOption(*command, options->overwrite);
    addPartOptions(*command, options->parts);
    addStreamOptions(*command, options->stream);
    addServeOptions(*command, options->serve);
    command
        ->add_flag("--no-stream", options->hasNoStream,
                   "Stream nothing, though the setup says where to (\"setup stream\")")
        ->excludes(command->get_option("--stream"));
    command
        ->add_option("--duration", options->duration,
                     "End after S seconds, also if a leading clock is still awaited")
        ->type_name("S")
        ->check(within(0.001, longestDuration));
    command->add_flag("--wait", options->waits,
                      "Begin when a module is heard; an interface may also appear then. Nothing is "
                      "recorded if it is ended before");
    command
        ->add_option("--waiting", options->waitingMegabytes,
                     "Megabytes of messages that may wait for a slow disk, 256 by default")
        ->type_name("MB")
        ->check(within(1.0, mostWaiting));
    command
        ->add_option("--metrics", options->metrics,
                     "Show the counts as a page for Prometheus, http://ADDRESS:PORT/metrics; "
                     "without an address on the loopback interface")
        ->type_name("[ADDRESS:]PORT")
        ->check(notEmpty());
    command->add_flag("--json", options->json,
                      "At the end print one JSON object on standard output");
    command->add_flag("--quiet", options->quiet,
                      "Show nothing while it runs, nor a table at the end");
    onChosen(*command, chosen, [options](StopSignal& stop) { return run(*options, stop); });
}

}  // namespace station
