#include "core/registry_store.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class RegistryStoreTest : public testing::Test {
  protected:
    static constexpr const char* key = "SOFTWARE\\Maker\\Part";

    fs::path fileOf(const std::string& names) const { return folder.path() / names / "values"; }
    void put(const std::string& text) const {
        fs::create_directories(fileOf("SOFTWARE/Maker/Part").parent_path());
        std::ofstream(fileOf("SOFTWARE/Maker/Part")) << text;
    }

    const TemporaryFolder folder;
    const RegistryStore store{folder.path()};
};

TEST_F(RegistryStoreTest, ValuesComeBackWhateverIsInThem) {
    const RegistryStore::Values values = {
        {L"", L"default"},
        {L"empty", L""},
        {L"na\tme\\\n", L"tab\t, line\nfeed, back\\slash, \\n, \\"},
        {L"M\u00FCller", L"\u65E5\u672C \U0001F600"},
        {L"zero", std::uint32_t{0}},
        {L"largest", std::uint32_t{4294967295}},
        {L"digits", L"17"},
    };
    ASSERT_TRUE(store.write(key, values));
    EXPECT_EQ(store.read(key), values);
    ASSERT_TRUE(store.write(key, {{L"one", std::uint32_t{1}}}));
    EXPECT_EQ(store.read(key), (RegistryStore::Values{{L"one", std::uint32_t{1}}}));
    const fs::directory_iterator files(fileOf("SOFTWARE/Maker/Part").parent_path());
    EXPECT_EQ(std::distance(files, fs::directory_iterator()), 1) << "nothing temporary is left";
}

TEST_F(RegistryStoreTest, KeysAreListedAndRemovedFromTheLowestUp) {
    for (const char* name : {"A\\b", "A\\a\\x"}) {
        ASSERT_TRUE(store.write(name, {}));
    }
    EXPECT_EQ(store.read("A\\b"), RegistryStore::Values());
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_THAT(store.keysBelow("A"), ElementsAre("a", "b"));
    EXPECT_FALSE(store.remove("A"));
    EXPECT_FALSE(store.remove("A\\none"));
    for (const char* name : {"A\\b", "A\\a\\x", "A\\a", "A"}) {
        EXPECT_TRUE(store.remove(name)) << name;
    }
    EXPECT_THAT(store.keysBelow("A"), IsEmpty());
    EXPECT_THAT(store.keysBelow(""), IsEmpty());
}

TEST_F(RegistryStoreTest, FileThatIsNoneOfItsOwnIsNoKey) {
    put("Name\ttext\tCMP\n");
    ASSERT_NE(store.read(key), std::nullopt);
    for (const char* text : {"nonsense\n", "\n", "Name\ttext\n", "Name\tcolour\tred\n",
                             "Type\tnumber\t\n", "Type\tnumber\t1x\n", "Type\tnumber\t-1\n",
                             "Type\tnumber\t4294967296\n", "Name\ttext\tCMP\nType\tnumb",
                             "Name\ttext\tC", "Name\ttext\tbad \xFF\xFE\n", "\xC3\ttext\tCMP\n"}) {
        put(text);
        EXPECT_EQ(store.read(key), std::nullopt) << text;
    }
    fs::remove(fileOf("SOFTWARE/Maker/Part"));
    fs::create_directory(fileOf("SOFTWARE/Maker/Part"));
    EXPECT_EQ(store.read(key), std::nullopt) << "a folder in place of the file";
    EXPECT_FALSE(store.write(key, {}));
}

TEST_F(RegistryStoreTest, StoreThatCantBeWrittenSaysSo) {
    std::ofstream(folder.path() / "file") << "in the way";
    const RegistryStore blocked(folder.path() / "file");
    EXPECT_FALSE(blocked.write(key, {}));
    EXPECT_EQ(blocked.read(key), std::nullopt);
    EXPECT_FALSE(blocked.remove(key));
    EXPECT_THAT(blocked.keysBelow(key), IsEmpty());
}

TEST_F(RegistryStoreTest, EnvironmentSaysWhereTheStoresAre) {
    ::setenv("KESTROVA_REGISTRY", "/machine", 1);
    ::setenv("XDG_DATA_HOME", "/data", 1);
    ::setenv("HOME", "/home/somebody", 1);
    EXPECT_EQ(RegistryStore::perMachine().getFolder(), "/machine");
    EXPECT_EQ(RegistryStore::perUser().getFolder(), "/data/kestrova/registry");
    for (const char* ignored : {"", "relative/data"}) {
        ::setenv("XDG_DATA_HOME", ignored, 1);
        EXPECT_EQ(RegistryStore::perUser().getFolder(),
                  "/home/somebody/.local/share/kestrova/registry");
    }
    ::setenv("KESTROVA_REGISTRY", "", 1);
    EXPECT_EQ(RegistryStore::perMachine().getFolder(), "/usr/local/share/kestrova/registry");
}

}  // namespace
