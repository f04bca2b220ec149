#include "core/string_helper.h"

#include <utf8.h>

#include <iterator>
#include <stdexcept>

namespace Kestrova::Utils::Kcom {

std::wstring StringHelper::ToWide(std::string_view utf8) {
    const std::string_view text = utf8.substr(0, utf8.find('\0'));
    std::wstring wide;
    if (utf8::is_valid(text.begin(), text.end())) {
        utf8::utf8to32(text.begin(), text.end(), std::back_inserter(wide));
    }
    return wide;
}

std::string StringHelper::ToUtf8(const std::wstring& wide) {
    return ToUtf8(wide.c_str());
}

std::string StringHelper::ToUtf8(const wchar_t* wide) {
    constexpr char32_t replacementMark = 0xFFFD;
    std::string text;
    for (; wide != nullptr && *wide != L'\0'; ++wide) {
        try {
            utf8::append(static_cast<char32_t>(*wide), std::back_inserter(text));
        } catch (const utf8::invalid_code_point&) {
            utf8::append(replacementMark, std::back_inserter(text));
        }
    }
    return text;
}

std::string StringHelper::ToText(std::int32_t value) {
    return std::to_string(value);
}
std::string StringHelper::ToText(std::uint32_t value) {
    return std::to_string(value);
}
std::string StringHelper::ToText(std::int64_t value) {
    return std::to_string(value);
}
std::string StringHelper::ToText(std::uint64_t value) {
    return std::to_string(value);
}

std::locale StringHelper::MakeLocale(const std::string& localeName) {
    try {
        // The locale owns the facet and deletes it.
        return {std::locale(localeName), new NoThousandsSeparatorFacet(localeName)};
    } catch (const std::runtime_error&) {
        throw std::runtime_error("bad locale name");
    }
}

}  // namespace Kestrova::Utils::Kcom
