#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "station/errors.h"

namespace station {

/// The file under a recording: grows at its end only, record by record, through a bounded buffer.
///
/// Called on one thread. Owns the descriptor, and a lock on the file that keeps a second recording,
/// in this process or another, from writing into the same one.
///
/// Invariant: between calls the file holds whole records only. The buffer takes no part of a
/// record, it is written out as a whole, and when writing fails half-way (full disk, size limit)
/// the file is cut back to the end of the last record that went in completely, so that it opens in
/// any reader.
///
/// A process that is killed loses what was in the buffer and no more. Only when the kill falls into
/// the write itself may the last record be torn: a pcapng reader then shows all records before it
/// and says that the file is cut short; a candump reader stops at the last line or shows it
/// shortened.
///
/// "-" is the standard output, and a named pipe is written while it is read: there nothing can be
/// cut back, locked or looked at again, and a reader that is slow holds up the thread.
///
/// The first failure ends the recording and stays: its text is kept, later records are counted as
/// lost, and nothing is thrown, for a full disk must not stop the capture or another recording.
class AppendFile {
  public:
    static constexpr const char* standardOutput = "-";
    /// Whether that is standard output, or a named pipe.
    static bool isStreamPath(const std::string& path);

    /// Opens `path` for appending, or creates it. A file with content is refused unless `overwrite`
    /// is set; it is emptied when the first bytes are written. Throws FileError.
    AppendFile(std::string path, bool overwrite);
    ~AppendFile();  // closes; call close() to learn of errors

    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    /// What has become of the records of one channel.
    struct Counts {
        std::uint64_t written = 0;  ///< in the file; those on their way into it count nowhere
        std::uint64_t lost = 0;
    };

    /// Called each time that the disk has taken something, once it is counted; empty for none.
    void setOnProgress(std::function<void()> call) { onProgress = std::move(call); }
    /// One more channel, whose records are counted on their own; they count from 0.
    void addChannel() { channels.push_back({}); }
    /// Room for one record of at most `size` bytes (`size` at most `largestPiece`) of a channel, to
    /// be finished with endRecord before any other call. Null, and one more record lost, after a
    /// failure.
    std::uint8_t* beginRecord(std::size_t channel, std::size_t size) {
        if (used + size > bufferSize || endCount == mostEnds) {
            drain();
        }
        if (!isWritable()) {
            dropRecords(channel, 1);
            return nullptr;
        }
        recordChannel = channel;
        return buffer.get() + used;
    }

    /// `end` is one behind the last byte put into the room that beginRecord gave.
    void endRecord(const std::uint8_t* end) {
        used = static_cast<std::size_t>(end - buffer.get());
        recordEnds[endCount++] = {static_cast<std::uint32_t>(used),
                                  static_cast<std::uint32_t>(recordChannel)};
    }

    /// Bytes that are no record of their own but needed to read those behind them (at most
    /// `largestPiece`).
    void appendHeader(const std::vector<std::uint8_t>& bytes);

    /// Several records in one piece of any size, as a format that compresses them has it, by the
    /// channel of each. Where it doesn't go in as a whole, all of them are lost.
    void appendBlock(std::span<const std::uint8_t> bytes,
                     const std::vector<std::uint32_t>& channelsOfRecords);

    /// Replaces bytes that are in the file already: the counts in a header, when the recording
    /// ends; in a stream, nothing. What is in the buffer is written out first. Nothing after a
    /// failure.
    void patch(std::uint64_t offset, const std::vector<std::uint8_t>& bytes);

    /// Records that the caller can't write, to be counted with the lost ones.
    void dropRecords(std::size_t channel, std::uint64_t count) {
        lost += count;
        if (channel < channels.size()) {
            channels[channel].lost += count;
        }
    }

    /// Forgets what isn't in the file yet: an existing file stays as it was if none of it is.
    void discard();
    /// Whether there was no file before.
    bool isNew() const { return created; }

    /// Hands everything to the operating system and looks whether the file is still at its
    /// path. False when the recording has failed, now or before.
    bool flush();

    /// Flushes, waits until the disk has it, and closes. False when the recording has failed.
    bool close();
    /// `close` leaves it to the system when the disk gets what is in the file.
    void dontWaitForDisk() { waitsForDisk = false; }

    bool hasFailed() const { return !error.empty(); }
    const std::string& getErrorText() const { return error; }  // empty unless failed
    const std::string& getPath() const { return filePath; }

    /// Records in the file; those that a failure took are `getRecordsLost`.
    std::uint64_t getRecordsWritten() const { return recordsInFile; }
    /// Records on their way into it.
    std::uint64_t getRecordsBuffered() const { return endCount; }
    std::uint64_t getRecordsLost() const { return lost; }
    const std::vector<Counts>& getChannelCounts() const { return channels; }
    std::uint64_t getBytesWritten() const { return bytesInFile; }

    static constexpr std::size_t largestPiece = 4096;

  private:
    struct RecordEnd {
        std::uint32_t offset;  ///< in `buffer`
        std::uint32_t channel;
    };

    bool isWritable() const { return fd >= 0 && !hasFailed(); }
    void open(bool overwrite);
    void openStream();
    void drain();
    void emptyFirst();
    /// How many of the bytes went into the file: fewer only with the reason in `errorNumber`.
    std::size_t writeOut(const std::uint8_t* bytes, std::size_t size, int& errorNumber);
    void cutBack(std::size_t bytesOut, int errorNumber);
    void keepAndDrop(std::size_t kept);
    void beginWriteback();
    void checkStillThere();
    void reportProgress() const;
    void fail(const std::string& reason);

    static constexpr std::size_t bufferSize = 64 * 1024;      // so that also a slow disk gets on
    static constexpr std::size_t mostEnds = bufferSize / 16;  // no format has shorter records

    const std::string filePath;
    const std::unique_ptr<std::uint8_t[]> buffer;
    const std::unique_ptr<RecordEnd[]> recordEnds;  // of the records in `buffer`, for cutBack
    std::size_t endCount = 0;                       // of them
    std::vector<Counts> channels;
    std::size_t recordChannel = 0;  // of the record that was begun
    std::size_t used = 0;           // bytes in `buffer`
    int fd = -1;
    bool created = false;
    bool isStream = false;       // standard output or a pipe
    bool waitsForDisk = true;    // at its end
    bool isToBeEmptied = false;  // before the first bytes are written
    std::uint64_t bytesInFile = 0;
    std::uint64_t writebackBegun = 0;  ///< the disk was asked to take the file up to here
    std::uint64_t recordsInFile = 0;
    std::uint64_t lost = 0;
    std::string error;
    std::function<void()> onProgress;
};

}  // namespace station
