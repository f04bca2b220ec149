#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace station {

/// Names as words for programs that take no others: letters, digits, '-', '.' and '_' stay, a blank
/// or any other character becomes '_'; of a longer name the end is kept, where interfaces differ;
/// of equal names the later ones end in "_2", "_3", ...
class WordNames {
  public:
    /// Bytes of a name: what Linux has for network interfaces.
    static constexpr std::size_t usualLength = 15;

    explicit WordNames(std::size_t longestName = usualLength) : longest(longestName) {}

    /// The name that stands for `wanted` (UTF-8); `ifEmpty` if there is nothing in it.
    std::string add(const std::string& wanted, const std::string& ifEmpty = "CAN");

  private:
    const std::size_t longest;
    std::set<std::string> names;
};

}  // namespace station
