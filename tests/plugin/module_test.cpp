#include <dlfcn.h>
#include <unistd.h>

#include "core/finally.h"
#include "core/registry_store.h"
#include "host/host_error.h"
#include "host/host_variant.h"
#include "plugin/identity.h"
#include "plugin/module.h"
#include "plugin/registration.h"
#include "tests/support/temporary_folder.h"

namespace {

constexpr const char* pluginKey = "SOFTWARE\\Kestrova\\Plugins\\Cmp";

/// The component as a host has it: a file, of which it knows the names of functions.
class ModuleTest : public testing::Test {
  protected:
    void SetUp() override {
        module = ::dlopen(CMP_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        ASSERT_TRUE(::dlsym(module, "DllRegisterServer") && ::dlsym(module, "DllUnregisterServer"));
        install = reinterpret_cast<decltype(&DllInstall)>(::dlsym(module, "DllInstall"));
        getClassObject =
            reinterpret_cast<decltype(&DllGetClassObject)>(::dlsym(module, "DllGetClassObject"));
        canUnloadNow =
            reinterpret_cast<decltype(&DllCanUnloadNow)>(::dlsym(module, "DllCanUnloadNow"));
        ASSERT_TRUE(getClassObject != nullptr && canUnloadNow != nullptr && install != nullptr);
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
    decltype(&DllInstall) install = nullptr;
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

TEST_F(ModuleTest, FactoryRefusesWhatItCannotMake) {
    void* made = this;
    EXPECT_EQ(getClassObject(IPlugin3::id, HostObject::id, &made), HostCode::classNotAvailable);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(getClassObject(PluginIdentity::classId, IPlugin3::id, &made), HostCode::noInterface);
    const auto factory = makeFactory();
    EXPECT_EQ(factory->createInstance(nullptr, HostClassFactory::id, &made), HostCode::noInterface);
    EXPECT_EQ(factory->createInstance(factory.get(), IPlugin3::id, &made), HostCode::noAggregation);
    ASSERT_EQ(factory->createInstance(factory.get(), HostObject::id, &made), 0);
    const auto part = CountedRef<HostObject>::adopt(static_cast<HostObject*>(made));
    CountedRef<IPlugin3> plugin;
    CountedRef<HostClassFactory> outer;
    EXPECT_EQ(part.queryTo(plugin), 0);
    EXPECT_EQ(plugin.queryTo(outer), 0) << "a part answers for the whole";
}

TEST_F(ModuleTest, OptionSaysForWhomItIsInstalled) {
    constexpr uid_t ordinary = 65534;  // root's own store is not where the environment says
    const TemporaryFolder folder;
    ::setenv("KESTROVA_REGISTRY", (folder.path() / "machine").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (folder.path() / "user").c_str(), 1);
    const uid_t before = geteuid();
    const bool isRoot = before == 0;
    ASSERT_TRUE(!isRoot ||
                (chown(folder.path().c_str(), ordinary, ordinary) == 0 && seteuid(ordinary) == 0));
    const Finally back([&] { EXPECT_TRUE(!isRoot || seteuid(before) == 0); });
    const RegistryStore machine = RegistryStore::perMachine();
    const RegistryStore user = RegistryStore::perUser();
    EXPECT_EQ(install(hostFalse, nullptr), 0) << "nothing is there to be removed";
    EXPECT_EQ(install(HostBool{1}, L"users"), 0) << "any value but zero installs";
    EXPECT_TRUE(machine.read(pluginKey) && !user.read(pluginKey));
    const std::wstring id = PluginIdentity::classIdText();
    const std::string classKey = "SOFTWARE\\Classes\\CLSID\\" + std::string(id.begin(), id.end());
    EXPECT_EQ(machine.read(classKey + "\\InprocServer32").value().at(L""),
              RegistryStore::Value(std::filesystem::absolute(CMP_PLUGIN_FILE).wstring()));
    EXPECT_EQ(install(hostFalse, nullptr), 0);
    EXPECT_FALSE(machine.read(pluginKey));
    EXPECT_EQ(install(hostTrue, L"USER"), 0);
    EXPECT_EQ(install(hostTrue, nullptr), 0);
    EXPECT_TRUE(user.read(pluginKey) && !machine.read(pluginKey)) << "the choice stays";
}

TEST(RegistrationTest, HostFindsTheIdentityAndTheModule) {
    const TemporaryFolder folder;
    const RegistryStore store{folder.path()};
    const std::wstring id = PluginIdentity::classIdText();
    const std::string classKey = "SOFTWARE\\Classes\\CLSID\\" + std::string(id.begin(), id.end());
    const auto server = [&](const std::string& module) {
        Registration::add(store, module);
        return *store.read(classKey + "\\InprocServer32");
    };
    EXPECT_EQ(server("/opt/caf\xC3\xA9/cmp_plugin.so"),
              (RegistryStore::Values{{L"", L"/opt/caf\u00E9/cmp_plugin.so"},
                                     {L"ThreadingModel", L"Apartment"}}));
    EXPECT_EQ(server(std::string(3000, 'x')).at(L""),
              RegistryStore::Value(std::wstring(2048, L'x')));
    EXPECT_EQ(store.read(classKey), (RegistryStore::Values{{L"", L"Plugin class"}}));
    const RegistryStore::Values identity = {{L"Name", L"CMP"},
                                            {L"GroupName", L"Automotive bus"},
                                            {L"Vendor", L"Kestrova"},
                                            {L"Version", L"0.0.1"},
                                            {L"Description", L"CMP support for Technica"},
                                            {L"GUID", id},
                                            {L"Icon", L"Icon"},
                                            {L"KestrovaIcon", L"automotive_bus"},
                                            {L"SupportsAnalyse", std::uint32_t{0}},
                                            {L"Type", std::uint32_t{1}}};
    EXPECT_EQ(store.read(pluginKey), identity);
    Registration::remove(store);
    EXPECT_TRUE(!store.read(pluginKey) && store.read(classKey)) << "there is a key below the class";
    EXPECT_TRUE(store.remove(classKey + "\\InprocServer32"));
    Registration::remove(store);
    EXPECT_FALSE(store.read(classKey));
}

}  // namespace
