#include "station/recording/text_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace station {

namespace {

constexpr std::size_t longestTextLine = 64 * 1024;

/// Bytes up to the line break, which `bytes` may not have: then `npos`.
std::size_t lengthOfLine(std::string_view bytes, bool withQuotes) {
    std::size_t end = bytes.find('\n');
    std::size_t counted = 0;
    bool isQuoted = false;
    while (withQuotes && end != std::string_view::npos) {
        isQuoted ^= std::count(bytes.begin() + static_cast<std::ptrdiff_t>(counted),
                               bytes.begin() + static_cast<std::ptrdiff_t>(end), '"') %
                        2 !=
                    0;
        if (!isQuoted) {
            break;
        }
        counted = end;
        end = bytes.find('\n', end + 1);
    }
    return end;
}

}  // namespace

bool TextReader::findLine(std::string_view& line, bool withQuotes) {
    const std::uint64_t left = file.getSize() - position;
    const auto bytes = file.view(
        position, static_cast<std::size_t>(std::min<std::uint64_t>(left, longestTextLine)));
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::size_t length = lengthOfLine(text, withQuotes);
    lineStart = position;
    if (length == std::string_view::npos) {
        if (!file.getErrorText().empty()) {
            stop(file.getErrorText());
        } else if (left > longestTextLine) {
            stop(fmt::format("line {} is longer than any of this format", lineNumber + 1));
        } else if (left != 0) {
            stop("it ends within a line");
        }
        return false;
    }
    line = text.substr(0, length);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    position += length + 1;
    ++lineNumber;
    return true;
}

void TextReader::stop(const std::string& reason) {
    position = lineStart;
    errorText = fmt::format("{} can't be read to its end: {}; {} bytes of it were left",
                            file.getPath(), reason, file.getSize() - position);
}

bool TextReader::chooseChannel(RecordedMessage& message, std::string_view key,
                               std::string_view name, BusType bus) {
    message.channel = index.find(key);
    if (message.channel == ChannelIndex::none) {
        if (key.size() > ChannelIndex::longestKey) {
            ++skipped;
            return false;
        }
        if (!index.add(key, name, bus)) {
            stop(fmt::format("line {} has a channel beyond the {} that can be read", lineNumber,
                             ChannelIndex::mostChannels));
            return false;
        }
        message.channel = channels.size() - 1;
    }
    return true;
}

}  // namespace station
