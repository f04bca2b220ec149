#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "station/recording/channel_index.h"
#include "station/recording/input_file.h"
#include "station/recording/message_reader.h"

namespace station {

/// What the readers of text lines share. A line without its line break was torn and is left; one of
/// more than 64 KiB is none, and reading ends in front of it.
///
/// A line that doesn't read as a message is skipped and counted: lines stay apart whatever is in
/// one.
class TextReader : public MessageReader {
  public:
    double getProgress() const override { return file.getShare(position); }

  protected:
    explicit TextReader(const std::string& path) : file(path), index(channels) {}

    /// The next line without its line break; it is there until the next call. False at the end.
    bool nextLine(std::string_view& line) { return !isOver() && findLine(line, false); }
    /// The same for lines in which a line break between quotation marks is part of a field.
    bool nextQuotedLine(std::string_view& line) { return !isOver() && findLine(line, true); }
    /// Ends reading in front of the line that was read last, with `reason`.
    void stop(const std::string& reason);
    /// The place in `channels` for this key; what isn't there yet is added. False if it is no key,
    /// which is counted as skipped, or there are too many, which ends reading.
    bool chooseChannel(RecordedMessage& message, std::string_view key, std::string_view name,
                       BusType bus);
    bool isKnown(std::string_view key) { return index.find(key) != ChannelIndex::none; }
    std::uint64_t getLineNumber() const { return lineNumber; }

  private:
    bool isOver() const { return !errorText.empty(); }
    bool findLine(std::string_view& line, bool withQuotes);

    InputFile file;
    ChannelIndex index;
    std::uint64_t position = 0;   ///< behind the line that was read last
    std::uint64_t lineStart = 0;  ///< of that one
    std::uint64_t lineNumber = 0;
};

}  // namespace station
