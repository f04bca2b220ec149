#include "core/trusted_path.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <fstream>
#include <vector>

#include "core/process_rights.h"
#include "core/shell_word.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t rootUser = 0;

/// The user that Linux shows as the owner where the real one has no number in this process's user
/// namespace.
constexpr uid_t overflowUser = 65534;

/// In a user namespace without an `overflowUser` of its own, that one is all the users
/// outside of it, root among them. "Root" inside has no rights over files of any of them.
bool isOutsideNamespace(uid_t user) {
    if (user != overflowUser) {
        return false;
    }
    std::ifstream map("/proc/self/uid_map");
    for (std::uint64_t inside = 0, outside = 0, count = 0; map >> inside >> outside >> count;) {
        if (user >= inside && user - inside < count) {
            return false;
        }
    }
    return map.eof();
}

std::string nameOf(uid_t user) {
    std::array<char, 4096> room{};
    passwd entry{};
    passwd* found = nullptr;
    const bool known =
        getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found != nullptr;
    return known ? std::string(entry.pw_name) : "user " + std::to_string(user);
}

/// A group of the user's name in which is nobody else, as many systems make for each user: what it
/// may, the user may.
bool isGroupOfOne(gid_t group, uid_t user) {
    const std::string name = nameOf(user);
    std::array<char, 65536> room;
    struct group entry {};
    struct group* found = nullptr;
    if (getgrgid_r(group, &entry, room.data(), room.size(), &found) != 0 || found == nullptr ||
        entry.gr_name != name) {
        return false;
    }
    for (char** member = entry.gr_mem; *member != nullptr; ++member) {
        if (*member != name) {
            return false;
        }
    }
    bool alone = true;
    setpwent();
    while (const passwd* const other = getpwent()) {
        alone = alone && (other->pw_gid != group || other->pw_uid == user);
    }
    endpwent();
    return alone;
}

std::string nameOfOpen(const Descriptor& file) {
    return "/proc/self/fd/" + std::to_string(file.get());
}

/// The bits of the group are then the most that any of the users listed may have.
bool hasAccessList(const Descriptor& file) {
    return getxattr(nameOfOpen(file).c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

bool canOthersWrite(const Descriptor& file, const struct stat& facts) {
    if (S_ISLNK(facts.st_mode) || (S_ISDIR(facts.st_mode) && (facts.st_mode & S_ISVTX) != 0)) {
        return false;
    }
    return (facts.st_mode & S_IWOTH) != 0 ||
           ((facts.st_mode & S_IWGRP) != 0 &&
            (hasAccessList(file) || !isGroupOfOne(facts.st_gid, facts.st_uid)));
}

/// In front of a command that takes root's rights.
std::string sudoUnless(bool may) {
    return may || geteuid() == rootUser ? "" : "sudo ";
}

/// What speaks against one entry on the way; the last of `users` is who is to own it.
std::string reasonAgainst(const fs::path& entry, const Descriptor& file, const struct stat& facts,
                          const std::vector<uid_t>& users) {
    const bool trusted = std::find(users.begin(), users.end(), facts.st_uid) != users.end();
    if (!trusted && !isOutsideNamespace(facts.st_uid)) {
        const std::string option = S_ISLNK(facts.st_mode) ? "-h " : "";
        return entry.string() + " belongs to " + nameOf(facts.st_uid) +
               ", who can change it (put the file elsewhere or, if its contents are to be trusted, "
               "\"" +
               sudoUnless(false) + "chown " + option + nameOf(users.back()) + ' ' +
               quotedForShell(entry.string()) + "\")";
    }
    if (canOthersWrite(file, facts)) {
        return entry.string() + " can be written by others than its owner (\"" +
               sudoUnless(facts.st_uid == geteuid()) + "chmod go-w " +
               quotedForShell(entry.string()) + "\" ends that)";
    }
    struct statvfs system {};
    const bool onlyRoot = users.size() == 1;
    if (onlyRoot && (fstatvfs(file.get(), &system) != 0 || (system.f_flag & ST_NOSUID) != 0)) {
        return entry.string() +
               " is on a file system that is mounted nosuid, as a user's own is: put the file "
               "elsewhere";
    }
    return {};
}

std::vector<uid_t> usersOf(TrustedUsers trusted) {
    if (hasMoreRightsThanCaller()) {
        return {rootUser};
    }
    if (trusted == TrustedUsers::UserAndProgram) {
        return {rootUser, programOwner(), geteuid()};
    }
    return {rootUser, geteuid()};
}

std::string targetOf(const Descriptor& link) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlinkat(link.get(), "", text.data(), text.size());
    return {text.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace

TrustedPath::TrustedPath(const fs::path& path, TrustedUsers trusted) {
    if (!path.is_absolute()) {
        reason = '"' + path.string() + "\" is no absolute path";
        return;
    }
    walk(path, usersOf(trusted));
}

void TrustedPath::walk(const fs::path& path, const std::vector<uid_t>& users) {
    constexpr int mostLinks = 40;  // as in the system's own search
    constexpr int looksOnly = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    fs::path reached = "/";
    Descriptor at;
    bool isLastRegular = false;
    std::deque<fs::path> left(path.begin(), path.end());
    for (int links = 0; !left.empty();) {
        const fs::path name = left.front();
        left.pop_front();
        if (name.empty() || name == ".") {
            continue;
        }
        const bool fromRoot = name == "/";
        Descriptor next(::openat(at.get(), name.c_str(), looksOnly));
        struct stat facts {};
        if (!next.isOpen() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
            reason = '"' + path.string() + "\" can't be looked at: " + std::strerror(errno);
            return;
        }
        if (!next.isOpen() || ::fstat(next.get(), &facts) != 0) {
            return;  // there is nothing
        }
        const fs::path entry = fromRoot       ? fs::path("/")
                               : name == ".." ? reached.parent_path()
                                              : reached / name;
        reason = reasonAgainst(entry, next, facts, users);
        if (!reason.empty()) {
            return;
        }
        if (!S_ISLNK(facts.st_mode)) {
            reached = entry;
            at = std::move(next);
            isLastRegular = S_ISREG(facts.st_mode);
            continue;
        }
        const fs::path target = targetOf(next);
        if (target.empty() || ++links > mostLinks) {
            return;  // nobody can open it
        }
        left.insert(left.begin(), target.begin(), target.end());
    }
    file = std::move(at);
    regular = isLastRegular;
    place = reached;
}

fs::path TrustedPath::opened() const {
    return nameOfOpen(file);
}

bool TrustedPath::isStillThere() const {
    struct stat judged {};
    struct stat named {};
    return ::fstat(file.get(), &judged) == 0 && ::stat(place.c_str(), &named) == 0 &&
           judged.st_dev == named.st_dev && judged.st_ino == named.st_ino;
}

std::string reasonForDistrust(const fs::path& path) {
    return TrustedPath(path, TrustedUsers::User).getRefusal();
}
