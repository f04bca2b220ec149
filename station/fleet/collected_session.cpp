#include "station/fleet/collected_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "core/whole_file.h"
#include "station/errors.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr mode_t statePermissions = 0644;
constexpr std::size_t longestState = std::size_t{64} << 20U;
constexpr const char* journalEnding = ".collecting.pcapng";

Json rangesOf(const BatchNumbers& numbers) {
    Json ranges = Json::array();
    for (const auto& [first, last] : numbers.getRanges()) {
        ranges.push_back({first, last});
    }
    return ranges;
}

Json readState(const fs::path& path) {
    try {
        const auto text = readWholeFile(path, longestState);
        return text ? Json::parse(*text) : Json();
    } catch (const std::exception& error) {
        throw FileError(
            fmt::format("{} can't be read: {}. It says what was collected; restore it, "
                        "or collect into another folder.",
                        path.string(), error.what()));
    }
}

}  // namespace

CollectedSession::CollectedSession(const CollectFolder& collectFolder, Name who, bool isFromLater)
    : name(std::move(who)),
      fromLater(isFromLater),
      statePath(collectFolder.makeStatePath(name.token, name.session)) {
    std::error_code ignored;
    const bool isNew = !fs::exists(statePath, ignored);
    if (!isNew) {
        loadState(statePath);
    }
    if (folder.empty()) {
        folder = collectFolder.makeStationFolder(name.station);
    } else {
        folder = collectFolder.getPath() / folder.filename();
        fs::create_directories(folder, ignored);
    }
    if (!finished) {
        beginPart(isNew);
    } else {  // the process may have ended before
        fs::remove(getRecordingPath(journalEnding), ignored);
    }
}

std::unique_ptr<CollectedSession> CollectedSession::load(
    const CollectFolder& folder, const fs::path& state,
    std::string (*nameOf)(const std::string& token), bool isFromLater) {
    const Json there = readState(state);
    const auto textOf = [&](const char* key) {
        const auto found = there.find(key);
        if (found == there.end() || !found->is_string()) {
            throw UserError(ExitCode::Failed,
                            fmt::format("{} isn't what a collector wrote: it has no text \"{}\"; "
                                        "restore it, or collect into another folder",
                                        state.string(), key));
        }
        return found->get<std::string>();
    };
    const std::string token = textOf("station");
    const std::string session = textOf("session");
    auto loaded = std::make_unique<CollectedSession>(folder, Name{token, nameOf(token), session},
                                                     isFromLater);
    return loaded->isFinished() ? nullptr : std::move(loaded);
}

void CollectedSession::loadState(const fs::path& path) {
    const Json there = readState(path);
    try {
        if (there.at("station") != name.token || there.at("session") != name.session) {
            throw FileError(path.string() + " is of another station or session");
        }
        folder = there.value("folder", std::string());
        part = there.at("part").get<unsigned>();
        finished = there.at("finished").get<bool>();
        recorded = there.at("recorded").get<std::uint64_t>();
        for (const auto& [subject, ranges] : there.at("subjects").items()) {
            for (const Json& range : ranges) {
                numbers[subject].add(range.at(0).get<std::uint64_t>(),
                                     range.at(1).get<std::uint64_t>());
            }
        }
    } catch (const Json::exception& error) {
        throw FileError(
            fmt::format("{} isn't what a collector wrote ({}); restore it, or collect "
                        "into another folder",
                        path.string(), error.what()));
    }
}

/// The numbers of a part that isn't finished stay in its journal.
void CollectedSession::writeState() const {
    Json subjects = Json::object();
    for (const auto& [subject, there] : numbers) {
        subjects[subject] = rangesOf(there);
    }
    const Json state = {{"station", name.token},
                        {"session", name.session},
                        {"part", part},
                        {"finished", finished},
                        {"recorded", recorded},
                        {"folder", folder.filename().string()},
                        {"subjects", std::move(subjects)}};
    try {
        FileReplacement(statePath, state.dump() + '\n', statePermissions).commit();
    } catch (const std::runtime_error& error) {
        throw FileError(fmt::format("{} can't be written: {}", statePath.string(), error.what()));
    }
}

std::string CollectedSession::fileName() const {
    const std::string safe = safeFileName(name.session);
    return part == 1 ? safe : fmt::format("{}-{}", safe, part);
}

fs::path CollectedSession::getRecordingPath(const std::string& ending) const {
    return folder / (fileName() + ending);
}

/// A name that somebody else has used is left to him: what is at a name from here on is ours.
void CollectedSession::beginPart(bool isNew) {
    const auto isTaken = [&](const fs::directory_entry& entry) {
        return entry.path().filename().string().starts_with(fileName() + '.');
    };
    const auto isAnyTaken = [&] {
        std::error_code error;
        fs::directory_iterator at(folder, error);
        return !error && std::any_of(at, fs::directory_iterator(), isTaken);
    };
    while (isNew && isAnyTaken()) {
        ++part;
    }
    if (isNew) {
        writeState();
    }
    batches = messages = bytes = 0;
    ended.clear();
    journal = std::make_unique<BatchJournal>(
        getRecordingPath(journalEnding).string(), [this](const BatchJournal::Entry& entry) {
            note({entry.subject, entry.number, entry.sequence});
            ++batches;
            messages += entry.messages;
            bytes += entry.bytes;
            noteSequence(entry.sequence);
            if (entry.isEnd) {
                ended.insert(entry.subject);
            }
        });
}

