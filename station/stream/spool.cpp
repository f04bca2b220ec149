#include "station/stream/spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <span>
#include <system_error>
#include <utility>

#include "station/errors.h"
#include "station/stream/batch_file.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* partEnding = ".pcapng";
constexpr const char* lockName = "lock";

}  // namespace

Spool::Spool(fs::path spoolFolder, const std::string& stationToken, std::uint64_t mostBytes)
    : folder(std::move(spoolFolder)), limit(mostBytes) {
    std::error_code failure;
    fs::create_directories(folder, failure);
    if (failure) {
        throw UserError(
            fmt::format("--spool: {} can't be made: {}; name a folder that you may "
                        "write to",
                        folder.string(), failure.message()));
    }
    takeLock();  // before anything is removed
    readNote();
    findParts();
    noteStation(stationToken);
}

/// "00000003-SESSION-0001.pcapng", as `nameNext` and `RecordingSeries` have it.
std::optional<Spool::Key> Spool::keyOf(const fs::path& path) {
    const std::string name = path.stem();
    const std::size_t dash = name.rfind('-');
    Key key;
    int measurementEnd = 0;
    int partEnd = 0;
    if (path.extension() != partEnding || dash == name.npos ||
        std::sscanf(name.c_str(), "%8" SCNu64 "-%n", &key.measurement, &measurementEnd) != 1 ||
        std::sscanf(name.c_str() + dash, "-%9" SCNu64 "%n", &key.part, &partEnd) != 1 ||
        measurementEnd != 9 || dash + static_cast<std::size_t>(partEnd) != name.size()) {
        return std::nullopt;
    }
    return key;
}

void Spool::takeLock() {
    const fs::path path = folder / lockName;
    lockFile = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!lockFile.isOpen()) {
        throw UserError(
            fmt::format("--spool: {} can't be written: {}; name a folder that you may "
                        "write to",
                        path.string(), std::strerror(errno)));
    }
    if (::flock(lockFile.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw UserError(ExitCode::Failed,
                        fmt::format("--spool: another station of this name uses {}; end it, or "
                                    "give this one another name with --station",
                                    folder.string()));
    }
}

/// The lock's file has the name of the station whose batches are there.
void Spool::noteStation(const std::string& stationToken) {
    std::array<char, 1024> there{};
    const ssize_t size = ::pread(lockFile.get(), there.data(), there.size(), 0);
    const std::string owner(there.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    const LockGuard guard(lock);
    if (!owner.empty() && owner != stationToken && !parts.empty()) {
        throw UserError(
            fmt::format("--spool: {} has messages of the station \"{}\" that aren't sent yet; send "
                        "them as that "
                        "one (--station), or name another folder",
                        folder.string(), owner));
    }
    if (owner != stationToken &&
        (::ftruncate(lockFile.get(), 0) != 0 ||
         ::pwrite(lockFile.get(), stationToken.data(), stationToken.size(), 0) < 0)) {
        throw UserError(fmt::format("--spool: {} can't be written: {}",
                                    (folder / lockName).string(), std::strerror(errno)));
    }
}

void Spool::readNote() {
    std::ifstream file(folder / "acknowledged");
    std::string name;
    std::uint64_t offset = 0;
    if (file >> name >> offset) {
        if (const auto key = keyOf(name)) {
            noted = {*key, offset};
        }
    }
    const LockGuard guard(lock);
    acknowledgedUpTo = noted;
    latestMeasurement = noted.part.measurement;
}

bool Spool::saveNote() {
    Place place;
    {
        const LockGuard guard(lock);
        place = acknowledgedUpTo;
    }
    if (place.part == Key()) {
        return true;
    }
    const fs::path path = folder / "acknowledged";
    const fs::path next = folder / "acknowledged.new";
    {
        std::ofstream file(next, std::ios::trunc);
        file << fmt::format("{:08}-acknowledged-{:04}{} {}\n", place.part.measurement,
                            place.part.part, partEnding, place.offset);
        if (!file.flush()) {
            return false;
        }
    }
    std::error_code failure;
    fs::rename(next, path, failure);
    return !failure;
}

void Spool::findParts() {
    std::error_code failure;
    const LockGuard guard(lock);
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        const auto key = keyOf(entry.path());
        if (!key || !entry.is_regular_file(failure)) {
            continue;
        }
        const std::uint64_t bytes = entry.file_size(failure);
        if (bytes == 0) {
            continue;
        }
        int readFailure = 0;
        if (!headerAt(openForReading(entry.path()), 0, bytes, readFailure)) {
            texts.push_back(
                fmt::format("{} is no part of a spool, and is left alone", entry.path().string()));
            continue;
        }
        latestMeasurement = std::max(latestMeasurement, key->measurement);
        if (*key < noted.part || bytes <= startOf(*key)) {
            fs::remove(entry.path(), failure);
        } else {
            parts[*key] = {entry.path(), bytes, std::nullopt, true, true};
        }
    }
    if (failure) {
        throw UserError(
            fmt::format("--spool: {} can't be read: {}", folder.string(), failure.message()));
    }
}

