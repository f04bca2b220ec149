#include "station/recording/part_compressor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <utility>

#include "core/descriptor.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* temporaryEnding = ".tmp";
constexpr std::size_t pieceSize = 1U << 20U;
constexpr int level = 3;
/// The disk is brought up to date after so many pieces, so that it hasn't much left to do at the
/// end, which is waited for.
constexpr std::uint64_t piecesToSync = 64;
constexpr int lowestPriority = 19;

[[noreturn]] void fail(const char* step) {
    throw std::system_error(errno, std::generic_category(), step);
}

Descriptor open(const std::string& path, int flags, mode_t mode = 0) {
    Descriptor opened(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW, mode));
    if (!opened.isOpen()) {
        fail("opening");
    }
    return opened;
}

std::size_t readAll(int fd, std::span<std::uint8_t> to) {
    std::size_t done = 0;
    while (done < to.size()) {
        const ssize_t count = ::read(fd, to.data() + done, to.size() - done);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            fail("reading");
        }
    }
    return done;
}

void writeAll(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            errno = count == 0 ? ENOSPC : errno;
            fail("writing");
        }
    }
}

void sync(int fd) {
    if (::fsync(fd) != 0) {
        fail("writing");
    }
}

fs::path folderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? "." : folder;
}

/// One frame for the whole part: tshark 4.0 misreads what lies across the border of two.
class FrameWriter {
  public:
    FrameWriter(int file, std::uint64_t contentSize)
        : fd(file), packed(ZSTD_CStreamOutSize()), context(ZSTD_createCCtx()) {
        if (!context) {
            throw std::bad_alloc();
        }
        ZSTD_CCtx_setParameter(context.get(), ZSTD_c_compressionLevel, level);
        ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
        ZSTD_CCtx_setPledgedSrcSize(context.get(), contentSize);
    }

    void write(std::span<const std::uint8_t> plain) { compress(plain, ZSTD_e_continue); }
    /// Throws if it wasn't as much as was said.
    void end() { compress({}, ZSTD_e_end); }

  private:
    void compress(std::span<const std::uint8_t> plain, ZSTD_EndDirective directive) {
        ZSTD_inBuffer input{plain.data(), plain.size(), 0};
        for (std::size_t left = 1; left != 0;) {
            ZSTD_outBuffer output{packed.data(), packed.size(), 0};
            left = ZSTD_compressStream2(context.get(), &output, &input, directive);
            if (ZSTD_isError(left) != 0) {
                throw std::runtime_error(ZSTD_getErrorName(left));
            }
            writeAll(fd, std::span(packed).first(output.pos));
            if (directive == ZSTD_e_continue) {
                left = input.size - input.pos;
            }
        }
    }

    struct FreeContext {
        void operator()(ZSTD_CCtx* owned) const { ZSTD_freeCCtx(owned); }
    };
    const int fd;
    std::vector<std::uint8_t> packed;
    const std::unique_ptr<ZSTD_CCtx, FreeContext> context;
};

/// Never over a file that is there.
bool giveName(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    // A file system that can't do that.
    return errno == EINVAL && ::access(to.c_str(), F_OK) != 0 &&
           ::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

PartCompressor::~PartCompressor() {
    cancel();
    if (thread.joinable()) {
        thread.join();
    }
}

void PartCompressor::removeLeftovers(const std::string& path) {
    const fs::path whole(path);
    const std::string front = whole.stem().string() + "-";
    const std::string back = whole.extension().string() + ending + temporaryEnding;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(folderOf(path), failure)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(front) || !name.ends_with(back)) {
            continue;
        }
        // Not one that another run is writing.
        const Descriptor leftover(
            ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (leftover.isOpen() && ::flock(leftover.get(), LOCK_EX | LOCK_NB) == 0) {
            ::unlink(entry.path().c_str());
        }
    }
}

void PartCompressor::add(const std::string& path) {
    const LockGuard guard(lock);
    if (isEnding) {
        return;
    }
    if (!thread.joinable()) {
        try {
            thread = std::thread([this] { run(); });
        } catch (const std::system_error& failure) {
            texts.push_back(fmt::format("{} isn't compressed: {}", path, failure.what()));
            return;
        }
    }
    waiting.push_back(path);
    changed.notify_all();
}

