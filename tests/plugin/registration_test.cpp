#include "plugin/registration.h"

#include <gmock/gmock.h>

#include <fstream>

#include "plugin/identity.h"
#include "tests/support/temporary_folder.h"

namespace {

constexpr const char* pluginKey = "SOFTWARE\\Kestrova\\Plugins\\Cmp";

class RegistrationTest : public testing::Test {
  protected:
    static std::string classKey() {
        const std::wstring id = PluginIdentity::classIdText();
        return "SOFTWARE\\Classes\\CLSID\\" + std::string(id.begin(), id.end());
    }
    static RegistryStore::Values identity() {
        return {{L"Name", L"CMP"},
                {L"GroupName", L"Automotive bus"},
                {L"Vendor", L"Kestrova"},
                {L"Version", L"0.0.1"},
                {L"Description", L"CMP support for Technica"},
                {L"GUID", PluginIdentity::classIdText()},
                {L"Icon", L"Icon"},
                {L"KestrovaIcon", L"automotive_bus"},
                {L"SupportsAnalyse", std::uint32_t{0}},
                {L"Type", std::uint32_t{1}}};
    }
    static RegistryStore::Values server(const std::wstring& module) {
        return {{L"", module}, {L"ThreadingModel", L"Apartment"}};
    }

    const TemporaryFolder folder;
    const RegistryStore store{folder.path()};
};

TEST_F(RegistrationTest, HostFindsTheIdentityAndTheModule) {
    for (int times = 0; times < 2; ++times) {
        Registration::add(store, "/opt/caf\xC3\xA9/cmp_plugin.so");
        EXPECT_EQ(store.read(pluginKey), identity());
        EXPECT_EQ(store.read(classKey()), (RegistryStore::Values{{L"", L"Plugin class"}}));
        EXPECT_EQ(store.read(classKey() + "\\InprocServer32"),
                  server(L"/opt/caf\u00E9/cmp_plugin.so"));
    }
    Registration::add(store, "/new/cmp_plugin.so");
    EXPECT_EQ(store.read(classKey() + "\\InprocServer32"), server(L"/new/cmp_plugin.so"));
    Registration::add(store, std::string(3000, 'x'));
    EXPECT_EQ(store.read(classKey() + "\\InprocServer32"), server(std::wstring(2048, L'x')));
}

TEST_F(RegistrationTest, RemovalTakesThePluginAndLeavesAClassWithKeysBelow) {
    Registration::remove(store);
    Registration::add(store, "/cmp_plugin.so");
    for (int times = 0; times < 2; ++times) {
        Registration::remove(store);
        EXPECT_EQ(store.read(pluginKey), std::nullopt);
        EXPECT_NE(store.read(classKey()), std::nullopt);
    }
    EXPECT_TRUE(store.remove(classKey() + "\\InprocServer32"));
    Registration::remove(store);
    EXPECT_EQ(store.read(classKey()), std::nullopt);
}

TEST_F(RegistrationTest, KeyThatCantBeWrittenIsPassedOver) {
    std::filesystem::create_directories(folder.path() / "SOFTWARE/Kestrova");
    std::ofstream(folder.path() / "SOFTWARE/Kestrova/Plugins") << "in the way";
    Registration::add(store, "/cmp_plugin.so");
    EXPECT_EQ(store.read(pluginKey), std::nullopt);
    EXPECT_NE(store.read(classKey() + "\\InprocServer32"), std::nullopt);
}

TEST_F(RegistrationTest, NothingStandsBelowAClassThatCantBeWritten) {
    std::ofstream(folder.path() / "SOFTWARE") << "in the way";
    Registration::add(store, "/cmp_plugin.so");
    Registration::remove(store);
    EXPECT_THAT(store.keysBelow(""), testing::IsEmpty());
}

}  // namespace
