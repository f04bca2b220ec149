#include <memory>

#include "core/performance_counter.h"
#include "station/cli/commands.h"
#include "station/cli/nats_options.h"
#include "station/fleet/fleet_module.h"
#include "station/fleet/fleet_status.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* fleetAbout = "What the stations of a stream say of themselves.";

constexpr const char* statusAbout =
    R"(Shows the stations that stream to a broker, each with its session, when it was last heard, messages a
second, what waits in its spool for the broker, and what it lost. One that wasn't heard for ten seconds is
marked as stale.)";

constexpr const char* fleetExamples = R"(
Examples:
  cmp-station fleet status nats://broker
  cmp-station fleet status nats://broker1,broker2,broker3 --json)";

struct StatusArguments {
    NatsArguments nats;
    bool json = false;
};

ExitCode showStatus(const StatusArguments& arguments) {
    const NatsOptions brokers = readNatsOptions(arguments.nats, "SERVERS");
    const auto heartbeats = loadFleetModule()->readHeartbeats(brokers);
    const auto stations = readStatus(heartbeats, realNanoseconds());
    if (arguments.json) {
        printResult(toJson(stations));
        return ExitCode::Good;
    }
    for (const std::string& line : toTable(stations)) {
        printResult(line + '\n');
    }
    if (stations.empty()) {
        printMessage("no station has ever streamed to this broker");
    }
    return ExitCode::Good;
}

}  // namespace

void addFleetCommand(CLI::App& app, Command& chosen) {
    auto arguments = std::make_shared<StatusArguments>();
    CLI::App* const fleet = app.add_subcommand("fleet", fleetAbout);
    fleet->require_subcommand(1);
    CLI::App* const command = fleet->add_subcommand("status", statusAbout);
    command->footer(fleetExamples);
    addNatsServers(*command, arguments->nats);
    addNatsOptions(*command, arguments->nats);
    command->add_flag("--json", arguments->json, "Print one JSON object on standard output");
    onChosen(*command, chosen, [arguments](StopSignal&) { return showStatus(*arguments); });
}

}  // namespace station
