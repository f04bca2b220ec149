#include "station/session/measurement.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace station {
namespace {

constexpr auto flushPeriod = std::chrono::milliseconds(500);
/// How often the user is shown messages that the plug-in lost.
constexpr auto countsPeriod = std::chrono::seconds(1);
/// So many are kept for the summary: an interface may come and go for days.
constexpr std::size_t mostInterfaceMessages = 1000;

}  // namespace

Measurement::Measurement(Session& measuringSession, RecordingSet& recordingSet)
    : session(measuringSession),
      recordings(recordingSet),
      recorder(measuringSession.host(), recordings) {
    recorder.addChannels(session.getModules());
}

void Measurement::start() {
    session.driver().start();
    nextFlush = Clock::now() + flushPeriod;
    nextCounts = Clock::now() + countsPeriod;
}

void Measurement::requestStop() {
    if (!stopping) {
        stopping = true;
        session.driver().endPart();
    }
}

/// A part that has come near the end of what the plug-in can count goes over into the next one.
void Measurement::takeStep() {
    PluginDriver& driver = session.driver();
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
        driver.stop();
        over = true;
    } else {
        recorder.endPart();
        driver.startNextPart();
    }
}

void Measurement::read(std::vector<std::string>& texts) {
    recorder.takeNew();
    for (std::string& text : recorder.takeOverruns()) {
        lost = true;
        texts.push_back(std::move(text));
    }
    readDropped(texts);
    readInterfaceMessages(texts);
}

void Measurement::readInterfaceMessages(std::vector<std::string>& texts) {
    for (std::string& text : session.driver().takeInterfaceMessages()) {
        if (interfaceMessages.size() < mostInterfaceMessages) {
            interfaceMessages.push_back(text);
        }
        texts.push_back(std::move(text));
    }
}

/// Nobody can know whether messages were in them: it counts as a loss.
void Measurement::readDropped(std::vector<std::string>& texts) {
    const std::uint64_t dropped = session.driver().getDroppedFrames();
    if (dropped > droppedTold) {
        lost = true;
        texts.push_back(fmt::format(
            "{} Ethernet frames were lost before they could be read: the machine was too busy",
            dropped - droppedTold));
    }
    droppedTold = dropped;
}

void Measurement::readCounts(std::vector<std::string>& texts) {
    for (std::string& text : recorder.takeCounts(session.driver().getChannels())) {
        lost = true;
        texts.push_back(std::move(text));
    }
    if (!missedLeader.empty()) {
        lost = true;
        texts.push_back(
            fmt::format("the measurement never began: \"{}\", whose clock leads it, gave no "
                        "start; connect the module, or let another clock lead (Clock source)",
                        std::exchange(missedLeader, {})));
    }
}

std::string Measurement::awaitedLeader() {
    if (!session.driver().isAwaitingLeader()) {
        return {};
    }
    const auto clocks = session.driver().getClocks();
    const auto leader = std::find_if(clocks.begin(), clocks.end(),
                                     [](const auto& clock) { return clock.isLeading; });
    const auto place = static_cast<std::size_t>(leader - clocks.begin());
    const auto modules = session.getModules();
    return place < modules.size() ? modules[place].name : "a module";
}

std::vector<std::string> Measurement::poll(Clock::time_point now) {
    std::vector<std::string> texts;
    try {
        takeStep();
    } catch (...) {
        over = true;
        read(texts);
        readCounts(texts);
        untold = std::move(texts);
        throw;
    }
    read(texts);
    if (over || now >= nextCounts) {
        nextCounts = now + countsPeriod;
        readCounts(texts);
    }
    if (now >= nextFlush) {
        nextFlush = now + flushPeriod;
        for (std::string& text : recordings.flush()) {
            texts.push_back(std::move(text));
        }
    }
    return texts;
}

std::vector<std::string> Measurement::close() {
    std::vector<std::string> texts = std::exchange(untold, {});
    for (std::string& text : recordings.close()) {
        texts.push_back(std::move(text));
    }
    return texts;
}

Summary Measurement::summarize() {
    std::vector<Module> modules = session.getModules();
    const auto clocks = session.driver().getClocks();
    for (std::size_t i = 0; i < std::min(modules.size(), clocks.size()); ++i) {
        modules[i].clock = clocks[i];
    }
    Summary summary = recorder.summarize(std::move(modules));
    summary.droppedFrames = droppedTold;
    summary.interfaceMessages = interfaceMessages;
    summary.awaitedLeader = awaitedLeader();
    return summary;
}

}  // namespace station