void CollectedSession::note(const Place& batch) {
    const bool isFirst = !numbers.contains(batch.subject);
    BatchNumbers& there = numbers[batch.subject];
    const std::uint64_t highest = there.getHighest();
    std::uint64_t& last = lastPlaces[batch.subject];
    if (last != 0 && batch.number > highest + 1) {
        gaps.push_back({batch.subject, highest + 1, last});
    }
    last = batch.number >= highest ? batch.sequence : last;  // numbers may be known already
    there.add(isFirst && fromLater ? 1 : batch.number, batch.number);
}

bool CollectedSession::has(const StoredBatch& batch) const {
    const auto found = numbers.find(batch.subject);
    return (found != numbers.end() && found->second.has(batch.number)) ||
           std::ranges::any_of(unsynced, [&](const Place& other) {
               return other.subject == batch.subject && other.number == batch.number;
           });
}

bool CollectedSession::isOther(const StoredBatch& batch) {
    if (journal == nullptr) {
        return false;
    }
    if (checksums.empty()) {
        BatchJournal::read(journal->getPath(), [&](const BatchJournal::Entry& entry) {
            checksums[{entry.subject, entry.number}] = entry.checksum;
        });
    }
    const auto found = checksums.find({batch.subject, batch.number});
    return found != checksums.end() && found->second != checksumOf(batch.payload);
}

void CollectedSession::noteSequence(std::uint64_t sequence) {
    lastSequence = std::max(lastSequence, sequence);
}

void CollectedSession::forgetSequence() {
    lastSequence = 0;
    lastPlaces.clear();
    gaps.clear();
}

bool CollectedSession::append(const StoredBatch& batch) {
    try {
        if (finished) {
            finished = false;
            recorded = 0;
            beginPart(true);
        }
    } catch (const std::runtime_error& error) {
        finished = journal == nullptr;
        errorText = error.what();
        return false;
    }
    if (!journal->append(batch)) {
        errorText = journal->getErrorText();
        return false;
    }
    unsynced.push_back({batch.subject, batch.number, batch.sequence});
    if (!checksums.empty()) {
        checksums[{batch.subject, batch.number}] = checksumOf(batch.payload);
    }
    unsyncedMessages += batch.messages;
    unsyncedBytes += batch.payload.size();
    if (batch.isEnd) {
        ended.insert(batch.subject);
    }
    return true;
}

bool CollectedSession::sync() {
    if (journal == nullptr || journal->sync()) {
        markSynced();
        return true;
    }
    errorText = journal->getErrorText();
    unsynced.clear();
    checksums.clear();
    unsyncedMessages = unsyncedBytes = 0;
    return false;
}

void CollectedSession::markSynced() {
    if (journal != nullptr) {
        journal->markSynced();
    }
    for (const Place& batch : unsynced) {
        note(batch);
    }
    batches += unsynced.size();
    messages += unsyncedMessages;
    bytes += unsyncedBytes;
    unsynced.clear();
    unsyncedMessages = unsyncedBytes = 0;
}

std::uint64_t CollectedSession::countMissing() const {
    std::uint64_t missing = 0;
    for (const auto& [subject, there] : numbers) {
        missing += there.countMissing();
    }
    return missing;
}

std::vector<CollectedSession::Gap> CollectedSession::takeGaps(std::size_t most) {
    std::vector<Gap> taken;
    while (!gaps.empty() && taken.size() < most) {
        if (!numbers[gaps.front().subject].has(gaps.front().number)) {
            taken.push_back(std::move(gaps.front()));
        }
        gaps.pop_front();
    }
    return taken;
}

std::string CollectedSession::describeMissing() const {
    constexpr std::size_t most = 200;  // characters
    std::string text;
    for (const auto& [subject, there] : numbers) {
        std::uint64_t before = 0;
        std::string ranges;
        for (const auto& [first, last] : there.getRanges()) {
            if (first > before + 1 && ranges.size() < most) {
                ranges += fmt::format("{}{}{}", ranges.empty() ? "" : ", ", before + 1,
                                      first > before + 2 ? fmt::format(" to {}", first - 1) : "");
            }
            before = last;
        }
        if (!ranges.empty() && text.size() < most) {
            text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", subject, ranges);
        }
    }
    return text;
}

void CollectedSession::markRecorded() {
    recorded = batches;
    // What is in the journal is read from there: those numbers would be in both.
    writeState();
}

void CollectedSession::finish() {
    finished = true;
    recorded = batches;
    try {
        writeState();
    } catch (const FileError&) {
        finished = false;
        throw;
    }
    std::error_code ignored;
    fs::remove(journal->getPath(), ignored);
    journal.reset();
    checksums.clear();
}

}  // namespace station
