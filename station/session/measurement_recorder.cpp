#include "station/session/measurement_recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <span>

#include "core/string_helper.h"
#include "station/recording/channel_traffic.h"
#include "station/session/bus_load.h"

namespace station {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

std::optional<BusType> busOf(const StationChannel& channel) {
    switch (channel.getDataType()) {
        case StationChannel::recordType:
            return BusType::Can;
        case StationChannel::variantType:
            return BusType::Lin;
        default:
            return std::nullopt;
    }
}

/// Of all buses that write to this output: a setup may name one twice.
ChannelStatistics sumOf(const std::vector<ChannelStatistics>& statistics, std::int32_t output) {
    static constexpr std::uint64_t ChannelStatistics::*counts[] = {
        &ChannelStatistics::unusable,    &ChannelStatistics::queued,
        &ChannelStatistics::delivered,   &ChannelStatistics::raised,
        &ChannelStatistics::beforeStart, &ChannelStatistics::afterEnd,
        &ChannelStatistics::tooOld,      &ChannelStatistics::tooNew,
        &ChannelStatistics::notPlaced,   &ChannelStatistics::leftQueued,
        &ChannelStatistics::noOutput};
    ChannelStatistics sum;
    for (const ChannelStatistics& entry : statistics) {
        if (entry.output == output) {
            for (const auto count : counts) {
                sum.*count += entry.*count;
            }
        }
    }
    return sum;
}

}  // namespace

/// A channel that is recorded, and what is known of its messages.
class MeasurementRecorder::Channel final : public ChannelSink {
  public:
    static constexpr std::size_t noModule = SIZE_MAX;

    Channel(MeasurementRecorder& target, CountedRef<StationChannel> channel, std::size_t handle)
        : recorder(target), source(std::move(channel)), number(handle) {
        source->setOnFull([this] { takeNew(); });
    }
    ~Channel() override { source->setOnFull({}); }

    void takeNew() { source->takeNew(*this); }

    void onSample(const ChannelSample& sample) override {
        const std::int64_t utc = recorder.host.data().getStartNanoseconds() +
                                 std::llround(sample.time * nanosecondsPerSecond);
        traffic.note(traffic.getCount() == 0 ? utc : std::max(traffic.getLast(), utc));
        recorder.horizon.note(traffic.getLast());
        recorder.recordings.write(number, traffic.getLast(), sample.data, sample.size);
        for (MessageListener* const listener : recorder.listeners) {
            listener->onMessage(number, traffic.getLast(), sample.data, sample.size);
        }
        load.note(sample.data, sample.size);
        lastSize = std::min(sample.size, lastRecord.size());
        std::memcpy(lastRecord.data(), sample.data, lastSize);
    }

    std::uint64_t getOverruns() const { return overrunsBefore + source->getOverruns(); }

    std::string lastValueText() const {
        if (bus == BusType::Can && lastSize == CanRecord::size) {
            return toText(CanRecord(lastRecord.data()));
        }
        if (bus == BusType::Lin && lastSize == LinRecord::size) {
            return toText(LinRecord(lastRecord.data()));
        }
        return {};
    }

    MeasurementRecorder& recorder;
    const CountedRef<StationChannel> source;
    const std::size_t number;  ///< in the recordings
    BusType bus = BusType::Can;
    std::string name;
    std::size_t module = noModule;
    std::uint16_t interfaceId = 0;
    ChannelTraffic traffic;
    BusLoad load;
    std::array<std::uint8_t, StationChannel::recordSize> lastRecord = {};
    std::size_t lastSize = 0;
    std::uint64_t overrunsBefore = 0;  ///< in the parts of the measurement before this one
    std::uint64_t overrunsReported = 0;
    ChannelStatistics counts;
};

MeasurementRecorder::MeasurementRecorder(StationHost& stationHost, RecordingQueue& recordingQueue)
    : host(stationHost), recordings(recordingQueue) {}

MeasurementRecorder::~MeasurementRecorder() = default;

void MeasurementRecorder::addChannels(const std::vector<Module>& modules) {
    for (const auto& source : host.getChannels().all()) {
        const auto type = busOf(*source);
        if (!type || !source->isUsed()) {
            continue;
        }
        auto channel = std::make_unique<Channel>(*this, source, channels.size());
        channel->bus = *type;
        channel->load = BusLoad(*type, source->getBitRates());
        channel->name = names.add(Kestrova::Utils::Kcom::StringHelper::ToUtf8(source->name()));
        const std::int32_t output = source->getIndices().back();
        for (std::size_t module = 0; module < modules.size(); ++module) {
            for (const auto& bus : modules[module].channels) {
                if (bus.output == output) {
                    channel->module = module;
                    channel->interfaceId = bus.interfaceId;
                }
            }
        }
        recordings.addChannel(
            {channel->name, channel->bus,
             channel->module == Channel::noModule ? "" : modules[channel->module].name,
             channel->interfaceId});
        channels.push_back(std::move(channel));
    }
}

