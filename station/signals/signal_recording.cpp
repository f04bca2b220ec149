#include "station/signals/signal_recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "core/csv_field.h"
#include "station/errors.h"
#include "station/recording/bus_record.h"
#include "station/recording/mf4_blocks.h"

namespace station {
namespace {

constexpr std::string_view signalColumns = "time,channel,message,signal,value,unit,text\n";
constexpr std::uint32_t recordIdSize = 4;
constexpr std::size_t longestComment = 4000;

bool isPlainInteger(const SignalDefinition& signal) {
    return (signal.kind == ValueKind::Unsigned || signal.kind == ValueKind::Signed) &&
           signal.factor == 1.0 && signal.offset == 0.0 && signal.ranges.empty();
}

void appendText(std::vector<std::uint8_t>& to, std::string_view text) {
    to.insert(to.end(), text.begin(), text.end());
}

void appendValue(std::vector<std::uint8_t>& to, const DecodedSignal& signal) {
    fmt::memory_buffer text;
    if (!isPlainInteger(*signal.definition)) {
        fmt::format_to(std::back_inserter(text), "{}", signal.value);
    } else if (signal.definition->kind == ValueKind::Signed) {
        fmt::format_to(std::back_inserter(text), "{}", signal.raw);
    } else {
        fmt::format_to(std::back_inserter(text), "{}", static_cast<std::uint64_t>(signal.raw));
    }
    appendText(to, {text.data(), text.size()});
}

void appendField(std::vector<std::uint8_t>& to, const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        appendText(to, text);
    } else {
        appendText(to, quotedForCsv(text));
    }
}

/// What a reader should know of a signal's numbers.
std::string describeSignal(const SignalDefinition& signal) {
    std::string text = signal.comment;
    for (const ValueText& each : signal.texts) {
        if (text.size() > longestComment) {
            return text + ", ...";
        }
        const double value = static_cast<double>(each.raw) * signal.factor + signal.offset;
        text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", value, each.text);
    }
    return text;
}

}  // namespace

std::size_t SignalRecording::addChannel(const ChannelDescription& channel) {
    channels.push_back({channel, decoders.find(channel)});
    file.addChannel();
    return channels.size() - 1;
}

void SignalRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                            std::size_t size) {
    const bool isCan = channel < channels.size() &&
                       channels[channel].description.bus == BusType::Can && size == CanRecord::size;
    const bool isLin = channel < channels.size() &&
                       channels[channel].description.bus == BusType::Lin && size == LinRecord::size;
    if (!isCan && !isLin) {
        file.dropRecords(channel, 1);
        return;
    }
    const Decoder* const decoder = channels[channel].decoder.get();
    if (decoder == nullptr) {
        ++counts.noDatabase;
        return;
    }
    const Decoder::Message* message = nullptr;
    std::span<const std::uint8_t> data;
    if (isCan) {
        const CanRecord can(record);
        message = decoder->find(can.id, can.extended);
        data = {can.data, can.length};
    } else {
        const LinRecord lin(record);
        message = decoder->find(lin.id, false);
        data = {lin.data, lin.length};
    }
    if (message == nullptr) {
        ++counts.undefined;
        return;
    }
    const std::size_t most = message->getDefinition().signals.size();
    if (decoded.size() < most) {
        decoded.resize(most);
    }
    const std::size_t count = message->decodeInto(decoded, data);
    if (count == 0) {
        ++counts.empty;
        return;
    }
    ++counts.decoded;
    writeSignals(channel, utcNanoseconds, *message, {decoded.data(), count});
}

void SignalRecording::writeRecord(std::size_t channel, std::span<const std::uint8_t> bytes) {
    if (bytes.size() > AppendFile::largestPiece) {
        file.appendBlock(bytes, {static_cast<std::uint32_t>(channel)});
    } else if (std::uint8_t* const room = file.beginRecord(channel, bytes.size())) {
        std::memcpy(room, bytes.data(), bytes.size());
        file.endRecord(room + bytes.size());
    }
}

SignalCsvRecording::SignalCsvRecording(const std::string& path, ChannelDecoders& channelDecoders,
                                       SignalCounts& signalCounts)
    : SignalRecording(path, channelDecoders, signalCounts) {
    file.appendHeader({signalColumns.begin(), signalColumns.end()});
    writeHead();
}

std::vector<std::string>& SignalCsvRecording::findNames(std::size_t channel,
                                                        const Decoder::Message& message) {
    names.resize(std::max(names.size(), channel + 1));
    auto& ofChannel = names[channel];
    ofChannel.resize(std::max(ofChannel.size(), message.getIndex() + 1));
    auto& ofMessage = ofChannel[message.getIndex()];
    if (ofMessage.empty()) {
        for (const SignalDefinition& signal : message.getDefinition().signals) {
            ofMessage.push_back(
                fmt::format(",{},{},{},", quotedForCsv(channels[channel].description.name),
                            quotedForCsv(message.getDefinition().name), quotedForCsv(signal.name)));
        }
    }
    return ofMessage;
}

void SignalCsvRecording::writeSignals(std::size_t channel, std::int64_t utcNanoseconds,
                                      const Decoder::Message& message,
                                      std::span<const DecodedSignal> signals) {
    const std::vector<std::string>& fields = findNames(channel, message);
    std::uint8_t moment[CsvTime::size];
    LineCursor cursor(moment);
    time.put(cursor, utcNanoseconds);
    lines.clear();
    for (const DecodedSignal& signal : signals) {
        lines.insert(lines.end(), moment, cursor.getPosition());
        appendText(lines, fields[signal.index]);
        appendValue(lines, signal);
        lines.push_back(',');
        appendField(lines, *signal.unit);
        lines.push_back(',');
        if (signal.text != nullptr) {
            appendField(lines, *signal.text);
        }
        lines.push_back('\n');
    }
    writeRecord(channel, lines);
}

