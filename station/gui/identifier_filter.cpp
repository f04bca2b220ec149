#include "station/gui/identifier_filter.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string>

#include "station/errors.h"

namespace station {
namespace {

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(' ');
    return first == text.npos ? std::string_view()
                              : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::uint32_t readNumber(std::string_view text) {
    std::string_view digits = trimmed(text);
    const bool isHex = digits.starts_with("0x") || digits.starts_with("0X");
    digits.remove_prefix(isHex ? 2 : 0);
    std::uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, isHex ? 16 : 10);
    if (error != std::errc() || stop != end) {
        throw UserError(fmt::format(
            "\"{}\" is no identifier: write numbers and ranges with commas, hexadecimal after 0x, "
            "as \"0x100-0x1FF, 17\"",
            trimmed(text)));
    }
    return number;
}

}  // namespace

IdentifierFilter IdentifierFilter::parse(std::string_view text) {
    IdentifierFilter filter;
    while (!trimmed(text).empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::string_view range = text.substr(0, comma);
        text.remove_prefix(std::min(comma + 1, text.size()));
        const std::size_t dash = std::min(range.find('-'), range.size());
        const std::uint32_t first = readNumber(range.substr(0, dash));
        const std::uint32_t last = dash < range.size() ? readNumber(range.substr(dash + 1)) : first;
        if (last < first) {
            throw UserError(fmt::format("\"{}\" ends before it begins", trimmed(range)));
        }
        filter.ranges.emplace_back(first, last);
    }
    return filter;
}

bool IdentifierFilter::passes(std::uint32_t identifier) const {
    return ranges.empty() || std::any_of(ranges.begin(), ranges.end(), [&](const auto& range) {
               return identifier >= range.first && identifier <= range.second;
           });
}

}  // namespace station
