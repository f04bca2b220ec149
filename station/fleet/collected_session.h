#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "station/fleet/batch_journal.h"
#include "station/fleet/batch_numbers.h"
#include "station/fleet/collect_folder.h"

namespace station {

/// What was collected of one measurement of one station, and where it is on the disk.
///
/// Batches go into a journal, beside the recordings to come. Which numbers are in it, it says
/// itself; those in recordings whose journal is gone are noted in a small file, which is always
/// replaced as a whole. So a batch that is given again is known, whenever the process ended.
///
/// Batches that come after the session was finished go into a second part.
class CollectedSession {
  public:
    struct Name {
        std::string token;    ///< of the station, in the stream
        std::string station;  ///< for people
        std::string session;
    };

    /// Takes up what is there. With `isFromLater` those in front of the first batch of a subject
    /// aren't missed. Throws FileError or UserError.
    CollectedSession(const CollectFolder& folder, Name who, bool isFromLater);
    /// That of such a file (`CollectFolder::listStates`). The station's name isn't in it: `nameOf`
    /// gets its token. Null if all of it is in recordings.
    static std::unique_ptr<CollectedSession> load(const CollectFolder& folder,
                                                  const std::filesystem::path& state,
                                                  std::string (*nameOf)(const std::string& token),
                                                  bool isFromLater);

    const Name& getName() const { return name; }
    bool has(const StoredBatch& batch) const;
    /// Of one that it has: whether that came with other contents. What is in recordings whose
    /// journal is gone isn't compared.
    bool isOther(const StoredBatch& batch);
    /// As those of the journal. What was appended and isn't synced is there for `has` too.
    bool append(const StoredBatch& batch);
    bool sync();
    void markSynced();
    const std::string& getErrorText() const { return errorText; }
    bool isDiskFull() const { return journal != nullptr && journal->isFull(); }

    /// Batches and messages of the part that is being collected.
    std::uint64_t getBatches() const { return batches; }
    std::uint64_t getMessages() const { return messages; }
    std::uint64_t getBytes() const { return bytes; }
    /// Of all parts.
    std::uint64_t countMissing() const;
    /// Between two batches of the part that is being collected, when the second one came.
    struct Gap {
        std::string subject;
        std::uint64_t number = 0;  ///< of the first batch that wasn't there
        std::uint64_t behind = 0;  ///< place in the stream of the batch in front of it
    };
    bool hasGaps() const { return !gaps.empty(); }
    /// The oldest ones that weren't taken yet, at most so many, without those that are filled.
    std::vector<Gap> takeGaps(std::size_t most);
    /// "cmp.bench1: 5 to 7, 9"; empty for none.
    std::string describeMissing() const;
    /// The last batch of each subject is there. Others may be on their way, of other subjects.
    bool hasEnd() const { return part > 1 || (!numbers.empty() && ended.size() >= numbers.size()); }
    /// Of the stream, of the batch that came last.
    std::uint64_t getLastSequence() const { return lastSequence; }
    void noteSequence(std::uint64_t sequence);
    void forgetSequence();
    /// What was kept to compare batches that come again.
    void forgetChecksums() { checksums.clear(); }

    const std::filesystem::path& getFolder() const { return folder; }
    const std::string& getJournalPath() const { return journal->getPath(); }
    /// Bytes of a torn batch that were cut off.
    std::uint64_t getCutBytes() const { return journal ? journal->getCutBytes() : 0; }
    std::filesystem::path getRecordingPath(const std::string& ending) const;
    /// Whether something was collected that isn't in a recording yet.
    bool hasUnrecorded() const { return batches != recorded; }
    /// All of it is in recordings now; more may come.
    void markRecorded();
    /// The same, and the journal isn't needed any more.
    void finish();
    bool isFinished() const { return finished; }

  private:
    void loadState(const std::filesystem::path& path);
    void writeState() const;
    void beginPart(bool isNew);
    struct Place {
        std::string subject;
        std::uint64_t number;
        std::uint64_t sequence;  ///< in the stream
    };
    void note(const Place& batch);
    std::string fileName() const;

    const Name name;
    const bool fromLater;
    std::filesystem::path statePath;
    std::filesystem::path folder;  ///< of the recordings
    unsigned part = 1;
    bool finished = false;
    std::uint64_t recorded = 0;                       ///< batches of this part
    std::map<std::string, BatchNumbers> numbers;      ///< by subject
    std::map<std::string, std::uint64_t> lastPlaces;  ///< by subject: of its highest batch
    std::deque<Gap> gaps;
    std::vector<Place> unsynced;
    /// Of the journal's batches, by subject and number; empty unless something came again.
    std::map<std::pair<std::string, std::uint64_t>, std::uint32_t> checksums;
    std::unique_ptr<BatchJournal> journal;  ///< null: finished
    std::uint64_t batches = 0;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t unsyncedMessages = 0;
    std::uint64_t unsyncedBytes = 0;
    std::set<std::string> ended;  ///< subjects
    std::uint64_t lastSequence = 0;
    std::string errorText;
};

}  // namespace station
