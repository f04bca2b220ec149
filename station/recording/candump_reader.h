#pragma once

#include <string>
#include <string_view>

#include "station/recording/text_reader.h"

namespace station {

/// Reads the lines of `candump -L`, as CandumpRecording and other programs write them: a fraction
/// of up to nine digits, data bytes with or without points between them, a raw length code behind
/// "_", a direction ("R", "T") at the end. Remote and error frames are skipped and counted. A
/// channel is named after its interface.
class CandumpReader : public TextReader {
  public:
    explicit CandumpReader(const std::string& path) : TextReader(path) {}

    bool next(RecordedMessage& message) override;

  private:
    bool read(std::string_view line, RecordedMessage& message, std::string_view& interface);
    bool hasLines = false;  ///< one was of this format
};

}  // namespace station
