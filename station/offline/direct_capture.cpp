#include "station/offline/direct_capture.h"

#include <fmt/format.h>

#include <strings.h>
#include <algorithm>
#include <cmath>
#include <iterator>

#include "core/string_helper.h"
#include "station/errors.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr double nanosecondsPerSecond = 1e9;

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

const DeviceTypeInfo& typeByName(const std::string& name) {
    std::string known;
    for (const DeviceTypeInfo& type : deviceTypes()) {
        if (type.typeId == DeviceTypeInfo::unknownId) {
            continue;
        }
        if (equalsIgnoringCase(name, type.name) || equalsIgnoringCase(name, type.fullName)) {
            return type;
        }
        known += (known.empty() ? "" : ", ") + type.name;
    }
    throw UserError(fmt::format("there is no module type \"{}\"; there are: {}", name, known));
}

ChannelStatistics statisticsOf(const ChannelCounts& counts) {
    return {.unusable = counts.unusable,
            .queued = counts.queued,
            .delivered = counts.delivered,
            .raised = counts.raised,
            .beforeStart = counts.beforeStart,
            .afterEnd = counts.afterEnd,
            .tooOld = counts.tooOld,
            .tooNew = counts.tooNew,
            .notPlaced = counts.notPlaced,
            .leftQueued = counts.leftQueued,
            .noOutput = counts.noOutput};
}

MessageStatistics statisticsOf(const MessageCounts& counts) {
    MessageStatistics result;
    result.data = counts.data;
    result.moduleStatus = counts.moduleStatus;
    result.busStatus = counts.busStatus;
    result.other = counts.other;
    result.empty = counts.empty;
    result.unknownModule = counts.unknownModule;
    result.unknownChannel = counts.unknownChannel;
    for (std::size_t i = 0; i < counts.unknown.size(); ++i) {
        result.unknown[i] = {counts.unknown[i].cmId, counts.unknown[i].messages};
    }
    return result;
}

}  // namespace

DirectCapture::DirectCapture(CapturePort& port, const PerformanceCounter& performanceCounter,
                             OfflineClocks& offlineClocks, std::int64_t startNanoseconds,
                             Summary::Clock::time_point startTime, RecordingQueue& recordingQueue)
    : counter(performanceCounter),
      start(startNanoseconds),
      startUtc(startTime),
      startUtcNanoseconds(std::chrono::nanoseconds(startTime.time_since_epoch()).count()),
      recordings(recordingQueue),
      clocks(offlineClocks),
      outputs(*this),
      reader(&clocks.getManager(), &outputs, port, performanceCounter) {}

void DirectCapture::addModule(const Module& option) {
    const DeviceTypeInfo& type = typeByName(option.type);
    const auto device = reader.getDevices().add();
    device->setTypeById(type.typeId);
    device->setConfigId(option.configId);
    device->setName(option.name.empty() ? device->getName() : option.name);
    const auto [other, isNew] = moduleOfCmId.try_emplace(device->getCmId(), device);
    if (!isNew) {
        throw UserError(
            fmt::format("\"{}\" and \"{}\" both listen to CM ID 0x{:X}; give them different "
                        "ConfigIds",
                        other->second->getName(), device->getName(), device->getCmId()));
    }
    device->createOutputs();
    clocks.addClock(device->getClock());
    modules.push_back(device);
    addChannels(modules.size() - 1, *device);
}

void DirectCapture::addChannels(std::size_t module, const CmpDevice& device) {
    for (const auto& channel : *device.getChannels()) {
        channel->setName(
            names.add(fmt::format("{} 0x{:X}", device.getName(), channel->getInterfaceId())));
        channel->getOutput()->setUsed(true);
        Channel entry;
        entry.module = module;
        entry.channel = channel;
        entry.bus = channel->getTypeName() == "LIN" ? BusType::Lin : BusType::Can;
        recordings.addChannel({channel->getName(), entry.bus});
        channels.push_back(std::move(entry));
    }
}

void DirectCapture::onSample(std::uint32_t channel, const void* data, std::size_t size,
                             double time) {
    Channel& entry = channels[channel];
    const std::int64_t sinceStart = std::llround(time * nanosecondsPerSecond);
    entry.traffic.note(sinceStart);
    const std::int64_t utc = startUtcNanoseconds + sinceStart;
    horizon.note(utc);
    ++count;
    recordings.write(channel, utc, data, size);
}

double DirectCapture::secondsSinceStart() const {
    return static_cast<double>(counter.getNanoseconds() - start) / nanosecondsPerSecond;
}

