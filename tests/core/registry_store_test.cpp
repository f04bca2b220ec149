#include "core/registry_store.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;

class RegistryStoreTest : public testing::Test {
  protected:
    static constexpr const char* key = "SOFTWARE\\Maker\\Part";

    void put(const std::string& text) const {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }

    const TemporaryFolder folder;
    const fs::path file = folder.path() / "SOFTWARE/Maker/Part/values";
    const RegistryStore store{folder.path()};
};

TEST_F(RegistryStoreTest, ValuesComeBackWhateverIsInThem) {
    const auto count = [](const fs::path& in) {
        return std::distance(fs::directory_iterator(in), fs::directory_iterator());
    };
    const std::ptrdiff_t openFiles = count("/proc/self/fd");
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
    fs::create_directories(folder.path() / "SOFTWARE/Folder/values");
    EXPECT_FALSE(store.write("SOFTWARE\\Folder", values));
    EXPECT_EQ(count(file.parent_path()) + count(folder.path() / "SOFTWARE/Folder"), 2)
        << "nothing temporary is left";
    EXPECT_THAT(store.keysBelow("SOFTWARE"), testing::ElementsAre("Folder", "Maker"));
    EXPECT_FALSE(store.remove("SOFTWARE\\Maker") || store.remove("SOFTWARE\\None"));
    EXPECT_TRUE(store.remove(key) && store.keysBelow("SOFTWARE\\Maker").empty());
    EXPECT_EQ(count("/proc/self/fd"), openFiles);
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
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(store.read(key), std::nullopt) << "a folder in place of the file";
}

constexpr uid_t otherUser = 12345;

TEST_F(RegistryStoreTest, WhatOthersCouldChangeIsLeftAloneWithTheReason) {
    const fs::path absolute = folder.path() / "absolute";
    const fs::path linked = folder.path() / "linked";
    const fs::path part = file.parent_path();
    fs::create_symlink(folder.path(), absolute);
    std::string way = "absolute";
    for (int links = 2; links < 40; ++links) {  // with `linked` as many as the system follows
        fs::create_symlink(way, folder.path() / (way + '+'));
        way += '+';
    }
    fs::create_symlink(way + "/../" + folder.path().filename().string(), linked);
    const RegistryStore found(linked / "SOFTWARE/../.");
    chmod(folder.path().c_str(), 0755);
    const mode_t mask = umask(0);
    ASSERT_TRUE(found.write(key, {}));
    umask(mask);
    EXPECT_EQ(fs::status(part).permissions(), fs::perms{0755});
    fs::create_symlink("loop", folder.path() / "loop");
    EXPECT_EQ(RegistryStore(folder.path() / "loop").refusal(key), "") << "nobody can open it";
    const uid_t user = geteuid();
    using Row = std::tuple<fs::path, mode_t, uid_t, std::string>;
    const std::string written = " can be written";
    const std::string his = " belongs to user 12345, who can change it (\"chown " +
                            std::string(getpwuid(user)->pw_name) + '"';
    for (const auto& [place, mode, owner, reason] :
         {Row(file, 0664, user, written), Row(file, 0646, user, written),
          Row(file, 01666, user, written), Row(part, 0775, user, written),
          Row(part, 01777, user, ""), Row(file, 0644, otherUser, his),
          Row(part, 0755, otherUser, his), Row(absolute, 0755, otherUser, his),
          Row(linked, 0755, otherUser, his)}) {
        chmod(place.c_str(), mode);
        if (lchown(place.c_str(), owner, owner) != 0) {
            continue;  // only root can give files away
        }
        const bool good = reason.empty();
        EXPECT_THAT(found.refusal(key), testing::StartsWith(good ? "" : place.string() + reason));
        EXPECT_EQ(found.read(key).has_value(), good);
        EXPECT_EQ(found.write(key, {}), good);
        EXPECT_FALSE(!good && found.remove(key));
        EXPECT_TRUE(seteuid(owner) == 0 && (owner == user || found.refusal(key).empty()));
        EXPECT_TRUE(owner == user || place == part || !found.write(key, {})) << "not his folder";
        EXPECT_TRUE(seteuid(user) == 0 && lchown(place.c_str(), user, user) == 0);
        chmod(place.c_str(), place == file ? 0644 : 0755);
    }
}

TEST(UserStore, EnvironmentIsFollowedByOrdinaryUsersOnlyAndNeverRelative) {
    const bool isRoot = geteuid() == 0;  // who can be the other user too
    const fs::path inDatabase =
        fs::path(getpwuid(geteuid())->pw_dir) / ".local/share/kestrova/registry";
    for (const auto& [data, home, expected] :
         {std::tuple("/d", "/h", "/d/kestrova/registry"),
          std::tuple("d", "/h", "/h/.local/share/kestrova/registry"), std::tuple("d", "h", ""),
          std::tuple("", "", "")}) {
        setenv("XDG_DATA_HOME", data, 1);
        setenv("HOME", home, 1);
        if (isRoot) {
            EXPECT_EQ(RegistryStore::perUser().getFolder(), inDatabase);
            EXPECT_EQ(RegistryStore::passedOverForUser(), expected);
            ASSERT_EQ(seteuid(otherUser), 0);  // whom the password database doesn't know
        }
        const bool isFound = isRoot || *expected != 0;
        EXPECT_EQ(RegistryStore::perUser().getFolder(), isFound ? fs::path(expected) : inDatabase);
        ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    }
    EXPECT_THAT(RegistryStore("").refusal("usr"), testing::HasSubstr("no home folder"));
    EXPECT_THAT(RegistryStore("usr").refusal("lib"), testing::HasSubstr("no absolute path"));
}

}  // namespace
