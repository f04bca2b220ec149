#include "station/session/plugin_module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "station/errors.h"
#include "station/session/loaded_module.h"

namespace station {
namespace {

using GetClassObject = HostResult (*)(const InterfaceId&, const InterfaceId&, void**);
using Install = HostResult (*)(HostBool, const wchar_t*);
using CanUnloadNow = HostResult (*)();

void check(HostResult result, const std::filesystem::path& path, const char* what) {
    if (result < 0) {
        throw PluginError(fmt::format("{}: {}: it answered 0x{:08X}", path.string(), what,
                                      static_cast<std::uint32_t>(result)));
    }
}

}  // namespace

PluginModule::PluginModule(const std::filesystem::path& file, TrustedUsers trusted)
    : path(file), handle(loadModule(file, trusted, "plug-in")) {}

PluginModule::~PluginModule() {
    const auto canUnloadNow = reinterpret_cast<CanUnloadNow>(::dlsym(handle, "DllCanUnloadNow"));
    if (canUnloadNow != nullptr && canUnloadNow() == HostCode::success) {
        ::dlclose(handle);
    }
}

template <typename Function>
Function PluginModule::find(const char* name) const {
    void* const symbol = ::dlsym(handle, name);
    if (symbol == nullptr) {
        throw PluginError(
            fmt::format("{} is no plug-in: it doesn't export {}", path.string(), name));
    }
    return reinterpret_cast<Function>(symbol);
}

CountedRef<HostObject> PluginModule::create(const InterfaceId& classId) const {
    CountedRef<HostClassFactory> factory;
    void* found = nullptr;
    check(find<GetClassObject>("DllGetClassObject")(classId, HostClassFactory::id, &found), path,
          "it doesn't have the plug-in's class");
    factory = CountedRef<HostClassFactory>::adopt(static_cast<HostClassFactory*>(found));
    check(factory->createInstance(nullptr, HostObject::id, &found), path,
          "the plug-in can't be made");
    return CountedRef<HostObject>::adopt(static_cast<HostObject*>(found));
}

void PluginModule::install(bool add, bool forUser) const {
    check(find<Install>("DllInstall")(toHostBool(add), forUser ? L"user" : nullptr), path,
          add ? "it can't be registered" : "it can't be removed");
}

void PluginModule::registerPlugin(bool forUser) const {
    install(true, forUser);
}

void PluginModule::unregisterPlugin(bool forUser) const {
    install(false, forUser);
}

}  // namespace station
