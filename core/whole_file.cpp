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

namespace {

namespace fs = std::filesystem;

/// Throws the cause of the call that failed last, of which `doing` tells what it was for.
[[noreturn]] void failNow(const std::string& doing) {
    throw std::runtime_error(doing + ": " + std::generic_category().message(errno));
}

/// Owns an open file.
class Descriptor {
  public:
    Descriptor(const fs::path& path, int flags, mode_t mode = 0)
        : number(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode)) {}
    ~Descriptor() {
        if (number >= 0) {
            ::close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

  private:
    const int number;
};

fs::path temporaryName(const fs::path& target) {
    std::random_device random;
    std::array<char, 16> suffix = {};
    std::snprintf(suffix.data(), suffix.size(), ".%08x.tmp", random());
    fs::path path = target;
    path += suffix.data();
    return path;
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

void takeOwner(int file, const fs::path& model) {
    struct stat status {};
    if (::stat(model.c_str(), &status) != 0) {
        return;
    }
    // Whoever may not give a file away becomes its owner.
    [[maybe_unused]] const int owner = ::fchown(file, status.st_uid, status.st_gid);
    setMode(file, status.st_mode & 07777U);
}

/// A file system that can't sync a directory has nothing to sync.
void syncDirectory(const fs::path& path) {
    const fs::path parent = path.parent_path();
    const Descriptor directory(parent.empty() ? "." : parent, O_RDONLY | O_DIRECTORY);
    if (!directory.isOpen() || (::fsync(directory.get()) != 0 && errno != EINVAL)) {
        failNow("bringing its directory to the disk");
    }
}

}  // namespace

std::optional<std::string> readWholeFile(const fs::path& path, std::size_t most) {
    // O_NONBLOCK, so that a pipe is refused below and not waited for.
    const Descriptor file(path, O_RDONLY | O_NONBLOCK);
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
    : FileReplacement(std::move(target), text, [&](int file) { takeOwner(file, model); }) {}

FileReplacement::FileReplacement(fs::path target, const std::string& text, mode_t permissions)
    : FileReplacement(std::move(target), text, [&](int file) { setMode(file, permissions); }) {}

FileReplacement::FileReplacement(fs::path target, const std::string& text,
                                 const std::function<void(int)>& setPermissions)
    : path(std::move(target)), temporary(temporaryName(path)) {
    const Descriptor file(temporary, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!file.isOpen()) {
        failNow("creating a file in its directory");
    }
    try {
        writeAll(file, text);
        setPermissions(file.get());
        if (::fsync(file.get()) != 0) {
            failNow("bringing it to the disk");
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
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
