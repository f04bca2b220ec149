#include "station/stream/spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
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
constexpr const char* noteName = "acknowledged";

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

/// A line for each measurement: its last part of which something is acknowledged, and up to where.
void Spool::readNote() {
    const fs::path path = folder / noteName;
    std::ifstream file(path);
    std::string name;
    const LockGuard guard(lock);
    for (std::uint64_t offset = 0; file >> name >> offset;) {
        if (const auto key = keyOf(name)) {
            noted[key->measurement] = {*key, offset};
            progress[key->measurement] = {{*key, offset}, 0};
            latestMeasurement = std::max(latestMeasurement, key->measurement);
        }
    }
    noteFile = Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    struct stat status {};
    if (!noteFile.isOpen() || ::fstat(noteFile.get(), &status) != 0) {
        throw UserError(
            fmt::format("--spool: {} can't be written: {}", path.string(), std::strerror(errno)));
    }
    noteSize = static_cast<std::size_t>(status.st_size);
}

/// In one call and over what is there: it costs little enough to be done for each batch, needs no
/// room on a full disk, and a process that is killed leaves the old note or the new one.
bool Spool::saveNote() {
    std::string note;
    {
        const LockGuard guard(lock);
        for (const auto& [measurement, latest] : progress) {
            note += fmt::format("{:08}-acknowledged-{:04}{} {}\n", measurement,
                                latest.place.part.part, partEnding, latest.place.offset);
        }
    }
    noteSize = std::max(noteSize, note.size());
    note.resize(noteSize, '\n');
    return ::pwrite(noteFile.get(), note.data(), note.size(), 0) ==
           static_cast<ssize_t>(note.size());
}

void Spool::findParts() {
    std::error_code failure;
    std::set<std::uint64_t> present;
    const LockGuard guard(lock);
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        const auto key = keyOf(entry.path());
        if (!key || !entry.is_regular_file(failure)) {
            continue;
        }
        latestMeasurement = std::max(latestMeasurement, key->measurement);
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
        present.insert(key->measurement);
        const Place done = progressOf(*key).place;
        if (*key < done.part || (*key == done.part && bytes <= done.offset)) {
            std::error_code ignored;  // then it is tried again at the next start
            fs::remove(entry.path(), ignored);
        } else {
            parts[*key] = {entry.path(), bytes, std::nullopt, true};
        }
    }
    if (failure) {
        throw UserError(
            fmt::format("--spool: {} can't be read: {}", folder.string(), failure.message()));
    }
    firstLive = latestMeasurement + 1;
    // The note would grow for ever. The latest one stays, so that no number is given again.
    for (auto entry = progress.begin(); entry != progress.end();) {
        const bool isNeeded = entry->first == latestMeasurement || present.contains(entry->first);
        entry = isNeeded ? std::next(entry) : progress.erase(entry);
    }
}

std::string Spool::nameNext() {
    return folder / fmt::format("{:08}{}", ++latestMeasurement, partEnding);
}

void Spool::addPart(const std::string& path) {
    const auto key = keyOf(path);
    const LockGuard guard(lock);
    if (key) {
        parts[*key] = {path, 0, 0, false};
    }
}

void Spool::grow(const std::string& path, std::uint64_t bytes, std::uint64_t messages) {
    bool isTooMuch = false;
    {
        const LockGuard guard(lock);
        const auto found = parts.find(keyOf(path).value_or(Key()));
        if (found == parts.end()) {
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
        const Place done = progressOf(key).place;
        const bool isDone = done.part == key && done.offset >= found->second.bytes;
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

Spool::Key Spool::firstOf(Lane lane) const {
    return lane == Lane::Live ? Key{firstLive, 0} : Key();
}

/// Of the part's measurement: nothing if that has none.
Spool::Progress Spool::progressOf(const Key& key) const {
    const auto found = progress.find(key.measurement);
    return found != progress.end() ? found->second : Progress();
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
            const Progress done = progressOf(key);
            acknowledged = key == done.place.part ? done.messages : 0;
            parts.erase(parts.begin());
        }
        const std::uint64_t messages = part.messages ? *part.messages : countMessages(key, part);
        remove(part.path);
        const LockGuard guard(lock);
        lostMessages += messages - std::min(messages, acknowledged);
    }
}

/// Those that weren't acknowledged when the spool was opened.
std::uint64_t Spool::countMessages(const Key& key, const Part& part) const {
    const Descriptor file = openForReading(part.path);
    const auto known = noted.find(key.measurement);
    std::uint64_t offset =
        known != noted.end() && known->second.part == key ? known->second.offset : 0;
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
            const std::uint64_t messages = countMessages(last, part);
            const LockGuard guard(lock);
            if (const auto found = parts.find(last); found != parts.end()) {
                found->second.messages = messages;
            }
        }
    }
}

