#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "station/recording/part_compressor.h"
#include "station/recording/recording.h"

namespace station {

/// When a recording goes on in another file.
struct PartRules {
    std::uint64_t bytes = 0;           ///< a part is ended when it has so many; 0: never
    std::int64_t nanoseconds = 0;      ///< or when messages so far apart are in it; 0: never
    std::uint64_t records = 0;         ///< or when it has so many; 0: never
    std::size_t keep = 0;              ///< so many of the files are kept, the newest; 0: all
    std::uint64_t leastFreeBytes = 0;  ///< nothing is written while the disk has less
    bool goesOn = false;               ///< after a failure, in another file
    /// That of the measurement (`newSession`), for names of parts and for headers. Empty: headers
    /// have none.
    std::string session = {};
    /// Gets the parts that are closed; null: they stay as they are.
    std::shared_ptr<PartCompressor> compressor = {};

    /// Whether there is to be more than one part in any case.
    bool isRotating() const { return bytes != 0 || nanoseconds != 0 || records != 0; }
};

/// An identifier for the measurement that is recorded into these: the second of UTC, and a number
/// where another one has begun in it.
std::string newSession(const std::vector<std::string>& paths, const PartRules& rules);

/// One recording of a measurement: a file, or one file after the other.
///
/// The parts of a recording to "drive.log" that goes by rules are "drive-SESSION-0001.log" and so
/// on, SESSION being the identifier of the measurement. Else the first part is "drive.log". Each
/// has all channels in front, and session and number in its header if the rules have a session.
/// Those that are closed may be compressed: "drive-SESSION-0001.log.zst".
///
/// A recording that fails, as its disk is full or its directory is gone, goes on in another part
/// when that is possible again; what comes in meanwhile is lost and counted.
///
/// Called on one thread at a time; `flush` at least once a second.
class RecordingSeries {
  public:
    using Clock = std::chrono::steady_clock;
    using Counts = AppendFile::Counts;

    using Open = std::function<std::unique_ptr<Recording>(const std::string& path, bool overwrite,
                                                          const std::string& origin)>;

    /// Opens the first part by `openNext`, as all others; throws as that.
    RecordingSeries(std::string path, bool overwrite, const PartRules& rules,
                    Open openNext = openRecording);
    /// That file alone.
    explicit RecordingSeries(std::unique_ptr<Recording> recording);

    std::string getFormatName() const { return format; }
    bool accepts(BusType bus) const { return acceptsBus[static_cast<std::size_t>(bus)]; }
    /// As those of `Recording`.
    std::size_t addChannel(const ChannelDescription& channel);
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size);
    void setOnProgress(std::function<void()> call);
    void cancel();

    /// What is known now, for the end of each part; channels by handle.
    void setAccount(RecordingAccount latest) { account = std::move(latest); }
    /// Looks after the parts too.
    void flush(Clock::time_point now);
    void close();
    /// The next message goes into another part.
    void endPart() { isPartToEnd = true; }

    /// What the user must know since the last call: failures, and that it goes on.
    std::vector<std::string> takeTexts();
    /// Nothing is written at the moment.
    bool hasFailed() const { return !part || part->hasFailed(); }
    const std::string& getPath() const { return wantedPath; }
    /// Of the part that is or was written last.
    const std::string& getPartPath() const { return partPath; }
    std::size_t getPartCount() const { return partNumber; }
    /// The last failure; empty if there was none.
    const std::string& getErrorText() const { return error; }

    // Over all parts.
    std::uint64_t getRecordsWritten() const { return total(&Counts::written); }
    std::uint64_t getRecordsLost() const { return total(&Counts::lost) + lostOfNoChannel; }
    std::uint64_t getBytesWritten() const;
    /// By handle.
    std::vector<Counts> getChannelCounts() const;

  private:
    void noteFormat();
    void openPart(bool overwrite);
    void closePart();
    void leavePart();
    bool isPartFull(std::int64_t utcNanoseconds) const;
    void goOnInNextPart();
    void noteFailure();
    void tryToGoOn(Clock::time_point now);
    bool hasRoomLeft() const;
    std::uint64_t getRoomToGoOn(const std::filesystem::space_info& disk) const;
    void dropOldParts();
    std::uint64_t total(std::uint64_t Counts::*count) const;

    const std::string wantedPath;
    const PartRules rules;
    const Open open;
    const std::string session;
    std::string format;
    bool acceptsBus[3] = {};  ///< by BusType
    std::function<void()> onProgress;

    std::unique_ptr<Recording> part;  ///< null: none can be written
    std::string partPath;
    std::size_t partNumber = 0;
    std::uint64_t partRecords = 0;  ///< given to it
    std::int64_t partStart = 0;     ///< time of its first message
    bool isPartToEnd = false;
    bool isFailureReported = false;
    Clock::time_point lastTry;

    std::vector<ChannelDescription> channels;
    std::vector<Counts> countsBefore;  ///< of the parts before, by handle
    std::uint64_t bytesBefore = 0;
    std::uint64_t lostOfNoChannel = 0;
    std::list<std::string> kept;  ///< paths of the parts before
    RecordingAccount account;
    std::string error;
    std::vector<std::string> texts;
};

}  // namespace station
