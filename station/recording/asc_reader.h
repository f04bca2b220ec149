#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "station/recording/text_parsing.h"
#include "station/recording/text_reader.h"

namespace station {

/// Reads the text lines that AscRecording, python-can, log2asc and other loggers write:
/// numbers to the base of the header line, times as offsets from the start line or from the line
/// before, names of messages in CAN FD lines, dates in English or German, with "am" and "pm" or
/// with 24 hours.
///
/// The date is a local time without a zone, and is read as this machine's. A comment "// start N ns
/// UTC" behind the line "Begin Triggerblock" is exact, and goes before it.
///
/// Channels are "CAN 1", "LIN 1" unless a comment "// channel CAN 1 Front" names them in front.
/// Lines with a time that are no message (error and remote frames, statistics, other buses) are
/// skipped and counted, but for that of the start of the measurement.
class AscReader : public TextReader {
  public:
    explicit AscReader(const std::string& path) : TextReader(path) {}

    bool next(RecordedMessage& message) override;

  private:
    struct Identifier {
        std::uint32_t value;
        bool isExtended;
    };

    void readHeader(std::string_view line);
    void readComment(Words words);
    void setStart(std::string_view date);
    bool readEvent(std::string_view line, RecordedMessage& message);
    bool readClassic(std::string_view number, Words words, RecordedMessage& message);
    bool readFd(Words words, RecordedMessage& message);
    bool readLin(std::string_view number, Words words, RecordedMessage& message);
    std::optional<Identifier> readIdentifier(std::string_view word) const;
    bool choose(RecordedMessage& message, BusType bus, std::string_view number,
                std::string_view name = {});
    bool readData(Words& words, std::size_t count, DataBytes& data) const;

    int base = 16;
    bool isRelative = false;  ///< times are those since the line before
    bool hasHeader = false;
    std::int64_t start = 0;  ///< nanoseconds UTC
    std::int64_t time = 0;   ///< of the line before
};

}  // namespace station
