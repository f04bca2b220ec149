#pragma once

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace station {

/// A text that is no filter; it says what one looks like.
class FilterError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Which messages the user wants to see, by their identifiers: all of them by default.
class IdentifierFilter {
  public:
    IdentifierFilter() = default;
    /// Numbers and ranges with commas, hexadecimal after 0x: "0x100-0x1FF, 17". An empty text lets
    /// all pass. Throws `FilterError`.
    static IdentifierFilter parse(std::string_view text);

    bool passes(std::uint32_t identifier) const;

  private:
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;  ///< first and last
};

}  // namespace station
