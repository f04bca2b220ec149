#include <csignal>
#include <exception>
#include <sstream>

#include "core/standard_descriptors.h"
#include "station/cli/commands.h"
#include "station/permission.h"
#include "station/terminal_text.h"

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
  cmp-station dump stored.pcap --count 10

Exit codes: 0 good, 1 failure or loss while running, 2 wrong use, 3 unreadable input,
4 not allowed to capture.)";

int execute(int argc, char** argv) {
    CLI::App app{"Receives CAN, CAN FD and LIN traffic from Ethernet capture modules.",
                 "cmp-station"};
    app.set_version_flag("--version", "cmp-station " CMP_VERSION);
    app.footer(examples);
    app.require_subcommand(1);
    station::Command command;
    station::addRunCommand(app, command);
    station::addConvertCommand(app, command);
    station::addDumpCommand(app, command);
    station::addGuiCommand(app, command);
    station::addPluginsCommand(app, command);
    station::addSetupCommand(app, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {  // it is asked for help
            std::ostringstream answer;
            app.exit(error, answer, answer);
            station::printResult(answer.str());
            return 0;
        }
        throw station::UserError(error.what() +
                                 std::string("; \"cmp-station --help\" tells how it is used"));
    }
    // A recording that outgrows a limit on file sizes is to fail like one on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    station::StopSignal stop;
    return static_cast<int>(command(stop));
}

}  // namespace

int main(int argc, char** argv) {
    holdStandardDescriptors();
    station::keepRightsToItself();
    try {
        return execute(argc, argv);
    } catch (const station::UserError& error) {
        station::printMessage(error);
        return static_cast<int>(error.getCode());
    } catch (const std::exception& error) {
        station::printMessage(error.what());
        return static_cast<int>(station::ExitCode::Failed);
    }
}
