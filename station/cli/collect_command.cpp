#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "station/cli/commands.h"
#include "station/cli/live_view.h"
#include "station/cli/nats_options.h"
#include "station/cli/text_writer.h"
#include "station/fleet/collector.h"
#include "station/fleet/fleet_module.h"
#include "station/nats/stream_names.h"
#include "station/recording/utc_text.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* collectAbout =
    R"(Makes recordings of what stations stream to a NATS JetStream broker ("run --stream").

Each session of a station becomes DIR/STATION/SESSION.pcapng, in the order of time, when it has ended or
when all of it that is in the stream is collected; until then it grows in
DIR/STATION/SESSION.collecting.pcapng. Without --follow collecting ends with what was in the stream when it
began.

A batch of messages is acknowledged when it is on the disk. So the same command goes on wherever an earlier
one ended, whatever ended it, and takes each message once. Batches that are missing in the stream are reported
of, and the exit code is 1.)";

constexpr const char* collectExamples = R"(
Examples:
  cmp-station collect nats://broker --out drives
  cmp-station collect nats://broker1,broker2,broker3 --out drives --follow
  cmp-station collect nats://broker --out bench --station "bench*" --from 2026-01-31T00:00:00Z
  cmp-station collect tls://broker --nats-creds me.creds --out drives --format .blf --format .csv)";

constexpr auto progressPeriod = std::chrono::milliseconds(200);
/// The disk may take that long to take some batches.
constexpr auto patience = std::chrono::seconds(10);

struct CollectArguments {
    NatsArguments nats;
    std::string stream = defaultStreamName;
    std::string folder;
    std::string stations;
    std::string from;
    std::string durable;
    std::vector<std::string> endings;
    bool follows = false;
    bool json = false;
    bool quiet = false;
};

/// Messages, and on a terminal one line that is written over and over. Nothing here waits for it.
class CollectView {
  public:
    explicit CollectView(bool quiet) : shown(!quiet && isTerminal(STDERR_FILENO)) {}
    ~CollectView() { clear(); }
    CollectView(const CollectView&) = delete;
    CollectView& operator=(const CollectView&) = delete;

    void report(const std::string& text) {
        clear();
        writer.write(STDERR_FILENO, "cmp-station: " + printable(text) + '\n');
    }
    void show(const CollectSummary& summary) {
        writer.write(STDERR_FILENO, '\r' + toProgressLine(summary) + "\033[K");
        isWritten = true;
    }
    bool isDue(Collector::Clock::time_point now) {
        const bool isNow = shown && now >= next && !writer.isBusy();
        next = isNow ? now + progressPeriod : next;
        return isNow;
    }
    void clear() {
        if (std::exchange(isWritten, false)) {
            writer.write(STDERR_FILENO, "\r\033[K");
        }
    }
    void finish() {
        clear();
        writer.finish();
    }

  private:
    TextWriter writer;
    const bool shown;
    bool isWritten = false;
    Collector::Clock::time_point next;
};

/// While the broker is waited for, a stop request ends the program as it does any other: what isn't
/// acknowledged is given again. All else is brought to its end.
class InterruptedSource final : public BatchSource {
  public:
    InterruptedSource(std::unique_ptr<BatchSource> from, StopSignal& by)
        : source(std::move(from)), stop(by) {
        stop.setPatience(patience);
    }
    std::vector<StoredBatch> fetch(std::size_t most, std::chrono::milliseconds wait) override {
        const Wait waiting(stop);
        return source->fetch(most, std::min(wait, longestFetch));
    }
    std::optional<Position> askPosition() override {
        const Wait waiting(stop);
        return source->askPosition();
    }
    std::optional<StoredBatch> find(const std::string& subject, std::uint64_t sequence) override {
        const Wait waiting(stop);
        return source->find(subject, sequence);
    }
    void acknowledge(const StoredBatch& batch) override { source->acknowledge(batch); }
    bool isServed() const override { return source->isServed(); }
    std::vector<std::string> takeTexts() override { return source->takeTexts(); }

  private:
    /// Short beside the patience: the end is to be a tidy one while the broker is well.
    static constexpr auto longestFetch = std::chrono::milliseconds(150);

    struct Wait {
        explicit Wait(StopSignal& request) : stop(request) {
            stop.setPatience(StopSignal::usualPatience);
        }
        ~Wait() { stop.setPatience(patience); }
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;
        StopSignal& stop;
    };

    const std::unique_ptr<BatchSource> source;
    StopSignal& stop;
};

std::string nameOf(const std::string& token) {
    return fromToken(token).value_or(token);
}

void print(const CollectArguments& arguments, const CollectSummary& summary) {
    if (arguments.json) {
        printResult(toJson(summary));
    } else if (!arguments.quiet) {
        for (const std::string& line : toTable(summary)) {
            printResult(line + '\n');
        }
    }
}

