#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/recording/blf_format.h"
#include "station/recording/input_file.h"

namespace station {

/// The objects of a .blf (`blf_format.h`) one behind the other, of the types that hold a message or
/// a text; others are passed over, bus errors counted.
///
/// A container is read as a whole or not at all, for its checksum is at its end. None of the sizes
/// that it states is believed: the room for what is in it grows with what comes out, up to 16 MiB.
/// The counts in the file's header aren't needed, so that a file whose writer was killed is read up
/// to its last container.
class BlfObjects {
  public:
    using Bytes = std::span<const std::uint8_t>;

    /// A file that begins as a .blf does.
    explicit BlfObjects(std::unique_ptr<InputFile> inputFile);
    ~BlfObjects();
    BlfObjects(const BlfObjects&) = delete;
    BlfObjects& operator=(const BlfObjects&) = delete;

    /// The next one, with its header; it is there until the next call. Empty at the end, and where
    /// reading can't go on; from then on always empty.
    Bytes next();

    /// The file's, zero where it is torn.
    Bytes getFileHeader() const { return fileHeader; }
    double getProgress() const { return file->getShare(position); }
    const std::string& getErrorText() const { return errorText; }  ///< empty: none
    std::uint64_t getPassedOver() const { return passedOver; }  ///< errors, and messages too long

  private:
    bool isWhole(Bytes& object);
    bool passOver(std::uint32_t type, std::size_t size);
    bool readBlock();
    bool findBlock();
    bool endFile(Bytes rest);
    bool append(Bytes bytes);
    bool inflateInto(Bytes compressed);
    void makeRoom();
    bool stop(const std::string& reason);

    const std::unique_ptr<InputFile> file;
    std::array<std::uint8_t, blf::file_header::leastSize> fileHeader{};
    std::uint64_t position = 0;      ///< of the next container, or object that is in none
    std::uint64_t presentBlock = 0;  ///< of the one whose objects are being read
    bool isOver = false;
    std::string errorText;
    std::uint64_t passedOver = 0;

    z_stream inflater{};
    std::vector<std::uint8_t> objects;  ///< what came out of containers
    std::size_t used = 0;               ///< bytes of it
    std::size_t at = 0;                 ///< of the next object in it
    std::size_t filling = 0;            ///< bytes gone over in search of it
    std::uint64_t toPassOver = 0;       ///< bytes in front of it
};

}  // namespace station
