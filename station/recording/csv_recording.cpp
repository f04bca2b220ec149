#include "station/recording/csv_recording.h"

#include "core/csv_field.h"
#include "station/recording/bounded_name.h"
#include "station/recording/bus_record.h"
#include "station/recording/text_cursor.h"

namespace station {

namespace {

constexpr std::size_t longestCsvRest = 300;  // 3 * 64 of data, and what is around it but the name

void putHexNumber(LineCursor& line, std::uint32_t value) {
    line.put("0x");
    line.putHex(value);
}

void putLengthAndData(LineCursor& line, const std::uint8_t* data, std::size_t length) {
    line.putDecimal(length);
    line.put(',');
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) {
            line.put(' ');
        }
        line.putHexByte(data[i]);
    }
    line.put(',');
}

void putCsvCan(LineCursor& line, const CanRecord& can) {
    line.put(can.isFd() ? ",CAN FD," : ",CAN,");
    putHexNumber(line, can.id);
    line.put(can.extended ? ",1," : ",0,");
    putLengthAndData(line, can.data, can.length);
}

void putCsvLin(LineCursor& line, const LinRecord& lin) {
    line.put(",LIN,");
    putHexNumber(line, lin.id);
    line.put(",0,");
    putLengthAndData(line, lin.data, lin.length);
    line.put("0x");
    line.putHexByte(lin.checksum);
}

}  // namespace

CsvRecording::CsvRecording(const std::string& path, bool overwrite) : Recording(path, overwrite) {
    const std::string_view line = columns;
    file.appendHeader({line.begin(), line.end()});
    writeHead();
}

std::size_t CsvRecording::addChannel(const ChannelDescription& channel) {
    channels.push_back({channel.bus, quotedForCsv(boundedName(channel.name, longestName))});
    file.addChannel();
    return channels.size() - 1;
}

void CsvRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    if (channel >= channels.size() ||
        size != (channels[channel].bus == BusType::Can ? CanRecord::size : LinRecord::size)) {
        file.dropRecords(channel, 1);
        return;
    }
    const std::string& name = channels[channel].field;
    std::uint8_t* const room = file.beginRecord(channel, name.size() + longestCsvRest);
    if (room == nullptr) {
        return;
    }
    LineCursor line(room);
    time.put(line, utcNanoseconds);
    line.put(',');
    line.put(name);
    if (channels[channel].bus == BusType::Can) {
        putCsvCan(line, CanRecord(record));
    } else {
        putCsvLin(line, LinRecord(record));
    }
    line.put('\n');
    file.endRecord(line.getPosition());
}

}  // namespace station
