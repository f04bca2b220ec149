#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sim {

/// Writes big-endian numbers one after another into a buffer that the caller made large enough:
/// frame sizes are known from the settings, and are only asserted here.
class WireWriter {
  public:
    explicit WireWriter(std::span<std::uint8_t> frame)
        : begin(frame.data()), at(frame.data()), end(frame.data() + frame.size()) {}

    void u8(std::uint8_t value) { *take(1) = value; }
    void u16(std::uint16_t value) { bigEndian<2>(value); }
    void u32(std::uint32_t value) { bigEndian<4>(value); }
    void u64(std::uint64_t value) { bigEndian<8>(value); }

    void fill(std::uint8_t value, std::size_t count) { std::fill_n(take(count), count, value); }

    /// Room for `count` bytes that the caller writes.
    std::uint8_t* take(std::size_t count) {
        assert(count <= static_cast<std::size_t>(end - at));
        std::uint8_t* const here = at;
        at += count;
        return here;
    }

    std::size_t size() const { return static_cast<std::size_t>(at - begin); }

  private:
    template <std::size_t Bytes>
    void bigEndian(std::uint64_t value) {
        std::uint8_t* const here = take(Bytes);
        for (std::size_t i = 0; i < Bytes; ++i)
            here[i] = static_cast<std::uint8_t>(value >> (8 * (Bytes - 1 - i)));
    }

    std::uint8_t* const begin;
    std::uint8_t* at;
    std::uint8_t* const end;
};

}  // namespace sim
