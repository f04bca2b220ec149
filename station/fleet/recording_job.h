#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/fleet/batch_journal.h"
#include "station/offline/message_copy.h"
#include "station/recording/message_reader.h"
#include "station/recording/recording_set.h"

namespace station {

/// Makes recordings of a session's journal, in steps: batches come in meanwhile.
///
/// A journal whose batches lie one behind the other is read as it is. Where there are several
/// subjects, or batches that came late, its batches are first sorted into a file a subject, and the
/// messages of these merged by their times.
///
/// A batch at which reading ends is found by reading each by itself, and left out.
///
/// The recordings are made in the scratch folder and get their names when they are whole: what was
/// there before stays until then.
class RecordingJob {
  public:
    struct Wanted {
        std::vector<std::string> endings;  ///< ".pcapng", for example
        std::optional<std::int64_t> from;  ///< of the messages, nanoseconds since 1970
    };

    /// Throws FileError or UserError.
    RecordingJob(std::string journalPath, const std::filesystem::path& scratchFolder,
                 std::string sessionName, Wanted what, std::string accountText);
    ~RecordingJob();  // removes what isn't committed
    RecordingJob(const RecordingJob&) = delete;
    RecordingJob& operator=(const RecordingJob&) = delete;

    /// Some thousand messages more. False at the end.
    bool step();
    /// After the end. Each gets the path at its ending's place. Throws FileError if one can't be
    /// written.
    void commit(const std::vector<std::filesystem::path>& paths);
    /// After `commit`: all messages that the batches' headers count could be read.
    bool hasAll() const { return isComplete; }
    /// What the user must know of what is in them.
    const std::vector<std::string>& getTexts() const { return texts; }

  private:
    void begin(std::unique_ptr<MessageReader> source);
    void beginCheck();
    bool checkNext();
    std::unique_ptr<MessageReader> openJournal();
    std::unique_ptr<MessageReader> sortJournal();
    std::filesystem::path pathOf(const std::string& ending) const;

    const std::string journal;
    const std::filesystem::path scratch;
    const std::string session;
    const Wanted wanted;
    const std::string account;
    std::uint64_t announced = 0;  ///< messages, by the headers of the batches
    std::unique_ptr<MessageReader> reader;
    std::unique_ptr<RecordingSet> recordings;
    std::unique_ptr<MessageCopy> copy;
    std::vector<BatchJournal::Entry> entries;  ///< where the journal isn't read as it is
    std::optional<std::size_t> checked;        ///< so many of them; none: it isn't needed
    std::vector<std::string> leftOut;          ///< texts, of batches
    std::uint64_t leftOutMessages = 0;
    std::vector<std::string> failures;
    bool isComplete = true;
    std::vector<std::string> texts;
};

}  // namespace station