std::error_code PartCompressor::remove(const std::string& path) {
    const LockGuard guard(lock);
    std::erase(waiting, path);
    isUnwanted = isUnwanted || present == path;
    std::error_code failure;
    std::error_code ofCompressed;
    fs::remove(path, failure);
    fs::remove(path + ending, ofCompressed);
    return failure ? failure : ofCompressed;
}

void PartCompressor::cancel() {
    const LockGuard guard(lock);
    isEnding = true;
    isUnwanted = true;
    waiting.clear();
    changed.notify_all();
}

std::optional<PartCompressor::Progress> PartCompressor::getProgress() const {
    const LockGuard guard(lock);
    if (present.empty() && waiting.empty()) {
        return std::nullopt;
    }
    const bool isNext = present.empty();
    return Progress{isNext ? waiting.front() : present, isNext ? 0.0 : share.load(),
                    waiting.size() - (isNext ? 1 : 0)};
}

std::vector<std::string> PartCompressor::takeTexts() {
    const LockGuard guard(lock);
    return std::exchange(texts, {});
}

void PartCompressor::run() {
    // Of this thread alone.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), lowestPriority);
    while (takeNext()) {
        std::string failure;
        try {
            compress();
        } catch (const std::exception& error) {
            failure = error.what();
        }
        const LockGuard guard(lock);
        if (failure.empty()) {
            isFailureReported = isFailureReported && isUnwanted;
        } else if (!isUnwanted && !std::exchange(isFailureReported, true)) {
            texts.push_back(
                fmt::format("{} isn't compressed and stays as it is: {}", present, failure));
        }
        present.clear();
    }
}

bool PartCompressor::takeNext() {
    const LockGuard guard(lock);
    while (waiting.empty() && !isEnding) {
        changed.wait(lock);
    }
    if (isEnding) {
        return false;
    }
    present = std::move(waiting.front());
    waiting.pop_front();
    share = 0.0;
    isUnwanted = false;
    return true;
}

void PartCompressor::compress() {
    std::string path;
    {
        const LockGuard guard(lock);
        path = present;
    }
    const std::string temporary = path + ending + temporaryEnding;
    const Descriptor folder = open(folderOf(path).string(), O_RDONLY | O_DIRECTORY);
    const Descriptor from = open(path, O_RDONLY);
    struct stat part {};
    if (::fstat(from.get(), &part) != 0) {
        fail("opening");
    }
    if (part.st_size == 0) {  // nothing is no frame
        return;
    }
    ::unlink(temporary.c_str());
    const Descriptor to = open(temporary, O_WRONLY | O_CREAT | O_EXCL, part.st_mode & 0777U);
    bool isDone = false;
    try {
        ::flock(to.get(), LOCK_EX | LOCK_NB);
        const auto wholeSize = static_cast<std::uint64_t>(part.st_size);
        FrameWriter frame(to.get(), wholeSize);
        std::vector<std::uint8_t> plain(pieceSize);
        std::uint64_t done = 0;
        for (std::uint64_t pieces = 1; !isUnwanted; ++pieces) {
            const std::size_t size = readAll(from.get(), plain);
            if (size == 0) {
                frame.end();
                break;
            }
            frame.write(std::span(plain).first(size));
            if (pieces % piecesToSync == 0) {
                sync(to.get());
            }
            done += size;
            share = static_cast<double>(done) / static_cast<double>(wholeSize);
        }
        if (!isUnwanted) {
            const std::array<timespec, 2> times = {part.st_atim, part.st_mtim};
            ::futimens(to.get(), times.data());
            sync(to.get());
            isDone = put(temporary, folder.get());
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    if (!isDone) {
        ::unlink(temporary.c_str());
    }
}

/// The last step, which `remove` doesn't come between. False if the part isn't wanted any more.
bool PartCompressor::put(const std::string& temporary, int folder) {
    const LockGuard guard(lock);
    if (isUnwanted) {
        return false;
    }
    if (!giveName(temporary, present + ending)) {
        fail("naming");
    }
    ::fsync(folder);
    ::unlink(present.c_str());
    return true;
}

}  // namespace station
