#include "station/fleet/collector.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <thread>

#include "station/errors.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::size_t mostAtOnce = 64;  // batches
/// Batches that the disk doesn't take, and those behind them.
constexpr std::size_t mostHeld = 128;
constexpr std::size_t mostHeldBytes = std::size_t{128} << 20U;
constexpr auto idle = 250ms;
constexpr auto storeAgain = 500ms;
constexpr auto recordAgain = 10s;
constexpr auto slice = 50ms;  // of work on recordings
constexpr auto lookPeriod = 250ms;
/// After the last batch of a session, as others of it may be on their way.
constexpr auto afterEnd = 2s;
/// Where another session goes on alone and the last batch of this one never came.
constexpr auto afterOther = 30s;
constexpr auto longestUnserved = 30s;
constexpr auto forgetAgain = 10s;  // batches that come again come together
constexpr auto lastAcknowledgements = 3s;
constexpr std::size_t fewFiles = 8;  // that are synced one by one
constexpr std::uint64_t mostReported = 10;
constexpr std::size_t mostSearched = 64;  // gaps in a turn: each takes two requests

}  // namespace

Collector::Collector(BatchSource& batchSource, const CollectFolder& collectFolder, Options wanted,
                     Report reportToUser)
    : source(batchSource),
      folder(collectFolder),
      options(std::move(wanted)),
      report(std::move(reportToUser)) {
    loadSessions();
}

Collector::~Collector() = default;

void Collector::loadSessions() {
    for (const fs::path& state : folder.listStates()) {
        auto session = CollectedSession::load(folder, state, options.nameOf,
                                              options.recordings.from.has_value());
        if (session == nullptr) {
            continue;
        }
        if (session->getCutBytes() != 0) {
            report(
                fmt::format("{}: a batch that was torn when collecting ended is cut off ({} "
                            "bytes), and will come again",
                            session->getJournalPath(), session->getCutBytes()));
        }
        const auto& name = session->getName();
        sessions[{name.token, name.session}].session = std::move(session);
    }
}

bool Collector::step() {
    auto now = Clock::now();
    std::size_t heldBytes = 0;
    for (const StoredBatch& batch : held) {
        heldBytes += batch.payload.size();
    }
    const bool hasRoom = held.size() < mostHeld && heldBytes < mostHeldBytes;
    if (hasRoom) {
        const bool isBusy = job != nullptr || !held.empty();
        for (StoredBatch& batch : source.fetch(mostAtOnce, isBusy ? 1ms : idle)) {
            // What is given again because the disk took too long.
            if (std::ranges::count(held, batch.sequence, &StoredBatch::sequence) == 0) {
                held.push_back(std::move(batch));
                nextStore = counts.writeError.empty() ? now : nextStore;
            }
            lastCame = Clock::now();
        }
    }
    now = Clock::now();
    lastCame = held.empty() ? lastCame : now;
    if (!held.empty() && now >= nextStore) {
        store(now);
    } else if (!held.empty()) {
        std::this_thread::sleep_for(slice);
    }
    reportTexts();
    if (now >= nextLook) {
        settle(now);
        nextLook = now + lookPeriod;
    }
    workOnJob(now);
    if (source.isServed()) {
        lastServed = now;
    } else if (!options.follows && now - lastServed > longestUnserved) {
        throw UserError(ExitCode::Failed,
                        "the broker can't be reached; what was collected is kept, and the same "
                        "command goes on from there");
    }
    if (options.follows || !held.empty() || !position || !lastAtStart) {
        return true;
    }
    const bool isEmpty = position->waiting == 0 && position->outstanding == 0;
    const bool isMore = !isEmpty && position->settled < *lastAtStart;
    if (isMore && now - lastCame > longestUnserved) {
        throw UserError(ExitCode::Failed,
                        fmt::format("the broker says that {} batches are waiting, and gives none; "
                                    "what was collected is kept. Look into its log, and whether "
                                    "another collector has the same --durable",
                                    position->waiting + position->outstanding));
    }
    return isMore;
}

void Collector::reportTexts() {
    for (const std::string& text : source.takeTexts()) {
        report(text);
    }
}

