#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Kestrova::Utils::Kcom {

/// The indices of a host channel as text: "1:2;3;4". One index alone has no separator.
class ChannelIdText {
  public:
    static std::string format(const std::vector<std::int32_t>& indices);

    /// Also takes a list without the colon. Empty pieces between separators are passed over. Text
    /// with a piece that isn't a decimal number of 32 bits, with more than one index before a
    /// colon, or with a second colon gives no indices.
    static std::vector<std::int32_t> parse(std::string_view text);
};

}  // namespace Kestrova::Utils::Kcom