Spool::Reader Spool::startReading(Lane lane) const {
    const LockGuard guard(lock);
    Reader reader;
    reader.place.part = firstOf(lane);
    reader.end = lane == Lane::Live ? Key{std::numeric_limits<std::uint64_t>::max(), 0}
                                    : firstOf(Lane::Live);
    return reader;
}

bool Spool::read(Reader& reader, Batch& batch) {
    Place& place = reader.place;
    for (;;) {
        Part part;
        Progress done;
        {
            const LockGuard guard(lock);
            const auto found = parts.lower_bound(place.part);
            if (found == parts.end() || found->first >= reader.end) {
                return false;
            }
            done = progressOf(found->first);
            if (found->first != place.part) {
                place = {found->first, found->first == done.place.part ? done.place.offset : 0};
            }
            part = found->second;
        }
        if (reader.fileKey != place.part) {
            reader.file = Descriptor();
            reader.fileKey = place.part;
            reader.messages = place.part == done.place.part ? done.messages : 0;
        }
        if (place.offset >= part.bytes) {
            if (!part.isClosed) {
                return false;
            }
            noteAllRead(place.part, reader.messages);
            ++place.part.part;
            place.offset = 0;
            continue;
        }
        if (!reader.file.isOpen()) {
            reader.file = openForReading(part.path);
        }
        int failure = reader.file.isOpen() ? 0 : errno;
        std::uint64_t at = place.offset;
        auto found = failure == 0 ? findBatch(reader.file, at, part.bytes, failure) : std::nullopt;
        if (found) {
            found->batch.payload.resize(found->size);
            std::span<std::uint8_t> payload = found->batch.payload;
            failure = readAt(reader.file, at, payload);
        }
        if (failure != 0) {
            reader.file = Descriptor();
            noteUnreadable(part.path, failure);
            return false;
        }
        if (at != place.offset) {
            noteDamage(place, at);
        }
        place.offset = at;
        if (found) {
            batch = std::move(found->batch);
            reader.messages += batch.messages;
            place.offset += found->size;
            return true;
        }
    }
}

/// What can't be read now may be read later: nothing is given up for it.
void Spool::noteUnreadable(const fs::path& path, int errorNumber) {
    const LockGuard guard(lock);
    if (std::exchange(unreadable, path) != path) {
        texts.push_back(fmt::format("the stream's spool: {} can't be read: {}; it is tried again",
                                    path.string(), std::strerror(errorNumber)));
    }
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
            lostMessages += from.part.measurement < firstLive ? 1 : 0;  // at least
        } else if (part.isClosed) {
            part.bytes = from.offset;
            const Place known = progressOf(from.part).place;
            if (known.part == from.part && known.offset >= part.bytes) {
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
void Spool::noteAllRead(const Key& key, std::uint64_t messages) {
    const LockGuard guard(lock);
    const auto found = parts.find(key);
    if (found != parts.end() && found->second.messages) {
        std::uint64_t& had = *found->second.messages;
        lostMessages += had - std::min(had, messages);
        had = std::min(had, messages);
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
        Progress& latest = progress[end.part.measurement];
        latest.messages = messages + (latest.place.part == end.part ? latest.messages : 0);
        latest.place = end;
        const bool isLive = end.part.measurement >= firstLive;
        auto next = parts.lower_bound(firstOf(isLive ? Lane::Live : Lane::Earlier));
        while (next != parts.end() && next->second.isClosed &&
               (next->first < end.part ||
                (next->first == end.part && end.offset >= next->second.bytes))) {
            done.push_back(next->second.path);
            next = parts.erase(next);
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
        const Progress known = progressOf(key);
        const bool isBegun = known.place.part == key;
        const std::uint64_t before = isBegun ? known.messages : 0;
        counts.messages += part.messages.value_or(before) - before;
        counts.bytes += part.bytes - std::min(part.bytes, isBegun ? known.place.offset : 0);
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
