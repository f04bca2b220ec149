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
/// The recordings are made in the scratch folder and get their names when they are whole: what was
/// there before stays until then.
class RecordingJob {
  public:
    struct Wanted {
        std::vector<std::string> endings;  ///< ".pcapng", for example
        std::optional<std::int64_t> from;  ///< of the messages, nanoseconds since 1970
    };

    /// Throws FileError or UserError.
    RecordingJob(const std::string& journal, const std::filesystem::path& scratchFolder,
                 const std::string& session, const Wanted& what, const std::string& account);
    ~RecordingJob();  // removes what isn't committed
    RecordingJob(const RecordingJob&) = delete;
    RecordingJob& operator=(const RecordingJob&) = delete;

    /// Some thousand messages more. False at the end.
    bool step();
    /// After the end. Each gets the path at its ending's place. Throws FileError if one can't be
    /// written.
    void commit(const std::vector<std::filesystem::path>& paths);
    /// After `commit`: all messages that the batches' headers tell of could be read.
    bool hasAll() const { return isComplete; }
    /// What the user must know of what is in them.
    const std::vector<std::string>& getTexts() const { return texts; }

  private:
    std::unique_ptr<MessageReader> openJournal(const std::string& journal);
    std::unique_ptr<MessageReader> sortJournal(const std::string& journal,
                                               std::vector<BatchJournal::Entry>& entries);
    std::filesystem::path pathOf(const std::string& ending) const;

    const std::filesystem::path scratch;
    const Wanted wanted;
    std::uint64_t announced = 0;  ///< messages, by the headers of the batches
    std::unique_ptr<MessageReader> reader;
    RecordingSet recordings;
    std::unique_ptr<MessageCopy> copy;
    std::vector<std::string> failures;
    bool isComplete = true;
    std::vector<std::string> texts;
};

}  // namespace station
