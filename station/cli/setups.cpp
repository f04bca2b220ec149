#include "station/cli/setups.h"

#include "station/errors.h"
#include "station/terminal_text.h"

namespace station {

namespace {

std::unique_ptr<Session> open(SessionOptions options, const std::string& setup, bool findsLosses) {
    auto session = std::make_unique<Session>(std::move(options));
    if (setup.empty()) {
        return session;
    }
    try {
        const SetupFile file(setup);
        session->open(file);
        if (findsLosses) {
            session->report(file, session->findLosses());
        }
        return session;
    } catch (const FileError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    } catch (const PluginError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    }
}

SessionOptions sessionOptions(const std::string& plugin, double sampleRate) {
    SessionOptions options;
    options.plugin = plugin;
    options.sampleRate = sampleRate;
    options.onError = [](const std::string& text) { printMessage(text); };
    return options;
}

}  // namespace

std::unique_ptr<Session> openSession(const std::string& plugin, const std::string& setup,
                                     double sampleRate) {
    return open(sessionOptions(plugin, sampleRate), setup, true);
}

/// A change costs no more passes of documents than it needs. Only if what comes out isn't all that
/// was read, another session says what of that isn't the change's doing.
void editSetup(const std::string& plugin, const std::string& setup,
               const std::function<void(Session&)>& change) {
    const SetupFile file(setup);
    const auto options = sessionOptions(plugin, MasterClock::defaultSampleRate);
    const auto session = open(options, setup, false);
    change(*session);
    session->save(file, [&] {
        auto quiet = options;  // the first session has said what it says
        quiet.onError = {};
        session->report(file, open(quiet, setup, false)->findLosses());
    });
}

}  // namespace station
