#include "core/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <system_error>

#include "core/descriptor.h"

namespace {

namespace fs = std::filesystem;

/// Throws the cause of the call that failed last, which was for what `doing` says.
[[noreturn]] void failNow(const std::string& doing) {
    throw std::runtime_error(doing + ": " + std::generic_category().message(errno));
}

Descriptor openFile(const fs::path& path, int flags, mode_t mode = 0) {
    return Descriptor(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode));
}

void writeAll(const Descriptor& file, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(file.get(), text.data() + done, text.size() - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            failNow("writing it");
        }
    }
}

void setMode(int file, mode_t mode) {
    if (::fchmod(file, mode) != 0) {
        failNow("setting its permissions");
    }
}

/// The permissions of `old`, and its owner and group as far as the user may give files away. Where
/// the group can't be kept, the file's group is one that had no rights of its own on it.
void takePermissions(int file, const struct stat& old) {
    mode_t mode = old.st_mode & 0777U;
    if (::fchown(file, old.st_uid, old.st_gid) != 0 &&
        ::fchown(file, static_cast<uid_t>(-1), old.st_gid) != 0) {
        mode = (mode & ~static_cast<mode_t>(S_IRWXG)) | (mode & S_IRWXO) << 3;
    }
    setMode(file, mode);
}

/// A file system that can't sync a directory has nothing to sync.
void syncDirectory(const fs::path& path) {
    const fs::path parent = path.parent_path();
    const Descriptor directory = openFile(parent.empty() ? "." : parent, O_RDONLY | O_DIRECTORY);
    if (!directory.isOpen() || (::fsync(directory.get()) != 0 && errno != EINVAL)) {
        failNow("bringing its directory to the disk");
    }
}

}  // namespace

fs::path temporaryName(const fs::path& target) {
    std::random_device random;
    std::array<char, 16> suffix = {};
    std::snprintf(suffix.data(), suffix.size(), ".%08x.tmp", random());
    fs::path path = target;
    path += suffix.data();
    return path;
}

void createFileLike(const fs::path& path, const fs::path& model) {
    struct stat old {};
    if (::stat(model.c_str(), &old) != 0) {
        failNow("reading the permissions of " + model.string());
    }
    const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (!file.isOpen()) {
        failNow("creating " + path.string());
    }
    takePermissions(file.get(), old);
}

std::optional<std::string> readWholeFile(const fs::path& path, std::size_t most) {
    // O_NONBLOCK, so that a pipe is refused below and not waited for.
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() && errno == ENOENT) {
        return std::nullopt;
    }
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        failNow("opening it");
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("it is not a regular file");
    }
    std::string text;
    std::array<char, 65536> piece;
    for (;;) {
        const ssize_t count = ::read(file.get(), piece.data(), piece.size());
        if (count == 0 || text.size() >= most) {
            text.resize(std::min(text.size(), most));
            return text;
        }
        if (count > 0) {
            text.append(piece.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            failNow("reading it");
        }
    }
}

FileReplacement::FileReplacement(fs::path target, const std::string& text, const fs::path& model)
    : FileReplacement(std::move(target)) {
    struct stat old {};
    if (::stat(model.c_str(), &old) == 0) {
        write(text, S_IRUSR | S_IWUSR, [&](int file) { takePermissions(file, old); });
    } else {
        constexpr mode_t asOthersMake = 0666;  // less what the process's mask takes away
        write(text, asOthersMake, [](int) {});
    }
}

FileReplacement::FileReplacement(fs::path target, const std::string& text, mode_t permissions)
    : FileReplacement(std::move(target)) {
    write(text, S_IRUSR | S_IWUSR, [&](int file) { setMode(file, permissions); });
}

FileReplacement::FileReplacement(fs::path target)
    : path(std::move(target)), temporary(temporaryName(path)) {}

/// Nobody may read it who may not read it at its end, so it begins with the fewest permissions.
void FileReplacement::write(const std::string& text, mode_t first,
                            const std::function<void(int)>& setPermissions) {
    const Descriptor file = openFile(temporary, O_WRONLY | O_CREAT | O_EXCL, first);
    if (!file.isOpen()) {
        failNow("creating a file in its directory");
    }
    writeAll(file, text);
    setPermissions(file.get());
    if (::fsync(file.get()) != 0) {
        failNow("bringing it to the disk");
    }
}

FileReplacement::~FileReplacement() {
    ::unlink(temporary.c_str());
}

void FileReplacement::commit() {
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        failNow("putting it in place");
    }
    syncDirectory(path);
}
