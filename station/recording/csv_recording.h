#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "station/recording/csv_text.h"
#include "station/recording/recording.h"

namespace station {

/// A recording as a table of text, for spreadsheets and scripts: one line of column names, one line
/// a message, fields separated by commas.
///
///     time,channel,bus,id,extended,length,data,checksum
///     2023-11-14T22:13:20.123456789Z,Front,CAN,0x1A2,0,4,DE AD BE EF,
///     2023-11-14T22:13:20.123456790Z,Doors,LIN,0x16,0,2,01 02,0xF2
///
/// | Column | Contents |
/// |---|---|
/// | time | UTC by ISO 8601, with nanoseconds |
/// | channel | its name, at most 1024 bytes of it |
/// | bus | "CAN" (up to 8 bytes), "CAN FD" (more), "LIN" |
/// | id | identifier in hexadecimal; of LIN without parity |
/// | extended | 1 for an identifier of 29 bits, else 0 |
/// | length | number of data bytes |
/// | data | that many bytes in hexadecimal, blanks between them |
/// | checksum | of LIN, as it was on the bus; empty for CAN |
///
/// A name with a comma, a quotation mark or a line break in it is in quotation marks, those in it
/// are doubled (RFC 4180). Lines end in a line feed.
class CsvRecording : public Recording {
  public:
    static constexpr char columns[] = "time,channel,bus,id,extended,length,data,checksum\n";
    static constexpr std::size_t longestName = 1024;

    CsvRecording(const std::string& path, bool overwrite);

    const char* getFormatName() const override { return "CSV"; }
    bool accepts(BusType) const override { return true; }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  private:
    struct Channel {
        BusType bus;
        std::string field;  ///< the name, quoted where it has to be
    };

    std::vector<Channel> channels;
    CsvTime time;
};

}  // namespace station
