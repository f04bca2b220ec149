#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdlib>

#include "host/host_error.h"
#include "host/host_variant.h"
#include "plugin/identity.h"
#include "plugin/module.h"
#include "tests/support/temporary_folder.h"

namespace {

constexpr const char* pluginKey = "SOFTWARE\\Kestrova\\Plugins\\Cmp";

/// The component as a host has it: a file, of which it knows the names of five functions.
class ModuleTest : public testing::Test {
  protected:
    void SetUp() override {
        module = ::dlopen(CMP_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        find(registerServer, "DllRegisterServer");
        find(unregisterServer, "DllUnregisterServer");
        find(install, "DllInstall");
        find(getClassObject, "DllGetClassObject");
        find(canUnloadNow, "DllCanUnloadNow");
        ASSERT_FALSE(HasFailure());
    }
    void TearDown() override {
        if (module != nullptr) {
            EXPECT_EQ(canUnloadNow(), 0);
            ::dlclose(module);
        }
    }
    template <typename Function>
    void find(Function& function, const char* name) {
        function = reinterpret_cast<Function>(::dlsym(module, name));
        EXPECT_NE(function, nullptr) << name;
    }
    CountedRef<HostClassFactory> makeFactory() {
        CountedRef<HostClassFactory> factory;
        void* made = nullptr;
        EXPECT_EQ(getClassObject(PluginIdentity::classId, HostClassFactory::id, &made), 0);
        factory = CountedRef<HostClassFactory>::adopt(static_cast<HostClassFactory*>(made));
        return factory;
    }

    void* module = nullptr;
    decltype(&DllRegisterServer) registerServer = nullptr;
    decltype(&DllUnregisterServer) unregisterServer = nullptr;
    decltype(&DllInstall) install = nullptr;
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
    factory->lockServer(hostTrue);
    factory.reset();
    EXPECT_EQ(canUnloadNow(), 1);
    makeFactory()->lockServer(hostFalse);
}

/// The host can tell the plug-in's exceptions by their type, though both have it for their own.
TEST_F(ModuleTest, ExceptionIsTheHostsToCatch) {
    void* made = nullptr;
    ASSERT_EQ(makeFactory()->createInstance(nullptr, IPlugin3::id, &made), 0);
    const auto plugin = CountedRef<IPlugin3>::adopt(static_cast<IPlugin3*>(made));
    try {
        plugin->onGetData();
        FAIL() << "without a host";
    } catch (const HostCallException& failure) {
        EXPECT_EQ(failure.getCode(), HostCode::invalidPointer);
    }
}

TEST_F(ModuleTest, WhatItDoesNotMakeIsRefusedWithNothing) {
    void* made = this;
    EXPECT_EQ(getClassObject(PluginIdentity::typeLibraryId, HostClassFactory::id, &made),
              HostCode::classNotAvailable);
    EXPECT_EQ(made, nullptr);
    made = this;
    EXPECT_EQ(getClassObject(PluginIdentity::classId, IPlugin3::id, &made), HostCode::noInterface);
    EXPECT_EQ(made, nullptr);
    const auto factory = makeFactory();
    made = this;
    EXPECT_EQ(factory->createInstance(nullptr, HostClassFactory::id, &made), HostCode::noInterface);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(factory->createInstance(factory.get(), IPlugin3::id, &made), HostCode::noAggregation);
    ASSERT_EQ(factory->createInstance(factory.get(), HostObject::id, &made), 0);
    static_cast<HostObject*>(made)->release();
}

/// In one test, as the choice of the user's own entries holds for the rest of the process.
TEST_F(ModuleTest, InstallWritesPerMachineUntilItIsToldToDoSoForTheUser) {
    const TemporaryFolder folder;
    ::setenv("KESTROVA_REGISTRY", (folder.path() / "machine").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (folder.path() / "data").c_str(), 1);
    const auto where = [] {
        const bool machine = RegistryStore::perMachine().read(pluginKey).has_value();
        const bool user = RegistryStore::perUser().read(pluginKey).has_value();
        return std::string(machine ? "machine " : "") + (user ? "user" : "");
    };
    EXPECT_EQ(unregisterServer(), 0);
    for (const wchar_t* const option :
         {static_cast<const wchar_t*>(nullptr), L"", L"users", L"use"}) {
        EXPECT_EQ(install(hostTrue, option), 0);
        EXPECT_EQ(where(), "machine ");
        EXPECT_EQ(install(hostFalse, option), 0);
        EXPECT_EQ(where(), "");
    }
    for (const wchar_t* const option : {L"USER", L"user", L"uSeR"}) {
        EXPECT_EQ(install(hostTrue, option), 0);
        EXPECT_EQ(where(), "user");
        EXPECT_EQ(install(hostFalse, option), 0);
        EXPECT_EQ(where(), "");
    }
    EXPECT_EQ(registerServer(), 0);
    EXPECT_EQ(install(hostTrue, nullptr), 0);
    EXPECT_EQ(where(), "user") << "from then on";
    const std::wstring id = PluginIdentity::classIdText();
    const auto server = RegistryStore::perUser().read(
        "SOFTWARE\\Classes\\CLSID\\" + std::string(id.begin(), id.end()) + "\\InprocServer32");
    ASSERT_TRUE(server);
    EXPECT_EQ(std::filesystem::path(std::get<std::wstring>(server->at(L""))),
              std::filesystem::path(CMP_PLUGIN_FILE));
}

}  // namespace
