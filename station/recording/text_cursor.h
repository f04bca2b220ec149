#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace station {

/// Writes text one behind the other, by hand and without a locale; the caller has made room.
class LineCursor {
  public:
    explicit LineCursor(std::uint8_t* start) : at(start) {}

    void put(char c) { *at++ = static_cast<std::uint8_t>(c); }
    void put(std::string_view text) {
        std::memcpy(at, text.data(), text.size());
        at += text.size();
    }
    /// Exactly `width` digits, zeros in front.
    void putDecimal(std::uint64_t value, int width) {
        int end = width;
        for (; end > 1; end -= 2) {
            std::memcpy(at + end - 2, &decimalPairs[value % 100 * 2], 2);
            value /= 100;
        }
        if (end == 1) {
            *at = static_cast<std::uint8_t>(digits[value % 10]);
        }
        at += width;
    }
    void putHex(std::uint32_t value, int width) {
        for (int i = width - 1; i >= 0; --i) {
            at[i] = static_cast<std::uint8_t>(digits[value % 16]);
            value /= 16;
        }
        at += width;
    }
    /// As many digits as the value has.
    void putDecimal(std::uint64_t value) {
        int width = 1;
        for (std::uint64_t rest = value / 10; rest != 0; rest /= 10) {
            ++width;
        }
        putDecimal(value, width);
    }
    void putHex(std::uint32_t value) {
        int width = 1;
        for (std::uint32_t rest = value >> 4; rest != 0; rest >>= 4) {
            ++width;
        }
        putHex(value, width);
    }
    void putHexBytes(const std::uint8_t* bytes, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            putHexByte(bytes[i]);
        }
    }
    void putHexByte(std::uint8_t byte) {
        std::memcpy(at, &hexPairs[byte * std::size_t{2}], 2);
        at += 2;
    }
    std::uint8_t* getPosition() const { return at; }

  private:
    static constexpr char digits[] = "0123456789ABCDEF";

    /// All numbers of two digits, one behind the other.
    template <std::size_t Base>
    static constexpr std::array<char, 2 * Base * Base> makePairs() {
        std::array<char, 2 * Base * Base> pairs{};
        for (std::size_t i = 0; i < Base * Base; ++i) {
            pairs[2 * i] = digits[i / Base];
            pairs[2 * i + 1] = digits[i % Base];
        }
        return pairs;
    }
    static const std::array<char, 200> decimalPairs;
    static const std::array<char, 512> hexPairs;

    std::uint8_t* at;
};

inline constexpr std::array<char, 200> LineCursor::decimalPairs = LineCursor::makePairs<10>();
inline constexpr std::array<char, 512> LineCursor::hexPairs = LineCursor::makePairs<16>();

}  // namespace station
