#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "station/recording/blf_format.h"
#include "station/recording/block_compressor.h"
#include "station/recording/recording.h"

namespace station {

/// A recording in zlib containers of objects, which tshark and python-can read; `blf_format.h` has
/// the layout.
///
/// CAN is type 1: type 86 adds the duration on the bus, which is not in the record. CAN FD is type
/// 100 with all of its 64 bytes: python-can doesn't find the end of a shorter one, and type 101 has
/// eight bits for the channel. Its length code is the next that CAN FD has, and the bytes that are
/// there are as many as the record has. LIN is type 11, for tshark 4.0 knows no other, and has to
/// be 24 bytes long to be read there; python-can passes over it.
///
/// Channels are numbered from 1 on in the order in which they were added, over both buses. Their
/// names are in texts, which tshark shows as those of its interfaces.
///
/// Objects have nanoseconds since the start, which the header has in milliseconds. As it can't
/// change once objects are in the file, it is a whole second at least ten before the first message:
/// the clocks let a message come late by that. One from before the start can't be held and counts
/// as lost: with another time than its own it would be taken for what it isn't. The start's local
/// time is ambiguous in the hour when clocks are set back, and another in another zone; our reader
/// finds it in a comment instead.
///
/// A container has whole objects only, and those of half a second at most. The counts, sizes and
/// the end in the header are completed by `close`. No reader needs them.
class BlfRecording : public Recording {
  public:
    BlfRecording(const std::string& path, bool overwrite, const std::string& origin = {});
    ~BlfRecording() override;

    const char* getFormatName() const override { return "blf"; }
    bool accepts(BusType) const override { return true; }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  protected:
    void writePending() override;
    void complete() override;

  private:
    /// Objects on their way into the file.
    struct Container {
        std::vector<std::uint8_t> objects;
        std::size_t used = 0;  ///< bytes of `objects`
        std::uint32_t count = 0;
        std::vector<std::uint32_t> channelsOfRecords;
        std::vector<std::uint8_t> packed;
        BlockCompressor compressor;
        bool isPacking = false;  ///< all else is the compressor's then
    };

    void putText(std::uint32_t source, std::uint32_t details, std::string_view text);
    std::uint8_t* putObject(blf::Type type, std::size_t contentSize);
    void begin(std::uint64_t utcNanoseconds);
    void passOn();
    void finish(Container& block);
    void append(Container& block);
    void appendAll();
    std::vector<std::uint8_t> header() const;

    std::vector<BusType> channels;
    std::array<Container, 2> containers;  ///< a ring
    std::size_t current = 0;              ///< the one that is being filled

    bool hasStart = false;
    bool isStartInFile = false;
    std::uint64_t start = 0;  ///< UTC, nanoseconds, whole seconds
    std::uint64_t last = 0;   ///< since the start
    std::uint64_t uncompressedSize = 0;
    std::uint32_t objectsInFile = 0;
};

}  // namespace station
