#include "station/serve/bus_text.h"

#include <algorithm>
#include <array>

#include "station/recording/text_cursor.h"

namespace station {
namespace {

constexpr std::size_t longestFrameText = 192;  // 36 of words and blanks, 17 of time, 8 + 2 of
                                               // identifier and flags, 128 of data
constexpr std::string_view blanks = " \t\r\n";

}  // namespace

void appendFrameText(std::string& text, std::int64_t utcNanoseconds, const CanRecord& record) {
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(utcNanoseconds, 0));
    std::array<std::uint8_t, longestFrameText> room;
    LineCursor line(room.data());
    line.put(record.isFd() ? std::string_view("< fdframe ") : std::string_view("< frame "));
    line.putHex(record.id, record.extended ? 8 : 3);
    if (record.isFd()) {
        line.put(" 00");  // bit rate switch and error state aren't in the record
    }
    line.put(' ');
    line.putDecimal(time / 1'000'000'000, 10);
    line.put('.');
    line.putDecimal(time % 1'000'000'000 / 1'000, 6);
    line.put(' ');
    line.putHexBytes(record.data, record.getFilledLength());
    line.put(" >");
    line.put(endOfFrameText);
    text.append(reinterpret_cast<const char*>(room.data()),
                static_cast<std::size_t>(line.getPosition() - room.data()));
}

std::optional<std::string> CommandReader::take() {
    text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
    const std::size_t end = text.find('>');
    if (text.empty() || broken) {
        return std::nullopt;
    }
    broken = text.front() != '<' || std::min(end, text.size()) > longest;
    if (broken || end == text.npos) {
        return std::nullopt;
    }
    std::string command;
    for (std::size_t at = 1; at < end;) {
        const std::size_t word = std::min(text.find_first_not_of(blanks, at), end);
        at = std::min(text.find_first_of(blanks, word), end);
        if (word < at) {
            command += (command.empty() ? "" : " ") + text.substr(word, at - word);
        }
    }
    text.erase(0, end + 1);
    return command;
}

}  // namespace station
