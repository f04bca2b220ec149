#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// A recording that Wireshark opens: one section, one interface block per channel with its name,
/// one enhanced packet block per message with its UTC time in nanoseconds. Little-endian
/// throughout, but for the CAN identifier, which its link type wants big-endian.
///
/// The section header is in the file when the constructor returns, so that a file that exists
/// opens. An interface block is put where its channel is added, in front of the channel's first
/// packet.
///
/// CAN (link type 227): identifier with bit 31 set for extended, length, flags, two zero bytes,
/// data. Frames over 8 bytes carry the FD flag (0x04), by which readers show them as CAN FD. LIN
/// (link type 212): revision 1, three zero bytes, length (4 bits), message type 0 (2 bits),
/// checksum type (2 bits), protected identifier with its parity computed, checksum, errors 0, data.
///
/// A recording of Ethernet frames (link type 1) has an interface block for each network interface,
/// and the frames as they are.
///
/// At its end there is an interface statistics block for each channel: received are the messages
/// that came for this file, dropped those of them that were lost. The section has the origin as its
/// comment, each interface statistics block what else is known of its channel, and the first of
/// them what is known of all of the measurement.
class PcapngRecording : public Recording {
  public:
    enum class Contents { Messages, Frames };

    PcapngRecording(const std::string& path, bool overwrite, const std::string& origin = {},
                    Contents contents = Contents::Messages);

    const char* getFormatName() const override { return "pcapng"; }
    bool accepts(BusType bus) const override {
        return (bus == BusType::Ethernet) == (what == Contents::Frames);
    }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  protected:
    void complete() override;

  private:
    const Contents what;
    std::vector<BusType> channels;
    std::int64_t latest = 0;  ///< time of a message
};

}  // namespace station
