#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>

/// The whole text as a number, whatever the locale: without blanks, and without a "+" in front.
/// Empty for any other text, and for a number that doesn't fit.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text, [[maybe_unused]] int base = 10) {
    const char* const end = text.data() + text.size();
    Number number{};
    std::from_chars_result result{};
    if constexpr (std::integral<Number>) {
        result = std::from_chars(text.data(), end, number, base);
    } else {
        result = std::from_chars(text.data(), end, number);
    }
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

/// The same for an integer that is hexadecimal after "0x".
template <std::integral Number>
std::optional<Number> parseDecimalOrHex(std::string_view text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    return isHex ? parseNumber<Number>(text.substr(2), 16) : parseNumber<Number>(text);
}