SignalMf4Recording::SignalMf4Recording(const std::string& path, ChannelDecoders& channelDecoders,
                                       SignalCounts& signalCounts)
    : SignalRecording(path, channelDecoders, signalCounts) {
    using namespace mf4;
    appendPieces(file, identification(false));
    Blocks blocks(headerBlock);
    historyBlock = addHeader(blocks, "Decoded.");
    const DataPlaces places = addData(blocks, 0, recordIdSize);
    dataGroup = places.group;
    dataBlock = places.data;
    appendPieces(file, blocks.bytes);
    writeHead();
}

std::size_t SignalMf4Recording::findGroup(std::size_t channel, const Decoder::Message& message) {
    groupPlaces.resize(std::max(groupPlaces.size(), channel + 1));
    auto& ofChannel = groupPlaces[channel];
    ofChannel.resize(std::max(ofChannel.size(), message.getIndex() + 1));
    std::size_t& place = ofChannel[message.getIndex()];
    if (place == 0) {
        groups.push_back({channel, &message.getDefinition()});
        place = groups.size();
    }
    return place;
}

void SignalMf4Recording::writeSignals(std::size_t channel, std::int64_t utcNanoseconds,
                                      const Decoder::Message& message,
                                      std::span<const DecodedSignal> signals) {
    using namespace mf4;
    const std::int64_t moment = std::max<std::int64_t>(utcNanoseconds, 0);
    if (!start) {
        start = patchStart(file, historyBlock, moment);
    }
    const std::size_t place = findGroup(channel, message);
    ++groups[place - 1].records;
    constexpr std::size_t valuesAt = recordIdSize + timeSize;
    bytes.resize(valuesAt + message.getDefinition().signals.size() * sizeof(double));
    store(bytes.data(), static_cast<std::uint32_t>(place));
    store(bytes.data() + recordIdSize, moment - *start);
    constexpr auto absent = std::bit_cast<std::uint64_t>(std::numeric_limits<double>::quiet_NaN());
    std::size_t index = 0;
    const auto put = [&](std::uint64_t value) {
        store(bytes.data() + valuesAt + index++ * sizeof value, value);
    };
    for (const DecodedSignal& signal : signals) {
        while (index < signal.index) {
            put(absent);
        }
        put(std::bit_cast<std::uint64_t>(signal.value));
    }
    while (index < message.getDefinition().signals.size()) {
        put(absent);
    }
    writeRecord(channel, bytes);
}

void SignalMf4Recording::complete() {
    using namespace mf4;
    if (!file.flush()) {
        return;
    }
    const std::uint64_t end = file.getBytesWritten();
    const std::uint64_t begin = (end + 7) / 8 * 8;
    appendPieces(file, std::vector<std::uint8_t>(begin - end));
    Blocks blocks(begin);
    std::uint64_t next = 0;
    for (std::size_t place = groups.size(); place > 0; --place) {
        const Group& group = groups[place - 1];
        const ChannelDescription& channel = channels[group.channel].description;
        const auto& signals = group.message->signals;
        std::uint64_t first = 0;
        for (std::size_t i = signals.size(); i-- > 0;) {
            const std::string about = describeSignal(signals[i]);
            const std::uint64_t unit =
                signals[i].unit.empty() ? 0 : blocks.addText("TX", signals[i].unit);
            const std::uint64_t comment = about.empty() ? 0 : blocks.addText("TX", about);
            const auto at = static_cast<std::uint32_t>(timeSize + i * sizeof(double));
            first = addChannelBlock(blocks, first, 0, signals[i].name, fixedLength,
                                    {"", at, 64, floatLittle}, 0, 0, unit, comment);
        }
        first = addMaster(blocks, first);
        const std::uint64_t source =
            addSource(blocks, channel.name, channel.bus == BusType::Can ? canBus : linBus);
        const std::uint64_t acquisition = blocks.addText("TX", group.message->name);
        next = blocks.add(
            "CG", {next, first, acquisition, source, 0, 0},
            Fields()
                .put<std::uint64_t>(place)
                .put(group.records)
                .put<std::uint16_t>(0)
                .put<std::uint16_t>('.')
                .zeros(4)
                .put(static_cast<std::uint32_t>(timeSize + signals.size() * sizeof(double)))
                .zeros(4));  // no invalidation bytes
    }
    appendPieces(file, blocks.bytes);
    patchNumber(file, dataBlock + lengthAt, end - dataBlock);
    patchNumber(file, dataGroup + groupLinkAt, next);
    file.patch(0, identification(true));
}

std::unique_ptr<Recording> openSignalRecording(const std::string& name, const std::string& path,
                                               ChannelDecoders& decoders, SignalCounts& counts) {
    const std::string ending = name == AppendFile::standardOutput ? ".csv" : endingOf(name);
    if (ending == ".csv") {
        return std::make_unique<SignalCsvRecording>(path, decoders, counts);
    }
    if (ending == ".mf4") {
        if (AppendFile::isStreamPath(path)) {
            throw UserError(name +
                            " is a pipe, and .mf4 is completed at its end: name a file, or "
                            "a .csv");
        }
        return std::make_unique<SignalMf4Recording>(path, decoders, counts);
    }
    throw UserError("Cannot write signals to \"" + name +
                    "\": its ending names no format. There are .csv (a line a signal) and .mf4 "
                    "(MDF 4, a group a message).");
}

}  // namespace station
