#include "station/cli/command_line.h"

#include "station/cli/commands.h"
#include "station/program.h"

#ifndef CMP_VERSION
#define CMP_VERSION "unknown"
#endif

namespace station {
namespace {

constexpr const char* programExamples = R"(
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

}  // namespace

ExitCode executeCommandLine(int argc, char** argv) {
    CLI::App app{"Receives CAN, CAN FD and LIN traffic from Ethernet capture modules.",
                 "cmp-station"};
    app.set_version_flag("--version", "cmp-station " CMP_VERSION);
    app.footer(programExamples);
    app.require_subcommand(1);
    Command command;
    addRunCommand(app, command);
    addConvertCommand(app, command);
    addDecodeCommand(app, command);
    addDumpCommand(app, command);
    addExtcapCommand(app, command);
    addCollectCommand(app, command);
    addFleetCommand(app, command);
    addGuiCommand(app, command);
    addPluginsCommand(app, command);
    addSetupCommand(app, command);
    addStreamCommand(app, command);
    if (!readCommandLine(app, argc, argv, "cmp-station --help")) {
        return ExitCode::Good;
    }
    StopSignal stop;
    return command(stop);
}

}  // namespace station
