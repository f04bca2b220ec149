#include <fmt/format.h>

#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "host/plugin.h"
#include "station/bench/plugin_module.h"
#include "station/bench/registered_plugins.h"
#include "station/cli/commands.h"
#include "station/host/plugin_failure.h"
#include "station/live_view.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* about =
    R"(Lists the registered plug-ins, or registers one or takes one out.

A plug-in is found for this user before all users. Registering for all users needs the right to
write below /usr/local/share; --user needs none.)";

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

std::string whereItStands(bool forUser) {
    const auto store = forUser ? RegistryStore::perUser() : RegistryStore::perMachine();
    return store.getFolder().string();
}

/// The module doesn't tell whether it could write; what is there afterwards does.
void registerModule(const fs::path& module, bool forUser) {
    PluginModule(module).registerPlugin(forUser);
    if (!isRegistered(module, forUser)) {
        throw CommandError(
            ExitCode::Failed,
            fmt::format("{} could not be registered in {}: check the permissions there{}",
                        module.string(), whereItStands(forUser),
                        forUser ? "" : ", use sudo, or register it for yourself with --user"));
    }
}

void unregisterModule(const fs::path& module, bool forUser) {
    PluginModule(module).unregisterPlugin(forUser);
    if (isRegistered(module, forUser)) {
        throw CommandError(
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
        std::error_code error;
        const bool there = fs::exists(plugin.module, error);
        text += fmt::format("{} {} ({}, {}), for {}\n  {}\n  class {}\n  module {}{}\n",
                            plugin.name, plugin.version, plugin.group, plugin.vendor,
                            plugin.forUser ? "this user" : "all users", plugin.description,
                            plugin.classId, plugin.module.string(), there ? "" : " (not there)");
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
                        {"user", plugin.forUser}});
    }
    return list.dump(2) + '\n';
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
        throw CommandError(ExitCode::Unreadable, error.what());
    }
    const auto found = registeredPlugins();
    writeText(STDOUT_FILENO, options.json ? toJson(found) : toTable(found));
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
