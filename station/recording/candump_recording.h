#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "station/recording/recording.h"
#include "station/recording/word_names.h"

namespace station {

/// A recording in the text lines of `candump -L`, which can-utils, python-can and Wireshark read:
///
///     (1700000000.123456) NAME 1A2#DEADBEEF            standard identifier, 3 digits
///     (1700000000.123456) NAME 18FF0010#DEADBEEF       extended identifier, 8 digits
///     (1700000000.123456) NAME 1A2##0001122...         over 8 bytes: CAN FD, one digit of flags
///
/// CAN only; fractions of a second are rounded down to six digits.
///
/// The name is one word of at most 15 characters, as the readers' interface names are
/// (`WordNames`).
///
/// Lengths that no CAN FD frame has (9, 10, 11, 13, ...) make readers give up on the file, so such
/// a frame is filled with the record's zero bytes to the next length there is.
class CandumpRecording : public Recording {
  public:
    CandumpRecording(const std::string& path, bool overwrite) : Recording(path, overwrite) {}

    const char* getFormatName() const override { return "candump log"; }
    bool accepts(BusType bus) const override { return bus == BusType::Can; }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  private:
    WordNames uniqueNames;
    std::vector<std::string> names;  ///< by handle, with what is in front and behind
    std::uint64_t second = 0;        ///< the one of `secondText`
    std::array<std::uint8_t, 12> secondText = {'(', '0', '0', '0', '0', '0',
                                               '0', '0', '0', '0', '0', '.'};
};

}  // namespace station