bool Collector::isWanted(const StoredBatch& batch) {
    std::string fault = batch.fault;
    if (fault.empty() && !isPcapng(batch.payload)) {
        fault = "its payload is no pcapng section";
    }
    if (!fault.empty()) {
        if (++counts.unusable <= mostReported) {
            report(fmt::format("message {} of the stream, on {}, is no batch and left out: {}",
                               batch.sequence, batch.subject, fault));
        }
        return false;
    }
    const bool isKnown = sessions.contains({batch.stationToken, batch.session});
    const bool isTooOld = options.recordings.from && batch.lastTime < *options.recordings.from &&
                          !(batch.isEnd && isKnown);
    const bool isOther =
        !options.stations.empty() &&
        ::fnmatch(options.stations.c_str(), options.nameOf(batch.stationToken).c_str(), 0) != 0;
    counts.passedOver += isTooOld || isOther ? 1 : 0;
    return !isTooOld && !isOther;
}

Collector::Entry& Collector::entryOf(const StoredBatch& batch) {
    const Key key(batch.stationToken, batch.session);
    const auto found = sessions.find(key);
    if (found != sessions.end()) {
        return found->second;
    }
    auto session = std::make_unique<CollectedSession>(
        folder,
        CollectedSession::Name{batch.stationToken, options.nameOf(batch.stationToken),
                               batch.session},
        options.recordings.from.has_value());
    if (session->getFolder().filename() != safeFileName(session->getName().station)) {
        report(fmt::format("the folder of station {} can't be written: session {} goes into {}",
                           session->getName().station, batch.session,
                           session->getFolder().string()));
    }
    Entry& entry = sessions[key];
    entry.session = std::move(session);
    return entry;
}

void Collector::store(Clock::time_point now) {
    struct Written {
        StoredBatch* batch;
        Entry* entry;
        bool isNew;
    };
    std::vector<Written> written;
    std::vector<StoredBatch> left;
    std::set<Entry*> touched;
    std::string failure;
    bool isFull = false;
    for (StoredBatch& batch : held) {
        try {
            if (!isWanted(batch)) {
                source.acknowledge(batch);
                continue;
            }
            Entry& entry = entryOf(batch);
            const bool isNew = !entry.session->has(batch);
            if (isNew && !entry.session->append(batch)) {
                isFull |= entry.session->isDiskFull();
                throw FileError(entry.session->getErrorText());
            }
            entry.lastArrival = now;
            entry.isTouched = true;
            entry.lastAlone = std::max(entry.lastAlone, batch.hasOthers ? 0 : batch.sequence);
            entry.session->noteSequence(batch.sequence);
            if (!isNew) {
                entry.lastAgain = now;
                if (entry.session->isOther(batch)) {
                    noteOther(batch);
                }
            }
            touched.insert(&entry);
            written.push_back({&batch, &entry, isNew});
        } catch (const std::runtime_error& error) {
            failure = error.what();
            left.push_back(std::move(batch));
        }
    }
    const auto failed = syncAll(touched);
    for (const Written& each : written) {
        if (failed.contains(each.entry)) {
            failure = each.entry->session->getErrorText();
            isFull |= each.entry->session->isDiskFull();
            left.push_back(std::move(*each.batch));
            continue;
        }
        source.acknowledge(*each.batch);
        counts.alreadyThere += each.isNew ? 0 : 1;
        if (each.isNew) {
            ++counts.batches;
            counts.messages += each.batch->messages;
            counts.bytes += each.batch->payload.size();
        }
    }
    held = std::move(left);
    nextStore = now + storeAgain;
    noteDisk(failure, isFull);
}

void Collector::noteOther(const StoredBatch& batch) {
    if (++counts.differing <= mostReported) {
        report(
            fmt::format("station {}, session {}: batch {} of {} has come again with other "
                        "contents (message {} of the stream) and is left out; another program may "
                        "publish under this name",
                        options.nameOf(batch.stationToken), batch.session, batch.number,
                        batch.subject, batch.sequence));
    }
}

