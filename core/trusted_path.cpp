#include "core/trusted_path.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <fstream>

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

bool isTrusted(uid_t owner) {
    return owner == rootUser || owner == geteuid() || isOutsideNamespace(owner);
}

std::string nameOf(uid_t user) {
    std::array<char, 4096> room{};
    passwd entry{};
    passwd* found = nullptr;
    const bool known =
        getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found != nullptr;
    return known ? std::string(entry.pw_name) : "user " + std::to_string(user);
}

/// What speaks against one entry on the way.
std::string reasonAgainst(const fs::path& entry, const struct stat& facts) {
    if (!isTrusted(facts.st_uid)) {
        const std::string wanted = nameOf(geteuid());
        return entry.string() + " belongs to " + nameOf(facts.st_uid) +
               ", who can change it (\"chown " + wanted + "\" makes it " + wanted +
               "'s, if its contents are to be trusted)";
    }
    const bool others = (facts.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    const bool guarded = S_ISDIR(facts.st_mode) && (facts.st_mode & S_ISVTX) != 0;
    if (!S_ISLNK(facts.st_mode) && others && !guarded) {
        return entry.string() +
               " can be written by others than its owner (\"chmod go-w\" ends that)";
    }
    return {};
}

}  // namespace

std::string reasonForDistrust(const fs::path& path) {
    if (!path.is_absolute()) {
        return '"' + path.string() + "\" is no absolute path";
    }
    fs::path reached = "/";
    std::deque<fs::path> left(path.begin(), path.end());
    constexpr int mostLinks = 40;  // as in the system's own search
    for (int links = 0; !left.empty();) {
        const fs::path name = left.front();
        left.pop_front();
        if (name == "..") {
            reached = reached.parent_path();
            continue;
        }
        const fs::path entry = name.empty() || name == "." ? reached : reached / name;
        struct stat facts {};
        if (lstat(entry.c_str(), &facts) != 0) {
            return {};
        }
        if (std::string reason = reasonAgainst(entry, facts); !reason.empty()) {
            return reason;
        }
        if (!S_ISLNK(facts.st_mode)) {
            reached = entry;
            continue;
        }
        if (++links > mostLinks) {
            return {};  // nobody can open it
        }
        std::error_code error;
        const fs::path target = fs::read_symlink(entry, error);
        left.insert(left.begin(), target.begin(), target.end());
    }
    return {};
}
