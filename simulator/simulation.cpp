#include "simulator/simulation.h"

#include <fmt/format.h>

#include <algorithm>

#include "simulator/failure.h"

namespace sim {
namespace {

constexpr std::size_t batchFrames = 64;
constexpr std::size_t framesOfStatus = 2;
/// A sink without room is asked again after this time, and given up after the second.
constexpr std::int64_t retrySleep = 20'000;
constexpr std::int64_t patience = 5 * nsPerSecond;

}  // namespace

Simulation::Simulation(const std::vector<ModuleSettings>& moduleSettings,
                       const TrafficSettings& trafficSettings, HostClock& hostClock,
                       FrameSink& frameSink)
    : traffic(trafficSettings),
      paced(trafficSettings.rate != 0),
      stampsSending(trafficSettings.stamp == Stamp::Sending),
      clock(hostClock),
      sink(frameSink),
      malformed(trafficSettings.seed),
      frameRoom(MalformedFrames::room),
      messagesLeft(trafficSettings.messageLimit) {
    all.reserve(moduleSettings.size());
    for (const ModuleSettings& settings : moduleSettings) {
        all.emplace_back(settings, traffic, clock, traffic.seed + all.size());
        frameRoom = std::max(frameRoom, all.back().getLongestFrame());
    }
    if (frameRoom > sink.getLongestFrame())
        throw Failure(ExitCode::WrongUse,
                      fmt::format("frames of {} bytes don't fit into {}: lower --per-frame or "
                                  "--length, or raise the MTU of the interface",
                                  frameRoom, sink.getLongestFrame()));
    buffers.resize(batchFrames * frameRoom);
    batch.reserve(batchFrames);
}

void Simulation::run(const std::atomic<bool>& stop, const std::function<void()>& onBatch) {
    std::int64_t lastWake = 0;
    while (!stop && !isLimitReached()) {
        const std::int64_t due = nextDue();
        if (due >= traffic.durationNs || (!paced && clock.elapsed() >= traffic.durationNs))
            break;
        if (due > clock.elapsed())
            waitUntil(std::max(due, lastWake + clock.getLeastSleep()), stop);
        lastWake = clock.elapsed();
        fillBatch();
        flush(stop);
        onBatch();
    }
    if (!isLimitReached() && traffic.durationNs != never)
        waitUntil(traffic.durationNs, stop);
    for (SimulatedModule& module : all) {
        addStatus(module, clock.elapsed());
        flush(stop);
    }
    sink.finish();
}

SimulatedModule& Simulation::firstDue(std::int64_t (SimulatedModule::*due)() const) {
    return *std::min_element(all.begin(), all.end(),
                             [due](const SimulatedModule& a, const SimulatedModule& b) {
                                 return (a.*due)() < (b.*due)();
                             });
}

std::int64_t Simulation::nextDue() {
    return std::min(firstDue(&SimulatedModule::getStatusDue).getStatusDue(),
                    firstDue(&SimulatedModule::getDataDue).getDataDue());
}

void Simulation::fillBatch() {
    const std::size_t most = stampsSending ? framesOfStatus : batchFrames;
    while (batch.size() + framesOfStatus <= most) {
        if (malformedOwed >= 1) {
            addMalformed();
            continue;
        }
        if (isLimitReached())
            return;
        const std::int64_t now = clock.elapsed();
        SimulatedModule& status = firstDue(&SimulatedModule::getStatusDue);
        const std::int64_t dataDue = firstDue(&SimulatedModule::getDataDue).getDataDue();
        const std::int64_t statusDue = status.getStatusDue();
        if (statusDue <= now && (statusDue <= dataDue || !paced))
            addStatus(status, stampsSending ? now : statusDue);
        else if (dataDue <= now)
            addData(now);
        else
            return;
    }
}

void Simulation::addData(std::int64_t nowNs) {
    SimulatedModule& module = firstDue(&SimulatedModule::getDataDue);
    OutFrame frame;
    frame.module = indexOf(module);
    frame.due = paced ? module.getDataDue() : nowNs;
    const std::size_t length =
        module.encodeNextData(nextBuffer(), messagesLeft, nowNs, frame.messages);
    messagesLeft -= frame.messages;
    add(length, frame);
}

void Simulation::addStatus(SimulatedModule& module, std::int64_t atNs) {
    OutFrame frame;
    frame.kind = FrameKind::Status;
    frame.module = indexOf(module);
    frame.due = atNs;
    add(module.encodeNextCmStatus(nextBuffer(), atNs), frame);
    if (module.hasBusStatus())
        add(module.encodeNextBusStatus(nextBuffer(), atNs), frame);
}

void Simulation::addMalformed() {
    malformedOwed -= 1;
    const SimulatedModule& module = all[malformedMade % all.size()];
    const auto interfaces = module.getSettings().interfaces();
    OutFrame frame;
    frame.kind = FrameKind::Malformed;
    frame.module = indexOf(module);
    frame.due = lastDue;
    const std::uint64_t turn = malformedMade++ / all.size();
    add(malformed.encode(nextBuffer(), module.getSender(), interfaces[turn % interfaces.size()],
                         module.getClock().reading(stampsSending ? clock.elapsed() : frame.due)),
        frame);
}

std::span<std::uint8_t> Simulation::nextBuffer() {
    return std::span(buffers).subspan(batch.size() * frameRoom, frameRoom);
}

void Simulation::add(std::size_t length, OutFrame frame) {
    frame.bytes = nextBuffer().first(length);
    batch.push_back(frame);
    lastDue = frame.due;
    if (frame.kind != FrameKind::Malformed)
        malformedOwed += traffic.badShare / (1 - traffic.badShare);
}

void Simulation::flush(const std::atomic<bool>& stop) {
    std::span<const OutFrame> rest = batch;
    std::int64_t lastTaken = clock.elapsed();
    while (!rest.empty()) {
        if (stampsSending && rest.front().kind == FrameKind::Data)
            all[rest.front().module].stampLastData(buffers, clock.elapsed());
        const std::size_t taken = sink.send(rest);
        count(rest.first(taken));
        rest = rest.subspan(taken);
        const std::int64_t now = clock.elapsed();
        if (taken > 0) {
            lastTaken = now;
            continue;
        }
        if (stop)
            break;
        if (now - lastTaken > patience)
            throw Failure(ExitCode::FailedWhileRunning,
                          fmt::format("no frame was taken for {} s: is the other end of the link "
                                      "up?",
                                      patience / nsPerSecond));
        clock.waitUntil(now + retrySleep);
    }
    batch.clear();
}

void Simulation::count(std::span<const OutFrame> taken) {
    if (paced && !taken.empty())
        sum.maxLateNs = std::max(sum.maxLateNs, clock.elapsed() - taken.front().due);
    for (const OutFrame& frame : taken) {
        ++sum.frames;
        sum.bytes += frame.bytes.size();
        sum.dataMessages += frame.messages;
        sum.badFrames += frame.kind == FrameKind::Malformed ? 1 : 0;
        sum.statusFrames += frame.kind == FrameKind::Status ? 1 : 0;
        all[frame.module].countSent(frame.messages);
    }
}

void Simulation::waitUntil(std::int64_t elapsedNs, const std::atomic<bool>& stop) {
    while (!stop && clock.elapsed() < elapsedNs)
        clock.waitUntil(elapsedNs);
}

}  // namespace sim
