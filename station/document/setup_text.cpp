#include "station/document/setup_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr int hexadecimal = 16;

/// Whether every reader of XML gives the character back as it was.
bool isPlain(wchar_t character) {
    const auto code = static_cast<char32_t>(character);
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    return !isControl && !isSurrogate && code != 0xFFFE && code != 0xFFFF && code <= 0x10FFFF;
}

bool isPlain(const std::wstring& text) {
    return text.empty() || (text.front() != L'"' && text.front() != L' ' && text.back() != L' ' &&
                            std::all_of(text.begin(), text.end(),
                                        [](wchar_t character) { return isPlain(character); }));
}

std::string quoted(const std::wstring& text) {
    std::string result = "\"";
    for (const wchar_t character : text) {
        switch (character) {
            case L'\\':
                result += "\\\\";
                break;
            case L'"':
                result += "\\\"";
                break;
            case L'\n':
                result += "\\n";
                break;
            case L'\t':
                result += "\\t";
                break;
            default:
                result += isPlain(character)
                              ? StringHelper::ToUtf8(std::wstring(1, character))
                              : fmt::format("\\u{{{:x}}}", static_cast<std::uint32_t>(character));
        }
    }
    return result + '"';
}

/// Takes the number of a character off the front of `rest`, which goes on behind `\u`.
std::optional<wchar_t> takeNumbered(std::string_view& rest) {
    const std::size_t close = rest.find('}');
    if (!rest.starts_with('{') || close == std::string_view::npos) {
        return std::nullopt;
    }
    const auto code = parseNumber<std::uint32_t>(rest.substr(1, close - 1), hexadecimal);
    if (!code || *code == 0) {
        return std::nullopt;
    }
    rest.remove_prefix(close + 1);
    return static_cast<wchar_t>(*code);
}

/// Takes an escape off the front of `rest`, which goes on behind the backslash.
std::optional<wchar_t> takeEscape(std::string_view& rest) {
    const char kind = rest.empty() ? '\0' : rest.front();
    rest.remove_prefix(rest.empty() ? 0 : 1);
    switch (kind) {
        case '\\':
        case '"':
            return kind;
        case 'n':
            return L'\n';
        case 't':
            return L'\t';
        case 'u':
            return takeNumbered(rest);
        default:
            return std::nullopt;
    }
}

/// What is between the quotes, or nothing if one of them is missing or an escape is wrong.
std::optional<std::wstring> unquoted(std::string_view text) {
    if (text.size() < 2 || !text.ends_with('"')) {
        return std::nullopt;
    }
    std::wstring result;
    for (std::string_view rest = text.substr(1, text.size() - 2); !rest.empty();) {
        const std::string_view run = rest.substr(0, rest.find_first_of("\\\""));
        result += StringHelper::ToWide(run);
        rest.remove_prefix(run.size());
        if (rest.empty()) {
            break;
        }
        const bool isEscape = rest.front() == '\\';
        rest.remove_prefix(1);
        const auto character = isEscape ? takeEscape(rest) : std::nullopt;
        if (!character) {
            return std::nullopt;
        }
        result += *character;
    }
    return result;
}

bool isNameStart(wchar_t character) {
    return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z') ||
           character == L'_';
}

bool isNamePart(wchar_t character) {
    return isNameStart(character) || (character >= L'0' && character <= L'9') ||
           character == L'.' || character == L'-';
}

bool beginsWithXml(const std::wstring& text) {
    return text.size() >= 3 && (text[0] | 0x20) == L'x' && (text[1] | 0x20) == L'm' &&
           (text[2] | 0x20) == L'l';
}

}  // namespace

std::string toFileText(const std::wstring& text) {
    return isPlain(text) ? StringHelper::ToUtf8(text) : quoted(text);
}

std::optional<std::wstring> fromFileText(const std::string& text) {
    constexpr const char* blanks = " \t\r\n";
    const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    const std::string bare = text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
    std::wstring wide = StringHelper::ToWide(bare);
    if (wide.empty() && !bare.empty()) {
        return std::nullopt;
    }
    return bare.starts_with('"') ? unquoted(bare) : wide;
}

bool isXmlName(const std::wstring& text) {
    return !text.empty() && isNameStart(text.front()) && !beginsWithXml(text) &&
           std::all_of(text.begin(), text.end(), isNamePart);
}

}  // namespace station
