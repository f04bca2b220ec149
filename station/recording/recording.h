#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "station/recording/append_file.h"

namespace station {

enum class BusType { Can, Lin, Ethernet };

struct ChannelDescription {
    std::string name;  // UTF-8, may contain blanks
    BusType bus;
    std::string module = {};  // UTF-8; empty: none
    std::uint16_t interfaceId = 0;
};

/// What is counted of a measurement outside of its recordings, as lines of text for the end of a
/// file whose format has a place for them.
struct RecordingAccount {
    std::string run;                    ///< of all of it; empty: nothing is known
    std::vector<std::string> channels;  ///< by channel
};

/// A recording in one file, written message by message while a measurement runs.
///
/// Called on one thread at a time. It sees bytes and times, nothing of modules or clocks. What is
/// promised about full disks, vanished files and killed processes is with AppendFile. The owner
/// calls flush() at least once a second, looks at hasFailed() there, and calls close() at the end.
class Recording {
  public:
    virtual ~Recording() = default;  // closes; call close() to learn of errors

    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    /// For people: "pcapng", "candump log".
    virtual const char* getFormatName() const = 0;

    /// Whether the format can hold messages of this bus.
    virtual bool accepts(BusType bus) const = 0;

    /// Before or between writes. Returns the handle for write, counting from 0. Throws
    /// FileError for a bus that the format doesn't accept.
    virtual std::size_t addChannel(const ChannelDescription& channel) = 0;

    /// Appends one record as the channel's bus has it (CanRecord, LinRecord, an Ethernet frame); a
    /// time before 1970 counts as 0. Never throws: a record that can't be written, after a failure
    /// or for its size or handle, is counted in recordsLost.
    virtual void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                       std::size_t size) = 0;

    /// Before `close`: no other file of the same measurement follows.
    void setLast() { isLast = true; }
    /// The latest before `close` counts; its channels by handle.
    void setAccount(RecordingAccount latest);
    void setOnProgress(std::function<void()> call) { file.setOnProgress(std::move(call)); }

    /// What was written so far is in the file. False when the recording has failed.
    bool flush() {
        writePending();
        return file.flush();
    }

    /// In place of `close`, if nothing is to be recorded after all: a file that was there before
    /// is as it was then, and one that wasn't is removed. Does nothing once a record is in it.
    void cancel();

    /// Flushes, waits until the disk has it, and closes. False when the recording has failed.
    bool close();

    const std::string& getPath() const { return file.getPath(); }
    bool hasFailed() const { return file.hasFailed(); }
    const std::string& getErrorText() const { return file.getErrorText(); }  // empty unless failed
    std::uint64_t getRecordsWritten() const { return file.getRecordsWritten(); }  // are in the file
    std::uint64_t getRecordsLost() const { return file.getRecordsLost(); }
    std::uint64_t getBytesWritten() const { return file.getBytesWritten(); }
    /// By handle.
    const std::vector<AppendFile::Counts>& getChannelCounts() const {
        return file.getChannelCounts();
    }

  protected:
    Recording(const std::string& path, bool overwrite) : file(path, overwrite) {}

    /// Once the head is in `file`: a file that wasn't there has it from now on. Throws FileError.
    void writeHead();
    /// Gives `file` what the format keeps back until there is enough of it: a container of
    /// compressed records.
    virtual void writePending() {}
    /// Completes the file once all records are in it: the counts in its header.
    virtual void complete() {}
    /// For the end of a file: what is in it of a channel, and what else is counted of that.
    std::string describeCounts(std::size_t channel) const;

    AppendFile file;
    RecordingAccount account;
    bool isLast = false;

  private:
    bool isCompleted = false;
};

/// That of a file's name, in lower case: ".mf4".
std::string endingOf(const std::filesystem::path& path);

struct RecordingFormat {
    const char* ending;  ///< ".pcapng"
    const char* what;    ///< for people
};

/// All that can be written.
std::vector<RecordingFormat> getRecordingFormats();
/// ".pcapng (Wireshark, all buses), .log (...)"
std::string describeRecordingFormats();

/// Opens a recording in the format that the ending of `path` names, in any case. Throws UserError,
/// or FileError when the file can't be written: directory missing, no permission, already there
/// with content and not to be overwritten, or in use by a recording. A pipe takes no format whose
/// head gets the start time with the first message: UserError.
///
/// `origin` is a few words on where the messages come from, in ASCII, for the header of a format
/// that has a place for it; empty for none.
std::unique_ptr<Recording> openRecording(const std::string& path, bool overwrite = false,
                                         const std::string& origin = {});
/// Throws the UserError that `openRecording` would throw, and opens nothing.
void checkRecordingFormat(const std::string& path);
/// As `openRecording`, for a recording of Ethernet frames, which is .pcapng always.
std::unique_ptr<Recording> openFrameRecording(const std::string& path, bool overwrite = false,
                                              const std::string& origin = {});

}  // namespace station
