#include "station/session/registered_plugins.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/process_rights.h"
#include "core/shell_word.h"
#include "core/string_helper.h"
#include "core/trusted_path.h"
#include "station/errors.h"

namespace station {
namespace {

std::string textOf(const std::optional<RegistryStore::Values>& values, const wchar_t* name) {
    if (values) {
        const auto value = values->find(name);
        if (value != values->end()) {
            if (const auto* text = std::get_if<std::wstring>(&value->second)) {
                return Kestrova::Utils::Kcom::StringHelper::ToUtf8(*text);
            }
        }
    }
    return {};
}

void addPlugins(const RegistryStore& store, bool forUser, std::vector<RegisteredPlugin>& plugins) {
    for (const std::string& key : store.keysBelow(registeredPluginsKey)) {
        const std::string path = fmt::format("{}\\{}", registeredPluginsKey, key);
        const auto values = store.read(path);
        RegisteredPlugin plugin{forUser,
                                key,
                                textOf(values, L"Name"),
                                textOf(values, L"GroupName"),
                                textOf(values, L"Vendor"),
                                textOf(values, L"Version"),
                                textOf(values, L"Description"),
                                textOf(values, L"GUID"),
                                {},
                                store.refusal(path)};
        const std::string server =
            fmt::format("SOFTWARE\\Classes\\CLSID\\{}\\InprocServer32", plugin.classId);
        plugin.module = textOf(store.read(server), L"");
        if (plugin.refusal.empty()) {
            plugin.refusal = store.refusal(server);
        }
        if (plugin.refusal.empty() && !plugin.module.empty()) {
            plugin.refusal = reasonForDistrust(plugin.module);
        }
        plugins.push_back(std::move(plugin));
    }
}

}  // namespace

std::string toText(const InterfaceId& id) {
    const auto& last = id.data4;
    return fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}}}",
                       id.data1, id.data2, id.data3, last[0], last[1], last[2], last[3], last[4],
                       last[5], last[6], last[7]);
}

std::vector<RegisteredPlugin> registeredPlugins() {
    std::vector<RegisteredPlugin> plugins;
    addPlugins(RegistryStore::perUser(), true, plugins);
    addPlugins(RegistryStore::perMachine(), false, plugins);
    return plugins;
}

std::string missingText(const RegisteredPlugin& plugin) {
    return fmt::format(
        "the registered plug-in {} isn't there any more: register another one, or take it out "
        "with cmp-station plugins --unregister {}{}",
        plugin.module.string(), quotedForShell(plugin.module.string()),
        plugin.forUser ? " --user" : "");
}

std::optional<RegisteredPlugin> findPlugin(const InterfaceId& classId,
                                           const std::function<void(const std::string&)>& report) {
    const std::string wanted = toText(classId);
    for (RegisteredPlugin& plugin : registeredPlugins()) {
        if (!plugin.refusal.empty() && (plugin.classId.empty() || plugin.classId == wanted)) {
            throw PluginError(fmt::format(
                "the registered plug-in {} isn't loaded: {}. Change that, or name the "
                "plug-in's file with --plugin FILE",
                plugin.module.empty() ? plugin.key : plugin.module.string(), plugin.refusal));
        }
        if (plugin.classId != wanted) {
            continue;
        }
        std::error_code error;
        if (std::filesystem::exists(plugin.module, error)) {
            return std::move(plugin);
        }
        report(missingText(plugin));
    }
    return std::nullopt;
}

std::string passedOverText() {
    const auto folder = RegistryStore::passedOverForUser();
    std::error_code error;
    if (folder.empty() || !std::filesystem::exists(folder, error)) {
        return {};
    }
    return fmt::format(
        "what is registered in {} isn't looked at, as {}. Register the plug-in for all users, or "
        "name its file with --plugin FILE",
        folder.string(),
        hasMoreRightsThanCaller() ? "this program has more rights than who started it"
                                  : "root takes what root has registered, and nobody else's");
}

}  // namespace station
