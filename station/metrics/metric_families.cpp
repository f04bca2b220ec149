#include "station/metrics/metric_families.h"

#include <utf8.h>

#include <array>
#include <iterator>
#include <string>
#include <utility>

#include "core/string_helper.h"
#include "station/recording/unique_names.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

/// A value that isn't UTF-8 would make a reader refuse the whole page.
std::string readable(const std::string& text) {
    return utf8::replace_invalid(text);
}

std::string hexadecimal(unsigned number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%X", number);
    return text.data();
}

/// One metric with its samples. Without any it isn't on the page.
class Family {
  public:
    Family(std::vector<MetricFamily>& target, MetricType type, const char* name, const char* help)
        : families(target) {
        family.type = type;
        family.name = name;
        family.help = help;
    }
    ~Family() {
        if (!family.metric.empty()) {
            families.push_back(std::move(family));
        }
    }
    Family(const Family&) = delete;
    Family& operator=(const Family&) = delete;

    void add(Labels labels, double value) {
        ClientMetric metric;
        metric.label = std::move(labels);
        (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
        family.metric.push_back(std::move(metric));
    }
    void add(Labels labels, std::uint64_t value) {
        add(std::move(labels), static_cast<double>(value));
    }
    void add(Labels labels, bool value) { add(std::move(labels), value ? 1.0 : 0.0); }

  private:
    std::vector<MetricFamily>& families;
    MetricFamily family;
};

class Page {
  public:
    explicit Page(const Summary& shown) : summary(shown) {
        UniqueNames unique;
        for (const Module& module : summary.modules) {
            moduleNames.push_back(unique.add(readable(module.name)));
        }
    }

    std::vector<MetricFamily> take() {
        addRun();
        addInterfaces();
        addMessages();
        addModules();
        addClocks();
        addChannels();
        addRecordings();
        addStream();
        addServe();
        return std::move(families);
    }

  private:
    Family counter(const char* name, const char* help) {
        return {families, MetricType::Counter, name, help};
    }
    Family gauge(const char* name, const char* help) {
        return {families, MetricType::Gauge, name, help};
    }

    double startSeconds() const {
        return std::chrono::duration<double>(summary.startTime.time_since_epoch()).count();
    }

    void addRun() {
        gauge("cmp_start_timestamp_seconds", "When the measurement began, since 1970 UTC.")
            .add({}, startSeconds());
        gauge("cmp_duration_seconds", "Time since the measurement began.").add({}, summary.seconds);
        gauge("cmp_longest_pause_seconds",
              "Longest time between two calls of the plug-in's periodic work.")
            .add({}, summary.longestPause);
        counter("cmp_dropped_frames_total",
                "Ethernet frames that the system dropped before they could be read.")
            .add({}, summary.droppedFrames);
        counter("cmp_out_of_order_messages_total",
                "Messages that came in behind later ones in the recordings.")
            .add({}, summary.outOfOrder);
        gauge("cmp_interface_gap", "1 once an interface wasn't captured on for a time.")
            .add({}, summary.hasInterfaceGap);
        gauge("cmp_leader_awaited",
              "1 while the start waits for the module whose clock leads the measurement.")
            .add({}, !summary.awaitedLeader.empty());
    }

    void addInterfaces() {
        Family frames = counter("cmp_interface_frames_total",
                                "Ethernet frames that came in, by their fate: capture frames are "
                                "kept, others are foreign.");
        Family malformed = counter("cmp_interface_malformed_frames_total",
                                   "Kept frames that couldn't be decoded to their end.");
        Family received =
            counter("cmp_interface_received_frames_total",
                    "Ethernet frames by the count of the system, where it has one; those that are "
                    "in no fate wait in its ring.");
        for (const ReceivedStatistics& interface : summary.interfaces) {
            const std::string name = interface.name.empty()
                                         ? laterInterfaces  // no name has a blank in it
                                         : readable(StringHelper::ToUtf8(interface.name));
            frames.add({{"interface", name}, {"fate", "kept"}}, interface.kept);
            frames.add({{"interface", name}, {"fate", "foreign"}}, interface.foreign);
            frames.add({{"interface", name}, {"fate", "dropped"}}, interface.dropped);
            malformed.add({{"interface", name}}, interface.malformed);
            if (interface.isCounted != hostFalse) {
                received.add({{"interface", name}}, interface.received);
            }
        }
    }

