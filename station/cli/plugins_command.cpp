#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "core/string_helper.h"
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

constexpr const char* pluginsAbout =
    R"(Lists the registered plug-ins, or registers or removes one.

A plug-in is found for this user before all users. Registering for all users needs the right to
write below /usr/local/share; --user needs none. A plug-in that others than you and root could
change is neither registered nor loaded. With a capability of its own (setcap) this program uses
only what root alone can change, and nothing that is registered for a user.)";

constexpr const char* pluginsExamples = R"(
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

/// The entry of that file, which may be gone.
std::optional<RegisteredPlugin> findRegistered(const fs::path& module, bool forUser) {
    for (RegisteredPlugin& plugin : registeredPlugins()) {
        std::error_code error;
        if (plugin.forUser == forUser && !plugin.module.empty() &&
            (fs::equivalent(plugin.module, module, error) ||
             plugin.module == fs::weakly_canonical(fs::absolute(module), error))) {
            return std::move(plugin);
        }
    }
    return std::nullopt;
}

RegistryStore storeOf(bool forUser) {
    return forUser ? RegistryStore::perUser() : RegistryStore::perMachine();
}

std::string describeStore(bool forUser) {
    return storeOf(forUser).getFolder().string();
}

/// The module doesn't report that it left the store alone.
void requireStore(bool forUser) {
    const std::string refusal = storeOf(forUser).refusal(registeredPluginsKey);
    if (!refusal.empty()) {
        throw UserError(ExitCode::Failed, "the registered plug-ins can't be changed: " + refusal);
    }
}

/// As long as an entry can hold; what isn't UTF-8 would become an empty one.
void requireRegistrable(const std::string& path) {
    constexpr std::size_t longestPath = 2048;
    const std::wstring text = Kestrova::Utils::Kcom::StringHelper::ToWide(path);
    if (text.empty() || text.size() > longestPath) {
        throw UserError(
            ExitCode::WrongUse,
            fmt::format("{} can't be registered: its path {}", path,
                        text.empty() ? "isn't UTF-8" : "is longer than 2048 characters"));
    }
}

/// The module doesn't report whether it could write: what is there afterwards shows it.
void registerModule(const fs::path& module, bool forUser) {
    requireStore(forUser);
    const TrustedPath file(fs::absolute(module), TrustedUsers::User);
    if (!file.getRefusal().empty()) {
        throw UserError(ExitCode::Failed,
                        fmt::format("{} isn't registered, as it would not be loaded: {}",
                                    module.string(), file.getRefusal()));
    }
    requireRegistrable(file.isFile() ? file.getResolved().string() : module.string());
    PluginModule(module, TrustedUsers::User).registerPlugin(forUser);
    if (!findRegistered(module, forUser)) {
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} could not be registered in {}: check the permissions there{}",
                        module.string(), describeStore(forUser),
                        forUser ? "" : ", use sudo, or register it for yourself with --user"));
    }
}

/// By the module itself, or without it where it is gone or may not be loaded.
void removeEntry(const RegisteredPlugin& plugin) {
    try {
        PluginModule(plugin.module, TrustedUsers::User).unregisterPlugin(plugin.forUser);
    } catch (const PluginError&) {
        storeOf(plugin.forUser).remove(fmt::format("{}\\{}", registeredPluginsKey, plugin.key));
    }
}

void unregisterModule(const fs::path& module, bool forUser) {
    requireStore(forUser);
    const auto plugin = findRegistered(module, forUser);
    if (!plugin) {
        throw UserError(ExitCode::Failed,
                        fmt::format("{} isn't registered {}; \"cmp-station plugins\" lists what is",
                                    module.string(), forUser ? "for this user" : "for all users"));
    }
    removeEntry(*plugin);
    if (findRegistered(module, forUser)) {
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} is still registered in {}: check the permissions there{}",
                        module.string(), describeStore(forUser), forUser ? "" : ", or use sudo"));
    }
}

std::string toTable(const std::vector<RegisteredPlugin>& plugins) {
    if (plugins.empty()) {
        return "No plug-in is registered. Register one with: cmp-station plugins --register FILE\n";
    }
    std::string text;
    for (const RegisteredPlugin& plugin : plugins) {
        if (plugin.classId.empty()) {
            text += fmt::format("{}: not loaded: {}\n", printable(plugin.key),
                                printable(plugin.refusal));
            continue;
        }
        std::error_code error;
        const bool there = fs::exists(plugin.module, error);
        text +=
            fmt::format("{} {} ({}, {}), for {}\n  {}\n  class {}\n  module {}{}\n",
                        printable(plugin.name), printable(plugin.version), printable(plugin.group),
                        printable(plugin.vendor), plugin.forUser ? "this user" : "all users",
                        printable(plugin.description), printable(plugin.classId),
                        printable(plugin.module.string()), there ? "" : " (not there)");
        if (!plugin.refusal.empty()) {
            text += fmt::format("  not loaded: {}\n", printable(plugin.refusal));
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
    printResult(options.json ? toJson(found) : toTable(found));
    return ExitCode::Good;
}

}  // namespace

void addPluginsCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PluginsOptions>();
    CLI::App* const command = app.add_subcommand("plugins", pluginsAbout);
    command->footer(pluginsExamples);
    auto* const add = command->add_option("--register", options->add, "Register this module")
                          ->type_name("FILE")
                          ->check(notEmpty());
    command
        ->add_option("--unregister", options->remove, "Remove this module from the registered ones")
        ->type_name("FILE")
        ->check(notEmpty())
        ->excludes(add);
    command->add_flag("--user", options->user, "For this user and not for all");
    command->add_flag("--json", options->json, "List as JSON");
    onChosen(*command, chosen, [options](StopSignal&) { return plugins(*options); });
}

}  // namespace station
