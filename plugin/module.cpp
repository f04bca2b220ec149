#include "plugin/module.h"

#include <dlfcn.h>
#include <wchar.h>

#include <atomic>
#include <filesystem>
#include <new>

#include "core/module_object.h"
#include "plugin/counted_object.h"
#include "plugin/identity.h"
#include "plugin/plugin.h"
#include "plugin/registration.h"

// The booleans that come here are C's: any value but zero is true, unlike in the host's interfaces.

namespace {

std::atomic<std::uint32_t> serverLocks{0};
std::atomic<bool> perUser{false};

RegistryStore store() {
    return perUser ? RegistryStore::perUser() : RegistryStore::perMachine();
}

/// The file that this code was loaded from.
std::filesystem::path modulePath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&DllRegisterServer), &info) == 0) {
        return {};
    }
    std::error_code error;
    return std::filesystem::absolute(info.dli_fname, error);
}

class PluginFactory final : public HostClassFactory, private CountedObject {
  public:
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        if (interfaceId != HostClassFactory::id && interfaceId != HostObject::id) {
            *result = nullptr;
            return HostCode::noInterface;
        }
        *result = static_cast<HostClassFactory*>(this);
        addRef();
        return HostCode::success;
    }
    std::uint32_t addRef() override { return addReference(); }
    std::uint32_t release() override {
        const std::uint32_t left = dropReference();
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HostResult createInstance(HostObject* outer, const InterfaceId& interfaceId,
                              void** result) override {
        *result = nullptr;
        if (outer != nullptr && interfaceId != HostObject::id) {
            return HostCode::noAggregation;
        }
        try {
            HostObject* const made = Plugin::create(outer);
            const HostResult answer = made->queryInterface(interfaceId, result);
            made->release();
            return answer;
        } catch (...) {
            return HostCode::outOfMemory;
        }
    }
    HostResult lockServer(HostBool lock) override {
        serverLocks += lock != hostFalse ? 1U : ~0U;
        return HostCode::success;
    }

  private:
    ~PluginFactory() = default;
};

}  // namespace

HostResult DllRegisterServer() {
    Registration::add(store(), modulePath());
    return HostCode::success;  // there is no type library to register
}

HostResult DllUnregisterServer() {
    Registration::remove(store());
    return HostCode::success;
}

HostResult DllInstall(HostBool install, const wchar_t* option) {
    if (option != nullptr && wcscasecmp(option, L"user") == 0) {
        perUser = true;
    }
    if (install == hostFalse) {
        return DllUnregisterServer();
    }
    const HostResult result = DllRegisterServer();
    if (result < 0) {
        DllUnregisterServer();
    }
    return result;
}

HostResult DllGetClassObject(const InterfaceId& classId, const InterfaceId& interfaceId,
                             void** result) {
    *result = nullptr;
    if (classId != PluginIdentity::classId) {
        return HostCode::classNotAvailable;
    }
    auto* const factory = new (std::nothrow) PluginFactory;
    if (factory == nullptr) {
        return HostCode::outOfMemory;
    }
    const HostResult answer = factory->queryInterface(interfaceId, result);
    factory->release();
    return answer;
}

HostResult DllCanUnloadNow() {
    return ModuleObject::count() + serverLocks == 0 ? 0 : 1;
}
