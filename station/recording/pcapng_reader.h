#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/recording/channel_index.h"
#include "station/recording/input_file.h"
#include "station/recording/message_reader.h"
#include "station/recording/pcapng_format.h"
#include "station/recording/unique_names.h"

namespace station {

/// Reads the CAN and LIN packets (link types 227 and 212) of a .pcapng, ours and other programs':
/// any number of sections in either byte order, times in any resolution and with an offset.
///
/// A channel is an interface, named as its block says, else "CAN" or "LIN". Interfaces of the same
/// name in different sections are one channel, as in recordings that were put together; within a
/// section the second of a name is another, "NAME (2)".
///
/// Blocks of other kinds are passed over. Counted as skipped are packets without a time (simple
/// packet blocks) or in blocks of the format's older kind, those of other link types or of an
/// interface that isn't there, and those that are no message: remote frames, errors, LIN events,
/// CAN XL, or less data than their length says. A block whose two lengths don't agree, or that goes
/// beyond the end of the file, ends reading.
class PcapngReader : public MessageReader {
  public:
    explicit PcapngReader(const std::string& path) : file(path), index(channels) {}

    bool next(RecordedMessage& message) override;
    double getProgress() const override { return file.getShare(position); }

    /// Whether the first interface is one for other packets than CAN and LIN.
    static bool isForOtherPackets(const std::string& path);

  private:
    struct Interface {
        std::uint16_t linkType = 0;
        pcapng::TimeScale times;
        std::size_t channel = 0;
    };
    struct Block {
        std::uint32_t type = 0;
        std::uint64_t start = 0;
        std::uint32_t size = 0;
        std::span<const std::uint8_t> body;  ///< empty if it is too long for any that matters
    };

    bool readBlock(Block& block);
    bool addInterface(const Block& block);
    bool readPacket(const Block& block, RecordedMessage& message);
    bool readCan(std::span<const std::uint8_t> packet, RecordedMessage& message) const;
    bool readLin(std::span<const std::uint8_t> packet, RecordedMessage& message) const;
    bool stop(const std::string& reason);

    InputFile file;
    ChannelIndex index;
    std::uint64_t position = 0;  ///< of the next block
    pcapng::Numbers numbers;     ///< of the present section
    std::vector<Interface> interfaces;
    std::unique_ptr<UniqueNames> names;  ///< of the section's channels
};

/// Null for one that holds packets of other link types.
std::unique_ptr<MessageReader> openPcapng(const std::string& path);

}  // namespace station
