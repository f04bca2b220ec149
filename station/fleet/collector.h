#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "station/fleet/batch_source.h"
#include "station/fleet/collect_folder.h"
#include "station/fleet/collected_session.h"
#include "station/fleet/recording_job.h"

namespace station {

/// What a collector has done since it began.
struct CollectSummary {
    struct Session {
        std::string station;
        std::string session;
        std::uint64_t batches = 0;   ///< of the part that is being collected, also before
        std::uint64_t messages = 0;  ///< the same
        std::uint64_t missing = 0;   ///< batches
        std::string missingText;     ///< which; empty: none
        bool isFinished = false;
        std::vector<std::string> recordings;  ///< paths
        std::string error;                    ///< why recordings couldn't be made; empty: none
    };

    std::uint64_t batches = 0;  ///< that were written
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t alreadyThere = 0;  ///< batches that were given again
    std::uint64_t passedOver = 0;    ///< batches of other stations, or from before
    std::uint64_t differing = 0;     ///< batches that came again with other contents
    std::uint64_t unusable = 0;      ///< messages of the stream that are no batches
    std::uint64_t waiting = 0;       ///< in the stream, as far as is known
    bool isDiskFull = false;         ///< nothing can be written at the moment
    std::string writeError;  ///< why something can't be written at the moment; empty: it can
    std::vector<Session> sessions;

    std::uint64_t countMissing() const;
    /// Whether anything is missing in the recordings, or couldn't be written.
    bool hasLost() const;
};

/// One JSON object with a line feed at its end.
std::string toJson(const CollectSummary& summary);
/// A table of the sessions, as lines.
std::vector<std::string> toTable(const CollectSummary& summary);
/// One line for a terminal.
std::string toProgressLine(const CollectSummary& summary);

/// Takes batches from the stream to the disk, and makes recordings of sessions that have ended.
///
/// A batch is acknowledged once the disk has it. So whatever ends this process, the broker gives
/// again what isn't on the disk, and perhaps some of what is: a batch is known by its station,
/// session, subject and number, and taken once.
///
/// The broker gives batches again some time after it gave them first, and others meanwhile. Nothing
/// is judged before it has nothing outstanding up to there (`BatchSource::Position::settled`):
/// which numbers are missing, and whether a session is over.
///
/// Called on one thread.
class Collector {
  public:
    using Clock = std::chrono::steady_clock;
    using Report = std::function<void(const std::string&)>;

    struct Options {
        RecordingJob::Wanted recordings;
        std::string stations;  ///< names as a shell's pattern; empty: all
        bool follows = false;  ///< what comes in later too
        /// The name of a token, and the station's.
        std::string (*nameOf)(const std::string& token) = nullptr;
    };

    /// Source and folder aren't owned and outlive this. `report` gets what the user must know at
    /// once.
    Collector(BatchSource& batchSource, const CollectFolder& collectFolder, Options wanted,
              Report reportToUser);
    ~Collector();

    /// The next batches, for a quarter of a second at most while there are none. False once all
    /// that was in the stream at the start is on the disk, unless later ones are wanted too. Throws
    /// UserError if the broker can't be reached for so long that there is no point in waiting.
    bool step();
    /// Makes recordings of all that isn't in one, as far as `goesOn` is true.
    void finish(const std::function<bool()>& goesOn);

    CollectSummary summarize() const;

  private:
    using Key = std::pair<std::string, std::string>;  ///< token of the station, session
    struct Entry {
        std::unique_ptr<CollectedSession> session;
        Clock::time_point lastArrival;
        /// Of the last batch that was sent when no other session of the station went on; 0: none.
        std::uint64_t lastAlone = 0;
        Clock::time_point lastAgain;    ///< that a batch came that was there
        bool isTouched = false;         ///< something of it came in
        std::uint64_t toldMissing = 0;  ///< batches that are known to be missing
        std::vector<std::string> recordings;
        std::string error;
        Clock::time_point nextTry;
    };

    void loadSessions();
    void reportTexts();
    void store(Clock::time_point now);
    /// Whether it is to be written.
    bool isWanted(const StoredBatch& batch);
    Entry& entryOf(const StoredBatch& batch);
    std::set<Entry*> syncAll(const std::set<Entry*>& touched);
    void noteDisk(const std::string& failure, bool isFull);
    void noteOther(const StoredBatch& batch);
    void settle(Clock::time_point now);
    bool isSettled(const Entry& entry) const;
    bool isOver(const Key& key, const Entry& entry, Clock::time_point now) const;
    void findMissing(Entry& entry);
    void reportMissing(Entry& entry);
    void workOnJob(Clock::time_point now);
    void beginJob(const Key& key, Entry& entry);
    void endJob(Clock::time_point now);
    void failJob(Entry& entry, const std::string& reason);

    BatchSource& source;
    const CollectFolder& folder;
    const Options options;
    const Report report;
    std::map<Key, Entry> sessions;
    std::vector<StoredBatch> held;  ///< fetched, and not on the disk yet
    std::optional<BatchSource::Position> position;
    std::optional<std::uint64_t> lastAtStart;
    Clock::time_point nextLook;
    Clock::time_point nextStore;
    Clock::time_point lastServed = Clock::now();
    Clock::time_point lastCame = Clock::now();
    std::unique_ptr<RecordingJob> job;
    Key jobKey;
    std::uint64_t jobBatches = 0;  ///< of the journal when it began
    bool isFinishing = false;
    bool isAllSettled = false;  ///< then: what was given out was acknowledged, or is held
    CollectSummary counts;      ///< without sessions
};

}  // namespace station