std::string Spool::nameNext() {
    constexpr std::uint64_t most = 99'999'999;  // as `keyOf` reads it
    if (latestMeasurement >= most) {
        throw FileError(
            fmt::format("--spool: {} has a part with the last number that there is, {}: name "
                        "another folder, and send this one by `cmp-station stream`",
                        folder.string(), latestMeasurement));
    }
    return folder / fmt::format("{:08}{}", ++latestMeasurement, partEnding);
}

void Spool::addPart(const std::string& path) {
    const auto key = keyOf(path);
    if (!key) {
        throw FileError(fmt::format("{} is no name of a part of a spool", path));
    }
    const LockGuard guard(lock);
    parts[*key] = {path, 0, 0, false};
}

void Spool::grow(const std::string& path, std::uint64_t bytes, std::uint64_t messages) {
    bool isTooMuch = false;
    {
        const LockGuard guard(lock);
        const auto found = parts.find(keyOf(path).value_or(Key()));
        if (found == parts.end()) {
            lostMessages += messages;  // another program deleted it
            return;
        }
        found->second.bytes += bytes;
        *found->second.messages += messages;
        isTooMuch = sumBytes() > limit;
        hasMore = true;
        changed.notify_all();
    }
    if (isTooMuch) {
        dropOldest();
    }
}

void Spool::closePart(const std::string& path) {
    const Key key = keyOf(path).value_or(Key());
    {
        const LockGuard guard(lock);
        const auto found = parts.find(key);
        if (found == parts.end()) {
            return;
        }
        found->second.isClosed = true;
        hasMore = true;
        changed.notify_all();
        const bool isDone =
            acknowledgedUpTo.part == key && acknowledgedUpTo.offset >= found->second.bytes;
        if (found->second.bytes != 0 && !isDone) {
            return;
        }
        parts.erase(found);
    }
    remove(path);
}

std::uint64_t Spool::sumBytes() const {
    std::uint64_t sum = 0;
    for (const auto& [key, part] : parts) {
        sum += part.bytes;
    }
    return sum;
}

/// Where what isn't acknowledged begins in it.
std::uint64_t Spool::startOf(const Key& key) const {
    return key == acknowledgedUpTo.part ? acknowledgedUpTo.offset : 0;
}

std::uint64_t Spool::acknowledgedOf(const Key& key) const {
    return key == acknowledgedUpTo.part ? acknowledgedOfPart : 0;
}

void Spool::dropOldest() {
    for (;;) {
        Key key;
        Part part;
        std::uint64_t acknowledged = 0;
        {
            const LockGuard guard(lock);
            if (sumBytes() <= limit || parts.empty() || !parts.begin()->second.isClosed) {
                return;
            }
            key = parts.begin()->first;
            part = parts.begin()->second;
            acknowledged = acknowledgedOf(key);
            parts.erase(parts.begin());
        }
        const std::uint64_t messages =
            part.messages ? *part.messages : countMessages(key, part).value_or(1);
        remove(part.path);
        const LockGuard guard(lock);
        lostMessages += messages - std::min(messages, acknowledged);
    }
}

