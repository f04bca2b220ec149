#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// A recording in the text lines that many loggers write, and python-can and can-utils read:
///
///     date Tue Nov 14 22:13:19.000 2023
///     base hex  timestamps absolute
///     internal events logged
///     Begin Triggerblock Tue Nov 14 22:13:19.000 2023
///     // start 1699999999000000000 ns UTC, zone UTC+00:00
///     // channel CAN 1 Front
///        0.000000 Start of measurement
///        1.123456 1  1A2             Rx   d 4 DE AD BE EF
///        1.123456 CANFD   1 Rx        1A2                                  0 0 9 12 00 01 ...
///        1.123456 Li 22              Rx     2 01 02  checksum = F2  ...
///     End TriggerBlock
///
/// Times are seconds since the start line, rounded down to six digits: asc2log takes no more. The
/// start line has the local time without a zone, as its readers expect, and 24 hours, for asc2log
/// doesn't know "am"; the comment behind it has the zone, and the same moment so that nothing is
/// left to guess. Messages may come out of order:
/// the start is a whole second, at least one before the first message, and a message from before
/// it ends the block and begins another with an earlier start. (python-can takes the times from
/// there; asc2log knows the first start alone.)
///
/// An identifier that ends in "x" is extended. More than 8 bytes are CAN FD: bit rate switch and
/// error state 0, length code, length, data, and then what isn't known (duration, bits, checksum,
/// timing) as 0, between them the flags with the bit for CAN FD. A length that no CAN FD frame has
/// is filled with zeros to the next there is. LIN has the frame's identifier without parity, and
/// which of the two checksums it carries if it is one of them.
///
/// Channels are numbered by bus from 1; LIN channels are "Li", "L2", "L3", ... The format has no
/// names: they are in comments, at most 200 bytes of each, with "\n", "\r" and "\\" for what would
/// end the line.
class AscRecording : public Recording {
  public:
    AscRecording(const std::string& path, bool overwrite, std::string originText = {})
        : Recording(path, overwrite), origin(std::move(originText)) {}

    const char* getFormatName() const override { return "ASC"; }
    bool accepts(BusType) const override { return true; }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  protected:
    void complete() override;

  private:
    struct Channel {
        BusType bus;
        unsigned number;
        std::string word;  ///< "12", "Li"
        std::string comment;
    };

    void beginBlock(std::int64_t firstTime);
    void appendText(const std::string& text);

    const std::string origin;
    std::vector<Channel> channels;
    std::optional<std::int64_t> start;  ///< of the present block, nanoseconds UTC; none yet
};

}  // namespace station
