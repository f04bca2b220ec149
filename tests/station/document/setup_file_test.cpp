#include "station/document/setup_file.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/temporary_folder.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

class SetupFileTest : public ::testing::Test {
  protected:
    static CountedRef<SetupDocument> documentNamed(const std::wstring& name,
                                                   std::size_t length = 0) {
        const auto document = makeObject<SetupDocument>(true);
        const auto root = makeObject<SetupElement>(L"Setup", std::wstring(length, L'x'));
        root->setValue(L"Name", name);
        document->SetRootElement(root.get());
        return document;
    }
    void save(const std::wstring& name) const { SetupFile(path).save(*documentNamed(name)); }
    std::wstring load() const { return *SetupFile(path).load()->getRoot()->findValue(L"Name"); }

    void write(const std::string& text) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    }
    std::ptrdiff_t filesThere() const {
        return std::distance(fs::directory_iterator(directory), fs::directory_iterator());
    }
    /// Of what this process writes from now on; a signal that isn't ignored ends it there.
    static void limitFileSizes(rlim_t bytes) {
        const rlimit limit{bytes, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }

    template <typename Action>
    static std::string errorOf(const Action& action) {
        try {
            action();
        } catch (const FileError& error) {
            return error.what();
        }
        return "no error";
    }
    std::string loadError() const {
        return errorOf([&] { load(); });
    }
    std::string saveError() const {
        return errorOf([&] { save(L"other"); });
    }

    const TemporaryFolder folder;
    const fs::path directory = folder.path();
    const fs::path path = directory / "bench.xml";
    const fs::path backup = directory / "bench.xml.bak";
};

TEST_F(SetupFileTest, KeepsTheLastGoodFileAsBackupAndAStepBehind) {
    save(L"first");
    EXPECT_EQ(filesThere(), 1);
    const std::string first = contentOf(path);
    save(L"second");
    save(L"second");
    EXPECT_EQ(load(), L"second");
    EXPECT_EQ(contentOf(backup), first);
    EXPECT_EQ(filesThere(), 2);
    std::int32_t mode = 1;
    SetupFile(path).load()->GetMode(&mode);
    EXPECT_EQ(mode, 0);
    SetupFile(path).save(*SetupFile(path).load());
    EXPECT_EQ(contentOf(backup), first);
}

TEST_F(SetupFileTest, SavedFileKeepsItsPermissionsAndOwnerAndGivesNobodyMore) {
    using Row = std::tuple<uid_t, mode_t, uid_t, gid_t, mode_t>;
    save(L"first");
    const uid_t user = geteuid();
    const gid_t group = getegid();
    constexpr uid_t other = 12345;
    constexpr gid_t foreign = 7777;  // in which that one isn't
    const mode_t mask = umask(0);
    int number = 0;
    for (const auto& [saver, mode, owner, owners, expected] :
         {Row(user, 0640, user, group, 0640), Row(user, 0600, other, other, 0600),
          Row(other, 0664, user, other, 0664), Row(other, 0664, user, foreign, 0644),
          Row(other, 0667, user, foreign, 0677)}) {
        chmod(path.c_str(), mode);
        if (::chown(path.c_str(), owner, owners) != 0) {
            continue;  // only root can give files away
        }
        chmod(directory.c_str(), 0777);
        ASSERT_TRUE(setegid(saver == user ? group : other) == 0 && seteuid(saver) == 0);
        save(std::to_wstring(++number));
        ASSERT_TRUE(seteuid(user) == 0 && setegid(group) == 0);
        for (const fs::path& file : {path, backup}) {
            struct stat now {};
            ASSERT_EQ(::stat(file.c_str(), &now), 0);
            EXPECT_EQ(now.st_mode & 07777U, expected) << file << std::oct << mode;
            EXPECT_EQ(now.st_uid, saver == user ? owner : saver);
            EXPECT_EQ(now.st_gid, saver == user ? owners : other);
        }
    }
    umask(mask);
}