    void addMessages() {
        const MessageStatistics& messages = summary.messages;
        Family kinds = counter("cmp_messages_total", "Messages in the kept frames, by kind.");
        kinds.add({{"kind", "data"}}, messages.data);
        kinds.add({{"kind", "module_status"}}, messages.moduleStatus);
        kinds.add({{"kind", "bus_status"}}, messages.busStatus);
        kinds.add({{"kind", "other"}}, messages.other);
        Family leftOut = counter("cmp_messages_left_out_total",
                                 "Data messages that are for no channel that is used.");
        leftOut.add({{"reason", "empty"}}, messages.empty);
        leftOut.add({{"reason", "unknown_module"}}, messages.unknownModule);
        leftOut.add({{"reason", "unknown_channel"}}, messages.unknownChannel);
        leftOut.add({{"reason", "unused_channel"}}, summary.unused);
        Family unknown = counter("cmp_unknown_module_messages_total",
                                 "Data messages of the first CM IDs that no module has.");
        for (const MessageStatistics::Unknown& entry : messages.unknown) {
            if (entry.messages != 0) {
                unknown.add({{"cm_id", hexadecimal(entry.cmId)}}, entry.messages);
            }
        }
    }

    void addModules() {
        Family info = gauge("cmp_module_info", "What a module is; always 1.");
        Family connected = gauge("cmp_module_connected", "1 while a module is heard.");
        Family still = gauge("cmp_module_time_stands_still",
                             "1 if messages of a module come while its time doesn't advance.");
        Family shared = gauge("cmp_module_cm_id_is_shared",
                              "1 once several modules have sent with a module's CM ID.");
        Family frames = counter("cmp_module_frames_total", "Capture frames of a module.");
        Family gaps =
            counter("cmp_module_sequence_gaps_total",
                    "Frames whose sequence counter isn't the successor of the one before.");
        Family missing = counter("cmp_module_missing_frames_total",
                                 "Frames that are missing in the gaps whose length is known.");
        for (std::size_t i = 0; i < summary.modules.size(); ++i) {
            const Module& module = summary.modules[i];
            if (module.type.empty()) {
                continue;  // it stands for channels without one
            }
            const Labels labels = {{"module", moduleNames[i]}};
            info.add({{"module", moduleNames[i]},
                      {"type", readable(module.type)},
                      {"config_id", hexadecimal(module.configId)},
                      {"cm_id", hexadecimal(module.cmId)},
                      {"serial", readable(module.serial)}},
                     1.0);
            connected.add(labels, module.connected);
            still.add(labels, module.timeStandsStill);
            shared.add(labels, module.senders.areSeveral != hostFalse);
            if (module.frames) {
                frames.add(labels, module.frames->frames);
                gaps.add(labels, module.frames->sequenceGaps);
                missing.add(labels, module.frames->missingFrames);
            }
        }
    }

    void addClocks() {
        Family states =
            gauge("cmp_module_clock_state", "1 for the state that a module's clock is in.");
        Family offset =
            gauge("cmp_module_clock_offset_seconds", "A module's time at host time 0, since 1970.");
        Family rate = gauge("cmp_module_clock_rate_error_ratio",
                            "By how much a module's clock is faster than the host's.");
        Family residual = gauge("cmp_module_clock_residual_seconds",
                                "Latest reading of a module's clock minus what was expected.");
        Family age = gauge("cmp_module_clock_age_seconds", "Time since a module's latest message.");
        Family jumps =
            counter("cmp_module_clock_jumps_total", "How often a module's time has jumped.");
        for (std::size_t i = 0; i < summary.modules.size(); ++i) {
            if (!summary.modules[i].clock) {
                continue;
            }
            const ClockStatistics& clock = *summary.modules[i].clock;
            const Labels labels = {{"module", moduleNames[i]}};
            const auto addState = [&](const char* state, bool isIt) {
                states.add({{"module", moduleNames[i]}, {"state", state}}, isIt);
            };
            addState("not heard", !clock.hasTime);
            addState("not placed", clock.hasTime && !clock.isPlaced);
            addState("following", clock.hasTime && clock.isPlaced);
            if (clock.isPlaced) {
                constexpr double partsPerMillion = 1e-6;
                offset.add(labels, clock.offset);
                rate.add(labels, clock.ratePpm * partsPerMillion);
                residual.add(labels, clock.residual);
            }
            if (clock.age >= 0.0) {
                age.add(labels, clock.age);
            }
            jumps.add(labels, clock.jumps);
        }
    }

