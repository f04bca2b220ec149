#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "station/recording/input_file.h"
#include "station/recording/pcapng_format.h"

namespace station {

/// The Ethernet frames of a .pcap or .pcapng, one behind the other: of both byte orders and all
/// resolutions of time, plain or compressed with zstd, or from a pipe or standard input ("-").
///
/// Every frame is a view into what was read, which is a large part of what makes a conversion fast.
/// None of the lengths in the file is believed. Reading ends at the first place from which it can't
/// go on; of a .pcapng also where an interface that isn't Ethernet is described.
class FrameFile {
  public:
    struct Frame {
        const std::uint8_t* data = nullptr;  ///< there until the next call
        std::uint32_t length = 0;
        std::uint32_t wholeLength = 0;  ///< more, if the frame was cut when it was stored
        std::int64_t time = 0;          ///< nanoseconds since 1970
    };

    /// Throws UserError (unreadable) if this is no file of Ethernet frames.
    explicit FrameFile(const std::string& path);

    /// False at the end, and where reading can't go on; from then on always false.
    bool next(Frame& frame) { return isPcapng ? nextOfPcapng(frame) : nextOfPcap(frame); }
    /// Why the rest couldn't be read, with how many bytes were left; empty at the proper end.
    const std::string& getErrorText() const { return errorText; }
    /// 0.0 to 1.0; 0.0 of a stream.
    double getProgress() const;

  private:
    using Bytes = std::span<const std::uint8_t>;

    void openPcap();
    void openPcapng();
    bool nextOfPcap(Frame& frame);
    bool nextOfPcapng(Frame& frame);
    bool readBlock(std::uint32_t& type, Bytes& body);
    bool addInterface(Bytes body);
    bool takePacket(std::uint32_t type, Bytes body, Frame& frame);
    bool stop(const std::string& reason);

    InputFile file;
    std::uint64_t position = 0;  ///< of the next record or block
    std::uint64_t start = 0;     ///< of the latest
    bool isPcapng = false;
    pcapng::Numbers numbers;
    bool isOver = false;
    std::string errorText;
    std::uint32_t fraction = 1;                 ///< of a .pcap: nanoseconds in its unit of time
    std::vector<pcapng::TimeScale> interfaces;  ///< of the present section of a .pcapng
    std::uint32_t otherLinkType = 0;            ///< that made it stop; 0: none
};

}  // namespace station
