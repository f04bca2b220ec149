#include "plugin/registration.h"

#include <string>

#include "core/string_helper.h"
#include "plugin/identity.h"

namespace Registration {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

std::string pluginKey() {
    return std::string(PluginIdentity::pluginsKey) + '\\' + PluginIdentity::keyName;
}

std::string classKey() {
    return "SOFTWARE\\Classes\\CLSID\\" + StringHelper::ToUtf8(PluginIdentity::classIdText());
}

}  // namespace

void add(const RegistryStore& store, const std::filesystem::path& module) {
    constexpr std::size_t longestPath = 2048;
    store.write(pluginKey(), PluginIdentity::values());
    if (!store.write(classKey(), {{L"", L"Plugin class"}})) {
        return;
    }
    store.write(classKey() + "\\InprocServer32",
                {{L"", StringHelper::ToWide(module.string()).substr(0, longestPath)},
                 {L"ThreadingModel", L"Apartment"}});
}

void remove(const RegistryStore& store) {
    store.remove(pluginKey());
    store.remove(classKey());
}

}  // namespace Registration