ExitCode collect(const CollectArguments& arguments, StopSignal& stop) {
    const NatsOptions brokers = readNatsOptions(arguments.nats, "SERVERS");
    Collector::Options options;
    for (const std::string& ending : arguments.endings) {
        if (std::ranges::count(options.recordings.endings, ending) == 0) {
            options.recordings.endings.push_back(ending);
        }
    }
    if (options.recordings.endings.empty()) {
        options.recordings.endings.emplace_back(".pcapng");
    }
    if (!arguments.from.empty()) {
        options.recordings.from = parseUtc(arguments.from);
    }
    options.stations = arguments.stations;
    options.follows = arguments.follows;
    options.nameOf = nameOf;
    const auto module = loadFleetModule();
    const CollectFolder folder(arguments.folder, {arguments.stream, arguments.durable,
                                                  arguments.stations, arguments.from});
    InterruptedSource source(module->openBatches(brokers, {arguments.stream, folder.getDurable(),
                                                           options.recordings.from}),
                             stop);
    CollectView view(arguments.quiet);
    Collector collector(source, folder, options,
                        [&view](const std::string& text) { view.report(text); });
    std::string failure;
    bool isMore = true;
    try {
        while (isMore && !stop.isRequested()) {
            isMore = collector.step();
            if (const auto now = Collector::Clock::now(); view.isDue(now)) {
                view.show(collector.summarize());
            }
        }
    } catch (const UserError& error) {
        failure = error.what();
    }
    stop.keepSecond();
    collector.finish([&stop] {
        stop.isRequested();
        return !stop.isRequestedTwice();
    });
    view.finish();
    const CollectSummary summary = collector.summarize();
    print(arguments, summary);
    if (!failure.empty()) {
        throw UserError(ExitCode::Failed, failure);
    }
    if (isMore && !arguments.follows) {
        throw UserError(ExitCode::Failed,
                        "stopped before all was collected; the same command goes on from there");
    }
    return summary.hasLost() ? ExitCode::Failed : ExitCode::Good;
}

CLI::Validator isEnding() {
    return {[](const std::string& text) {
                const auto formats = getRecordingFormats();
                return std::ranges::find(formats, text, &RecordingFormat::ending) != formats.end()
                           ? std::string()
                           : fmt::format("{} is no format; there are {}", text,
                                         describeRecordingFormats());
            },
            ""};
}

CLI::Validator isUtc() {
    return require([](const std::string& text) { return parseUtc(text).has_value(); },
                   "{} is no time; give UTC as 2026-01-31T12:00:00Z");
}

/// As the broker takes it.
CLI::Validator isConsumerName() {
    constexpr std::size_t longest = 200;
    return require(
        [](const std::string& text) {
            return !text.empty() && text.size() <= longest && toToken(text) == text;
        },
        "a consumer's name is of letters, digits, - and _");
}

}  // namespace

void addCollectCommand(CLI::App& app, Command& chosen) {
    auto arguments = std::make_shared<CollectArguments>();
    CLI::App* const command = app.add_subcommand("collect", collectAbout);
    command->footer(collectExamples);
    addNatsServers(*command, arguments->nats);
    command->add_option("--out", arguments->folder, "Where recordings go; made if it isn't there")
        ->type_name("DIR")
        ->check(notEmpty())
        ->required();
    command
        ->add_option("--station", arguments->stations,
                     "Take stations of this name only, in which * and ? may be anything")
        ->type_name("GLOB")
        ->check(isUtf8())
        ->check(notEmpty());
    command
        ->add_option("--from", arguments->from,
                     "Leave out messages from before TIME, in UTC as 2026-01-31T12:00:00Z")
        ->type_name("TIME")
        ->check(isUtc());
    addRepeated(*command, "--format", arguments->endings, "ENDING",
                "Format of the recordings, .pcapng by default; may be given again. There are " +
                    describeRecordingFormats())
        ->check(isEnding());
    command->add_flag("--follow", arguments->follows,
                      "Go on with what comes in, until Ctrl-C or SIGTERM");
    command
        ->add_option("--durable", arguments->durable,
                     "Name of the consumer that the broker remembers what was collected by; one of "
                     "DIR's own by default")
        ->type_name("NAME")
        ->check(isConsumerName());
    command
        ->add_option("--stream-name", arguments->stream,
                     fmt::format("Name of the stream, {} by default", defaultStreamName))
        ->type_name("NAME")
        ->check(isConsumerName());
    addNatsOptions(*command, arguments->nats);
    command->add_flag("--json", arguments->json, "Print one JSON object on standard output");
    command->add_flag("--quiet", arguments->quiet, "Print neither progress nor a table");
    onChosen(*command, chosen, [arguments](StopSignal& stop) { return collect(*arguments, stop); });
}

}  // namespace station
