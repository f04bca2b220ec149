#include "station/stream/batch_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

namespace station {
namespace {

constexpr std::size_t longestHeader = 16 * 1024;
constexpr std::size_t usualHeader = 1024;  // has it nearly always

constexpr std::array<std::uint8_t, 4> mark = {0x0A, 0x0D, 0x0D, 0x0A};  // of a section

/// The batch at `offset` of a file whose whole batches end at `end`. `failure` is as of `readAt`.
std::optional<BatchExtent> headerAt(const Descriptor& file, std::uint64_t offset, std::uint64_t end,
                                    int& failure) {
    std::array<std::uint8_t, longestHeader> bytes;
    for (const std::size_t size : {usualHeader, longestHeader}) {
        std::span<std::uint8_t> target = std::span(bytes).first(size);
        failure = readAt(file, offset, target);
        auto found = failure == 0 ? readBatchHeader(target) : std::nullopt;
        if (found) {
            return found->size <= end - offset ? found : std::nullopt;
        }
        if (target.size() < size) {
            break;
        }
    }
    return std::nullopt;
}

/// Where the next section of a .pcapng may begin, or `end`.
std::uint64_t nextSection(const Descriptor& file, std::uint64_t at, std::uint64_t end,
                          int& failure) {
    std::vector<std::uint8_t> bytes(64 * 1024);
    for (; failure == 0 && at < end; at += bytes.size()) {
        std::span<std::uint8_t> there = bytes;
        failure = readAt(file, at, there);
        for (std::size_t i = 0; i + mark.size() <= there.size(); i += mark.size()) {
            if (std::equal(mark.begin(), mark.end(),
                           there.begin() + static_cast<std::ptrdiff_t>(i))) {
                return std::min(at + i, end);
            }
        }
    }
    return end;
}

}  // namespace

Descriptor openForReading(const std::filesystem::path& path) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // for a pipe
    struct stat status {};
    if (file.isOpen() && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file = Descriptor();
        errno = EINVAL;
    }
    return file;
}

std::optional<BatchExtent> findBatch(const Descriptor& file, std::uint64_t& offset,
                                     std::uint64_t end, int& failure) {
    constexpr std::uint64_t alignment = 4;  // of the blocks of a .pcapng
    failure = 0;
    for (std::uint64_t at = offset; failure == 0 && at < end;
         at = nextSection(file, at + alignment, end, failure)) {
        if (auto found = headerAt(file, at, end, failure)) {
            offset = at;
            return found;
        }
    }
    offset = failure == 0 ? end : offset;
    return std::nullopt;
}

std::optional<std::uint64_t> countMessages(const std::filesystem::path& path, std::uint64_t offset,
                                           std::uint64_t end) {
    const Descriptor file = openForReading(path);
    if (!file.isOpen()) {
        return std::nullopt;
    }
    std::uint64_t messages = 0;
    int failure = 0;
    while (const auto found = findBatch(file, offset, end, failure)) {
        messages += found->batch.messages;
        offset += found->size;
    }
    return messages;
}

bool isEndOfBatch(const Descriptor& file, std::uint64_t offset, std::uint64_t end) {
    std::uint64_t at = 0;
    int failure = 0;
    while (const auto found = findBatch(file, at, end, failure)) {
        at += found->size;
        if (at >= offset) {
            return at == offset;
        }
    }
    return false;
}

bool isTornBatch(const Descriptor& file, std::uint64_t offset, std::uint64_t end) {
    std::array<std::uint8_t, longestHeader> bytes;
    std::span<std::uint8_t> last = std::span(bytes).first(1);
    if (readAt(file, end - 1, last) != 0 || last.empty()) {
        return false;
    }
    std::span<std::uint8_t> there = std::span(bytes).first(std::min(longestHeader, end - offset));
    if (readAt(file, offset, there) != 0) {
        return false;
    }
    if (const auto found = readBatchHeader(there)) {
        return found->size > end - offset;
    }
    constexpr std::size_t sizeAt = mark.size();  // of the section's block, in this byte order
    std::uint32_t size = longestHeader;
    if (there.size() >= sizeAt + sizeof size) {
        std::memcpy(&size, there.data() + sizeAt, sizeof size);
    }
    const std::span<std::uint8_t> start = there.first(std::min(there.size(), mark.size()));
    return std::equal(start.begin(), start.end(), mark.begin()) && size > there.size() &&
           size <= longestHeader;
}

}  // namespace station
