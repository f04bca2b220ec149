#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/descriptor.h"
#include "core/mutex.h"
#include "station/stream/publisher.h"
#include "station/stream/spool_contents.h"
#include "station/stream/spool_folder.h"
#include "station/stream/spool_progress.h"

namespace station {

/// A folder with the batches that aren't acknowledged: parts, each a file of batches one behind the
/// other, and a note of how far each measurement is acknowledged.
///
/// A thread that records adds to the end (`addPart` to `closePart`), another one takes from the
/// beginning (`read`, `acknowledge`, `saveNote`): from what this run adds, and from what earlier
/// ones have left. They share the list of parts under a lock that is held for no access to the disk
/// once this is made; each writes the note when it removes a part. The folder is locked against
/// another program.
///
/// When the parts take more than the limit, the oldest of them goes, but for the one that is being
/// written; what it had is counted. Each file is removed after a note says so: what else is missing
/// at the next start others have deleted, which is counted too.
class Spool {
  public:
    using Key = SpoolKey;
    using Place = SpoolPlace;
    enum class Lane : std::uint8_t { Live, Earlier };  ///< of this run; of those before
    /// Goes through the batches of a lane. The other thread's own.
    class Reader {
      public:
        /// Behind the batch that was read last.
        const Place& getPlace() const { return place; }

      private:
        friend Spool;
        Place place;
        std::uint64_t end = 0;   ///< measurements up to there
        std::uint64_t rest = 0;  ///< then from the first one up to there
        Key part;                ///< that is being read
        Descriptor file;
        std::uint64_t messages = 0;  ///< read of it, those included that were acknowledged
    };
    struct Counts {
        std::uint64_t messages = 0;      ///< that are not acknowledged
        std::uint64_t bytes = 0;         ///< of them
        std::uint64_t acknowledged = 0;  ///< messages, since this was made
        std::uint64_t lost = 0;          ///< messages that had to go
    };

    /// Makes the folder if it isn't there. Throws `UserError`: not possible, used by another
    /// program, or with batches of another station.
    Spool(std::filesystem::path folder, const std::string& stationToken, std::uint64_t mostBytes);
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    const std::filesystem::path& getFolder() const { return folder; }
    std::uint64_t getLimit() const { return limit; }

    // By the thread that records.

    /// As a `RecordingSeries` is to be named, whose parts get the keys of the next measurement.
    /// Throws `FileError`: there are no more numbers.
    std::string nameNext();
    /// A part that is being written. Throws `FileError`: it isn't named so.
    void addPart(const std::string& path) CMP_EXCLUDES(lock);
    /// A batch is in it.
    void grow(const std::string& path, std::uint64_t bytes, std::uint64_t messages)
        CMP_EXCLUDES(lock);
    /// Nothing more will be in it. It is removed if there is nothing in it that isn't acknowledged.
    void closePart(const std::string& path) CMP_EXCLUDES(noteLock, lock);

    // By the other one.

    /// Counts the messages of the next part that was there before: reads the headers of its
    /// batches. False: there is none.
    bool countNext() CMP_EXCLUDES(lock);
    /// Behind what is acknowledged. Earlier measurements: first the one that was being sent, then
    /// those behind it, and those in front of it.
    Reader startReading(Lane lane) const CMP_EXCLUDES(lock);
    /// The next batch of the lane, or the one behind it if that is gone. False, and the batch isn't
    /// defined, if there is none yet. What is damaged or deleted is left out, reported, and
    /// counted: exactly if it was known, else as one message at least.
    bool read(Reader& reader, Batch& batch) CMP_EXCLUDES(lock);
    /// All of its measurement up to there; the batch that ends there had so many messages. Parts
    /// that aren't needed any more are removed, behind a note.
    void acknowledge(const Place& end, std::uint64_t messages) CMP_EXCLUDES(noteLock, lock);
    /// The measurement that is being sent; 0: not known.
    std::uint64_t getCurrent() const CMP_EXCLUDES(lock);
    /// From here on that one is sent, and all that was sent before is acknowledged. To be noted
    /// then, so that the next run begins with it.
    void setCurrent(std::uint64_t measurement) CMP_EXCLUDES(lock);
    /// Whether there is something of another measurement, or it is being recorded.
    bool hasOthers(std::uint64_t measurement) const CMP_EXCLUDES(lock);
    /// So that a next run begins there; a killed one may begin earlier. Removes what isn't needed
    /// any more. False: the note can't be written.
    bool saveNote() CMP_EXCLUDES(noteLock, lock);
    /// Until more was added since the last call, for that long at most.
    void waitForMore(std::chrono::milliseconds patience) CMP_EXCLUDES(lock);

