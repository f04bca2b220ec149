#include "station/session/measurement.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/string_helper.h"
#include "station/session/account_text.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

/// How long a disk may take nothing before it isn't waited for.
constexpr auto stallPatience = std::chrono::milliseconds(500);
/// How often the user is shown messages that the plug-in lost.
constexpr auto countsPeriod = std::chrono::seconds(1);
/// So many are kept for the summary: an interface may come and go for days.
constexpr std::size_t mostInterfaceMessages = 1000;

}  // namespace

Measurement::Measurement(Session& measuringSession, std::shared_ptr<RecordingSet> recordingSet,
                         std::size_t mostWaiting)
    : session(measuringSession),
      mostWaitingBytes(mostWaiting),
      queue(std::move(recordingSet), mostWaiting),
      recorder(measuringSession.getHost(), queue) {
    recorder.addChannels(session.getModules());
}

void Measurement::recordFrames(std::shared_ptr<RecordingSet> frameRecordings) {
    frameRecorder = std::make_unique<FrameRecorder>(session.getDriver(), std::move(frameRecordings),
                                                    mostWaitingBytes);
    queues.push_back(&frameRecorder->getQueue());
}

void Measurement::start() {
    session.getDriver().start();
    if (frameRecorder) {
        frameRecorder->begin();
    }
    unreported = session.findSharedIds();
    lastStep = Clock::now();
    nextFlush = lastStep + flushPeriod;
    nextCounts = lastStep + countsPeriod;
}

void Measurement::setFlushPeriod(std::chrono::milliseconds time) {
    flushPeriod = std::clamp<std::chrono::milliseconds>(time, period, longestFlushPeriod);
}

void Measurement::endParts() {
    for (RecordingQueue* const each : queues) {
        each->endParts();
    }
}

bool Measurement::isOver() const {
    return stopped && (abandoned || std::ranges::all_of(queues, &RecordingQueue::isClosed));
}

bool Measurement::hasLost() const {
    return lost || std::ranges::any_of(queues, &RecordingQueue::hasLost);
}

void Measurement::requestStop() {
    if (!stopping) {
        stopping = true;
        session.getDriver().endPart();
    }
}

/// A part that has come near the end of what the plug-in can count goes over into the next one.
void Measurement::takeStep() {
    PluginDriver& driver = session.getDriver();
    driver.poll();
    if (driver.needsNewPart()) {
        driver.endPart();
    }
    if (!driver.isDrained()) {
        return;
    }
    if (stopping) {
        recorder.takeNew();
        missedLeader = awaitedLeader();
        clocksAtEnd = driver.getClocks();  // the stop forgets when each module was heard
        driver.stop();
        stopped = true;
    } else {
        recorder.endPart();
        noteJumps();
        driver.startNextPart();
    }
}

void Measurement::read(std::vector<std::string>& texts) {
    recorder.takeNew();
    for (std::string& text : recorder.takeOverruns()) {
        lost = true;
        texts.push_back(std::move(text));
    }
    readFrames(texts);
    readDropped(texts);
    readInterfaceMessages(texts);
}

void Measurement::readFrames(std::vector<std::string>& texts) {
    if (!frameRecorder) {
        return;
    }
    frameRecorder->takeNew();
    const std::uint64_t all = frameRecorder->getLost();
    if (const std::uint64_t now = all - std::exchange(framesLostReported, all); now != 0) {
        lost = true;
        texts.push_back(fmt::format(
            "{} Ethernet frames aren't recorded: they found no room to wait for it", now));
    }
}

void Measurement::readInterfaceMessages(std::vector<std::string>& texts) {
    for (const InterfaceMessage& message : session.getDriver().takeInterfaceMessages()) {
        std::string text = StringHelper::ToUtf8(message.text);
        hasInterfaceGap = hasInterfaceGap || message.isHarmless == hostFalse;
        if (interfaceMessages.size() < mostInterfaceMessages) {
            interfaceMessages.push_back(text);
        } else {
            ++interfaceMessagesLeftOut;
        }
        texts.push_back(std::move(text));
    }
}

/// Nobody can know whether messages were in them: it counts as a loss.
void Measurement::readDropped(std::vector<std::string>& texts) {
    const std::uint64_t dropped = session.getDriver().getDroppedFrames();
    if (dropped > droppedReported) {
        lost = true;
        texts.push_back(fmt::format(
            "{} Ethernet frames were lost before they could be read: the machine was too busy",
            dropped - droppedReported));
    }
    droppedReported = dropped;
}

void Measurement::readCounts(std::vector<std::string>& texts) {
    std::ranges::move(recorder.takeCounts(session.getDriver().getChannels(), lost),
                      std::back_inserter(texts));
    if (!missedLeader.empty()) {
        lost = true;
        texts.push_back(
            fmt::format("the measurement never began: \"{}\", whose clock leads it, gave no "
                        "start; connect the module, or let another clock lead (Clock source)",
                        std::exchange(missedLeader, {})));
    }
}

void Measurement::readClocks(Clock::time_point now, std::vector<std::string>& texts) {
    const double seconds = std::chrono::duration<double>(now.time_since_epoch()).count();
    const auto clocks = getClocks();
    jumpsReported.resize(clocks.size());
    for (std::size_t i = 0; i < clocks.size(); ++i) {
        const auto name = [&] {
            const auto modules = session.getModules();
            return i < modules.size() ? modules[i].name : "a module";
        };
        if (clocks[i].age >= 0.0 &&
            standing.note(i, clocks[i].deviceTime, seconds - clocks[i].age)) {
            texts.push_back(standingText(name()));
        }
        // Of a clock that jumps again and again only the doubling of their number is reported.
        if (clocks[i].jumps > 0 && clocks[i].jumps >= 2 * jumpsReported[i]) {
            texts.push_back(jumpsText(name(), clocks[i].jumps));
            jumpsReported[i] = clocks[i].jumps;
        }
    }
}

