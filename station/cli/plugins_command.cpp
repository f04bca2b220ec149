#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "core/trusted_path.h"
#include "host/plugin.h"
#include "station/cli/commands.h"
#include "station/errors.h"
#include "station/session/plugin_module.h"
#include "station/session/registered_plugins.h"
#include "station/terminal_text.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* about =
    R"(Lists the registered plug-ins, or registers one or takes one out.

A plug-in is found for this user before all users. Registering for all users needs the right to
write below /usr/local/share; --user needs none. A plug-in that others than you and root could
change is neither registered nor loaded.)";

constexpr const char* examples = R"(
Examples:
  cmp-station plugins
  cmp-station plugins --register build/release/bin/cmp_plugin.so --user
  sudo cmp-station plugins --register /usr/local/lib/cmp/cmp_plugin.so
  cmp-station plugins --unregister build/release/bin/cmp_plugin.so --user)";

struct PluginsOptions {
    std::string add;
    std::string remove;
    bool user = false;
    bool json = false;
};

bool isRegistered(const fs::path& module, bool forUser) {
    const auto plugins = registeredPlugins();
    return std::any_of(plugins.begin(), plugins.end(), [&](const RegisteredPlugin& plugin) {
        std::error_code error;
        return plugin.forUser == forUser && fs::equivalent(plugin.module, module, error);
    });
}

RegistryStore storeOf(bool forUser) {
    return forUser ? RegistryStore::perUser() : RegistryStore::perMachine();
}

std::string whereItStands(bool forUser) {
    return storeOf(forUser).getFolder().string();
}

/// The module doesn't tell that it left the store alone.
void requireStore(bool forUser) {
    const std::string refusal = storeOf(forUser).refusal("SOFTWARE\\Kestrova\\Plugins");
    if (!refusal.empty()) {
        throw UserError(ExitCode::Failed, "the registered plug-ins can't be changed: " + refusal);
    }
}

/// The module doesn't tell whether it could write; what is there afterwards does.
void registerModule(const fs::path& module, bool forUser) {
    requireStore(forUser);
    const std::string distrust = reasonForDistrust(fs::absolute(module));
    if (!distrust.empty()) {
        throw UserError(ExitCode::Failed,
                        fmt::format("{} isn't registered, as it would not be loaded: {}",
                                    module.string(), distrust));
    }
    PluginModule(module).registerPlugin(forUser);
    if (!isRegistered(module, forUser)) {
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} could not be registered in {}: check the permissions there{}",
                        module.string(), whereItStands(forUser),
                        forUser ? "" : ", use sudo, or register it for yourself with --user"));
    }
}

void unregisterModule(const fs::path& module, bool forUser) {
    requireStore(forUser);
    PluginModule(module).unregisterPlugin(forUser);
    if (isRegistered(module, forUser)) {
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} is still registered in {}: check the permissions there{}",
                        module.string(), whereItStands(forUser), forUser ? "" : ", or use sudo"));
    }
}

std::string toTable(const std::vector<RegisteredPlugin>& plugins) {
    if (plugins.empty()) {
        return "No plug-in is registered. Register one with: cmp-station plugins --register FILE\n";
    }
    std::string text;
    for (const RegisteredPlugin& plugin : plugins) {
        if (plugin.classId.empty()) {
            text += fmt::format("{}: not loaded: {}\n", plugin.key, plugin.refusal);
            continue;
        }
        std::error_code error;
        const bool there = fs::exists(plugin.module, error);
        text += fmt::format("{} {} ({}, {}), for {}\n  {}\n  class {}\n  module {}{}\n",
                            plugin.name, plugin.version, plugin.group, plugin.vendor,
                            plugin.forUser ? "this user" : "all users", plugin.description,
                            plugin.classId, plugin.module.string(), there ? "" : " (not there)");
        if (!plugin.refusal.empty()) {
            text += fmt::format("  not loaded: {}\n", plugin.refusal);
        }
    }
    return text;
}

std::string toJson(const std::vector<RegisteredPlugin>& plugins) {
    auto list = nlohmann::ordered_json::array();
    for (const RegisteredPlugin& plugin : plugins) {
        list.push_back({{"key", plugin.key},
                        {"name", plugin.name},
                        {"group", plugin.group},
                        {"vendor", plugin.vendor},
                        {"version", plugin.version},
                        {"description", plugin.description},
                        {"classId", plugin.classId},
                        {"module", plugin.module.string()},
                        {"user", plugin.forUser},
                        {"refusal", plugin.refusal}});
    }
    return station::toText(list);
}

ExitCode plugins(const PluginsOptions& options) {
    try {
        if (!options.add.empty()) {
            registerModule(options.add, options.user);
        }
        if (!options.remove.empty()) {
            unregisterModule(options.remove, options.user);
        }
    } catch (const PluginError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    }
    if (const std::string text = passedOverText(); !text.empty()) {
        printMessage(text);
    }
    const auto found = registeredPlugins();
    printResult(options.json ? toJson(found) : printableLines(toTable(found)));
    return ExitCode::Good;
}

}  // namespace

void addPluginsCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PluginsOptions>();
    CLI::App* const command = app.add_subcommand("plugins", about);
    command->footer(examples);
    auto* const add =
        command->add_option("--register", options->add, "Register this module")->type_name("FILE");
    command->add_option("--unregister", options->remove, "Take this module out")
        ->type_name("FILE")
        ->excludes(add);
    command->add_flag("--user", options->user, "For this user and not for all");
    command->add_flag("--json", options->json, "List as JSON");
    command->callback(
        [options, &chosen] { chosen = [options](StopSignal&) { return plugins(*options); }; });
}

}  // namespace station
