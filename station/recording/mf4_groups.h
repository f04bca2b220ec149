#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "station/recording/message_reader.h"
#include "station/recording/mf4_input.h"

namespace station::mf4 {

/// A channel of a group: where its value is in a record. Its place was checked, values lie inside
/// of the group's records.
struct Field {
    std::uint32_t at = 0;    ///< byte
    std::uint32_t bit = 0;   ///< 0 to 7
    std::uint32_t bits = 0;  ///< 0: there is no such channel
    std::uint8_t type = 0;   ///< DataType

    bool isThere() const { return bits != 0; }
    /// The number there, its bits only. Of 64 bits at most, which was checked too.
    std::uint64_t number(std::span<const std::uint8_t> record) const;
};

/// The time of a record, in nanoseconds since the file's start.
struct TimeField {
    Field field;
    double offset = 0.0;  ///< seconds
    double factor = 1.0;  ///< seconds each

    std::int64_t nanoseconds(std::span<const std::uint8_t> record) const;
};

/// What a channel group's records are, and where in them the parts of a message.
struct Group {
    enum class Kind {
        Other,     ///< measured signals: nothing for us
        Can,       ///< CAN_DataFrame
        Lin,       ///< LIN_Frame
        Skipped,   ///< another event of a bus, or a frame whose data are kept elsewhere
        Names,     ///< the table of channels in our own files
        Variable,  ///< values of any length, each behind its length in 32 bits
    };

    Kind kind = Kind::Other;
    bool isUnreadable = false;  ///< frames that are skipped as they aren't stored as we read them
    std::uint64_t recordId = 0;
    std::uint64_t recordSize = 0;  ///< with the invalidation bytes, without identifier
    TimeField time;
    Field busChannel, id, extended, lengthCode, length, data, checksum, busType, name;

    bool isRead() const { return kind == Kind::Can || kind == Kind::Lin || kind == Kind::Names; }
    /// Puts a CAN or LIN frame into `message`, but for the channel and the file's start.
    void decode(std::span<const std::uint8_t> record, RecordedMessage& message) const;
};

/// Reads the group there with its channels; returns the next one's place, 0 for none. What isn't
/// there or makes no sense leaves a `Group` that isn't read.
std::uint64_t readGroup(Input& input, std::uint64_t offset, Group& group);

}  // namespace station::mf4
