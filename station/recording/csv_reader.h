#pragma once

#include <string>
#include <string_view>

#include "station/recording/text_reader.h"

namespace station {

/// Reads the tables that CsvRecording writes, also with other line ends and with more quotation
/// marks, as a program may have that stored one again.
class CsvReader : public TextReader {
  public:
    explicit CsvReader(const std::string& path) : TextReader(path) {}

    bool next(RecordedMessage& message) override;

  private:
    bool read(std::string_view line, RecordedMessage& message);
    bool choose(RecordedMessage& message, std::string_view field, BusType bus);

    bool hasColumns = false;  ///< their names were read
    std::string scratch;
};

}  // namespace station
