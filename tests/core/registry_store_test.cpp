#include "core/registry_store.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;

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

}  // namespace
