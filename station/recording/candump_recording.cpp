#include "station/recording/candump_recording.h"

#include <algorithm>
#include <cstring>

#include "station/recording/bus_record.h"
#include "station/recording/text_cursor.h"

namespace station {

namespace {

/// 18 of time, 15 of name, 8 + 3 of id, 128 of data, blanks.
constexpr std::size_t longestLine = 256;

}  // namespace

std::size_t CandumpRecording::addChannel(const ChannelDescription& channel) {
    if (!accepts(channel.bus)) {
        throw FileError("Cannot record channel \"" + channel.name + "\" to \"" + getPath() +
                        "\": .log holds CAN only. Record to a .pcapng file for LIN.");
    }
    names.push_back(") " + uniqueNames.add(channel.name) + " ");
    file.addChannel();
    return names.size() - 1;
}

void CandumpRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                             std::size_t size) {
    if (channel >= names.size() || size != CanRecord::size) {
        file.dropRecords(channel, 1);
        return;
    }
    std::uint8_t* room = file.beginRecord(channel, longestLine);
    if (room == nullptr) {
        return;
    }
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(utcNanoseconds, 0));
    const CanRecord can(record);
    if (const std::uint64_t seconds = time / 1'000'000'000; seconds != second) {
        second = seconds;
        LineCursor(secondText.data() + 1).putDecimal(seconds, 10);
    }
    std::memcpy(room, secondText.data(), secondText.size());
    LineCursor line(room + secondText.size());
    line.putDecimal(time % 1'000'000'000 / 1'000, 6);
    line.put(names[channel]);
    line.putHex(can.id, can.extended ? 8 : 3);
    line.put('#');
    if (can.isFd()) {
        line.put('#');
        line.put('0');  // bit rate switch and error state aren't in the record
    }
    line.putHexBytes(can.data, can.getFilledLength());
    line.put('\n');
    file.endRecord(line.getPosition());
}

}  // namespace station
