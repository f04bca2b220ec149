#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/recording/input_file.h"

namespace station::mf4 {

/// How much may still be read of one file, by all that read it. Links may lead anywhere, also to
/// where they were: with this, reading ends after a bounded multiple of the file's size.
struct Budget {
    explicit Budget(std::uint64_t fileSize);

    std::uint64_t blocks;   ///< that describe the data
    std::uint64_t data;     ///< bytes of data blocks: no byte is data of two
    std::uint64_t refills;  ///< of windows on the file
};

/// A block that describes the data.
struct Block {
    std::vector<std::uint64_t> links;  ///< as many as were asked for; 0 where it has fewer
    std::vector<std::uint8_t> fields;  ///< as many bytes as were asked for, zeros behind its end
};

/// A file within its budget. Owns its descriptor and window; the budget is another's.
class Input {
  public:
    Input(const std::string& path, Budget& sharedBudget) : file(path), budget(sharedBudget) {}

    /// As `InputFile::view`; nothing once the budget is used up.
    std::span<const std::uint8_t> view(std::uint64_t offset, std::size_t size);
    /// The block there, if it is one of that kind ("CG") and inside of the file: else an empty one,
    /// and false.
    bool read(std::uint64_t offset, const char* kind, std::size_t links, std::size_t fields,
              Block& block);
    /// The first characters of a TX or MD block; empty if there is none.
    std::string readText(std::uint64_t offset);

    std::uint64_t getSize() const { return file.getSize(); }
    const std::string& getErrorText() const { return file.getErrorText(); }
    Budget& getBudget() { return budget; }

  private:
    InputFile file;
    Budget& budget;
    std::uint64_t windowStart = 1;  ///< of the view that last went beyond the window
    std::uint64_t windowEnd = 0;
};

/// What the data blocks of one data group hold, as one sequence of bytes: a DT or DZ (compressed),
/// or those that a list of DL blocks names.
class DataBytes {
  public:
    /// `block` may be 0: no data. `isOpenEnd`: a DT there goes on to the end of the file.
    DataBytes(const std::string& path, Budget& budget, std::uint64_t block, bool isOpenEnd);

    /// The next `size` bytes; empty if there are no more as many. They are there until the next
    /// call.
    std::span<const std::uint8_t> take(std::size_t size) {
        if (size <= end - position) {
            const std::span<const std::uint8_t> bytes = view(position, size);
            if (bytes.size() == size) {
                position += size;
                return bytes;
            }
        }
        return takeAcross(size);
    }
    /// False if there are no more as many.
    bool skip(std::uint64_t size);

    /// Bytes of the present block that weren't taken, after the first failure.
    std::uint64_t getLeft() const { return left + (end - position); }
    /// How many bytes the last block should have, beyond the file's end.
    std::uint64_t getMissing() const { return missing; }
    const std::string& getErrorText() const { return errorText; }

  private:
    static constexpr std::size_t linksAtOnce = 4096;

    /// Of the present block.
    std::span<const std::uint8_t> view(std::uint64_t from, std::size_t size) {
        return isUnpacked ? std::span<const std::uint8_t>(unpacked).subspan(from, size)
                          : input.view(from, size);
    }
    std::span<const std::uint8_t> takeAcross(std::size_t size);
    bool openNext();
    bool open(std::uint64_t block);
    bool unpack(std::uint64_t block, std::uint64_t length);

    Input input;
    const std::uint64_t openEndBlock;  ///< 0: none
    std::uint64_t next;                ///< the block or list to go on with, 0 for none
    std::vector<std::uint64_t> links;  ///< of the present list, from `link` on still to be opened
    std::size_t link = 0;
    std::uint64_t linksOffset = 0;  ///< of the list's links that weren't read
    std::uint64_t linksLeft = 0;
    bool isUnpacked = false;  ///< the present block is in `unpacked`, not in the file
    std::vector<std::uint8_t> unpacked;
    std::uint64_t position = 0;  ///< in the file or in `unpacked`
    std::uint64_t end = 0;
    std::uint64_t left = 0;
    std::uint64_t missing = 0;
    std::vector<std::uint8_t> joined;
    std::string errorText;
};

}  // namespace station::mf4
