#include "station/recording/pcapng_recording.h"

#include <algorithm>

#include "station/recording/bounded_name.h"
#include "station/recording/pcapng_blocks.h"

namespace station {

namespace {

constexpr std::size_t longestComment = 3000;

}  // namespace

PcapngRecording::PcapngRecording(const std::string& path, bool overwrite, const std::string& origin,
                                 Contents contents)
    : Recording(path, overwrite), what(contents) {
    file.appendHeader(makeSectionHeader(origin));
    writeHead();
}

std::size_t PcapngRecording::addChannel(const ChannelDescription& channel) {
    file.appendHeader(makeInterfaceDescription(channel));
    channels.push_back(channel.bus);
    file.addChannel();
    return channels.size() - 1;
}

void PcapngRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                            std::size_t size) {
    latest = std::max(latest, utcNanoseconds);
    const std::size_t room =
        channel < channels.size() ? longestPacketBlock(channels[channel], size) : 0;
    if (room == 0) {
        file.dropRecords(channel, 1);
    } else if (std::uint8_t* const place = file.beginRecord(channel, room); place != nullptr) {
        file.endRecord(
            putPacketBlock(place, channels[channel], channel, utcNanoseconds, record, size));
    }
}

void PcapngRecording::complete() {
    file.flush();  // only what is in the file is counted
    for (std::size_t channel = 0; channel < channels.size(); ++channel) {
        std::string comment = channel < account.channels.size() ? account.channels[channel] : "";
        if (channel == 0 && !account.run.empty()) {
            comment += (comment.empty() ? "" : "\n") + account.run;
        }
        file.appendHeader(makeInterfaceStatistics(channel, static_cast<std::uint64_t>(latest),
                                                  file.getChannelCounts()[channel],
                                                  boundedName(comment, longestComment)));
    }
}

}  // namespace station