TEST_F(SetupFileTest, FileCutAtAnyLengthIsRefusedWithItsPlaceAndNeverOverwritten) {
    save(L"first");
    save(L"second");
    const std::string good = contentOf(path);
    const std::string kept = contentOf(backup);
    for (std::size_t length = 0; length + 1 < good.size(); ++length) {
        const std::string torn = good.substr(0, length);
        write(torn);
        ASSERT_THAT(loadError(), AllOf(HasSubstr("bench.xml\": line "), HasSubstr(", column "),
                                       HasSubstr("take its backup")))
            << length;
        ASSERT_THAT(saveError(), HasSubstr("isn't overwritten")) << length;
        ASSERT_EQ(contentOf(path), torn);
        ASSERT_EQ(contentOf(backup), kept);
    }
    write(good.substr(0, good.size() - 1));  // without the last line feed
    EXPECT_EQ(load(), L"second");
    EXPECT_EQ(filesThere(), 2);
}

TEST_F(SetupFileTest, FileOfAnotherKindIsNotOverwritten) {
    for (const auto* text : {"notes of mine\n", "<svg version=\"1.1\"/>", "<html version=\"1\"/>",
                             "<Setup version=\"2\"/>"}) {
        write(text);
        EXPECT_THAT(saveError(), AllOf(HasSubstr("line 1"), HasSubstr("Move it away"))) << text;
        EXPECT_EQ(contentOf(path), text);
    }
    EXPECT_THAT(loadError(), HasSubstr("version is 2, and this program knows versions up to 1. "
                                       "Use a newer program."));
    fs::remove(path);
    EXPECT_THAT(loadError(), HasSubstr("there is no such file. Check its name"));
    fs::create_directory(path);
    EXPECT_THAT(loadError(), HasSubstr("not a regular file"));
    EXPECT_THAT(saveError(), HasSubstr("not a regular file"));
    EXPECT_THAT(errorOf([&] { SetupFile(path).save(*makeObject<SetupDocument>(true)); }),
                HasSubstr("no root"));
}

TEST_F(SetupFileTest, FullDiskOrNoPlaceForTheBackupLeavesAllAsItWas) {
    save(L"first");
    save(L"second");
    const std::string good = contentOf(path);
    const std::string kept = contentOf(backup);
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    limitFileSizes(16384);
    const std::string error =
        errorOf([&] { SetupFile(path).save(*documentNamed(L"large", 100'000)); });
    limitFileSizes(RLIM_INFINITY);
    std::signal(SIGXFSZ, before);
    EXPECT_THAT(error, AllOf(HasSubstr("File too large"), HasSubstr("Make room")));
    EXPECT_EQ(contentOf(path), good);
    EXPECT_EQ(contentOf(backup), kept);
    fs::remove(backup);
    fs::create_directory(backup);  // nowhere to put the backup
    EXPECT_THAT(saveError(), HasSubstr("Is a directory"));
    EXPECT_EQ(contentOf(path), good);
    EXPECT_EQ(filesThere(), 2);
}

TEST_F(SetupFileTest, WriterKilledAtAnyMomentLeavesAWholeFileAndHindersNobody) {
    save(L"first");
    chmod(path.c_str(), 0600);
    for (int round = 0; round < 30; ++round) {
        const pid_t writer = ::fork();
        if (writer == 0) {
            for (;;) {
                SetupFile(path).save(*documentNamed(L"one", 50'000));
                SetupFile(path).save(*documentNamed(L"two", 50'000));
            }
        }
        ::usleep(static_cast<useconds_t>(3000 + 997 * round));
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
        ASSERT_THAT(load(), testing::AnyOf(L"first", L"one", L"two"));
        if (fs::exists(backup)) {
            ASSERT_NO_THROW(SetupFile(backup).load());
        }
    }
    const pid_t writer = ::fork();  // which dies with half of it written
    if (writer == 0) {
        limitFileSizes(16384);
        SetupFile(path).save(*documentNamed(L"large", 100'000));
    }
    ::waitpid(writer, nullptr, 0);
    for (const auto& file : fs::directory_iterator(directory)) {
        EXPECT_EQ(file.status().permissions(), fs::perms{0600}) << file.path();
    }
    const std::string last = contentOf(path);
    std::ofstream(directory / "bench.xml.0badf00d.tmp") << "<Setup versi";
    save(L"after");
    EXPECT_EQ(load(), L"after");
    EXPECT_EQ(contentOf(backup), last);
}

}  // namespace
}  // namespace station
