#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/trusted_path.h"
#include "station/cli/commands.h"
#include "station/permission.h"

namespace station {
namespace {

constexpr const char* guiAbout =
    R"(Opens the desktop: modules and channels, measurements, live values.

It is a program of its own, cmp-station-gui, beside this one. Where this one has the right to
capture and its user hasn't (setcap), the desktop inherits it, and of the environment only what names
display, home folder and language.)";

struct GuiOptions {
    std::string setup;
    std::string plugin;
    std::string sampleRate;
    std::string serve;
};

/// Becomes the desktop program.
ExitCode start(const GuiOptions& options, StopSignal& stop) {
    std::error_code error;
    const std::filesystem::path program =
        std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "cmp-station-gui";
    const TrustedPath file(program, TrustedUsers::UserAndProgram);
    if (!file.getRefusal().empty()) {
        throw UserError(ExitCode::Failed,
                        "the desktop program isn't started: " + file.getRefusal());
    }
    if (!file.isFile()) {
        throw UserError(ExitCode::Failed, "the desktop program, " + program.string() +
                                              ", isn't there: install it beside cmp-station");
    }
    std::vector<std::string> words{program.string()};
    const auto add = [&](const char* option, const std::string& value) {
        if (!value.empty()) {
            words.push_back(option + value);  // one word: a value may look like an option
        }
    };
    add("--setup=", options.setup);
    add("--plugin=", options.plugin);
    add("--sample-rate=", options.sampleRate);
    add("--serve=", options.serve);
    std::vector<char*> arguments(words.size() + 1, nullptr);
    std::transform(words.begin(), words.end(), arguments.begin(),
                   [](std::string& word) { return word.data(); });
    passOnCaptureRight();
    stop.letGo();
    ::execv(file.getResolved().c_str(), arguments.data());
    throw UserError(ExitCode::Failed, "can't start the desktop program " + program.string() + ": " +
                                          std::strerror(errno));
}

}  // namespace

void addGuiCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<GuiOptions>();
    CLI::App* const command = app.add_subcommand("gui", guiAbout);
    command->add_option("--setup", options->setup, "The setup to open")->type_name("FILE");
    command->add_option("--plugin", options->plugin, "The plug-in's module")->type_name("FILE");
    command
        ->add_option("--serve", options->serve,
                     "Let other programs read the CAN channels while they are measured, as of run")
        ->type_name("socketcand://ADDRESS:PORT");
    command
        ->add_option("--sample-rate", options->sampleRate,
                     "Samples a second of the acquisition, 1000 by default")
        ->type_name("N");
    onChosen(*command, chosen, [options](StopSignal& stop) { return start(*options, stop); });
}

}  // namespace station
