#include "station/cli/command_line.h"
#include "station/program.h"

int main(int argc, char** argv) {
    return station::runProgram([&] { return station::executeCommandLine(argc, argv); });
}
