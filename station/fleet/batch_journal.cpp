#include "station/fleet/batch_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <utility>

#include "station/errors.h"
#include "station/fleet/collect_folder.h"
#include "station/recording/pcapng_blocks.h"
#include "station/recording/pcapng_format.h"

namespace station {
namespace {

constexpr std::size_t leastBlock = 12;
constexpr std::size_t leastSection = 28;
constexpr std::size_t longestHead = 8192;
/// So much at the end of a file may be written and not yet be on the disk when the machine fails.
constexpr std::uint64_t uncertainBytes = std::uint64_t{64} << 20U;

/// The empty section in front of a batch.
std::vector<std::uint8_t> makeHead(const StoredBatch& batch) {
    const nlohmann::json what = {
        {"subject", batch.subject},      {"batch", batch.number},
        {"bytes", batch.payload.size()}, {"crc", checksumOf(batch.payload)},
        {"messages", batch.messages},    {"end", batch.isEnd},
        {"sequence", batch.sequence}};
    return makeSectionHeader(what.dump());
}

/// As much as can be read of it.
std::vector<std::uint8_t> bytesAt(const Descriptor& file, std::uint64_t offset, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::span<std::uint8_t> target = bytes;
    bytes.resize(readAt(file, offset, target) == 0 ? target.size() : 0);
    return bytes;
}

/// Empty if there is none at that place, or none of ours.
std::optional<BatchJournal::Entry> readHead(const Descriptor& file, std::uint64_t offset) {
    const auto bytes = bytesAt(file, offset, longestHead);
    const auto head = readCommentedSection(bytes);
    if (!head) {
        return std::nullopt;
    }
    try {
        const auto what = nlohmann::json::parse(head->comment);
        BatchJournal::Entry entry;
        entry.subject = what.at("subject").get<std::string>();
        entry.number = what.at("batch").get<std::uint64_t>();
        entry.bytes = what.at("bytes").get<std::uint64_t>();
        entry.messages = what.at("messages").get<std::uint64_t>();
        entry.sequence = what.at("sequence").get<std::uint64_t>();
        entry.isEnd = what.at("end").get<bool>();
        entry.offset = offset + head->size;
        entry.checksum = what.at("crc").get<std::uint32_t>();
        return entry;
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::uint64_t sizeOf(const Descriptor& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

/// Visits all whole batches; returns where they end.
std::uint64_t walk(const Descriptor& file, const BatchJournal::Visitor& visit) {
    const std::uint64_t size = sizeOf(file);
    std::uint64_t at = 0;
    while (const auto head = readHead(file, at)) {
        const BatchJournal::Entry& entry = *head;
        if (entry.bytes > size - entry.offset) {
            break;
        }
        const bool isUncertain = size - entry.offset <= uncertainBytes;
        if (isUncertain &&
            checksumOf(bytesAt(file, entry.offset, static_cast<std::size_t>(entry.bytes))) !=
                entry.checksum) {
            break;
        }
        visit(entry);
        at = entry.offset + entry.bytes;
    }
    return at;
}

}  // namespace

BatchJournal::BatchJournal(std::string filePath, const Visitor& visit) : path(std::move(filePath)) {
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    file = Descriptor(::open(path.c_str(), flags | O_CREAT, 0666));
    if (!file.isOpen()) {
        throw FileError("Cannot collect into \"" + path + "\": " + reasonOf(errno) +
                        ". Choose a folder that you may write to.");
    }
    end = synced = walk(file, visit);
    const std::uint64_t size = sizeOf(file);
    cutBytes = size - end;
    if (cutBytes != 0 && !cutTo(end)) {
        throw FileError("Cannot cut \"" + path +
                        "\" back to its last whole batch: " + reasonOf(errno) + ".");
    }
    syncFolderOf(path);
    file = Descriptor();
}

void BatchJournal::read(const std::string& path, const Visitor& visit) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (file.isOpen()) {
        walk(file, visit);
    }
}

bool BatchJournal::open() {
    if (!file.isOpen()) {
        file = Descriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (!file.isOpen()) {
            return fail(errno);
        }
        if (sizeOf(file) != end) {
            errorText = path + " was changed by another program; collect into another folder";
            file = Descriptor();
            return false;
        }
    }
    return true;
}

bool BatchJournal::fail(int errorNumber) {
    errorText = path + " can't be written: " + reasonOf(errorNumber);
    full = errorNumber == ENOSPC || errorNumber == EDQUOT;
    return false;
}

bool BatchJournal::cutTo(std::uint64_t size) {
    return ::ftruncate(file.get(), static_cast<off_t>(size)) == 0;
}

bool BatchJournal::append(const StoredBatch& batch) {
    if (!open()) {
        return false;
    }
    const std::vector<std::uint8_t> head = makeHead(batch);
    const std::array<std::span<const std::uint8_t>, 2> pieces = {head, batch.payload};
    std::uint64_t at = end;
    for (auto piece : pieces) {
        while (!piece.empty()) {
            const ssize_t count =
                ::pwrite(file.get(), piece.data(), piece.size(), static_cast<off_t>(at));
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                fail(count == 0 ? ENOSPC : errno);
                cutTo(end);
                return false;
            }
            piece = piece.subspan(static_cast<std::size_t>(count));
            at += static_cast<std::uint64_t>(count);
        }
    }
    end = at;
    return true;
}

bool BatchJournal::sync() {
    if (file.isOpen() && ::fdatasync(file.get()) != 0) {
        fail(errno);
        end = synced;
        cutTo(end);
        return false;
    }
    markSynced();
    return true;
}

void BatchJournal::markSynced() {
    synced = end;
    file = Descriptor();
}

std::uint32_t checksumOf(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint32_t>(
        ::crc32_z(::crc32_z(0, nullptr, 0), bytes.data(), bytes.size()));
}

bool isPcapng(std::span<const std::uint8_t> bytes) {
    pcapng::Numbers numbers;
    if (bytes.size() < leastSection || numbers.get32(bytes.data()) != pcapng::sectionHeader) {
        return false;
    }
    while (!bytes.empty()) {
        if (bytes.size() < leastBlock) {
            return false;
        }
        // The mark of a section is the same in both byte orders.
        if (numbers.get32(bytes.data()) == pcapng::sectionHeader &&
            !numbers.beginSection(bytes.data())) {
            return false;
        }
        const std::size_t size = numbers.get32(&bytes[4]);
        if (size < leastBlock || size % 4 != 0 || size > bytes.size() ||
            numbers.get32(&bytes[size - 4]) != size) {
            return false;
        }
        bytes = bytes.subspan(size);
    }
    return true;
}

}  // namespace station
