#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "capture/bus_frame.h"
#include "capture/cmp_message.h"

/// Samples first in, first out, each a time and the host's record, in one block of memory.
///
/// A record has room for the longest message, and is made whole at the end of the block; but it
/// keeps its place only as far as there is something in it, and the next sample is put over the
/// zeros. So a usual CAN message takes a third of the memory: the queues of many channels together
/// stay within the processor's caches, and less goes from one thread's to the other's.
template <class Frame>
class PackedSamples {
  public:
    bool isEmpty() const { return start == finish; }

    /// Decodes a message, which `holdsFrame`, behind the others.
    void append(const DeviceTime& time, const std::uint8_t* payload) {
        if (finish + headerCells + frameCells > cells.size()) {
            grow();
        }
        Cell* const to = &cells[finish];
        auto* const frame = new (to + headerCells) Frame;
        const std::size_t used = cellsOf(decodeFrame(payload, *frame));
        new (to) Header{time.seconds, time.nanoseconds, static_cast<std::uint32_t>(used)};
        finish += headerCells + used;
    }

    /// Appends all of another, none of which was dropped yet.
    void append(const PackedSamples& others) {
        closeGap();
        while (finish + others.finish > cells.size()) {
            grow();
        }
        std::copy_n(others.cells.data(), others.finish, cells.data() + finish);
        finish += others.finish;
    }

    /// The oldest; not to be asked when empty.
    DeviceTime frontTime() const { return {header().seconds, header().nanoseconds}; }
    /// Overwrites all of `frame`.
    void copyFront(Frame& frame) const {
        constexpr std::size_t whole = sizeof(Frame) / cellSize;
        constexpr std::size_t rest = sizeof(Frame) % cellSize;
        auto* const to = reinterpret_cast<std::uint8_t*>(&frame);
        const Cell* const from = &cells[start + headerCells];
        const std::size_t used = header().used;
        frame = Frame();
        for (std::size_t i = 0; i < std::min(used, whole); ++i) {
            std::memcpy(to + i * cellSize, from + i, cellSize);
        }
        if (used > whole) {
            std::memcpy(to + whole * cellSize, from + whole, rest);
        }
    }
    void drop() { start += headerCells + header().used; }

    /// Keeps the memory up to `keptCells`.
    void clear() {
        start = 0;
        finish = 0;
        if (cells.size() > keptCells) {
            cells = std::vector<Cell>(keptCells);
        }
    }

  private:
    /// A cell holds the beginning of a sample, or a usual CAN record with its 8 data bytes.
    static constexpr std::size_t cellSize = 16;
    struct alignas(cellSize) Cell {
        std::array<std::uint8_t, cellSize> bytes;
    };
    struct Header {
        std::uint64_t seconds;
        std::int32_t nanoseconds;
        std::uint32_t used;  ///< cells of the record
    };
    static constexpr std::size_t cellsOf(std::size_t size) {
        return (size + cellSize - 1) / cellSize;
    }
    static constexpr std::size_t headerCells = cellsOf(sizeof(Header));
    static constexpr std::size_t frameCells = cellsOf(sizeof(Frame));
    /// Half a megabyte, some 16,000 usual messages.
    static constexpr std::size_t keptCells = 32768;

    const Header& header() const { return *reinterpret_cast<const Header*>(&cells[start]); }

    /// Moves what is there to the beginning once it takes less than what was dropped before it, and
    /// gives memory back that it has no need of: samples that always leave one waiting would
    /// otherwise keep what a long wait has taken.
    void closeGap() {
        const std::size_t used = finish - start;
        if (start == 0 || start < used) {
            return;
        }
        if (cells.size() > keptCells && used <= keptCells / 2) {
            std::vector<Cell> smaller(keptCells);
            std::copy_n(cells.data() + start, used, smaller.data());
            cells = std::move(smaller);
        } else {
            std::copy_n(cells.data() + start, used, cells.data());
        }
        start = 0;
        finish = used;
    }

    [[gnu::noinline]] void grow() {
        constexpr std::size_t fewest = 64;
        cells.resize(std::max(2 * cells.size(), fewest));
    }

    std::vector<Cell> cells;  ///< room; `start` to `finish` of it are in use
    std::size_t start = 0;
    std::size_t finish = 0;
};
