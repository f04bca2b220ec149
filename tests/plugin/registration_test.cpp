#include "plugin/registration.h"

#include <gmock/gmock.h>

#include "plugin/identity.h"
#include "tests/support/temporary_folder.h"

namespace {

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
    EXPECT_EQ(store.read("SOFTWARE\\Kestrova\\Plugins\\Cmp"), identity);
}

}  // namespace
