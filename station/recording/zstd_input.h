#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct ZSTD_DCtx_s;

namespace station {

/// What a file compressed with zstd holds, read as if it weren't compressed: at any offset, though
/// one behind the other is what is quick. Backwards, all of the frame that the offset is in and
/// that lies in front of it is decompressed again, and what `PartCompressor` writes is a single
/// frame.
///
/// The file may have anything in it. Memory is bounded, whatever it says: a frame that needs more
/// than 8 MiB for its window, or grows more than any recording does, isn't read; nor is a file on
/// and on that is read back and forth.
class ZstdInput {
  public:
    static constexpr std::size_t markSize = 4;
    static bool isMark(std::span<const std::uint8_t> firstBytes);

    /// Finds out how long it is. The descriptor isn't owned and outlives this. Throws
    /// `std::bad_alloc`.
    ZstdInput(int descriptor, std::uint64_t fileBytes);

    /// Of the content, up to its end or to where it can't be read on.
    std::uint64_t getSize() const { return size; }
    /// Why it can't be read beyond that; empty at the proper end.
    const std::string& getEndText() const { return endText; }
    /// Fills `to` from `offset` on. Returns how many bytes there were: fewer only at the end, or
    /// where the content is damaged, which `getErrorText` says then.
    std::size_t read(std::uint64_t offset, std::span<std::uint8_t> to);
    const std::string& getErrorText() const { return errorText; }  ///< empty: none

  private:
    /// Where a frame begins.
    struct Place {
        std::uint64_t packed = 0;
        std::uint64_t content = 0;
    };
    struct Frame;

    std::span<const std::uint8_t> peek(std::uint64_t offset, std::size_t bytes);
    bool describe(std::uint64_t at, Frame& frame);
    bool measure(const Frame& frame, std::uint64_t& content);
    void findFrames();
    void note(const Place& place);
    void begin(const Place& place);
    bool decode(std::span<std::uint8_t> to, std::size_t& done, bool isOfOneFrame);

    const int fd;
    const std::uint64_t fileSize;
    std::uint64_t size = 0;
    std::string endText;
    std::string errorText;
    std::vector<Place> places;  ///< some of the frames' beginnings, the first too
    std::uint64_t spacing;      ///< bytes of content between two of them, at least
    std::uint64_t mayDecode = 0;

    std::vector<std::uint8_t> unused;  ///< room for content that isn't asked for
    std::vector<std::uint8_t> input;   ///< a piece of the file
    std::uint64_t inputStart = 0;
    std::size_t inputSize = 0;

    struct Free {
        void operator()(ZSTD_DCtx_s* owned) const;
    };
    const std::unique_ptr<ZSTD_DCtx_s, Free> context;
    Place next;                ///< what it decodes next
    bool isFrameOver = false;  ///< that is the beginning of a frame
};

}  // namespace station
