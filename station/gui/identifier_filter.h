#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace station {

/// Which messages the user wants to see, by their identifiers: all of them by default.
class IdentifierFilter {
  public:
    IdentifierFilter() = default;
    /// Numbers and ranges with commas, hexadecimal after 0x: "0x100-0x1FF, 17". An empty text lets
    /// all pass. Throws `UserError` for a text that is no filter.
    static IdentifierFilter parse(std::string_view text);

    bool passes(std::uint32_t identifier) const;

  private:
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;  ///< first and last
};

}  // namespace station
