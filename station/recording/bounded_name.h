#pragma once

#include <cstddef>
#include <string>

namespace station {

/// At most `most` bytes of a name, cut between characters.
inline std::string boundedName(const std::string& name, std::size_t most) {
    std::size_t end = name.size() < most ? name.size() : most;
    while (end < name.size() && end > 0 &&
           (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return name.substr(0, end);
}

}  // namespace station
