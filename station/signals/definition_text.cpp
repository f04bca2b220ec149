#include "station/signals/definition_text.h"

#include <fmt/format.h>
#include <utf8.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "core/whole_file.h"
#include "station/errors.h"

namespace station {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isOfWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool isOfNumber(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '+' || c == '-';
}

/// What Windows-1252 has at 0x80 to 0x9F, where Latin-1 has control characters.
constexpr std::array<char16_t, 32> windowsMarks = {
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

}  // namespace

DefinitionText::DefinitionText(std::string file) : path(std::move(file)) {
    std::optional<std::string> contents;
    try {
        contents = readWholeFile(path, mostBytes + 1);
    } catch (const std::runtime_error& error) {
        throw UserError(ExitCode::Unreadable, fmt::format("can't read {}: {}", path, error.what()));
    }
    if (!contents) {
        throw UserError(ExitCode::Unreadable,
                        fmt::format("can't read {}: there is no such file", path));
    }
    text = std::move(*contents);
    isCut = text.size() > mostBytes;
    at = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
}

void DefinitionText::skipBlanks() {
    while (at < text.size()) {
        const std::string_view rest = std::string_view(text).substr(at, 2);
        if (rest.front() == '\n') {
            ++lineHere;
            ++at;
        } else if (isBlank(rest.front())) {
            ++at;
        } else if (rest == "//") {
            at = std::min(text.find('\n', at), text.size());
        } else if (rest == "/*") {
            const std::size_t end = text.find("*/", at + 2);
            if (end == std::string::npos && isCut) {
                break;
            }
            if (end == std::string::npos) {
                failAt(lineHere, "the comment that begins here has no end");
            }
            lineHere += static_cast<std::size_t>(std::count(&text[at], &text[end], '\n'));
            at = end + 2;
        } else {
            return;
        }
    }
    if (isCut) {
        failAt(lineHere, fmt::format("it goes on beyond the {} MB that a database may have",
                                     mostBytes >> 20U));
    }
}

bool DefinitionText::isAtEnd() {
    skipBlanks();
    return at == text.size();
}

char DefinitionText::peek() {
    return isAtEnd() ? '\0' : text[at];
}

bool DefinitionText::take(char wanted) {
    if (isAtEnd() || text[at] != wanted) {
        return false;
    }
    line = lineHere;
    ++at;
    return true;
}

void DefinitionText::expect(char wanted, std::string_view where) {
    if (!take(wanted)) {
        failMissing(fmt::format("a \"{}\" of {}", wanted, where));
    }
}

std::string_view DefinitionText::peekWord() {
    skipBlanks();
    std::size_t end = at;
    while (end < text.size() && isOfWord(text[end])) {
        ++end;
    }
    return std::string_view(text).substr(at, end - at);
}

bool DefinitionText::takeWord(std::string_view wanted) {
    if (peekWord() != wanted) {
        return false;
    }
    line = lineHere;
    at += wanted.size();
    return true;
}

std::string_view DefinitionText::word(std::string_view what) {
    const std::string_view found = peekWord();
    if (found.empty()) {
        failMissing(what);
    }
    line = lineHere;
    at += found.size();
    return found;
}

std::string DefinitionText::name(std::string_view what) {
    const std::string_view found = word(what);
    if (found.size() > longestName) {
        fail(fmt::format("{} is longer than {} bytes", what, longestName));
    }
    return toUtf8(found);
}

std::string DefinitionText::quotedName(std::string_view what, bool escapes) {
    std::string found = quoted(what, escapes);
    if (found.size() > longestName) {
        fail(fmt::format("{} is longer than {} bytes", what, longestName));
    }
    return found;
}

/// Without a plus in front. `end` becomes the place behind it.
std::string_view DefinitionText::peekDigits(std::size_t& end) {
    skipBlanks();
    end = at;
    while (end < text.size() && isOfNumber(text[end])) {
        ++end;
    }
    std::string_view digits = std::string_view(text).substr(at, end - at);
    digits.remove_prefix(digits.starts_with('+') ? 1 : 0);
    return digits;
}

double DefinitionText::number(std::string_view what) {
    std::size_t end = 0;
    const std::string_view digits = peekDigits(end);
    const auto found = parseNumber<double>(digits);
    if (!digits.empty() && (!found || !std::isfinite(*found))) {
        failHere(fmt::format("{} is \"{}\": a number is wanted", what, digits));
    }
    if (!found) {
        failMissing(fmt::format("{}, a number,", what));
    }
    line = lineHere;
    at = end;
    return *found;
}

std::uint64_t DefinitionText::whole(std::string_view what, std::uint64_t most) {
    const std::string_view digits = peekWord();
    const auto found = parseDecimalOrHex<std::uint64_t>(digits);
    if (found && *found > most) {
        failHere(fmt::format("{} is {}: a number from 0 to {} is wanted", what, *found, most));
    }
    if (!found) {
        failMissing(fmt::format("{}, a number from 0 to {},", what, most));
    }
    line = lineHere;
    at += digits.size();
    return *found;
}

std::int64_t DefinitionText::raw(std::string_view what) {
    std::size_t end = 0;
    const std::string_view digits = peekDigits(end);
    std::optional<std::int64_t> found = parseDecimalOrHex<std::int64_t>(digits);
    if (const auto bits = parseDecimalOrHex<std::uint64_t>(digits); !found && bits) {
        found = static_cast<std::int64_t>(*bits);
    }
    constexpr double tooMuch = 9.2e18;
    if (const auto real = parseNumber<double>(digits);
        !found && real && std::abs(*real) < tooMuch && std::trunc(*real) == *real) {
        found = static_cast<std::int64_t>(*real);
    }
    if (!found && !digits.empty()) {
        failHere(fmt::format("{} is \"{}\": a whole number of 64 bits is wanted", what, digits));
    }
    if (!found) {
        failMissing(fmt::format("{}, a whole number of 64 bits,", what));
    }
    line = lineHere;
    at = end;
    return *found;
}

std::string DefinitionText::quoted(std::string_view what, bool escapes) {
    if (peek() != '"') {
        failMissing(fmt::format("{}, between quotation marks,", what));
    }
    line = lineHere;
    std::string found;
    for (++at;; ++at) {
        const std::size_t end = text.find_first_of(escapes ? "\"\\\n" : "\"\n", at);
        if (end == std::string::npos) {
            at = text.size();
            skipBlanks();  // says so if it is the file that was cut
            failAt(line, fmt::format("the text of {} that begins here has no end", what));
        }
        found.append(text, at, end - at);
        at = end;
        if (text[at] == '"') {
            ++at;
            if (found.find('\0') != std::string::npos) {
                failAt(line, fmt::format("{} has a character in it that no text has (NUL)", what));
            }
            return toUtf8(found);
        }
        if (text[at] == '\n') {
            ++lineHere;
        } else if (at + 1 < text.size() && (text[at + 1] == '"' || text[at + 1] == '\\')) {
            ++at;
        }
        found += text[at];
    }
}

void DefinitionText::skipOne() {
    if (isQuoted()) {
        quoted("something", true);
    } else if (const std::string_view found = peekWord(); !found.empty()) {
        at += found.size();
    } else if (!isAtEnd()) {
        ++at;
    }
    line = lineHere;
}

void DefinitionText::skipStatement(bool (*isKeyword)(std::string_view)) {
    for (std::size_t lineBefore = line; !isAtEnd(); lineBefore = lineHere) {
        if (isKeyword != nullptr && lineHere != lineBefore && isKeyword(peekWord())) {
            return;
        }
        if (take(';')) {
            return;
        }
        skipOne();
    }
}

void DefinitionText::skipBlock() {
    constexpr std::size_t deepest = 100;
    const std::size_t begin = line;
    for (std::size_t depth = 1; depth != 0;) {
        if (isAtEnd()) {
            failAt(begin, "the \"{\" has no \"}\"");
        }
        if (take('{')) {
            if (++depth > deepest) {
                fail(fmt::format("blocks lie deeper than {} in one another", deepest));
            }
        } else if (take('}')) {
            --depth;
        } else {
            skipOne();
        }
    }
}

void DefinitionText::skipLonelyWords() {
    while (true) {
        const std::string_view found = peekWord();
        std::size_t end = at + found.size();
        while (end < text.size() && isBlank(text[end]) && text[end] != '\n') {
            ++end;
        }
        if (found.empty() || (end < text.size() && text[end] != '\n')) {
            return;
        }
        at = end;
    }
}

std::string DefinitionText::describeNext() {
    constexpr std::size_t most = 30;
    if (at >= text.size()) {
        return "the end of the file";
    }
    std::string next = text.substr(at, most);
    next.resize(std::min(next.find('\n'), next.size()));
    for (char& c : next) {
        c = c >= ' ' && c <= '~' ? c : '?';
    }
    return fmt::format("\"{}\"", next);
}

void DefinitionText::failMissing(std::string_view what) {
    skipBlanks();
    failHere(fmt::format("{} is missing in front of {}", what, describeNext()));
}

void DefinitionText::failHere(const std::string& cause) {
    skipBlanks();
    failAt(lineHere, cause);
}

void DefinitionText::failAt(std::size_t where, const std::string& cause) const {
    throw UserError(ExitCode::Unreadable, fmt::format("{}, line {}: {}", path, where, cause));
}

void DefinitionText::notice(Database& database, std::size_t where, const std::string& what) const {
    constexpr std::size_t most = 50;
    if (database.notices.size() < most) {
        database.notices.push_back(fmt::format("{}, line {}: {}", path, where, what));
    } else if (database.notices.size() == most) {
        database.notices.push_back(fmt::format("{}: and more of that kind", path));
    }
}

std::string DefinitionText::toUtf8(std::string_view bytes) {
    if (utf8::is_valid(bytes.begin(), bytes.end())) {
        return std::string(bytes);
    }
    std::string found;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isMark = byte >= 0x80 && byte < 0x80 + windowsMarks.size();
        utf8::append(isMark ? static_cast<char32_t>(windowsMarks[byte - 0x80]) : char32_t{byte},
                     std::back_inserter(found));
    }
    return found;
}

void sortTexts(std::vector<ValueText>& texts) {
    std::ranges::stable_sort(texts, {}, &ValueText::raw);
    const auto isSame = [](const ValueText& a, const ValueText& b) { return a.raw == b.raw; };
    texts.erase(std::unique(texts.begin(), texts.end(), isSame), texts.end());
}

bool TextBudget::take(const std::vector<ValueText>& texts, const std::vector<ScaledRange>& ranges) {
    std::size_t size = 0;
    for (const ValueText& each : texts) {
        size += sizeof each + each.text.size();
    }
    for (const ScaledRange& each : ranges) {
        size += sizeof each + each.unit.size();
    }
    const bool isEnough = size <= left;
    left -= isEnough ? size : left;
    return isEnough;
}

}  // namespace station
