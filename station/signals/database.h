#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// What a raw value means, as "2" means "Reverse".
struct ValueText {
    std::int64_t raw;  ///< of an unsigned signal of 64 bits its bits
    std::string text;
};

/// Another conversion for a range of raw values, as LIN has them.
struct ScaledRange {
    std::int64_t least;
    std::int64_t most;
    double factor;
    double offset;
    std::string unit;
};

/// A signal that is there only while another one, its switch, has certain values.
struct Multiplexing {
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
    struct Range {
        std::uint64_t least;
        std::uint64_t most;
    };

    bool isSwitch = false;           ///< others may depend on this one
    std::size_t switchIndex = none;  ///< the switch among the message's signals; none: always there
    std::string switchName = {};     ///< empty: always there
    std::vector<Range> ranges = {};  ///< raw values of the switch with which it is there
};

enum class ByteOrder { LittleEndian, BigEndian };
enum class ValueKind { Unsigned, Signed, Float32, Float64 };

/// Value = raw * factor + offset, in `unit`.
struct SignalDefinition {
    std::string name;
    std::string unit;
    std::string comment;
    /// The lowest bit of a little-endian signal, the highest of a big-endian one. Bit 0 is the
    /// lowest of the first byte, bit 8 the lowest of the second.
    std::uint32_t startBit = 0;
    std::uint32_t size = 1;  ///< bits, 1 to 64
    ByteOrder byteOrder = ByteOrder::LittleEndian;
    ValueKind kind = ValueKind::Unsigned;
    double factor = 1.0;
    double offset = 0.0;
    double minimum = 0.0;  ///< of the value; as `maximum`: not given
    double maximum = 0.0;
    std::vector<ValueText> texts;     ///< by `raw`, each once
    std::vector<ScaledRange> ranges;  ///< for raw values outside of them, `factor` and `offset`
    Multiplexing multiplexing;

    /// How long a message must be to have it.
    std::size_t getEndByte() const {
        const std::size_t first =
            byteOrder == ByteOrder::LittleEndian ? startBit : startBit / 8 * 8 + (7 - startBit % 8);
        return (first + size + 7) / 8;
    }
};

struct MessageDefinition {
    std::uint32_t id = 0;  ///< 11 or 29 bits; 6 of LIN, without parity
    bool isExtended = false;
    std::string name;
    std::string sender;  ///< empty: nobody's
    std::string comment;
    std::size_t length = 0;                ///< bytes
    std::optional<double> cycleTime = {};  ///< seconds
    std::vector<SignalDefinition> signals;
};

/// What the messages of a bus mean, as a file describes it. All texts are UTF-8.
struct Database {
    std::string file;  ///< as it was named
    BusType bus = BusType::Can;
    std::vector<MessageDefinition> messages;  ///< each identifier once
    /// What was read otherwise than it is written, or left out: with file and line, for people.
    std::vector<std::string> notices;
};

/// Reads a .dbc or .ldf, as the ending says. Throws UserError: for another ending, or with file,
/// line and cause (unreadable) for a file that can't be read or isn't well-formed.
///
/// Time and memory are bounded, whatever is in the file. Taken with a notice: a second definition
/// of an identifier (the first one counts), a factor of 0, and a signal that lies outside of its
/// message's length (it is there in messages that are long enough for it).
Database readDatabase(const std::string& path);

/// Adds what `more`, of the same bus, has for other identifiers. Throws UserError for another bus.
void addDatabase(Database& database, Database more);

}  // namespace station
