#include "station/recording/append_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace station {

namespace {

/// What to do about a file that can't be opened.
const char* openingAdvice(int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
        case ENOTDIR:
            return "Create its directory first, or name another file.";
        case EACCES:
        case EPERM:
        case EROFS:
            return "Choose a place that you may write to.";
        case EISDIR:
            return "Name a file, not a directory.";
        default:
            return "Choose another place.";
    }
}

FileError openingError(const std::string& path, const std::string& reason,
                       const std::string& advice) {
    return FileError("Cannot record to \"" + path + "\": " + reason + ". " + advice);
}

}  // namespace

AppendFile::AppendFile(std::string path, bool overwrite)
    : filePath(std::move(path)),
      buffer(std::make_unique<std::uint8_t[]>(bufferSize)),
      recordEnds(std::make_unique<RecordEnd[]>(mostEnds)) {
    try {
        open(overwrite);
    } catch (...) {
        if (fd >= 0) {
            ::close(fd);
        }
        throw;
    }
}

AppendFile::~AppendFile() {
    close();
}

bool AppendFile::isStreamPath(const std::string& path) {
    std::error_code ignored;
    return path == standardOutput || std::filesystem::is_fifo(path, ignored);
}

void AppendFile::openStream() {
    if (filePath == standardOutput) {
        fd = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    } else {
        fd = ::open(filePath.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        if (fd < 0 && errno == ENXIO) {
            throw openingError(filePath, "nobody reads from this pipe", "Start its reader first.");
        }
    }
    if (fd < 0) {
        const int errorNumber = errno;
        throw openingError(filePath, reasonOf(errorNumber), openingAdvice(errorNumber));
    }
    if (::isatty(fd) != 0) {
        throw openingError(filePath, "it is a terminal", "Pipe it into a program, or a file.");
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
}

void AppendFile::open(bool overwrite) {
    isStream = isStreamPath(filePath);
    if (isStream) {
        openStream();
        return;
    }
    // O_NONBLOCK, so that what becomes a pipe meanwhile is refused below and not waited for.
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    fd = ::open(filePath.c_str(), flags | O_EXCL, 0666);
    created = fd >= 0;
    if (!created) {
        fd = ::open(filePath.c_str(), flags, 0666);
    }
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0) {
        const int errorNumber = errno;
        throw openingError(filePath, reasonOf(errorNumber), openingAdvice(errorNumber));
    }
    if (!S_ISREG(status.st_mode)) {
        throw openingError(filePath, "it is not a regular file", "Name another file.");
    }
    // Before emptying: the file may be a recording that is being written. A file system without
    // locks goes without.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw openingError(filePath, "another recording is being written to it",
                           "Name another file.");
    }
    if (status.st_size > 0 && !overwrite) {
        throw openingError(
            filePath, "the file exists and is not empty",
            "Name another file, remove this one, or have it overwritten (--overwrite).");
    }
    isToBeEmptied = status.st_size > 0;
}

void AppendFile::appendHeader(const std::vector<std::uint8_t>& bytes) {
    if (used + bytes.size() > bufferSize) {
        drain();
    }
    if (isWritable()) {
        std::memcpy(buffer.get() + used, bytes.data(), bytes.size());
        used += bytes.size();
    }
}

bool AppendFile::flush() {
    if (isWritable()) {
        drain();
    }
    if (isWritable() && !isStream) {
        checkStillThere();
    }
    return !hasFailed();
}

bool AppendFile::close() {
    if (fd < 0) {
        return !hasFailed();
    }
    emptyFirst();
    flush();
    if (!isStream && waitsForDisk && ::fsync(fd) != 0 && !hasFailed()) {
        fail(reasonOf(errno) + " when closing it, its end may be missing. Check the disk");
    }
    reportProgress();
    // An interrupted close has closed the descriptor all the same.
    if (::close(fd) != 0 && errno != EINTR && !hasFailed()) {
        fail(reasonOf(errno) + " when closing it, its end may be missing. Check the disk");
    }
    fd = -1;
    return !hasFailed();
}

void AppendFile::discard() {
    used = 0;
    endCount = 0;
    isToBeEmptied = false;
}

std::size_t AppendFile::writeOut(const std::uint8_t* bytes, std::size_t size, int& errorNumber) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::write(fd, bytes + done, size - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            errorNumber = count == 0 ? ENOSPC : errno;
            break;
        }
    }
    return done;
}

void AppendFile::drain() {
    if (used == 0) {
        return;
    }
    emptyFirst();
    if (isWritable()) {
        int errorNumber = 0;
        const std::size_t done = writeOut(buffer.get(), used, errorNumber);
        if (done == used) {
            bytesInFile += used;
            keepAndDrop(endCount);
            beginWriteback();
        } else {
            cutBack(done, errorNumber);
        }
    }
    used = 0;
    reportProgress();
}