void DirectCapture::updateRates() {
    constexpr double window = 1.0;  // seconds
    const double now = secondsSinceStart();
    if (now - markTime < window) {
        return;
    }
    for (Channel& channel : channels) {
        channel.traffic.updateRate(now - markTime);
    }
    markTime = now;
}

void DirectCapture::run(StoredFrames& frames, const std::function<bool()>& goOn) {
    reader.openInterfaces();
    clocks.begin();
    reader.prepareRead(true);
    for (bool isToGoOn = true; isToGoOn && !frames.isAtEnd(); isToGoOn = goOn()) {
        reader.readPass();
        poll();
    }
    poll();  // a clock lets its first message wait for a second look
    for (std::int64_t passed = 0; passed < clocks.getTail(); passed += stretchNanoseconds) {
        frames.passTime(stretchNanoseconds);
        poll();
    }
    reader.publishCounts();
    reader.getDevices().endCounting();
}

void DirectCapture::poll() {
    reader.takeOver();
    clocks.tick();
    reader.flushTakenOver();
    recordings.setHorizon(horizon.step(startUtcNanoseconds + counter.getNanoseconds() - start));
    lookAtClocks();
}

void DirectCapture::lookAtClocks() {
    constexpr double period = 0.5;  // seconds
    const double now = secondsSinceStart();
    if (std::abs(now - clocksTime) < period) {
        return;
    }
    clocksTime = now;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const double age = modules[i]->getSilence();
        const DeviceTime time = modules[i]->getDeviceNow();
        const double latest = static_cast<double>(time.seconds) + time.nanoseconds / 1e9 - age;
        if (age >= 0.0 && standing.note(i, latest, now - age)) {
            standingModules.push_back(standingText(modules[i]->getName()));
        }
    }
}

std::vector<std::string> DirectCapture::describeClocks() const {
    std::vector<std::string> texts = standingModules;
    std::ranges::move(clocks.describeJumps(), std::back_inserter(texts));
    for (const Channel& entry : channels) {
        const ChannelStatistics counts = statisticsOf(entry.channel->getCounts());
        if (counts.raised != 0) {
            texts.push_back(raisedText(entry.channel->getName(), counts.raised));
        }
        if (counts.getLost() != 0) {
            texts.push_back(lossText(entry.channel->getName(), {}, counts));
        }
    }
    if (const std::uint64_t outside = countOutside(); outside != 0) {
        texts.push_back(
            fmt::format("{} messages aren't in the recordings: by the clocks that were fitted they "
                        "lie before the capture of the first frame, or long after that of those "
                        "around; --clock device takes them",
                        outside));
    }
    return texts;
}

std::uint64_t DirectCapture::countOutside() const {
    std::uint64_t outside = 0;
    for (const Channel& entry : channels) {
        const ChannelCounts counts = entry.channel->getCounts();
        outside += counts.beforeStart + counts.afterEnd;
    }
    return outside;
}

Summary DirectCapture::summarize() {
    updateRates();
    Summary summary;
    summary.startTime = startUtc;
    summary.seconds = secondsSinceStart();
    for (const auto& [name, frames] : reader.getFrameCounts()) {
        summary.interfaces.push_back({{StringHelper::ToWide(name), frames.kept, frames.foreign,
                                       frames.malformed, frames.dropped}});
    }
    summary.messages = statisticsOf(reader.getMessageCounts());
    for (const auto& device : modules) {
        summary.modules.push_back({device->getName(), device->getType().name, device->getConfigId(),
                                   device->getCmId(), device->getSerialNumberText(),
                                   device->isConnected()});
        summary.modules.back().frames = {device->getFrames(), device->getSequenceGaps(),
                                         device->getMissingFrames()};
        summary.modules.back().timeStandsStill = standing.isStanding(summary.modules.size() - 1);
    }
    for (const Channel& channel : channels) {
        ChannelSummary entry;
        entry.module = channel.module;
        entry.interfaceId = channel.channel->getInterfaceId();
        entry.bus = channel.bus;
        entry.busName = channel.channel->getTypeName();
        entry.name = channel.channel->getName();
        entry.frames = channel.traffic.getCount();
        entry.firstTime = static_cast<double>(channel.traffic.getFirst()) / nanosecondsPerSecond;
        entry.lastTime = static_cast<double>(channel.traffic.getLast()) / nanosecondsPerSecond;
        entry.rate = channel.traffic.getRate();
        entry.lastValue = channel.channel->getLastValueText();
        entry.counts = statisticsOf(channel.channel->getCounts());
        summary.channels.push_back(std::move(entry));
    }
    summary.outOfOrder = recordings.getLate();
    summary.recordings = recordings.summarize();
    return summary;
}

}  // namespace station
