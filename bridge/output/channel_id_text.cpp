#include "bridge/output/channel_id_text.h"

#include <algorithm>
#include <optional>
#include <system_error>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace Kestrova::Utils::Kcom {
namespace {

/// The pieces between separators, without the empty ones.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, text.find(separator));
        if (!piece.empty()) {
            pieces.push_back(piece);
        }
        text.remove_prefix(std::min(piece.size() + 1, text.size()));
    }
    return pieces;
}

}  // namespace

std::string ChannelIdText::format(const std::vector<std::int32_t>& indices) {
    std::string text;
    for (std::size_t place = 0; place < indices.size(); ++place) {
        if (place > 0) {
            text += place == 1 ? ':' : ';';
        }
        text += StringHelper::ToText(indices[place]);
    }
    return text;
}

std::vector<std::int32_t> ChannelIdText::parse(std::string_view text) {
    const std::vector<std::string_view> parts = split(text, ':');
    if (parts.empty() || parts.size() > 2) {
        return {};
    }
    std::vector<std::string_view> pieces = split(parts.back(), ';');
    if (parts.size() == 2) {
        pieces.insert(pieces.begin(), parts.front());
    }
    std::vector<std::int32_t> indices;
    for (const std::string_view piece : pieces) {
        const std::optional<std::int32_t> number = parseNumber<std::int32_t>(piece);
        if (!number) {
            return {};
        }
        indices.push_back(*number);
    }
    return indices;
}

}  // namespace Kestrova::Utils::Kcom