    Labels channelLabels(const ChannelSummary& channel) const {
        const bool hasModule = channel.module < moduleNames.size();
        return {{"channel", readable(channel.name)},
                {"module", hasModule ? moduleNames[channel.module] : std::string()},
                {"bus", readable(channel.busName)}};
    }

    static Labels with(Labels labels, const char* name, const char* value) {
        labels.push_back({name, value});
        return labels;
    }

    void addChannels() {
        addChannelCounts();
        Family read = counter("cmp_channel_messages_read_total",
                              "Delivered messages that were shown and given to the recordings.");
        Family overwritten =
            counter("cmp_channel_messages_overwritten_total",
                    "Delivered messages that were overwritten before they could be read.");
        Family first = gauge("cmp_channel_first_message_timestamp_seconds",
                             "When a channel's first message was on the bus, since 1970 UTC.");
        Family last = gauge("cmp_channel_last_message_timestamp_seconds",
                            "When a channel's latest message was on the bus, since 1970 UTC.");
        Family load = gauge("cmp_channel_bus_load_ratio",
                            "Share of the last second for which messages were on a channel's bus, "
                            "where its bit rate is known.");
        for (const ChannelSummary& channel : summary.channels) {
            const Labels labels = channelLabels(channel);
            if (channel.load) {
                load.add(labels, channel.load->lately);
            }
            read.add(labels, channel.frames);
            overwritten.add(labels, channel.overwritten);
            if (channel.frames != 0) {
                first.add(labels, startSeconds() + channel.firstTime);
                last.add(labels, startSeconds() + channel.lastTime);
            }
        }
    }

    void addChannelCounts() {
        struct Reason {
            const char* name;
            std::uint64_t ChannelStatistics::*count;
        };
        static constexpr Reason reasons[] = {{"before_start", &ChannelStatistics::beforeStart},
                                             {"after_end", &ChannelStatistics::afterEnd},
                                             {"too_old", &ChannelStatistics::tooOld},
                                             {"too_new", &ChannelStatistics::tooNew},
                                             {"not_placed", &ChannelStatistics::notPlaced},
                                             {"left_queued", &ChannelStatistics::leftQueued},
                                             {"no_output", &ChannelStatistics::noOutput}};
        Family queued =
            counter("cmp_channel_messages_queued_total", "Messages that came in for a channel.");
        Family delivered = counter("cmp_channel_messages_delivered_total",
                                   "Queued messages that were given to the host's channel.");
        Family discarded =
            counter("cmp_channel_messages_discarded_total",
                    "Queued messages that weren't delivered. Those before the start and after the "
                    "end of the measurement aren't lost.");
        Family waiting = gauge("cmp_channel_messages_waiting",
                               "Queued messages that are neither delivered nor discarded yet.");
        Family raised = counter("cmp_channel_messages_raised_total",
                                "Delivered messages with the time of the one before, as their own "
                                "was earlier.");
        Family unusable = counter("cmp_channel_messages_unusable_total",
                                  "Messages whose contents are no message of the channel's bus.");
        for (const ChannelSummary& channel : summary.channels) {
            if (!channel.counts) {
                continue;
            }
            const Labels labels = channelLabels(channel);
            const ChannelStatistics& counts = *channel.counts;
            std::uint64_t done = counts.delivered;
            for (const Reason& reason : reasons) {
                discarded.add(with(labels, "reason", reason.name), counts.*reason.count);
                done += counts.*reason.count;
            }
            queued.add(labels, counts.queued);
            delivered.add(labels, counts.delivered);
            waiting.add(labels, counts.queued > done ? counts.queued - done : std::uint64_t{0});
            raised.add(labels, counts.raised);
            unusable.add(labels, counts.unusable);
        }
    }

