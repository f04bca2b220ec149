#include "station/nats/stream_names.h"

#include <unistd.h>

#include <array>
#include <cstddef>

namespace station {
namespace {

constexpr char escape = '=';
constexpr std::string_view hexadecimalDigits = "0123456789ABCDEF";

bool isPlain(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
}

}  // namespace

std::string nameOfMachine() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
}

std::string toToken(std::string_view name) {
    if (name.empty()) {
        return {escape};
    }
    std::string token;
    for (const char c : name) {
        if (isPlain(c)) {
            token += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            token += {escape, hexadecimalDigits[byte >> 4U], hexadecimalDigits[byte & 0xFU]};
        }
    }
    return token;
}

std::optional<std::string> fromToken(std::string_view token) {
    std::string name;
    for (std::size_t i = 0; i < token.size(); ++i) {
        if (token[i] != escape) {
            name += token[i];
        } else if (i + 2 < token.size()) {
            const std::size_t high = hexadecimalDigits.find(token[i + 1]);
            const std::size_t low = hexadecimalDigits.find(token[i + 2]);
            if (high == std::string_view::npos || low == std::string_view::npos) {
                return std::nullopt;
            }
            name += static_cast<char>(high << 4U | low);
            i += 2;
        } else if (token.size() != 1) {
            return std::nullopt;
        }
    }
    // Only one token is a name's: "=41" isn't that of "A".
    return toToken(name) == token ? std::optional(name) : std::nullopt;
}

}  // namespace station