void AppendFile::appendBlock(std::span<const std::uint8_t> bytes,
                             const std::vector<std::uint32_t>& channelsOfRecords) {
    drain();
    emptyFirst();
    const auto drop = [&] {
        for (const std::uint32_t channel : channelsOfRecords) {
            dropRecords(channel, 1);
        }
    };
    if (!isWritable()) {
        drop();
        return;
    }
    int errorNumber = 0;
    const std::size_t done = writeOut(bytes.data(), bytes.size(), errorNumber);
    if (done == bytes.size()) {
        bytesInFile += done;
        recordsInFile += channelsOfRecords.size();
        for (const std::uint32_t channel : channelsOfRecords) {
            ++channels[channel].written;
        }
        beginWriteback();
    } else {
        drop();
        cutBack(done, errorNumber);
    }
    reportProgress();
}

/// Has the disk take what is in the file meanwhile, so that there is little left to wait for when
/// it is closed.
void AppendFile::beginWriteback() {
    constexpr std::uint64_t piece = 8U << 20U;
    if (!isStream && bytesInFile - writebackBegun >= piece) {
        ::sync_file_range(fd, static_cast<off64_t>(writebackBegun),
                          static_cast<off64_t>(bytesInFile - writebackBegun),
                          SYNC_FILE_RANGE_WRITE);
        writebackBegun = bytesInFile;
    }
}

void AppendFile::patch(std::uint64_t offset, const std::vector<std::uint8_t>& bytes) {
    if (isWritable()) {
        drain();
    }
    if (!isWritable() || isStream) {
        return;
    }
    // A descriptor that appends does so whichever place it is given.
    const int flags = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, flags & ~O_APPEND);
    const ssize_t count = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    const int errorNumber = errno;
    ::fcntl(fd, F_SETFL, flags);
    if (count != static_cast<ssize_t>(bytes.size())) {
        fail(reasonOf(count < 0 ? errorNumber : ENOSPC) +
             " when completing its header. Its records are in it; have it repaired");
    }
}

void AppendFile::emptyFirst() {
    if (std::exchange(isToBeEmptied, false) && ::ftruncate(fd, 0) != 0) {
        fail(reasonOf(errno) + " when emptying it. Name another file");
        keepAndDrop(0);
    }
}

/// `bytesOut` bytes of the buffer went into the file before writing failed: keeps the whole
/// records.
void AppendFile::cutBack(std::size_t bytesOut, int errorNumber) {
    std::size_t kept = 0;
    while (kept < endCount && recordEnds[kept].offset <= bytesOut) {
        ++kept;
    }
    if (kept != 0) {
        bytesInFile += recordEnds[kept - 1].offset;
    }
    keepAndDrop(kept);
    if (isStream) {
        fail((errorNumber == EPIPE ? "its reader has gone away" : reasonOf(errorNumber)) +
             ", after " + std::to_string(recordsInFile) + " records");
        return;
    }
    const bool isCut = ::ftruncate(fd, static_cast<off_t>(bytesInFile)) == 0;
    fail(reasonOf(errorNumber) + ". It holds " + std::to_string(recordsInFile) +
         " records up to here" + (isCut ? "" : ", its last one may be torn") +
         ". Make room or choose another disk, and record again");
}

/// The first `kept` records in the buffer are in the file, the others won't get there.
void AppendFile::keepAndDrop(std::size_t kept) {
    recordsInFile += kept;
    for (std::size_t i = 0; i < kept; ++i) {
        ++channels[recordEnds[i].channel].written;
    }
    for (std::size_t i = kept; i < endCount; ++i) {
        dropRecords(recordEnds[i].channel, 1);
    }
    endCount = 0;
}

/// A file that was deleted takes all its records along; one that was moved, replaced or written to
/// by another keeps them, but what follows would not be found or not be readable. The user must
/// know.
void AppendFile::checkStillThere() {
    struct stat own {};
    struct stat named {};
    if (::fstat(fd, &own) != 0) {
        return;
    }
    if (own.st_nlink == 0) {
        for (Counts& channel : channels) {
            channel.lost += std::exchange(channel.written, 0);
        }
        lost += std::exchange(recordsInFile, 0);
        bytesInFile = 0;
        fail("the file was deleted, and its records with it. Record again");
        return;
    }
    const bool isNamed = ::stat(filePath.c_str(), &named) == 0;
    const bool isGone = !isNamed && (errno == ENOENT || errno == ENOTDIR);
    const bool isOther = isNamed && (named.st_dev != own.st_dev || named.st_ino != own.st_ino);
    if (isGone || isOther) {
        fail("the file was moved away or replaced, and holds " + std::to_string(recordsInFile) +
             " records up to here. Record again");
    } else if (!isToBeEmptied && static_cast<std::uint64_t>(own.st_size) != bytesInFile) {
        fail("another program changed the file. Record again, to another file");
    }
}

void AppendFile::reportProgress() const {
    if (onProgress) {
        onProgress();
    }
}

void AppendFile::fail(const std::string& reason) {
    error = "Recording to \"" + filePath + "\" ended: " + reason + ".";
}

}  // namespace station
