#include <dlfcn.h>
#include <gmock/gmock.h>

#include "core/registry_store.h"
#include "host/host_error.h"
#include "host/host_variant.h"
#include "plugin/identity.h"
#include "plugin/module.h"
#include "tests/support/temporary_folder.h"

namespace {

/// The component as a host has it: a file, of which it knows the names of functions.
class ModuleTest : public testing::Test {
  protected:
    void SetUp() override {
        module = ::dlopen(CMP_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        for (const char* name : {"DllRegisterServer", "DllUnregisterServer", "DllInstall"}) {
            ASSERT_NE(::dlsym(module, name), nullptr) << name;
        }
        getClassObject =
            reinterpret_cast<decltype(&DllGetClassObject)>(::dlsym(module, "DllGetClassObject"));
        canUnloadNow =
            reinterpret_cast<decltype(&DllCanUnloadNow)>(::dlsym(module, "DllCanUnloadNow"));
        ASSERT_TRUE(getClassObject != nullptr && canUnloadNow != nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(canUnloadNow(), 0);
        ::dlclose(module);
    }
    CountedRef<HostClassFactory> makeFactory() {
        void* made = nullptr;
        EXPECT_EQ(getClassObject(PluginIdentity::classId, HostClassFactory::id, &made), 0);
        return CountedRef<HostClassFactory>::adopt(static_cast<HostClassFactory*>(made));
    }

    void* module = nullptr;
    decltype(&DllGetClassObject) getClassObject = nullptr;
    decltype(&DllCanUnloadNow) canUnloadNow = nullptr;
};

TEST_F(ModuleTest, FactoryMakesPluginsAndTheModuleStaysWhileTheyLive) {
    EXPECT_EQ(canUnloadNow(), 0);
    auto factory = makeFactory();
    ASSERT_TRUE(factory);
    EXPECT_EQ(canUnloadNow(), 1);
    void* made = nullptr;
    ASSERT_EQ(factory->createInstance(nullptr, IPlugin3::id, &made), 0);
    auto plugin = CountedRef<IPlugin3>::adopt(static_cast<IPlugin3*>(made));
    factory.reset();
    EXPECT_EQ(canUnloadNow(), 1);
    CountedRef<IPlugin4> events;
    EXPECT_EQ(plugin.queryTo(events), 0);
    HostVariant result;
    EXPECT_EQ(events->onEvent(178, {}, &result), 0);
    EXPECT_EQ(result.uint32, 3U);
    events.reset();
    plugin.reset();
    EXPECT_EQ(canUnloadNow(), 0);
    factory = makeFactory();
    factory->lockServer(1);  // any value but zero
    factory.reset();
    EXPECT_EQ(canUnloadNow(), 1);
    makeFactory()->lockServer(hostFalse);
}

TEST_F(ModuleTest, AnyValueButZeroInstalls) {
    const TemporaryFolder folder;
    const RegistryStore store(folder.path());
    setenv("KESTROVA_REGISTRY", folder.path().c_str(), 1);
    const auto install = reinterpret_cast<decltype(&DllInstall)>(::dlsym(module, "DllInstall"));
    for (const HostBool add : {HostBool{1}, hostFalse, hostTrue}) {
        EXPECT_EQ(install(add, L"machine"), 0);
        EXPECT_EQ(store.read("SOFTWARE\\Kestrova\\Plugins\\Cmp").has_value(), add != 0);
    }
}

}  // namespace