/// Many files are synced at once, as the disk does less then. Returns those that can't be.
std::set<Collector::Entry*> Collector::syncAll(const std::set<Entry*>& touched) {
    const bool isDone = touched.size() > fewFiles && folder.sync();
    std::set<Entry*> failed;
    for (Entry* const entry : touched) {
        if (isDone) {
            entry->session->markSynced();
        } else if (!entry->session->sync()) {
            failed.insert(entry);
        }
    }
    return failed;
}

void Collector::noteDisk(const std::string& failure, bool isFull) {
    if (!failure.empty() && counts.writeError.empty()) {
        report(failure +
               "; nothing is acknowledged that isn't written, and collecting goes on when "
               "it can be");
    } else if (failure.empty() && !counts.writeError.empty()) {
        report("batches can be written again: collecting goes on");
    }
    counts.writeError = failure;
    counts.isDiskFull = isFull;
}

/// Looks how far the broker is, and at what can be judged by that.
void Collector::settle(Clock::time_point now) {
    const auto latest = source.askPosition();
    if (!latest) {
        return;
    }
    if (position && latest->last < position->last) {  // the stream was made again
        for (auto& [key, entry] : sessions) {
            entry.session->forgetSequence();
            entry.lastAlone = 0;
        }
        lastAtStart.reset();
    }
    position = latest;
    counts.waiting = latest->waiting + latest->outstanding;
    if (!lastAtStart) {
        lastAtStart = latest->last;
    }
    for (auto& [key, entry] : sessions) {
        if (isSettled(entry)) {
            reportMissing(entry);
        }
        if (now - entry.lastAgain > forgetAgain) {
            entry.session->forgetChecksums();
        }
    }
    for (auto& [key, entry] : sessions) {
        if (job == nullptr && now >= entry.nextTry && isOver(key, entry, now)) {
            beginJob(key, entry);
        }
    }
}

/// Nothing that was given out up to its last batch is outstanding.
bool Collector::isSettled(const Entry& entry) const {
    if (isFinishing) {
        return isAllSettled;
    }
    const std::uint64_t from = entry.isTouched ? 0 : lastAtStart.value_or(0);
    return position && (std::max(entry.session->getLastSequence(), from) <= position->settled ||
                        (position->waiting == 0 && position->outstanding == 0));
}

bool Collector::isOver(const Key& key, const Entry& entry, Clock::time_point now) const {
    const CollectedSession& session = *entry.session;
    if (session.isFinished() || session.getBatches() == 0 || session.hasGaps() ||
        !isSettled(entry)) {
        return false;
    }
    if (session.hasEnd()) {
        return isFinishing || now - entry.lastArrival >= afterEnd;
    }
    if (!isFinishing && now - entry.lastArrival < afterOther) {
        return false;
    }
    for (auto other = sessions.lower_bound({key.first, ""});
         other != sessions.end() && other->first.first == key.first; ++other) {
        if (other->first != key && other->second.lastAlone > session.getLastSequence()) {
            return true;
        }
    }
    return false;
}

/// A replica of the stream may lack messages that others have, and its consumer leaves them out:
/// the stream itself is asked for what would be missing.
void Collector::findMissing(Entry& entry) {
    CollectedSession& session = *entry.session;
    std::uint64_t found = 0;
    for (const auto& gap : session.takeGaps(isFinishing ? SIZE_MAX : mostSearched)) {
        auto batch = source.find(gap.subject, gap.behind + 1);
        while (batch && batch->session == session.getName().session && !session.has(*batch) &&
               batch->fault.empty() && isPcapng(batch->payload) && held.size() < mostHeld) {
            const std::uint64_t next = batch->sequence + 1;
            held.push_back(std::move(*batch));
            ++found;
            batch = source.find(gap.subject, next);
        }
    }
    reportTexts();
    if (found != 0) {
        report(
            fmt::format("{} batches of station {}, session {}, that the broker left out were "
                        "in the stream all the same",
                        found, session.getName().station, session.getName().session));
        store(Clock::now());
    }
}

void Collector::reportMissing(Entry& entry) {
    findMissing(entry);
    if (entry.session->hasGaps()) {
        return;  // the next ones in the next turn
    }
    const std::uint64_t missing = entry.session->countMissing();
    if (missing > entry.toldMissing) {
        const auto& name = entry.session->getName();
        report(fmt::format("{} batches of station {}, session {}, are missing in the stream: {}",
                           missing, name.station, name.session, entry.session->describeMissing()));
    }
    entry.toldMissing = missing;
}

