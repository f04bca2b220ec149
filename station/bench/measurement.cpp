#include "station/bench/measurement.h"

#include <fmt/format.h>

namespace station {
namespace {

constexpr auto flushPeriod = std::chrono::milliseconds(500);

}  // namespace

Measurement::Measurement(Bench& measuringBench, RecordingSet& recordingSet)
    : bench(measuringBench), recordings(recordingSet), recorder(measuringBench.host(), recordings) {
    recorder.addChannels(bench.channelOwners());
}

void Measurement::start() {
    bench.driver().start();
    nextFlush = Clock::now() + flushPeriod;
}

void Measurement::requestStop() {
    if (!stopping) {
        stopping = true;
        bench.driver().endPart();
    }
}

/// A part that has come near the end of what the plug-in can count goes over into the next one.
void Measurement::takeStep() {
    PluginDriver& driver = bench.driver();
    driver.poll();
    if (driver.needsNewPart()) {
        driver.endPart();
    }
    if (!driver.isDrained()) {
        return;
    }
    if (stopping) {
        recorder.takeNew();
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
}

/// Nobody can know whether messages were in them: it counts as a loss.
void Measurement::readDropped(std::vector<std::string>& texts) {
    const std::uint64_t dropped = bench.driver().getDroppedFrames();
    if (dropped > droppedTold) {
        lost = true;
        texts.push_back(fmt::format(
            "{} Ethernet frames were lost before they could be read: the machine was too busy",
            dropped - droppedTold));
    }
    droppedTold = dropped;
}

std::vector<std::string> Measurement::poll(Clock::time_point now) {
    std::vector<std::string> texts;
    try {
        takeStep();
    } catch (...) {
        over = true;
        read(texts);
        throw;
    }
    read(texts);
    if (now >= nextFlush) {
        nextFlush = now + flushPeriod;
        for (std::string& text : recordings.flush()) {
            texts.push_back(std::move(text));
        }
    }
    return texts;
}

std::vector<std::string> Measurement::close() {
    return recordings.close();
}

Summary Measurement::summarize() {
    Summary summary = recorder.summarize(bench.modules());
    summary.droppedFrames = droppedTold;
    return summary;
}

}  // namespace station
