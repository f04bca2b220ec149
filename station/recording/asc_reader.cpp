#include "station/recording/asc_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <ctime>
#include <limits>
#include <optional>

#include "station/recording/bus_record.h"
#include "station/recording/message_record.h"

namespace station {

namespace {

constexpr std::int64_t secondOfDate = 1'000'000'000;

bool isWord(std::string_view a, std::string_view b) {
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// From 0; English, and German where it differs.
std::optional<int> monthOf(std::string_view word) {
    static constexpr std::array<const char*, 12> english = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static constexpr std::pair<const char*, int> german[] = {
        {"M\xC3\xA4r", 2}, {"M\xE4r", 2}, {"Mrz", 2}, {"Mai", 4}, {"Okt", 9}, {"Dez", 11}};
    for (std::size_t i = 0; i < english.size(); ++i) {
        if (word.size() >= 3 && isWord(word.substr(0, 3), english[i])) {
            return static_cast<int>(i);
        }
    }
    for (const auto& [name, month] : german) {
        if (word.starts_with(name)) {
            return month;
        }
    }
    return std::nullopt;
}

/// "Tue Nov 14 10:13:20.123 pm 2023" in nanoseconds UTC, by this machine's zone.
std::optional<std::int64_t> parseDate(std::string_view text) {
    Words words(text);
    words.next();  // day of the week
    const auto month = monthOf(words.next());
    const auto day = parseNumber<int>(words.next());
    const std::string_view clock = words.next();
    std::string_view word = words.next();
    const bool isMorning = isWord(word, "am");
    const bool isAfternoon = isWord(word, "pm");
    if (isMorning || isAfternoon) {
        word = words.next();
    }
    const auto year = parseNumber<int>(word);
    constexpr std::size_t withoutFraction = 8;
    if (!month || !day || !year || clock.size() < withoutFraction || clock[2] != ':' ||
        clock[5] != ':') {
        return std::nullopt;
    }
    const auto hour = parseNumber<int>(clock.substr(0, 2));
    const auto minute = parseNumber<int>(clock.substr(3, 2));
    const auto second = parseNumber<int>(clock.substr(6, 2));
    const auto fraction = clock.size() == withoutFraction
                              ? std::optional<std::int64_t>(0)
                              : parseFraction(clock.substr(withoutFraction));
    if (!hour || !minute || !second || !fraction || *year < 1970 || *year > 2261) {
        return std::nullopt;
    }
    std::tm local{};
    local.tm_year = *year - 1900;
    local.tm_mon = *month;
    local.tm_mday = *day;
    local.tm_hour = isMorning || isAfternoon ? *hour % 12 + (isAfternoon ? 12 : 0) : *hour;
    local.tm_min = *minute;
    local.tm_sec = *second;
    local.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&local);
    return seconds < 0
               ? std::nullopt
               : std::optional(static_cast<std::int64_t>(seconds) * secondOfDate + *fraction);
}

std::string unescapedFromAsc(std::string_view text) {
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
            name += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : text[i];
        } else {
            name += text[i];
        }
    }
    return name;
}

bool isDirection(std::string_view word) {
    return isWord(word, "Rx") || isWord(word, "Tx");
}

std::int64_t boundedSum(std::int64_t a, std::int64_t b) {
    std::int64_t total = 0;
    return __builtin_add_overflow(a, b, &total) ? std::numeric_limits<std::int64_t>::max() : total;
}

}  // namespace

void AscReader::setStart(std::string_view date) {
    if (const auto parsed = parseDate(date)) {
        start = *parsed;
    }
    time = start;
}

void AscReader::readComment(Words words) {
    const std::string_view what = words.next();
    if (what == "start") {
        const auto parsed = parseNumber<std::int64_t>(words.next());
        if (parsed && *parsed >= 0 && words.next() == "ns" && words.next().starts_with("UTC")) {
            start = *parsed;
            time = start;
        }
    } else if (what == "channel") {
        const std::string_view bus = words.next();
        const std::string_view number = words.next();
        RecordedMessage none;
        if (bus == "CAN" || bus == "LIN") {
            choose(none, bus == "CAN" ? BusType::Can : BusType::Lin, number,
                   unescapedFromAsc(words.getRest()));
        }
    }
}

/// Lines that don't begin with a time.
void AscReader::readHeader(std::string_view line) {
    Words words(line);
    const std::string_view word = words.next();
    if (word == "//") {
        readComment(words);
    } else if (isWord(word, "date") ||
               (isWord(word, "begin") && isWord(words.next(), "triggerblock"))) {
        hasHeader = true;
        setStart(words.getRest());
    } else if (isWord(word, "base")) {
        hasHeader = true;
        base = isWord(words.next(), "dec") ? 10 : 16;
        words.next();
        isRelative = isWord(words.next(), "relative");
    }
}

bool AscReader::next(RecordedMessage& message) {
    std::string_view line;
    while (nextLine(line)) {
        const std::string_view first = Words(line).next();
        if (first.empty() || first.front() < '0' || first.front() > '9') {
            readHeader(line);
        } else if (!hasHeader) {
            stop("its header is missing");
        } else if (readEvent(line, message)) {
            return true;
        }
    }
    if (!hasHeader && errorText.empty() && getLineNumber() != 0) {
        stop("its header is missing");
    }
    return false;
}

