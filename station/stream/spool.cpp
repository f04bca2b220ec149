#include "station/stream/spool.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <span>
#include <system_error>
#include <utility>

#include "station/errors.h"
#include "station/stream/batch_file.h"

namespace station {
namespace fs = std::filesystem;

Spool::Spool(fs::path spoolFolder, const std::string& stationToken, std::uint64_t mostBytes)
    : folder(std::move(spoolFolder)), limit(mostBytes) {
    lockFile = lockSpool(folder);  // before anything is removed
    readNote(findSpoolContents(folder));
    const LockGuard guard(lock);
    noteSpoolOwner(folder, lockFile, stationToken, !parts.empty());
}

SpoolProgress::Parts Spool::listParts() const {
    SpoolProgress::Parts sizes;
    for (const auto& [key, part] : parts) {
        if (part.bytes != 0) {
            sizes.emplace_hint(sizes.end(), key, part.bytes);
        }
    }
    return sizes;
}

void Spool::readNote(const SpoolContents& contents) {
    latestMeasurement = contents.measurement;
    firstLive = latestMeasurement + 1;
    std::error_code failure;
    const bool isThere = fs::exists(folder / spoolNoteName, failure);
    const std::vector<Place> there = readSpoolNote(folder);
    std::vector<fs::path> gone;
    std::vector<Place> believed;
    bool isEmpty = false;
    bool isOfThese = false;
    {
        const LockGuard guard(lock);
        texts = contents.texts;
        for (const auto& [key, part] : contents.parts) {
            parts[key] = {part.path, part.bytes, 0, std::nullopt, true};
        }
        isOfThese = progress.load(there, listParts(), [&](const Place& place) CMP_REQUIRES(lock) {
            const Part& part = parts.at(place.part);
            return isEndOfBatch(openForReading(part.path), place.offset, part.bytes);
        });
        if (isThere && !isOfThese && !parts.empty()) {
            texts.push_back(
                "the stream's spool: its note of what is acknowledged is damaged, or isn't of "
                "these files: what it doesn't say is sent, also what may be in the stream already");
        } else if (!isThere && !parts.empty()) {
            texts.push_back(
                "the stream's spool: it has no note of what is acknowledged, as after a kill at "
                "once, or when that was deleted: all of it is sent, also what may be in the stream "
                "already");
        }
        for (auto& [key, part] : parts) {
            part.start = progress.getStart(key);
        }
        for (const Place& place : progress.list(listParts())) {
            takeDone(place);
        }
        gone = std::exchange(done, {});
        noteGaps(findSpoolGaps(contents, isOfThese ? there : std::vector<Place>()));
        believed = progress.list(listParts());
        isEmpty = parts.empty();
    }
    // A measurement to come may get the number of one that is gone: its line goes too.
    if (isEmpty) {
        writeSpoolNote(folder, {{{1, 0}, 0, true, true}});
        remove(folder / spoolDroppedName);
    } else if (isOfThese || !isThere || std::ranges::any_of(believed, &Place::offset)) {
        const bool isSaved = believed == there || writeSpoolNote(folder, believed);
        const LockGuard noteGuard(noteLock);
        written = isSaved ? std::move(believed) : std::vector<Place>();
    } else {
        remove(folder / spoolNoteName);
    }
    removeParts(gone);
}

void Spool::noteGaps(const std::vector<SpoolGap>& gaps) {
    for (const SpoolGap& gap : gaps) {
        lostMessages += gap.countParts();
        texts.push_back(gap.describe());
        if (gap.isInFront && gap.last != 0) {  // not to be reported again
            progress.acknowledge({{gap.measurement, gap.last}, 0}, 0);
        }
    }
}

bool Spool::saveNote() {
    const LockGuard noteGuard(noteLock);
    std::vector<Place> note;
    std::vector<fs::path> gone;
    {
        const LockGuard guard(lock);
        gone = std::exchange(done, {});
        note = progress.list(listParts());
    }
    std::error_code ignored;
    const bool isThere = note == written && fs::exists(folder / spoolNoteName, ignored);
    bool isSaved = note.empty() || isThere || writeSpoolNote(folder, note);
    removeParts(gone);
    isSaved = isSaved || (!gone.empty() && writeSpoolNote(folder, note));  // with their room
    written = isSaved ? std::move(note) : std::vector<Place>();
    return isSaved;
}

std::uint64_t Spool::getCurrent() const {
    const LockGuard guard(lock);
    return progress.getCurrent();
}

void Spool::setCurrent(std::uint64_t measurement) {
    const LockGuard guard(lock);
    progress.setCurrent(measurement);
}

bool Spool::hasOthers(std::uint64_t measurement) const {
    const LockGuard guard(lock);
    return !parts.empty() && (parts.begin()->first.measurement != measurement ||
                              parts.rbegin()->first.measurement != measurement);
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
    parts[*key] = {path, 0, 0, 0, false};
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
        if (progress.getStart(key) < found->second.bytes) {
            return;
        }
        done.push_back(path);
        parts.erase(found);
    }
    saveNote();
}

