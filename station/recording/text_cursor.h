#pragma once

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
    void putDecimal(std::uint64_t value, int width) { putNumber<10>(value, width); }
    void putHex(std::uint32_t value, int width) { putNumber<16>(value, width); }
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
        put(digits[byte >> 4]);
        put(digits[byte & 0xFU]);
    }
    std::uint8_t* position() const { return at; }

  private:
    static constexpr char digits[] = "0123456789ABCDEF";

    template <unsigned Base>
    void putNumber(std::uint64_t value, int width) {
        for (int i = width - 1; i >= 0; --i) {
            at[i] = static_cast<std::uint8_t>(digits[value % Base]);
            value /= Base;
        }
        at += width;
    }

    std::uint8_t* at;
};

}  // namespace station