void Collector::beginJob(const Key& key, Entry& entry) {
    const CollectedSession& session = *entry.session;
    std::string account = "station " + session.getName().station;
    if (entry.toldMissing != 0) {
        account += fmt::format("\n{} batches of its messages are missing: {}", entry.toldMissing,
                               session.describeMissing());
    }
    try {
        job =
            std::make_unique<RecordingJob>(session.getJournalPath(), folder.getScratch(),
                                           session.getName().session, options.recordings, account);
        jobKey = key;
        jobBatches = session.getBatches();
    } catch (const std::runtime_error& error) {
        failJob(entry, error.what());
    }
}

void Collector::failJob(Entry& entry, const std::string& reason) {
    job.reset();
    entry.nextTry = Clock::now() + recordAgain;
    if (entry.error != reason) {
        report(
            fmt::format("No recording of station {}, session {}, can be made: {} Its batches stay "
                        "in {}",
                        entry.session->getName().station, entry.session->getName().session, reason,
                        entry.session->getJournalPath()));
    }
    entry.error = reason;
}

void Collector::workOnJob(Clock::time_point now) {
    if (job == nullptr) {
        return;
    }
    const auto until = now + slice;
    while (job->step()) {
        if (Clock::now() >= until) {
            return;
        }
    }
    endJob(now);
}

void Collector::endJob(Clock::time_point now) {
    Entry& entry = sessions.at(jobKey);
    CollectedSession& session = *entry.session;
    if (session.getBatches() != jobBatches) {  // more of it has come: once more
        job.reset();
        entry.nextTry = now + afterEnd;
        return;
    }
    std::vector<fs::path> paths;
    for (const std::string& ending : options.recordings.endings) {
        paths.push_back(session.getRecordingPath(ending));
    }
    try {
        job->commit(paths);
        entry.recordings.clear();
        for (const fs::path& path : paths) {
            entry.recordings.push_back(path.string());
        }
        entry.error.clear();
        for (const std::string& text : job->getTexts()) {
            report(fmt::format("station {}, session {}: {}", session.getName().station,
                               session.getName().session, text));
            entry.error = job->hasAll() ? "" : text;
        }
        // The journal of what can't be read stays.
        if (job->hasAll() && isOver(jobKey, entry, now)) {
            session.finish();
        } else {
            session.markRecorded();
            entry.nextTry = job->hasAll() ? entry.nextTry : Clock::time_point::max();
        }
        job.reset();
    } catch (const std::runtime_error& error) {
        failJob(entry, error.what());
    }
}

void Collector::finish(const std::function<bool()>& goesOn) {
    job.reset();
    const auto until = Clock::now() + lastAcknowledgements;
    do {  // they are on their way
        settle(Clock::now());
        job.reset();
        isAllSettled = position && position->outstanding <= held.size();
    } while (!isAllSettled && source.isServed() && Clock::now() < until && goesOn());
    isFinishing = true;
    for (auto& [key, entry] : sessions) {
        if (isAllSettled) {
            reportMissing(entry);
        }
        const bool isToDo = entry.session->getBatches() != 0 && !entry.session->isFinished() &&
                            (entry.session->hasUnrecorded() || isOver(key, entry, Clock::now()));
        if (isToDo && goesOn()) {
            beginJob(key, entry);
        }
        while (job != nullptr && goesOn()) {
            workOnJob(Clock::now());
        }
        job.reset();
    }
}

CollectSummary Collector::summarize() const {
    CollectSummary summary = counts;
    for (const auto& [key, entry] : sessions) {
        const CollectedSession& session = *entry.session;
        if (!entry.isTouched && session.getBatches() == 0) {
            continue;
        }
        summary.sessions.push_back({session.getName().station, session.getName().session,
                                    session.getBatches(), session.getMessages(), entry.toldMissing,
                                    entry.toldMissing == 0 ? "" : session.describeMissing(),
                                    session.isFinished(), entry.recordings, entry.error});
    }
    return summary;
}

}  // namespace station