void MeasurementRecorder::takeNew() {
    for (const auto& channel : channels) {
        channel->takeNew();
    }
    const double reached = host.getClock().getPositionSeconds();
    recordings.setHorizon(horizon.step(host.data().getStartNanoseconds() +
                                       std::llround(reached * nanosecondsPerSecond)));
}

void MeasurementRecorder::endPart() {
    takeNew();
    for (const auto& channel : channels) {
        channel->overrunsBefore = channel->getOverruns();
    }
    firstStart = startNanoseconds();
}

std::vector<std::string> MeasurementRecorder::takeOverruns() {
    std::vector<std::string> texts;
    for (const auto& channel : channels) {
        const std::uint64_t overruns = channel->getOverruns();
        if (overruns > channel->overrunsReported) {
            texts.push_back(fmt::format(
                "channel \"{}\" lost {} messages: they were overwritten before they could be read",
                channel->name, overruns - channel->overrunsReported));
        }
        channel->overrunsReported = overruns;
    }
    return texts;
}

std::vector<std::string> MeasurementRecorder::takeCounts(
    const std::vector<ChannelStatistics>& statistics, bool& hasLost) {
    std::vector<std::string> texts;
    unused = std::accumulate(statistics.begin(), statistics.end(), std::uint64_t{0},
                             [](std::uint64_t sum, const ChannelStatistics& entry) {
                                 return sum + entry.queued + entry.unusable;
                             });
    for (const auto& channel : channels) {
        const ChannelStatistics now = sumOf(statistics, channel->source->getIndices().back());
        if (now.raised > channel->counts.raised) {
            texts.push_back(raisedText(channel->name, now.raised - channel->counts.raised));
        }
        if (now.unusable != 0 && channel->counts.unusable == 0) {
            texts.push_back(unusableText(channel->name, now.unusable));
        }
        if (now.getLost() != channel->counts.getLost()) {
            hasLost = true;
            texts.push_back(lossText(channel->name, channel->counts, now));
        }
        channel->counts = now;
        unused -= now.queued + now.unusable;
    }
    return texts;
}

std::int64_t MeasurementRecorder::startNanoseconds() const {
    return firstStart.value_or(host.data().getStartNanoseconds());
}

double MeasurementRecorder::secondsSinceStart() const {
    const auto before = static_cast<double>(host.data().getStartNanoseconds() - startNanoseconds());
    return before / nanosecondsPerSecond + host.getClock().getSeconds();
}

void MeasurementRecorder::updateRates() {
    constexpr double window = 1.0;  // seconds
    const double now = secondsSinceStart();
    if (now - markTime < window) {
        return;
    }
    for (const auto& channel : channels) {
        channel->traffic.updateRate(now - markTime);
        channel->load.update(now - markTime);
    }
    markTime = now;
}

Summary MeasurementRecorder::summarize(std::vector<Module> modules) {
    updateRates();
    Summary summary;
    const std::int64_t start = startNanoseconds();
    summary.startTime = Summary::Clock::time_point(
        std::chrono::duration_cast<Summary::Clock::duration>(std::chrono::nanoseconds(start)));
    summary.seconds = secondsSinceStart();
    const std::size_t known = modules.size();
    summary.modules = std::move(modules);
    const auto seconds = [start](std::int64_t utc) {
        return static_cast<double>(utc - start) / nanosecondsPerSecond;
    };
    for (const auto& channel : channels) {
        ChannelSummary entry;
        entry.module = std::min(channel->module, known);
        if (entry.module == known) {
            summary.modules.resize(known + 1);
        }
        entry.interfaceId = channel->interfaceId;
        entry.bus = channel->bus;
        entry.busName = channel->bus == BusType::Can ? "CAN FD" : "LIN";
        entry.name = channel->name;
        entry.frames = channel->traffic.getCount();
        entry.firstTime = seconds(channel->traffic.getFirst());
        entry.lastTime = seconds(channel->traffic.getLast());
        entry.rate = channel->traffic.getRate();
        entry.load = channel->load.summarize(summary.seconds);
        entry.lastValue = channel->lastValueText();
        entry.counts = channel->counts;
        entry.overwritten = channel->getOverruns();
        summary.channels.push_back(std::move(entry));
    }
    summary.unused = unused;
    summary.outOfOrder = recordings.getLate();
    summary.recordings = recordings.summarize();
    return summary;
}

}  // namespace station