/// Those that weren't acknowledged when the spool was opened; none if it can't be opened.
std::optional<std::uint64_t> Spool::countMessages(const Key& key, const Part& part) const {
    const Descriptor file = openForReading(part.path);
    if (!file.isOpen()) {
        return std::nullopt;
    }
    std::uint64_t offset = key == noted.part ? noted.offset : 0;
    std::uint64_t messages = 0;
    int failure = 0;
    while (const auto found = findBatch(file, offset, part.bytes, failure)) {
        messages += found->batch.messages;
        offset += found->size;
    }
    return messages;
}

void Spool::countOld() {
    for (Key last;;) {
        Part part;
        {
            const LockGuard guard(lock);
            const auto found = parts.upper_bound(last);
            if (found == parts.end()) {
                return;
            }
            last = found->first;
            part = found->second;
        }
        if (!part.messages) {
            const auto messages = countMessages(last, part);
            const LockGuard guard(lock);
            if (const auto found = parts.find(last); found != parts.end()) {
                found->second.messages = messages;
            }
        }
    }
}

Spool::Place Spool::start() {
    const LockGuard guard(lock);
    readKey = acknowledgedUpTo.part;
    readFile = Descriptor();
    readMessages = acknowledgedOfPart;
    return acknowledgedUpTo;
}

bool Spool::read(Place& place, Batch& batch) {
    for (;;) {
        Part part;
        {
            const LockGuard guard(lock);
            const auto found = parts.lower_bound(place.part);
            if (found == parts.end()) {
                return false;
            }
            if (found->first != place.part) {
                place = {found->first, startOf(found->first)};
            }
            part = found->second;
        }
        if (readKey != place.part) {
            readFile = Descriptor();
            readKey = place.part;
            readMessages = 0;
        }
        if (place.offset >= part.bytes) {
            if (!part.isClosed) {
                return false;
            }
            noteAllRead(place.part);
            ++place.part.part;
            place.offset = 0;
            continue;
        }
        if (!readFile.isOpen()) {
            readFile = openForReading(part.path);
        }
        int failure = readFile.isOpen() ? 0 : errno;
        if (failure == ENOENT) {
            noteDeleted(place.part);
            continue;
        }
        std::uint64_t at = place.offset;
        auto found = failure == 0 ? findBatch(readFile, at, part.bytes, failure) : std::nullopt;
        if (found) {
            found->batch.payload.resize(found->size);
            std::span<std::uint8_t> payload = found->batch.payload;
            failure = readAt(readFile, at, payload);
        }
        if (failure != 0) {
            noteUnreadable(part.path, failure);
            return false;
        }
        if (at != place.offset) {
            noteDamage(place, at);
        }
        place.offset = at;
        if (found) {
            batch = std::move(found->batch);
            readMessages += batch.messages;
            place.offset += found->size;
            return true;
        }
    }
}

/// What can't be read now may be read later: nothing is given up for it.
void Spool::noteUnreadable(const fs::path& path, int errorNumber) {
    readFile = Descriptor();
    const LockGuard guard(lock);
    if (std::exchange(unreadable, path) != path) {
        texts.push_back(fmt::format("the stream's spool: {} can't be read: {}; it is tried again",
                                    path.string(), std::strerror(errorNumber)));
    }
}

/// Nobody sends what it had, and nothing behind it waits for it.
void Spool::noteDeleted(const Key& key) {
    const LockGuard guard(lock);
    const auto found = parts.find(key);
    if (found == parts.end()) {
        return;  // it had to go meanwhile
    }
    const std::uint64_t acknowledged = acknowledgedOf(key);
    const std::uint64_t messages = found->second.messages.value_or(acknowledged + 1);  // at least
    lostMessages += messages - std::min(messages, acknowledged);
    texts.push_back(
        fmt::format("the stream's spool: another program deleted {}: what of it wasn't in the "
                    "stream is lost",
                    found->second.path.string()));
    parts.erase(found);
}