/// With the jumps of all parts; the plug-in's clocks begin to count again with each.
std::vector<ClockStatistics> Measurement::getClocks() const {
    std::vector<ClockStatistics> clocks =
        clocksAtEnd.empty() ? session.getDriver().getClocks() : clocksAtEnd;
    for (std::size_t i = 0; i < std::min(clocks.size(), jumpsBefore.size()); ++i) {
        clocks[i].jumps += jumpsBefore[i];
    }
    return clocks;
}

void Measurement::noteJumps() {
    const std::vector<ClockStatistics> clocks = getClocks();
    jumpsBefore.resize(clocks.size());
    std::ranges::transform(clocks, jumpsBefore.begin(), &ClockStatistics::jumps);
}

void Measurement::readSequences(std::vector<std::string>& texts) {
    const auto [interfaces, messages, frames, senders] = session.getDriver().getTraffic();
    const auto modules = session.getModules();
    for (std::size_t i = 0; i < std::min(senders.size(), modules.size()); ++i) {
        if (senders[i].areSeveral != hostFalse && rivalsReported.insert(i).second) {
            texts.push_back(rivalsText(modules[i], senders[i]));
        }
    }
    sequencesReported.resize(frames.size());
    for (std::size_t i = 0; i < std::min(frames.size(), modules.size()); ++i) {
        ModuleStatistics& reported = sequencesReported[i];
        if ((frames[i].sequenceGaps != 0 && reported.sequenceGaps == 0) ||
            (frames[i].missingFrames != 0 && reported.missingFrames == 0)) {
            texts.push_back(sequenceText(modules[i].name, frames[i]));
            reported = frames[i];
        }
    }
}

std::string Measurement::awaitedLeader() {
    if (!session.getDriver().isAwaitingLeader()) {
        return {};
    }
    const auto clocks = session.getDriver().getClocks();
    const auto leader = std::find_if(clocks.begin(), clocks.end(),
                                     [](const auto& clock) { return clock.isLeading; });
    const auto place = static_cast<std::size_t>(leader - clocks.begin());
    const auto modules = session.getModules();
    return place < modules.size() ? modules[place].name : "a module";
}

std::vector<std::string> Measurement::poll(Clock::time_point now) {
    std::vector<std::string> texts = std::exchange(unreported, {});
    if (!stopped) {
        longestPause = std::max<std::chrono::duration<double>>(longestPause,
                                                               now - std::exchange(lastStep, now));
        try {
            takeStep();
        } catch (...) {
            stopped = true;
            read(unreported);
            readCounts(unreported);
            beginClose();
            throw;
        }
        read(texts);
        if (stopped || now >= nextCounts) {
            nextCounts = now + countsPeriod;
            readCounts(texts);
            readClocks(now, texts);
            readSequences(texts);
            giveAccount();
        }
        if (stopped) {
            beginClose();
        }
    }
    if (stopped || now >= nextFlush) {
        nextFlush = now + flushPeriod;
        for (RecordingQueue* const each : queues) {
            std::ranges::move(each->flush(), std::back_inserter(texts));
        }
    }
    if (stopped && leavesStalledDisk && !isOver()) {
        leaveStalled(texts);
    }
    return texts;
}

/// To the recordings, for their ends.
void Measurement::giveAccount() {
    if (std::ranges::all_of(queues, &RecordingQueue::isClosed)) {
        return;  // there are none
    }
    RecordingAccount account = toAccount(summarize());
    if (frameRecorder) {
        frameRecorder->getQueue().setAccount({account.run, {}});
    }
    queue.setAccount(std::move(account));
}

void Measurement::beginClose() {
    for (RecordingQueue* const each : queues) {
        each->beginClose();
    }
}

/// Once each that isn't closed is stalled.
void Measurement::leaveStalled(std::vector<std::string>& texts) {
    const auto isStalled = [](const RecordingQueue* each) {
        return each->isClosed() || each->getStalled() > stallPatience;
    };
    if (!std::ranges::all_of(queues, isStalled)) {
        return;
    }
    abandoned = true;
    for (RecordingQueue* const each : queues) {
        if (!each->isClosed()) {
            std::ranges::move(each->abandon(), std::back_inserter(texts));
        }
    }
}

Summary Measurement::summarize() {
    std::vector<Module> modules = session.getModules();
    const auto clocks = getClocks();
    for (std::size_t i = 0; i < std::min(modules.size(), clocks.size()); ++i) {
        modules[i].clock = clocks[i];
        modules[i].timeStandsStill = standing.isStanding(i);
    }
    auto [interfaces, messages, frames, senders] = session.getDriver().getTraffic();
    for (std::size_t i = 0; i < std::min(modules.size(), frames.size()); ++i) {
        modules[i].frames = frames[i];
    }
    for (std::size_t i = 0; i < std::min(modules.size(), senders.size()); ++i) {
        modules[i].senders = senders[i];
    }
    Summary summary = recorder.summarize(std::move(modules));
    summary.interfaces = std::move(interfaces);
    summary.messages = messages;
    if (frameRecorder) {
        std::ranges::move(frameRecorder->summarize(), std::back_inserter(summary.recordings));
        summary.outOfOrder += frameRecorder->getQueue().getLate();
    }
    summary.droppedFrames = droppedReported;
    summary.longestPause = longestPause.count();
    summary.interfaceMessages = interfaceMessages;
    summary.interfaceMessagesLeftOut = interfaceMessagesLeftOut;
    summary.hasInterfaceGap = hasInterfaceGap;
    summary.awaitedLeader = awaitedLeader();
    return summary;
}

}  // namespace station
