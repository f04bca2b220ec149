#include "station/recording/candump_reader.h"

#include "station/recording/message_record.h"
#include "station/recording/text_parsing.h"

namespace station {

namespace {

constexpr std::uint32_t candumpErrorFlag = 0x20000000;
constexpr std::uint32_t candumpIdentifierMask = 0x1FFFFFFF;

/// "DEADBEEF", "DE.AD.BE.EF", and both with "_9" behind them.
bool readCandumpData(std::string_view text, std::size_t most, DataBytes& data) {
    text = text.substr(0, text.find('_'));
    while (!text.empty()) {
        if (!data.addHex(text.substr(0, 2)) || data.get().size() > most) {
            return false;
        }
        text.remove_prefix(2);
        if (text.starts_with('.')) {
            text.remove_prefix(1);
        }
    }
    return true;
}

/// "1A2#DEADBEEF", "1A2##0DEADBEEF"; false if it is no message with data.
bool readCandumpFrame(std::string_view frame, RecordedMessage& message) {
    const std::size_t mark = frame.find('#');
    if (mark != 3 && mark != 8) {
        return false;
    }
    const auto word = parseNumber<std::uint32_t>(frame.substr(0, mark), 16);
    std::string_view text = frame.substr(mark + 1);
    const bool isFd = text.starts_with('#');
    if (isFd) {
        text.remove_prefix(text.size() < 2 ? text.size() : 2);  // the mark and the flags
    }
    constexpr std::size_t mostClassic = 8;
    DataBytes data;
    if (!word || (*word & candumpErrorFlag) != 0 ||
        *word > (candumpIdentifierMask | candumpErrorFlag) ||
        !readCandumpData(text, isFd ? CanFrame::mostData : mostClassic, data)) {
        return false;
    }
    setCanRecord(message, *word, mark == 8, data.get());
    return true;
}

}  // namespace

bool CandumpReader::read(std::string_view line, RecordedMessage& message,
                         std::string_view& interface) {
    Words words(line);
    const std::string_view time = words.next();
    if (time.size() < 2 || time.front() != '(' || time.back() != ')') {
        return false;
    }
    const auto nanoseconds = parseSeconds(time.substr(1, time.size() - 2));
    interface = words.next();
    const std::string_view frame = words.next();
    if (!nanoseconds || frame.find('#') == std::string_view::npos) {
        return false;
    }
    hasLines = true;
    message.utcNanoseconds = *nanoseconds;
    return readCandumpFrame(frame, message);
}

bool CandumpReader::next(RecordedMessage& message) {
    std::string_view line;
    while (nextLine(line)) {
        std::string_view interface;
        if (read(line, message, interface)) {
            if (chooseChannel(message, interface, interface, BusType::Can)) {
                return true;
            }
        } else if (!hasLines && !line.empty()) {
            stop("it doesn't begin with a line of a candump log");
        } else if (!line.empty()) {
            ++skipped;
        }
    }
    return false;
}

}  // namespace station
