#include "station/recording/asc_recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <sstream>

#include "station/recording/bounded_name.h"
#include "station/recording/bus_record.h"
#include "station/recording/text_cursor.h"

namespace station {

namespace {

constexpr std::int64_t ascSecond = 1'000'000'000;
constexpr std::size_t longestAscName = 200;
constexpr std::size_t longestAscLine = 512;  // 3 * 64 of data, and what is around it below 200

/// The name on one line.
std::string escapedForAsc(const std::string& name) {
    std::string text;
    for (const char c : name) {
        if (c == '\n' || c == '\r' || c == '\\') {
            text += '\\';
        }
        text += c == '\n' ? 'n' : c == '\r' ? 'r' : c;
    }
    return text;
}

/// Local time as "Tue Nov 14 22:13:19.000 2023", in English whatever the locale.
std::string dateText(const std::tm& local) {
    static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return fmt::format("{} {} {:02} {:02}:{:02}:{:02}.000 {}", days[local.tm_wday],
                       months[local.tm_mon], local.tm_mday, local.tm_hour, local.tm_min,
                       local.tm_sec, local.tm_year + 1900);
}

std::string zoneText(long secondsEast) {
    const long minutes = std::abs(secondsEast) / 60;
    return fmt::format("UTC{}{:02}:{:02}", secondsEast < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

void putSpacedBytes(LineCursor& line, const std::uint8_t* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        line.put(' ');
        line.putHexByte(bytes[i]);
    }
}

/// Blanks up to `width` characters since `from`, and one in any case.
void putColumn(LineCursor& line, const std::uint8_t* from, std::ptrdiff_t width) {
    do {
        line.put(' ');
    } while (line.getPosition() - from < width);
}

void putAscIdentifier(LineCursor& line, const CanRecord& can) {
    line.putHex(can.id);
    if (can.extended) {
        line.put('x');
    }
}

void putAscClassic(LineCursor& line, const CanRecord& can) {
    const std::uint8_t* const from = line.getPosition();
    putAscIdentifier(line, can);
    putColumn(line, from, 16);
    line.put("Rx   d ");
    line.putDecimal(can.length);
    putSpacedBytes(line, can.data, can.length);
}

void putAscFd(LineCursor& line, const CanRecord& can) {
    const std::uint8_t* const from = line.getPosition();
    putAscIdentifier(line, can);
    putColumn(line, from, 43);  // the second column is for a message's symbolic name
    line.put("0 0 ");
    line.putHex(can.getLengthCode());
    line.put(' ');
    line.putDecimal(can.getFilledLength(), 2);
    putSpacedBytes(line, can.data, can.getFilledLength());
    line.put("        0    0     1000        0        0        0        0        0");
}

void putAscLin(LineCursor& line, const LinRecord& lin) {
    const std::uint8_t* const from = line.getPosition();
    line.putHex(lin.id);
    putColumn(line, from, 16);
    line.put("Rx     ");
    line.putDecimal(lin.length);
    putSpacedBytes(line, lin.data, lin.length);
    line.put("  checksum = ");
    line.putHexByte(lin.checksum);
    line.put("   header time =   0, full time =   0");
    using Model = LinRecord::ChecksumModel;
    const Model model = lin.getChecksumModel();
    line.put(model == Model::Classic    ? "  CSM = classic"
             : model == Model::Enhanced ? "  CSM = enhanced"
                                        : "");
}

}  // namespace

std::size_t AscRecording::addChannel(const ChannelDescription& channel) {
    const bool isCan = channel.bus == BusType::Can;
    const auto number = 1 + static_cast<unsigned>(std::count_if(
                                channels.begin(), channels.end(),
                                [&](const Channel& other) { return other.bus == channel.bus; }));
    const std::string word = isCan         ? std::to_string(number)
                             : number == 1 ? "Li"
                                           : fmt::format("L{}", number);
    channels.push_back({channel.bus, number, word,
                        fmt::format("// channel {} {} {}\n", isCan ? "CAN" : "LIN", number,
                                    escapedForAsc(boundedName(channel.name, longestAscName)))});
    file.addChannel();
    if (start) {
        appendText(channels.back().comment);
    }
    return channels.size() - 1;
}

void AscRecording::appendText(const std::string& text) {
    file.appendHeader({text.begin(), text.end()});
}

void AscRecording::beginBlock(std::int64_t firstTime) {
    const bool isFirst = !start;
    const std::int64_t second = std::max<std::int64_t>(firstTime / ascSecond - 1, 0);
    start = second * ascSecond;
    const std::time_t time = second;
    std::tm local{};
    ::localtime_r(&time, &local);
    const std::string date = dateText(local);
    appendText(isFirst ? fmt::format("date {}\nbase hex  timestamps absolute\n"
                                     "internal events logged\n",
                                     date)
                       : "End TriggerBlock\n");
    appendText(fmt::format("Begin Triggerblock {}\n// start {} ns UTC, zone {}\n", date, *start,
                           zoneText(local.tm_gmtoff)));
    if (isFirst) {
        if (!origin.empty()) {
            appendText(fmt::format("// {}\n", origin));
        }
        for (const Channel& channel : channels) {
            appendText(channel.comment);
        }
    }
    appendText("   0.000000 Start of measurement\n");
}

void AscRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    if (channel >= channels.size() ||
        size != (channels[channel].bus == BusType::Can ? CanRecord::size : LinRecord::size)) {
        file.dropRecords(channel, 1);
        return;
    }
    const std::int64_t time = std::max<std::int64_t>(utcNanoseconds, 0);
    if (!start || time < *start) {
        beginBlock(time);
    }
    std::uint8_t* const room = file.beginRecord(channel, longestAscLine);
    if (room == nullptr) {
        return;
    }
    const auto offset = static_cast<std::uint64_t>(time - *start);
    const std::uint64_t seconds = offset / ascSecond;
    LineCursor line(room);
    for (std::uint64_t width = 1000; width > 1 && seconds < width; width /= 10) {
        line.put(' ');
    }
    line.putDecimal(seconds);
    line.put('.');
    line.putDecimal(offset % ascSecond / 1'000, 6);
    line.put(' ');
    if (channels[channel].bus == BusType::Lin) {
        line.put(channels[channel].word);
        line.put(' ');
        putAscLin(line, LinRecord(record));
    } else if (const CanRecord can(record); can.isFd()) {
        line.put("CANFD ");
        for (std::size_t i = channels[channel].word.size(); i < 3; ++i) {
            line.put(' ');
        }
        line.put(channels[channel].word);
        line.put(" Rx   ");
        putAscFd(line, can);
    } else {
        line.put(channels[channel].word);
        line.put("  ");
        putAscClassic(line, can);
    }
    line.put('\n');
    file.endRecord(line.getPosition());
}

void AscRecording::complete() {
    if (!start) {
        return;
    }
    file.flush();  // only what is in the file is counted
    appendText("End TriggerBlock\n");
    for (std::size_t i = 0; i < channels.size(); ++i) {
        appendText(fmt::format("// counts {} {} {}\n",
                               channels[i].bus == BusType::Can ? "CAN" : "LIN", channels[i].number,
                               describeCounts(i)));
    }
    std::istringstream lines(account.run);
    for (std::string line; std::getline(lines, line);) {
        appendText(fmt::format("// {}\n", line));
    }
}

}  // namespace station
