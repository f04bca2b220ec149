#include "station/offline/message_copy.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace station {

namespace {

double toSeconds(std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e9;
}

}  // namespace

MessageCopy::MessageCopy(MessageReader& messageReader, RecordingSet& recordingSet)
    : reader(messageReader), recordings(recordingSet) {
    addChannels();
}

void MessageCopy::addChannels() {
    const auto& there = reader.getChannels();
    while (channels.size() < there.size()) {
        recordings.addChannel(there[channels.size()]);
        channels.emplace_back();
    }
}

bool MessageCopy::poll() {
    constexpr int atOnce = 4096;
    RecordedMessage message;
    for (int i = 0; i < atOnce; ++i) {
        const bool isThere = reader.next(message);
        addChannels();
        if (!isThere) {
            return false;
        }
        message.utcNanoseconds = std::min(message.utcNanoseconds, TimeMerge::all - 1);
        Channel& channel = channels[message.channel];
        channel.traffic.note(message.utcNanoseconds);
        std::memcpy(channel.last.data(), message.record.data(), message.size);
        channel.isFd |= message.size == CanRecord::size && CanRecord(message.record.data()).isFd();
        newest = std::max(newest, message.utcNanoseconds);
        horizon.note(message.utcNanoseconds);
        merge.add({message.utcNanoseconds, static_cast<std::uint32_t>(message.channel),
                   static_cast<std::uint32_t>(message.size)},
                  message.record.data());
    }
    record(horizon.step(newest));
    return true;
}

void MessageCopy::record(std::int64_t before) {
    merge.release(before, [this](const TimeMerge::Head& head, const std::uint8_t* bytes) {
        recordings.write(head.channel, head.utcNanoseconds, bytes, head.size);
    });
}

Summary MessageCopy::summarize() const {
    std::int64_t first = 0;
    std::int64_t last = 0;
    bool hasTime = false;
    for (const Channel& channel : channels) {
        if (channel.traffic.getCount() != 0) {
            first =
                hasTime ? std::min(first, channel.traffic.getFirst()) : channel.traffic.getFirst();
            last = std::max(last, channel.traffic.getLast());
            hasTime = true;
        }
    }
    Summary summary;
    summary.startTime = Summary::Clock::time_point(
        std::chrono::duration_cast<Summary::Clock::duration>(std::chrono::nanoseconds(first)));
    summary.seconds = toSeconds(last - first);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const Channel& channel = channels[i];
        const ChannelDescription& description = reader.getChannels()[i];
        const bool isCan = description.bus == BusType::Can;
        ChannelSummary entry;
        entry.module = ChannelSummary::noModule;
        entry.bus = description.bus;
        entry.busName = !isCan ? "LIN" : channel.isFd ? "CAN FD" : "CAN";
        entry.name = description.name;
        entry.frames = channel.traffic.getCount();
        entry.firstTime = toSeconds(channel.traffic.getFirst() - first);
        entry.lastTime = toSeconds(channel.traffic.getLast() - first);
        if (summary.seconds > 0.0) {
            entry.rate = static_cast<double>(entry.frames) / summary.seconds;
        }
        if (entry.frames != 0) {
            entry.lastValue = isCan ? toText(CanRecord(channel.last.data()))
                                    : toText(LinRecord(channel.last.data()));
        }
        summary.channels.push_back(std::move(entry));
    }
    summary.outOfOrder = merge.getLate();
    summary.recordings = recordings.summarize();
    return summary;
}

}  // namespace station