std::uint64_t Spool::sumBytes() const {
    std::uint64_t sum = 0;
    for (const auto& [key, part] : parts) {
        sum += part.bytes;
    }
    return sum;
}

void Spool::dropOldest() {
    for (;;) {
        Place dropped;
        Key& key = dropped.part;
        Part part;
        std::uint64_t acknowledged = 0;
        {
            const LockGuard guard(lock);
            if (sumBytes() <= limit || parts.empty() || !parts.begin()->second.isClosed) {
                return;
            }
            key = parts.begin()->first;
            part = parts.begin()->second;
            acknowledged = progress.getMessages(key);
            parts.erase(parts.begin());
            dropped.isGone = true;
            dropped.isDone = parts.empty() || parts.begin()->first.measurement != key.measurement;
        }
        const std::uint64_t messages =
            part.messages ? *part.messages
                          : countMessages(part.path, part.start, part.bytes).value_or(1);
        writeSpoolNote(folder, {dropped}, spoolDroppedName);
        removeParts({part.path});
        const LockGuard guard(lock);
        lostMessages += messages - std::min(messages, acknowledged);
    }
}

bool Spool::countNext() {
    Part part;
    {
        const LockGuard guard(lock);
        const auto found = parts.upper_bound(counted);
        if (found == parts.end() || found->first.measurement >= firstLive) {
            return false;
        }
        counted = found->first;
        part = found->second;
    }
    const auto messages = countMessages(part.path, part.start, part.bytes);
    const LockGuard guard(lock);
    if (const auto found = parts.find(counted); found != parts.end()) {
        found->second.messages = messages;
    }
    return true;
}

Spool::Reader Spool::startReading(Lane lane) const {
    const LockGuard guard(lock);
    Reader reader;
    if (lane == Lane::Live) {
        reader.place.part.measurement = firstLive;
        reader.end = std::numeric_limits<std::uint64_t>::max();
    } else {
        const std::uint64_t current = progress.getCurrent();
        reader.rest = current < firstLive ? current : 0;
        reader.place.part.measurement = reader.rest;
        reader.end = firstLive;
    }
    return reader;
}

/// The part that it is in, or the next one.
bool Spool::findPart(Reader& reader, Part& part) const {
    const LockGuard guard(lock);
    auto found = parts.lower_bound(reader.place.part);
    if (reader.rest != 0 && (found == parts.end() || found->first.measurement >= reader.end)) {
        reader.end = std::exchange(reader.rest, 0);
        found = parts.begin();
    }
    const bool isOther = found == parts.end() || found->first != reader.part;
    if (isOther) {  // a part that was removed takes room as long as it is open
        reader.file = Descriptor();
    }
    if (found == parts.end() || found->first.measurement >= reader.end) {
        return false;
    }
    if (isOther) {
        reader.part = found->first;
        reader.place = {found->first, progress.getStart(found->first)};
        reader.messages = progress.getMessages(found->first);
    }
    part = found->second;
    return true;
}

bool Spool::read(Reader& reader, Batch& batch) {
    Place& place = reader.place;
    for (Part part; findPart(reader, part);) {
        if (place.offset >= part.bytes) {
            if (!part.isClosed) {
                return false;
            }
            noteAllRead(reader);
            ++place.part.part;
            place.offset = 0;
            continue;
        }
        if (!reader.file.isOpen()) {
            reader.file = openForReading(part.path);
        }
        int failure = reader.file.isOpen() ? 0 : errno;
        if (failure == ENOENT) {
            noteDeleted(place.part);
            continue;
        }
        std::uint64_t at = place.offset;
        auto found = failure == 0 ? findBatch(reader.file, at, part.bytes, failure) : std::nullopt;
        if (found) {
            found->batch.payload = std::move(batch.payload);  // its memory is used once more
            found->batch.payload.resize(found->size);
            std::span<std::uint8_t> payload = found->batch.payload;
            failure = readAt(reader.file, at, payload);
            if (failure == 0 && payload.size() < found->size) {  // cut off by another program
                found.reset();
                at = part.bytes;
            }
        }
        if (failure != 0) {
            noteUnreadable(reader, part.path, failure);
            return false;
        }
        if (at != place.offset) {
            noteDamage(reader, at, !found && isTornBatch(reader.file, place.offset, part.bytes));
        }
        place.offset = at;
        if (found) {
            batch = std::move(found->batch);
            reader.messages += batch.messages;
            place.offset += found->size;
            return true;
        }
    }
    return false;
}

