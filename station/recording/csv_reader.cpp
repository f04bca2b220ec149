#include "station/recording/csv_reader.h"

#include <array>
#include <optional>

#include "station/recording/csv_recording.h"
#include "station/recording/message_record.h"
#include "station/recording/text_parsing.h"
#include "station/recording/utc_text.h"

namespace station {

namespace {

constexpr std::size_t csvFieldCount = 8;
using CsvFields = std::array<std::string_view, csvFieldCount>;

/// The next field with its quotation marks, and behind it its comma.
std::string_view takeField(std::string_view& rest) {
    std::size_t end = 0;
    for (bool isQuoted = false; end < rest.size() && (isQuoted || rest[end] != ','); ++end) {
        isQuoted ^= rest[end] == '"';
    }
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end < rest.size() ? end + 1 : end);
    return field;
}

std::string unquotedFromCsv(std::string_view field) {
    if (field.size() < 2 || field.front() != '"' || field.back() != '"') {
        return std::string(field);
    }
    std::string text;
    for (std::size_t i = 1; i + 1 < field.size(); ++i) {
        text += field[i];
        if (field[i] == '"') {
            ++i;  // it is there twice
        }
    }
    return text;
}

/// A field that needs no quotation marks may have them all the same.
std::string_view withoutQuotes(std::string_view field) {
    const bool isQuoted = field.size() >= 2 && field.front() == '"' && field.back() == '"';
    return isQuoted ? field.substr(1, field.size() - 2) : field;
}

bool readCsvData(std::string_view length, std::string_view text, DataBytes& data) {
    Words words(text);
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        if (!data.addHex(word)) {
            return false;
        }
    }
    return parseNumber<std::size_t>(length) == data.get().size();
}

}  // namespace

bool CsvReader::read(std::string_view line, RecordedMessage& message) {
    CsvFields fields;
    for (std::string_view& field : fields) {
        field = takeField(line);
    }
    for (std::size_t i = 0; i < csvFieldCount; ++i) {
        if (i != 1) {
            fields[i] = withoutQuotes(fields[i]);
        }
    }
    const auto& [time, channel, bus, id, extended, length, bytes, checksum] = fields;
    const auto nanoseconds = parseUtc(time);
    const auto identifier = parseDecimalOrHex<std::uint32_t>(id);
    DataBytes data;
    if (!nanoseconds || !identifier || *identifier > CanFrame::identifierMask ||
        !readCsvData(length, bytes, data) || !line.empty()) {
        ++skipped;
        return false;
    }
    message.utcNanoseconds = *nanoseconds;
    if (bus == "CAN" || bus == "CAN FD") {
        setCanRecord(message, *identifier, extended == "1", data.get());
        return choose(message, channel, BusType::Can);
    }
    const auto sum = parseDecimalOrHex<std::uint8_t>(checksum);
    if (bus != "LIN" || !sum || data.get().size() > LinFrame::mostData ||
        *identifier > LinFrame::identifierMask) {
        ++skipped;
        return false;
    }
    setLinRecord(message, *identifier, *sum, data.get());
    return choose(message, channel, BusType::Lin);
}

bool CsvReader::choose(RecordedMessage& message, std::string_view field, BusType bus) {
    // One bus may have a channel of the same name as another.
    scratch.assign(bus == BusType::Can ? "C" : "L").append(field);
    return chooseChannel(message, scratch, isKnown(scratch) ? "" : unquotedFromCsv(field), bus);
}

bool CsvReader::next(RecordedMessage& message) {
    std::string_view line;
    while (nextQuotedLine(line)) {
        if (!hasColumns) {
            const std::string_view columns = CsvRecording::columns;
            hasColumns = line == columns.substr(0, columns.size() - 1);
            if (!hasColumns) {
                stop("its first line doesn't name the columns of a recording");
            }
        } else if (!line.empty() && read(line, message)) {
            return true;
        }
    }
    return false;
}

}  // namespace station