/// A killed process may leave a torn batch at the end of a part, a power cut also other bytes.
void Spool::noteDamage(const Place& from, std::uint64_t to) {
    fs::path done;
    {
        const LockGuard guard(lock);
        const auto found = parts.find(from.part);
        if (found == parts.end()) {
            return;  // it had to go meanwhile
        }
        texts.push_back(
            fmt::format("the stream's spool: {} bytes of {} from byte {} on are no whole "
                        "batch and were left out",
                        to - from.offset, found->second.path.filename().string(), from.offset));
        Part& part = found->second;
        if (to < part.bytes) {
            lostMessages += part.isOld ? 1 : 0;  // at least
        } else if (part.isClosed) {
            part.bytes = from.offset;
            if (acknowledgedUpTo.part == from.part && acknowledgedUpTo.offset >= part.bytes) {
                done = part.path;
                parts.erase(found);
            }
        }
    }
    if (!done.empty()) {
        remove(done);
    }
}

/// What a part of this run had, and couldn't be read, is lost.
void Spool::noteAllRead(const Key& key) {
    const LockGuard guard(lock);
    const auto found = parts.find(key);
    if (found != parts.end() && found->second.messages) {
        std::uint64_t& messages = *found->second.messages;
        lostMessages += messages - std::min(messages, readMessages);
        messages = std::min(messages, readMessages);
    }
}

void Spool::acknowledge(const Place& end, std::uint64_t messages) {
    std::vector<fs::path> done;
    {
        const LockGuard guard(lock);
        acknowledgedMessages += messages;
        if (parts.find(end.part) == parts.end()) {
            // It was on its way when its part had to go.
            lostMessages -= std::min(lostMessages, messages);
        }
        if (acknowledgedUpTo.part != end.part) {
            acknowledgedOfPart = 0;
        }
        acknowledgedOfPart += messages;
        acknowledgedUpTo = end;
        while (!parts.empty()) {
            const auto& [key, part] = *parts.begin();
            if (!part.isClosed || key > end.part || (key == end.part && end.offset < part.bytes)) {
                break;
            }
            done.push_back(part.path);
            parts.erase(parts.begin());
        }
    }
    for (const fs::path& path : done) {
        remove(path);
    }
}

void Spool::remove(const fs::path& path) {
    std::error_code failure;
    fs::remove(path, failure);
    if (failure) {
        const LockGuard guard(lock);
        texts.push_back(fmt::format("the stream's spool: {} can't be removed: {}", path.string(),
                                    failure.message()));
    }
}

void Spool::waitForMore(std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    const LockGuard guard(lock);
    while (!hasMore && changed.wait_until(lock, end) == std::cv_status::no_timeout) {
    }
    hasMore = false;
}

Spool::Counts Spool::getCounts() const {
    const LockGuard guard(lock);
    Counts counts;
    for (const auto& [key, part] : parts) {
        const std::uint64_t before = acknowledgedOf(key);
        counts.messages += part.messages.value_or(before) - before;
        counts.bytes += part.bytes - std::min(part.bytes, startOf(key));
    }
    counts.acknowledged = acknowledgedMessages;
    counts.lost = lostMessages;
    return counts;
}

std::vector<std::string> Spool::takeTexts() {
    const LockGuard guard(lock);
    if (lostMessages > lostReported) {
        texts.push_back(fmt::format(
            "{} messages are lost to the stream: the oldest had to go as the spool is full "
            "(--spool-limit), or its files were changed",
            lostMessages - lostReported));
        lostReported = lostMessages;
    }
    return std::exchange(texts, {});
}

}  // namespace station