/// What can't be read now may be read later: nothing is given up for it.
void Spool::noteUnreadable(Reader& reader, const fs::path& path, int errorNumber) {
    reader.file = Descriptor();
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
    const std::uint64_t acknowledged = progress.getMessages(key);
    const std::uint64_t messages = found->second.messages.value_or(acknowledged + 1);  // at least
    lostMessages += messages - std::min(messages, acknowledged);
    texts.push_back(
        fmt::format("the stream's spool: another program deleted {}: what of it wasn't in the "
                    "stream is lost",
                    found->second.path.string()));
    parts.erase(found);
}

/// A killed process may leave a torn batch at the end of a part, a power cut also other bytes.
void Spool::noteDamage(const Reader& reader, std::uint64_t to, bool isTorn) {
    const Place& from = reader.place;
    const LockGuard guard(lock);
    const auto found = parts.find(from.part);
    if (found == parts.end()) {
        return;  // it had to go meanwhile
    }
    texts.push_back(
        fmt::format("the stream's spool: {} bytes of {} from byte {} on are no whole batch and "
                    "were left out",
                    to - from.offset, found->second.path.filename().string(), from.offset));
    Part& part = found->second;
    const auto next = std::next(found);
    const bool isLast = next == parts.end() || next->first.measurement != from.part.measurement;
    const bool isByKill = isTorn && isLast;  // the batch that wasn't in the spool yet
    std::uint64_t lost = from.part.measurement < firstLive && !isByKill ? 1 : 0;  // at least
    if (to >= part.bytes && part.isClosed) {
        lost = std::max(lost, countUnread(part, reader.messages));
        part.bytes = from.offset;
        if (progress.getStart(from.part) >= part.bytes) {
            done.push_back(part.path);
            parts.erase(found);
        }
    }
    lostMessages += lost;
}

void Spool::noteAllRead(const Reader& reader) {
    const LockGuard guard(lock);
    if (const auto found = parts.find(reader.part); found != parts.end()) {
        lostMessages += countUnread(found->second, reader.messages);
    }
}

/// What a part of this run had, and couldn't be read, is lost.
std::uint64_t Spool::countUnread(Part& part, std::uint64_t messagesRead) {
    if (!part.messages || *part.messages <= messagesRead) {
        return 0;
    }
    return std::exchange(*part.messages, messagesRead) - messagesRead;
}

void Spool::acknowledge(const Place& end, std::uint64_t messages) {
    bool isAnyDone = false;
    {
        const LockGuard guard(lock);
        acknowledgedMessages += messages;
        if (parts.find(end.part) == parts.end()) {
            // It was on its way when its part had to go.
            lostMessages -= std::min(lostMessages, messages);
        }
        progress.acknowledge(end, messages);
        const std::size_t before = done.size();  // those that can't be removed stay in it
        takeDone(end);
        isAnyDone = done.size() != before;
    }
    if (isAnyDone) {
        saveNote();
    }
}

/// The parts of a measurement that have nothing behind that place.
void Spool::takeDone(const Place& end) {
    auto next = parts.lower_bound({end.part.measurement, 0});
    while (next != parts.end() && next->first <= end.part && next->second.isClosed &&
           (next->first != end.part || next->second.bytes <= end.offset)) {
        done.push_back(next->second.path);
        next = parts.erase(next);
    }
}

bool Spool::remove(const fs::path& path) {
    std::error_code failure;
    fs::remove(path, failure);
    const LockGuard guard(lock);
    if (failure && unremovable.insert(path).second) {
        texts.push_back(fmt::format("the stream's spool: {} can't be removed: {}", path.string(),
                                    failure.message()));
    }
    return !failure;
}

void Spool::removeParts(const std::vector<fs::path>& paths) {
    for (const fs::path& path : paths) {
        if (!remove(path)) {
            const LockGuard guard(lock);
            done.push_back(path);
        }
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
        const std::uint64_t before = progress.getMessages(key);
        counts.messages += std::max(part.messages.value_or(0), before) - before;
        counts.bytes += part.bytes - std::min(part.bytes, progress.getStart(key));
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
