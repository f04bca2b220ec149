#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/recording/zstd_input.h"

namespace station {

/// A file that is read in pieces, mostly one behind the other. It may end anywhere, also earlier
/// than it did when it was opened. One that is compressed with zstd is read as what it holds.
class InputFile {
  public:
    /// A stream is standard input ("-") or a pipe, of which only what comes next can be viewed, and
    /// whose size isn't known.
    enum class Kinds { Regular, RegularAndStreams };

    /// Throws UserError (unreadable) if it can't be opened or is of another kind.
    explicit InputFile(std::string path, Kinds kinds = Kinds::Regular);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// The bytes at `offset`, fewer than `size` only where the file ends or can't be read on (then
    /// `getErrorText` says why). They are there until the next call.
    std::span<const std::uint8_t> view(std::uint64_t offset, std::size_t size);

    std::uint64_t getSize() const { return fileSize; }
    /// How much of it lies in front of that place, 0.0 to 1.0.
    double getShare(std::uint64_t offset) const {
        return fileSize == 0 ? 1.0
                             : static_cast<double>(std::min(offset, fileSize)) /
                                   static_cast<double>(fileSize);
    }
    bool isStream() const { return isOfNoSize; }
    bool isCompressed() const { return compressed != nullptr; }
    const std::string& getPath() const { return filePath; }
    const std::string& getErrorText() const { return errorText; }  ///< empty: none

  private:
    void fill(std::uint64_t offset, std::size_t wanted, std::size_t size);
    void fillCompressed(std::size_t size);

    const std::string filePath;
    int fd = -1;
    bool isOfNoSize = false;
    std::uint64_t fileSize = 0;
    std::unique_ptr<ZstdInput> compressed;  ///< null: it isn't
    std::vector<std::uint8_t> window;
    std::uint64_t windowStart = 0;
    std::size_t windowSize = 0;  ///< bytes in `window` that are the file's
    std::string errorText;
};

}  // namespace station
