#include <fmt/format.h>
#include <unistd.h>

#include <memory>

#include "station/cli/commands.h"
#include "station/cli/live_view.h"
#include "station/cli/streaming.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* streamAbout =
    R"(Sends what "run --stream" has left in its spool, and ends when the brokers have all of it, or by
Ctrl-C or SIGTERM. Nothing is measured.)";

constexpr const char* streamExamples = R"(
Examples:
  cmp-station stream nats://broker:4222
  cmp-station stream nats://broker:4222 --station bench-7 --spool /mnt/bench-7/spool)";

constexpr double forEver = 1e9;  // seconds

ExitCode send(const StreamArguments& arguments, StopSignal& stop) {
    const auto stream = openStream(parseStreamSettings(arguments, "SERVERS"));
    LiveView view(LiveView::Form::Nothing, STDERR_FILENO);
    finishStream(*stream, forEver, view, stop);
    view.end();
    const StreamSummary sent = stream->summarize();
    printResult(fmt::format("{} messages sent, {} left in {}\n", sent.acknowledged,
                            sent.backlogMessages, printable(sent.spool)));
    return sent.backlogBytes == 0 && !hasFailed(sent) ? ExitCode::Good : ExitCode::Failed;
}

}  // namespace

void addStreamCommand(CLI::App& app, Command& chosen) {
    auto arguments = std::make_shared<StreamArguments>();
    CLI::App* const command = app.add_subcommand("stream", streamAbout);
    command->footer(streamExamples);
    addNatsServers(*command, arguments->nats);
    addSendingOptions(*command, *arguments);
    onChosen(*command, chosen, [arguments](StopSignal& stop) { return send(*arguments, stop); });
}

}  // namespace station
