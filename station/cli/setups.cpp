#include "station/cli/setups.h"

#include "station/errors.h"
#include "station/terminal_text.h"

namespace station {

std::unique_ptr<Session> openSession(const std::string& plugin, const std::string& setup,
                                     double sampleRate) {
    SessionOptions options;
    options.plugin = plugin;
    options.sampleRate = sampleRate;
    options.onError = [](const std::string& text) { printMessage(text); };
    auto session = std::make_unique<Session>(std::move(options));
    if (setup.empty()) {
        return session;
    }
    try {
        session->open(SetupFile(setup));
        return session;
    } catch (const FileError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    } catch (const PluginError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    }
}

}  // namespace station
