#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "station/recording/input_file.h"
#include "station/recording/message_reader.h"

namespace station {

/// Reads the messages of a .blf (`blf_format.h`): ours, and what other programs write. CAN of types
/// 1 and 86, CAN FD of 100 and 101, LIN of 11 and 57. Bus errors and remote frames are counted as
/// skipped, as are objects shorter than their type; others are passed over.
///
/// A container is read as a whole or not at all, for its checksum is at its end. None of the sizes
/// that it states is believed: what is taken apart grows with what comes out of it, up to 16 MiB.
/// The counts in the file's header aren't needed, so that a file whose writer was killed is read
/// up to its last container.
class BlfReader : public MessageReader {
  public:
    explicit BlfReader(std::unique_ptr<InputFile> inputFile);
    ~BlfReader() override;

    bool next(RecordedMessage& message) override;
    double getProgress() const override;

  private:
    using Bytes = std::span<const std::uint8_t>;

    void readHeader();
    Bytes nextObject();
    bool readBlock();
    bool findBlock();
    bool endFile(Bytes rest);
    bool append(Bytes bytes);
    bool inflateInto(Bytes compressed);
    void makeRoom();
    bool stop(const std::string& reason);

    bool take(Bytes object, RecordedMessage& message);
    bool takeCan(Bytes content, RecordedMessage& message);
    bool takeCanFd(Bytes content, RecordedMessage& message);
    bool takeCanFd64(Bytes content, RecordedMessage& message);
    bool takeLin(Bytes content, RecordedMessage& message);
    bool takeLin2(Bytes content, RecordedMessage& message);
    void takeText(Bytes content);
    void takeStart(std::string_view text);
    void takeChannel(std::string_view text);
    bool skip();
    std::size_t placeOf(BusType bus, std::size_t number);
    void name(BusType bus, std::size_t number, std::string_view channelName);

    const std::unique_ptr<InputFile> file;
    std::uint64_t position = 0;        ///< of the next block in the file
    std::uint64_t presentBlock = 0;    ///< where the one is whose objects are being read
    std::uint64_t statedFileSize = 0;  ///< by its header
    std::int64_t startLocalMs = 0;     ///< the header's, as if it were UTC
    std::int64_t start = 0;            ///< UTC, nanoseconds
    bool isOver = false;

    z_stream inflater{};
    std::vector<std::uint8_t> objects;  ///< what came out of containers
    std::size_t used = 0;               ///< bytes of it
    std::size_t at = 0;                 ///< of the next object in it
    std::size_t filling = 0;            ///< bytes passed over in search of it
    std::uint64_t toPassOver = 0;       ///< bytes in front of it

    static constexpr std::size_t unknown = static_cast<std::size_t>(-1);
    std::array<std::vector<std::size_t>, 2> places;  ///< by bus and number
};

/// Null if it is no .blf. Throws UserError (unreadable).
std::unique_ptr<MessageReader> openBlf(const std::string& path);

}  // namespace station
