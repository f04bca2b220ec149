#include "station/stream/spool.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>
#include <utility>

#include "station/errors.h"
#include "station/stream/batch_file.h"

namespace station {
namespace fs = std::filesystem;

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
    lockFile = lockSpool(folder);  // before anything is removed
    findParts();
    readNote();
    noteStation(stationToken);
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
                                    (folder / spoolLockName).string(), std::strerror(errno)));
    }
}

/// A power cut or another program may have spoiled it: it is believed if a batch ends there.
void Spool::readNote() {
    std::error_code failure;
    if (!fs::exists(folder / spoolNoteName, failure)) {
        return;
    }
    const auto place = readSpoolNote(folder);
    bool isBelieved = false;
    {
        const LockGuard guard(lock);
        const auto found = place ? parts.find(place->part) : parts.end();
        isBelieved = found != parts.end() && isEndOfBatch(openForReading(found->second.path),
                                                          place->offset, found->second.bytes);
        // Its part may be gone by right, but then those in front of it are too.
        if (!isBelieved && !parts.empty() && (!place || parts.begin()->first <= place->part)) {
            texts.push_back(
                "the stream's spool: its note of what is acknowledged is damaged, or isn't of "
                "these files: all that is there is sent, also what may be in the stream already");
        }
    }
    if (isBelieved) {
        noted = *place;
        acknowledge(noted, 0);
    } else {  // one of the next parts may get its number
        remove(folder / spoolNoteName);
    }
}

bool Spool::saveNote() {
    Place place;
    {
        const LockGuard guard(lock);
        place = acknowledgedUpTo;
    }
    return place.part == Key() || writeSpoolNote(folder, place);
}

void Spool::findParts() {
    std::error_code failure;
    const LockGuard guard(lock);
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        const auto key = spoolKeyOf(entry.path());
        if (!key || !entry.is_regular_file(failure)) {
            continue;
        }
        const std::uint64_t bytes = entry.file_size(failure);
        if (bytes == 0) {
            continue;
        }
        const Descriptor file = openForReading(entry.path());
        int readFailure = file.isOpen() ? 0 : errno;
        std::uint64_t first = 0;
        const bool isPart =
            readFailure == 0 && findBatch(file, first, bytes, readFailure).has_value();
        if (!isPart && readFailure == 0) {
            texts.push_back(
                fmt::format("{} is no part of a spool, and is left alone", entry.path().string()));
            continue;
        }
        latestMeasurement = std::max(latestMeasurement, key->measurement);
        if (!isPart) {
            texts.push_back(fmt::format("{} can't be read: {}; it is left alone until the next run",
                                        entry.path().string(), std::strerror(readFailure)));
        } else if (!parts.emplace(*key, Part{entry.path(), bytes, std::nullopt, true, true})
                        .second) {
            texts.push_back(
                fmt::format("{} has the numbers of another part of the spool, and is left alone",
                            entry.path().string()));
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
    return folder / fmt::format("{:08}{}", ++latestMeasurement, spoolPartEnding);
}

void Spool::addPart(const std::string& path) {
    const auto key = spoolKeyOf(path);
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
        const auto found = parts.find(spoolKeyOf(path).value_or(Key()));
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
    const Key key = spoolKeyOf(path).value_or(Key());
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
            noteDamage(place, at, !found && isTornBatch(readFile, place.offset, part.bytes));
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
void Spool::noteDamage(const Place& from, std::uint64_t to, bool isTorn) {
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
        lostMessages += part.isOld && !isTorn ? 1 : 0;  // at least
        if (to >= part.bytes && part.isClosed) {
            countUnread(part);
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

void Spool::noteAllRead(const Key& key) {
    const LockGuard guard(lock);
    if (const auto found = parts.find(key); found != parts.end()) {
        countUnread(found->second);
    }
}

/// What a part of this run had, and couldn't be read, is lost.
void Spool::countUnread(Part& part) {
    if (part.messages) {
        std::uint64_t& messages = *part.messages;
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
            "(--spool-limit), or its files were changed or deleted",
            lostMessages - lostReported));
        lostReported = lostMessages;
    }
    return std::exchange(texts, {});
}

}  // namespace station