    // By any.

    Counts getCounts() const CMP_EXCLUDES(lock);
    /// What the user must know since the last call.
    std::vector<std::string> takeTexts() CMP_EXCLUDES(lock);

  private:
    struct Part {
        std::filesystem::path path;
        std::uint64_t bytes = 0;
        std::uint64_t start = 0;                ///< behind what was acknowledged when it was added
        std::optional<std::uint64_t> messages;  ///< not acknowledged when it was added
        bool isClosed = true;
    };

    void readNote(const SpoolContents& contents) CMP_EXCLUDES(lock);
    void noteGaps(const std::vector<SpoolGap>& gaps) CMP_REQUIRES(lock);
    std::uint64_t sumBytes() const CMP_REQUIRES(lock);
    void dropOldest() CMP_EXCLUDES(lock);
    bool findPart(Reader& reader, Part& part) const CMP_EXCLUDES(lock);
    void noteUnreadable(Reader& reader, const std::filesystem::path& path, int errorNumber)
        CMP_EXCLUDES(lock);
    void noteDeleted(const Key& key) CMP_EXCLUDES(lock);
    void noteDamage(const Reader& reader, std::uint64_t to, bool isTorn) CMP_EXCLUDES(lock);
    void noteAllRead(const Reader& reader) CMP_EXCLUDES(lock);
    static std::uint64_t countUnread(Part& part, std::uint64_t messagesRead);
    /// False, which is reported once: it can't be removed.
    bool remove(const std::filesystem::path& path) CMP_EXCLUDES(lock);
    /// Those that can't be removed are `done` again.
    void removeParts(const std::vector<std::filesystem::path>& paths) CMP_EXCLUDES(lock);
    SpoolProgress::Parts listParts() const CMP_REQUIRES(lock);
    void takeDone(const Place& end) CMP_REQUIRES(lock);

    const std::filesystem::path folder;
    const std::uint64_t limit;
    Descriptor lockFile;
    std::uint64_t latestMeasurement = 0;
    std::uint64_t firstLive = 0;  ///< measurement of this run; constant after construction
    Key counted;                  ///< the other thread's own

    Mutex noteLock;  ///< one note is written at a time; before `lock`
    std::vector<Place> written CMP_GUARDED_BY(noteLock);
    mutable Mutex lock;
    std::condition_variable_any changed;
    bool hasMore CMP_GUARDED_BY(lock) = false;
    std::map<Key, Part> parts CMP_GUARDED_BY(lock);
    SpoolProgress progress CMP_GUARDED_BY(lock);
    std::vector<std::filesystem::path> done CMP_GUARDED_BY(lock);      ///< to be removed
    std::set<std::filesystem::path> unremovable CMP_GUARDED_BY(lock);  ///< of which that was said
    std::uint64_t acknowledgedMessages CMP_GUARDED_BY(lock) = 0;
    std::uint64_t lostMessages CMP_GUARDED_BY(lock) = 0;
    std::uint64_t lostReported CMP_GUARDED_BY(lock) = 0;
    std::filesystem::path unreadable CMP_GUARDED_BY(lock);  ///< the part of which that was said
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
};

}  // namespace station
