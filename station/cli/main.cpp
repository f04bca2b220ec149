#include "station/cli/commands.h"
#include "station/program.h"

#ifndef CMP_VERSION
#define CMP_VERSION "unknown"
#endif

namespace {

constexpr const char* examples = R"(
Examples:
  cmp-station setup new bench.xml
  cmp-station setup add bench.xml --type "CAN combo" --config-id 5 --name Front
  cmp-station run --setup bench.xml --record drive.pcapng
  cmp-station run --module "CAN combo:5:Front" --module "LIN combo:2" --record drive.pcapng
  cmp-station convert stored.pcap drive.pcapng drive.log
  cmp-station decode drive.pcapng signals.csv --db powertrain.dbc
  cmp-station dump stored.pcap --count 10

Exit codes: 0 good, 1 failure or loss while running, 2 wrong use, 3 unreadable input,
4 not allowed to capture.)";

station::ExitCode execute(int argc, char** argv) {
    CLI::App app{"Receives CAN, CAN FD and LIN traffic from Ethernet capture modules.",
                 "cmp-station"};
    app.set_version_flag("--version", "cmp-station " CMP_VERSION);
    app.footer(examples);
    app.require_subcommand(1);
    station::Command command;
    station::addRunCommand(app, command);
    station::addConvertCommand(app, command);
    station::addDecodeCommand(app, command);
    station::addDumpCommand(app, command);
    station::addExtcapCommand(app, command);
    station::addCollectCommand(app, command);
    station::addFleetCommand(app, command);
    station::addGuiCommand(app, command);
    station::addPluginsCommand(app, command);
    station::addSetupCommand(app, command);
    station::addStreamCommand(app, command);
    if (!station::readCommandLine(app, argc, argv, "cmp-station --help")) {
        return station::ExitCode::Good;
    }
    station::StopSignal stop;
    return command(stop);
}

}  // namespace

int main(int argc, char** argv) {
    return station::runProgram([&] { return execute(argc, argv); });
}
