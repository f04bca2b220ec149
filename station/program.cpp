#include "station/program.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>
#include <sstream>

#include "core/standard_descriptors.h"
#include "station/permission.h"
#include "station/terminal_text.h"

namespace station {

int runProgram(const std::function<ExitCode()>& execute) {
    holdStandardDescriptors();
    keepRightsToItself();
    // A recording that outgrows a limit on file sizes is to fail like one on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    ExitCode code = ExitCode::Failed;
    try {
        code = execute();
    } catch (const UserError& error) {
        printMessage(error);
        code = error.getCode();
    } catch (const std::exception& error) {
        printMessage(error.what());
    }
    return static_cast<int>(code);
}

bool readCommandLine(CLI::App& app, int argc, char** argv, const char* help) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {  // it is asked for help
            std::ostringstream answer;
            app.exit(error, answer, answer);
            printResult(answer.str());
            return false;
        }
        throw UserError(fmt::format("{}; \"{}\" shows how it is used", error.what(), help));
    }
    return true;
}

}  // namespace station