/// Lines that begin with a time.
bool AscReader::readEvent(std::string_view line, RecordedMessage& message) {
    Words words(line);
    const auto offset = parseSeconds(words.next());
    const std::string_view kind = words.next();
    if (!offset) {
        ++skipped;
        return false;
    }
    time = boundedSum(isRelative ? time : start, *offset);
    message.utcNanoseconds = time;
    if (isWord(kind, "Start")) {
        return false;
    }
    bool isMessage = false;
    if (isWord(kind, "CANFD")) {
        isMessage = readFd(words, message);
    } else if (kind.starts_with('L') || kind.starts_with('l')) {
        isMessage = readLin(isWord(kind, "Li") ? "1" : kind.substr(1), words, message);
    } else {
        isMessage = readClassic(kind, words, message);
    }
    skipped += isMessage ? 0U : 1U;
    return isMessage;
}

/// Where it isn't there yet, the channel gets `name`.
bool AscReader::choose(RecordedMessage& message, BusType bus, std::string_view number,
                       std::string_view name) {
    std::array<char, 16> text{};
    const std::string_view busName = bus == BusType::Can ? "CAN " : "LIN ";
    const auto value = parseNumber<std::uint32_t>(number);
    if (!value) {
        return false;
    }
    std::ranges::copy(busName, text.begin());
    char* const end =
        std::to_chars(text.data() + busName.size(), text.data() + text.size(), *value).ptr;
    const std::string_view key(text.data(), static_cast<std::size_t>(end - text.data()));
    return chooseChannel(message, key, name.empty() ? key : name, bus);
}

std::optional<AscReader::Identifier> AscReader::readIdentifier(std::string_view word) const {
    const bool isExtended = word.ends_with('x') || word.ends_with('X');
    word.remove_suffix(isExtended ? 1 : 0);
    const auto value = parseNumber<std::uint32_t>(word, base);
    return value && *value <= CanFrame::identifierMask
               ? std::optional(Identifier{*value, isExtended})
               : std::nullopt;
}

bool AscReader::readData(Words& words, std::size_t count, DataBytes& data) const {
    for (std::size_t i = 0; i < count; ++i) {
        if (!data.add(parseNumber<std::uint8_t>(words.next(), base))) {
            return false;
        }
    }
    return true;
}

/// "123x Rx d 8 00 01 ..."
bool AscReader::readClassic(std::string_view number, Words words, RecordedMessage& message) {
    constexpr std::size_t mostData = 8;
    const auto identifier = readIdentifier(words.next());
    if (!identifier || !isDirection(words.next()) || !isWord(words.next(), "d")) {
        return false;
    }
    const auto code = parseNumber<std::size_t>(words.next(), base);
    DataBytes data;
    if (!code || *code > 15 || !readData(words, std::min(*code, mostData), data) ||
        !choose(message, BusType::Can, number)) {
        return false;
    }
    setCanRecord(message, identifier->value, identifier->isExtended, data.get());
    return true;
}

/// "1 Rx 123x [name] 0 0 9 12 00 01 ..."
bool AscReader::readFd(Words words, RecordedMessage& message) {
    const std::string_view number = words.next();
    const bool hasDirection = isDirection(words.next());
    const auto identifier = readIdentifier(words.next());
    const auto isBit = [](std::string_view word) { return word == "0" || word == "1"; };
    std::string_view word = words.next();
    if (!isBit(word)) {
        word = words.next();
    }
    const bool hasBits = isBit(word) && isBit(words.next());
    const auto code = parseNumber<std::size_t>(words.next(), 16);
    const auto length = parseNumber<std::size_t>(words.next());
    DataBytes data;
    // A length of 0 with another code is how a remote frame looks.
    if (!hasDirection || !identifier || !hasBits || !code || !length ||
        *length > CanFrame::mostData || (*length == 0 && *code != 0) ||
        !readData(words, *length, data) || !choose(message, BusType::Can, number)) {
        return false;
    }
    setCanRecord(message, identifier->value, identifier->isExtended, data.get());
    return true;
}

/// "12 Rx 2 01 02 checksum = F2 ..."
bool AscReader::readLin(std::string_view number, Words words, RecordedMessage& message) {
    const auto frame = parseNumber<std::uint32_t>(words.next(), base);
    const bool hasDirection = isDirection(words.next());
    const auto length = parseNumber<std::size_t>(words.next());
    DataBytes data;
    if (!frame || *frame > LinFrame::identifierMask || !hasDirection || !length ||
        *length > LinFrame::mostData || !readData(words, *length, data) ||
        !isWord(words.next(), "checksum") || words.next() != "=") {
        return false;
    }
    const auto checksum = parseNumber<std::uint8_t>(words.next(), base);
    if (!checksum || !choose(message, BusType::Lin, number)) {
        return false;
    }
    setLinRecord(message, *frame, *checksum, data.get());
    return true;
}

}  // namespace station
