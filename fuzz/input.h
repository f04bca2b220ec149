#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Takes values off the front of a fuzzer's input; at its end they are zeros and empty.
class Input {
  public:
    Input(const std::uint8_t* first, std::size_t count) : data(first), left(count) {}

    bool isAtEnd() const { return left == 0; }
    std::uint8_t byte() {
        if (left == 0) {
            return 0;
        }
        --left;
        return *data++;
    }
    std::uint16_t word() {
        const unsigned high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }
    /// As many bytes as the next two say, as far as there are.
    std::vector<std::uint8_t> bytes() {
        const std::size_t count = std::min<std::size_t>(word(), left);
        const std::vector<std::uint8_t> taken(data, data + count);
        data += count;
        left -= count;
        return taken;
    }
    /// A short text, of any bytes.
    std::string text() {
        const std::size_t count = std::min<std::size_t>(byte() % 32U, left);
        std::string taken(reinterpret_cast<const char*>(data), count);
        data += count;
        left -= count;
        return taken;
    }

  private:
    const std::uint8_t* data;
    std::size_t left;
};
