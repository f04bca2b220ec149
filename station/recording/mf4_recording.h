#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// A recording as MDF 4.11 bus logging. Little-endian throughout; each block begins at a multiple
/// of 8:
///
///     ID HD FH    while recording "UnFinMF " with the flags 0x1 (cycle counts) and 0x4 (length of
///                 the last DT); a FH with its comment; no HD comment yet
///     DG          one, with record identifiers of one byte
///     CG 1        CAN_DataFrame, 8 data bytes
///     CG 2        CAN_DataFrame, 64 data bytes, for CAN FD: what has more than 8
///     CG 3        LIN_Frame
///     CG 4        BusChannels, the names of our channels
///     DT          the records, up to the end of the file; its length is 24 until the end
///     MD          the HD comment, written at the end
///
/// The data group isn't sorted: one group of channels in each data group, as some prefer, would
/// need as many data blocks that grow at once, and the file could only grow at one place. Readers
/// sort by the record identifier, as loggers write such files.
///
/// A record of the groups 1 to 3, behind its identifier:
///
///     0   time, the master: signed 64 bits, nanoseconds since HD's start, with a linear conversion
///         (0, 1e-9) to seconds. Start is the whole second of the first message; what is written
///         later and is older has a time below 0
///     8   CAN_DataFrame, a structure      LIN_Frame
///     8   BusChannel                      BusChannel
///     9   ID, 29 of 32 bits               ID, 6 bits
///     10                                  Dir, 1 bit
///     11                                  ReceivedDataByteCount
///     12                                  DataLength
///     13  IDE, 1 bit                      Checksum
///     14  DLC, 4 bits: the code           DataBytes, 8
///     15  DataLength, in bytes
///     16  Dir, EDL, BRS, ESI: a bit in a byte each
///     20  DataBytes, 8 or 64
///
/// The structure and each member carry the bus event flag 0x400, the groups 0x2 and 0x4, '.' as
/// path separator, acquisition name, and a source of type BUS (2) with bus 2 (CAN) or 3 (LIN). Dir
/// is 0, received; BRS and ESI aren't in the messages and are 0. DataBytes are an array of fixed
/// size: readers find it where it is, without a length channel or a signal data block to follow,
/// and each group's records keep one size; what is behind DataLength is 0. Each member has bytes
/// of its own, in the order of the channels, so that a structure can be read as a whole too.
///
/// BusChannel counts from 1, over all buses, in the order in which channels are added. A record of
/// group 4 names the channel (BusChannel, BusType as in sources, Name as UTF-8 of up to 254 bytes).
/// It is put where the channel is added, before its first message, so that a channel may be added
/// at any time and a file without an end has all names. At the end they are repeated in the HD
/// comment, as `<e name="BusChannel.1">NAME</e>`, with the counts of messages that are in the file
/// (`BusChannel.1.Recorded`) and that came for it and were lost (`.Lost`).
///
/// At the end the counts and the length are filled in, and the ID last: killed before that, the
/// file is an unfinalised one, which readers read, and `cmp-station convert` writes as a finalised.
class Mf4Recording : public Recording {
  public:
    Mf4Recording(const std::string& path, bool overwrite, const std::string& originText = {});

    const char* getFormatName() const override { return "MDF 4"; }
    bool accepts(BusType) const override { return true; }
    /// Throws FileError for more than 255 channels, which is what BusChannel can count.
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

    static constexpr std::size_t groupCount = 4;

  protected:
    void complete() override;

  private:
    std::uint8_t* begin(std::size_t group, std::size_t channel, std::int64_t utcNanoseconds);
    std::uint64_t appendComment(std::uint64_t end);

    const std::string origin;  ///< a sentence behind another one, escaped; or empty
    std::vector<ChannelDescription> channels;
    std::array<std::uint64_t, groupCount> groupBlocks = {};
    std::array<std::uint64_t, groupCount> cycles = {};
    std::uint64_t historyBlock = 0;
    std::uint64_t dataBlock = 0;
    std::optional<std::int64_t> start;  ///< UTC nanoseconds; once there is a message
};

}  // namespace station