    void addRecordings() {
        Family written = counter("cmp_recording_records_written_total",
                                 "Messages, or frames, that are in the files of a recording.");
        Family lost = counter("cmp_recording_records_lost_total",
                              "Messages, or frames, that a recording should have and hasn't.");
        Family bytes = counter("cmp_recording_written_bytes_total",
                               "Bytes that are in the files of a recording.");
        Family parts = counter("cmp_recording_parts_total", "Files of a recording so far.");
        Family failed = gauge("cmp_recording_failed", "1 once a recording has failed or paused.");
        Family ofChannels = counter("cmp_recording_channel_messages_total",
                                    "Messages of a channel in a recording, by their fate.");
        UniqueNames unique;  // a pipe may be written twice
        for (const RecordingSummary& recording : summary.recordings) {
            const std::string path = unique.add(readable(recording.path));
            const Labels labels = {{"recording", path},
                                   {"format", readable(recording.format)},
                                   {"contents", recording.holdsFrames ? "frames" : "messages"}};
            written.add(labels, recording.records);
            lost.add(labels, recording.lost);
            bytes.add(labels, recording.bytes);
            parts.add(labels, std::uint64_t{recording.parts});
            failed.add(labels, !recording.error.empty());
            for (std::size_t i = 0; i < recording.channels.size(); ++i) {
                const RecordingSummary::Channel& channel = recording.channels[i];
                if (channel.isHeld && i < summary.channels.size()) {
                    const Labels both = {{"recording", path},
                                         {"channel", readable(summary.channels[i].name)}};
                    ofChannels.add(with(both, "fate", "written"), channel.records);
                    ofChannels.add(with(both, "fate", "lost"), channel.lost);
                }
            }
        }
    }

    void addStream() {
        if (!summary.stream) {
            return;
        }
        const StreamSummary& stream = *summary.stream;
        const Labels labels = {{"station", readable(stream.station)}};
        gauge("cmp_stream_connected", "1 while a broker takes the stream.")
            .add(labels, stream.isConnected);
        counter("cmp_stream_messages_acknowledged_total", "Messages that a broker has stored.")
            .add(labels, stream.acknowledged);
        counter("cmp_stream_messages_lost_total",
                "Messages that had to go as the stream's spool was full.")
            .add(labels, stream.lost);
        gauge("cmp_stream_backlog_messages", "Messages in the spool that no broker has stored.")
            .add(labels, stream.backlogMessages);
        gauge("cmp_stream_backlog_bytes", "Bytes of the spool that no broker has stored.")
            .add(labels, stream.backlogBytes);
    }

    void addServe() {
        if (!summary.serve) {
            return;
        }
        const ServeSummary& serve = *summary.serve;
        const Labels labels = {{"address", serve.address}};
        gauge("cmp_serve_readers", "Programs that read buses now.")
            .add(labels, static_cast<std::uint64_t>(serve.readers));
        counter("cmp_serve_messages_sent_total", "Messages that readers of buses were sent.")
            .add(labels, serve.sent);
        counter("cmp_serve_readers_cut_off_total", "Readers of buses that were too slow.")
            .add(labels, serve.cutOff);
        counter("cmp_serve_messages_lost_total", "Messages that slow readers of buses didn't get.")
            .add(labels, serve.lost);
        counter("cmp_serve_readers_refused_total", "Readers of buses for which there was no room.")
            .add(labels, serve.refused);
    }

    const Summary& summary;
    std::vector<std::string> moduleNames;  ///< by module, none twice
    std::vector<MetricFamily> families;
};

}  // namespace

std::vector<MetricFamily> toMetricFamilies(const Summary& summary) {
    return Page(summary).take();
}

}  // namespace station
