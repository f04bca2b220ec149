#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/bus_record.h"
#include "station/recording/recording.h"

namespace station {

/// A message as a recording has it: the record of an output channel, and when it was on the bus.
struct RecordedMessage {
    std::size_t channel = 0;  ///< position in `MessageReader::getChannels`
    std::int64_t utcNanoseconds = 0;
    std::size_t size = 0;  ///< of the record: sizeof(CanFrame) or sizeof(LinFrame)
    std::array<std::uint8_t, sizeof(CanFrame)> record = {};
};

/// Reads the messages of a recording, in the order in which they are in the file.
///
/// A file may be torn, or have anything in it: what is whole is read, up to the first place from
/// which reading can't go on. Nothing in the file makes it read outside of the file, allocate more
/// than a bounded multiple of what it read, or take more than linear time.
class MessageReader {
  public:
    MessageReader() = default;
    virtual ~MessageReader() = default;
    MessageReader(const MessageReader&) = delete;
    MessageReader& operator=(const MessageReader&) = delete;

    /// Overwrites `message` with the next one. False at the end, and where reading can't go on;
    /// from then on always false.
    virtual bool next(RecordedMessage& message) = 0;
    /// 0.0 to 1.0.
    virtual double getProgress() const = 0;

    /// The channels of the messages that were read so far, or of all where the file names them in
    /// front. Their places stay.
    const std::vector<ChannelDescription>& getChannels() const { return channels; }
    /// Why the rest couldn't be read, for people, with how many bytes were left; empty at the
    /// proper end of a file.
    const std::string& getErrorText() const { return errorText; }
    /// Records that were read but are no CAN, CAN FD or LIN message: errors, remote frames, others.
    std::uint64_t getSkipped() const { return skipped; }

  protected:
    std::vector<ChannelDescription> channels;
    std::string errorText;
    std::uint64_t skipped = 0;
};

/// Opens a recording in the format that its first bytes, or else its ending, show. Null if it is
/// none whose messages can be read: then it may hold Ethernet frames. Throws UserError
/// (unreadable).
std::unique_ptr<MessageReader> openMessages(const std::string& path);

}  // namespace station
