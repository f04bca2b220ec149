#include "station/cli/setups.h"

#include <unistd.h>

#include "station/exit_codes.h"
#include "station/text_writer.h"

namespace station {

std::unique_ptr<Bench> openBench(const std::string& plugin, const std::string& setup,
                                 double sampleRate) {
    BenchOptions options;
    options.plugin = plugin;
    options.sampleRate = sampleRate;
    options.onError = [](const std::string& text) {
        writeText(STDERR_FILENO, "cmp-station: " + text + '\n');
    };
    auto bench = std::make_unique<Bench>(std::move(options));
    if (setup.empty()) {
        return bench;
    }
    try {
        bench->open(SetupFile(setup));
        return bench;
    } catch (const SetupFileError& error) {
        throw CommandError(ExitCode::Unreadable, error.what());
    } catch (const PluginError& error) {
        throw CommandError(ExitCode::Unreadable, error.what());
    }
}

}  // namespace station
