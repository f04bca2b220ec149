#include "station/recording/input_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "station/errors.h"

namespace station {
namespace {

constexpr std::size_t windowBytes = 1U << 20U;

UserError unreadable(const std::string& path, const std::string& reason) {
    return UserError(ExitCode::Unreadable, fmt::format("can't read {}: {}", path, reason));
}

}  // namespace

InputFile::InputFile(std::string path, Kinds kinds) : filePath(std::move(path)) {
    const bool takesStreams = kinds == Kinds::RegularAndStreams;
    if (takesStreams && filePath == "-") {
        fd = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    } else {
        // O_NONBLOCK, so that the name of a pipe is refused below instead of waiting for its
        // writer.
        fd = ::open(filePath.c_str(),
                    O_RDONLY | O_CLOEXEC | O_NOCTTY | (takesStreams ? 0 : O_NONBLOCK));
    }
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0) {
        const int errorNumber = errno;
        if (fd >= 0) {
            ::close(fd);
        }
        throw unreadable(filePath, reasonOf(errorNumber));
    }
    if (!S_ISREG(status.st_mode)) {
        if (takesStreams && !S_ISDIR(status.st_mode)) {
            isOfNoSize = true;
            fileSize = std::numeric_limits<std::int64_t>::max();
            return;
        }
        ::close(fd);
        throw unreadable(filePath, "it is not a regular file");
    }
    fileSize = static_cast<std::uint64_t>(status.st_size);
    std::array<std::uint8_t, ZstdInput::markSize> mark{};
    if (::pread(fd, mark.data(), mark.size(), 0) > 0 && ZstdInput::isMark(mark)) {
        compressed = std::make_unique<ZstdInput>(fd, fileSize);
        fileSize = compressed->getSize();
        errorText = fileSize == 0 ? compressed->getEndText() : "";
    }
}

InputFile::~InputFile() {
    ::close(fd);
}

std::span<const std::uint8_t> InputFile::view(std::uint64_t offset, std::size_t size) {
    if (offset < windowStart || offset + size > windowStart + windowSize) {
        fill(offset, size, std::max(size, windowBytes));
    }
    const std::uint64_t from = std::min<std::uint64_t>(offset - windowStart, windowSize);
    return {window.data() + from, std::min<std::size_t>(size, windowSize - from)};
}

/// Of a stream as much as there is, but `wanted` bytes.
void InputFile::fill(std::uint64_t offset, std::size_t wanted, std::size_t size) {
    // What is there already isn't read again, as that can be costly in a compressed file.
    const std::size_t kept = offset < windowStart || offset - windowStart > windowSize
                                 ? 0
                                 : windowSize - static_cast<std::size_t>(offset - windowStart);
    std::copy(window.begin() + static_cast<std::ptrdiff_t>(windowSize - kept),
              window.begin() + static_cast<std::ptrdiff_t>(windowSize), window.begin());
    windowStart = offset;
    windowSize = kept;
    size = static_cast<std::size_t>(
        std::min<std::uint64_t>(size, fileSize - std::min(offset, fileSize)));
    window.resize(std::max(window.size(), size));
    if (compressed) {
        fillCompressed(size);
        return;
    }
    while (windowSize < (isOfNoSize ? wanted : size)) {
        std::uint8_t* const to = window.data() + windowSize;
        const ssize_t count = isOfNoSize ? ::read(fd, to, size - windowSize)
                                         : ::pread(fd, to, size - windowSize,
                                                   static_cast<off_t>(offset + windowSize));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            errorText = fmt::format("{} can't be read on: {}", filePath, reasonOf(errno));
        }
        if (count <= 0) {
            return;
        }
        windowSize += static_cast<std::size_t>(count);
    }
}

void InputFile::fillCompressed(std::size_t size) {
    if (windowSize < size) {
        windowSize += compressed->read(windowStart + windowSize,
                                       {window.data() + windowSize, size - windowSize});
    }
    if (windowSize < size && !compressed->getErrorText().empty()) {
        errorText = fmt::format("{} can't be read on: {}", filePath, compressed->getErrorText());
    } else if (windowStart + windowSize == fileSize) {
        errorText = compressed->getEndText();
    }
}

}  // namespace station
