#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "core/parse_number.h"

namespace station {

/// The words of a line, between blanks and tabulators.
class Words {
  public:
    explicit Words(std::string_view line) : rest(line) {}

    /// Empty at the end.
    std::string_view next() {
        const std::size_t start = rest.find_first_not_of(blanks);
        rest.remove_prefix(start == std::string_view::npos ? rest.size() : start);
        const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
        rest.remove_prefix(word.size());
        return word;
    }
    /// What is left, from the next word on.
    std::string_view getRest() const {
        const std::size_t start = rest.find_first_not_of(blanks);
        return start == std::string_view::npos ? std::string_view() : rest.substr(start);
    }

  private:
    static constexpr std::string_view blanks = " \t";
    std::string_view rest;
};

/// ".345678" in nanoseconds: at least one digit, those beyond the ninth cut off. Empty for other
/// texts.
inline std::optional<std::int64_t> parseFraction(std::string_view text) {
    constexpr std::size_t mostDigits = 9;
    if (text.size() < 2 || text.front() != '.' ||
        text.find_first_not_of("0123456789", 1) != std::string_view::npos) {
        return std::nullopt;
    }
    auto fraction = parseNumber<std::int64_t>(text.substr(1, mostDigits));
    for (std::size_t i = text.size() - 1; i < mostDigits; ++i) {
        *fraction *= 10;
    }
    return fraction;
}

/// "12.345678" in nanoseconds, with such a fraction. Empty for other texts, and for what 64 bits
/// don't hold.
inline std::optional<std::int64_t> parseSeconds(std::string_view text) {
    constexpr std::int64_t perSecond = 1'000'000'000;
    constexpr std::uint64_t latest = std::numeric_limits<std::int64_t>::max() / perSecond - 1;
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos) {
        return std::nullopt;
    }
    const auto seconds = parseNumber<std::uint64_t>(text.substr(0, point));
    const auto fraction = parseFraction(text.substr(point));
    if (!seconds || *seconds > latest || !fraction) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(*seconds) * perSecond + *fraction;
}

/// Data bytes of a message as a line has them.
class DataBytes {
  public:
    /// Two hexadecimal digits. False if they aren't, or for more than 64 bytes.
    bool addHex(std::string_view digits) {
        return digits.size() == 2 && add(parseNumber<std::uint8_t>(digits, 16));
    }
    bool add(std::optional<std::uint8_t> byte) {
        if (!byte || size == bytes.size()) {
            return false;
        }
        bytes[size++] = *byte;
        return true;
    }
    std::span<const std::uint8_t> get() const { return {bytes.data(), size}; }

  private:
    std::array<std::uint8_t, 64> bytes = {};
    std::size_t size = 0;
};

}  // namespace station
