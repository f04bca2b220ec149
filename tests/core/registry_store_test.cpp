#include "core/registry_store.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "core/trusted_path.h"
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
    const gid_t group = getegid();  // in which there is nobody else, or others
    const bool hasGroup = std::string(getgrgid(group)->gr_name) == getpwuid(user)->pw_name;
    using Row = std::tuple<fs::path, mode_t, uid_t, gid_t, std::string>;
    const std::string written = " can be written by others than its owner (\"chmod go-w '";
    const std::string his = " belongs to user 12345, who can change it";
    for (const auto& [place, mode, owner, owners, reason] :
         {Row(file, 0664, user, group, hasGroup ? "" : written),
          Row(file, 0664, user, otherUser, written), Row(file, 0646, user, group, written),
          Row(file, 01666, user, group, written), Row(part, 0775, user, otherUser, written),
          Row(part, 01777, user, otherUser, ""), Row(file, 0644, otherUser, group, his),
          Row(part, 0755, otherUser, group, his), Row(absolute, 0755, otherUser, group, his),
          Row(linked, 0755, otherUser, group, his)}) {
        chmod(place.c_str(), mode);
        if (lchown(place.c_str(), owner, owners) != 0) {
            continue;  // only root can give files away
        }
        const bool good = reason.empty();
        EXPECT_THAT(found.refusal(key), testing::StartsWith(good ? "" : place.string() + reason));
        EXPECT_EQ(found.read(key).has_value(), good);
        EXPECT_EQ(found.write(key, {}), good);
        EXPECT_FALSE(!good && found.remove(key));
        EXPECT_TRUE(seteuid(owner) == 0 && (owner == user || found.refusal(key).empty()));
        EXPECT_TRUE(owner == user || place == part || !found.write(key, {})) << "not his folder";
        EXPECT_TRUE(seteuid(user) == 0 && lchown(place.c_str(), user, group) == 0);
        chmod(place.c_str(), place == file ? 0644 : 0755);
    }
}

TEST_F(RegistryStoreTest, WhatIsOpenedIsWhatWasJudgedAndNothingThatComesLater) {
    const auto look = [&](const fs::path& path) {
        return TrustedPath(folder.path() / path, TrustedUsers::UserAndProgram);
    };
    put("1");
    fs::create_symlink("SOFTWARE/Maker/../Maker", folder.path() / "a '");
    const TrustedPath there = look("a '/Part/values");
    EXPECT_EQ(there.getResolved(), file);
    fs::rename(file, folder.path() / "away");
    put("2");
    EXPECT_TRUE(there.isFile() && contentOf(there.opened()) == "1");
    fs::remove(file);
    mkfifo((folder.path() / "pipe").c_str(), 0644);
    for (const char* path : {"a '/Part/values", "a '/Part", "pipe", "away/x", "none/x"}) {
        EXPECT_FALSE(look(path).isFile() || !look(path).getRefusal().empty()) << path;
    }
    // As the system follows it, this link of /proc leads to a file that has no name any more.
    const int open = ::open((folder.path() / "away").c_str(), O_RDONLY);
    fs::remove(folder.path() / "away");
    EXPECT_FALSE(look("/proc/self/fd/" + std::to_string(open)).isFile());
    close(open);
    chmod(folder.path().c_str(), 0757);
    EXPECT_THAT(look("a '/x").getRefusal(), testing::HasSubstr("\"chmod go-w '"));
    chmod(folder.path().c_str(), 0700);
    // A list by which another user may write shows in the bits of the group.
    put("");
    chmod(file.c_str(), 0664);
    const std::array<std::uint16_t, 22> list = {2,      0,      1,    6, 0xFFFF, 0xFFFF, 2,    6,
                                                7777,   0,      4,    4, 0xFFFF, 0xFFFF, 0x10, 6,
                                                0xFFFF, 0xFFFF, 0x20, 4, 0xFFFF, 0xFFFF};
    ASSERT_EQ(setxattr(file.c_str(), "system.posix_acl_access", &list, sizeof list, 0), 0);
    EXPECT_THAT(look("SOFTWARE/Maker/Part/values").getRefusal(), testing::HasSubstr("others"));
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
