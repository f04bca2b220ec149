#include "station/session/frame_recorder.h"

#include <utility>

#include "core/performance_counter.h"
#include "station/errors.h"
#include "station/session/summary.h"

namespace station {

FrameRecorder::FrameRecorder(PluginDriver& pluginDriver, std::shared_ptr<RecordingSet> recordingSet,
                             std::size_t mostWaiting)
    : driver(pluginDriver), frames(mostWaiting), queue(std::move(recordingSet), mostWaiting) {
    driver.setFrameSink(&frames);
}

FrameRecorder::~FrameRecorder() {
    try {
        if (driver.isMeasuring()) {
            driver.stop();
        }
        driver.setFrameSink(nullptr);
    } catch (const PluginError&) {
        // A plug-in that has failed gives no frames any more.
    }
}

void FrameRecorder::begin() {
    for (const std::string& name : driver.getFrameSources()) {
        queue.addChannel({name.empty() ? laterInterfaces : name, BusType::Ethernet});
        ++sources;
    }
}

void FrameRecorder::takeNew() {
    frames.takeNew([this](std::uint32_t source, std::int64_t receivedAt, const std::uint8_t* data,
                          std::uint32_t length) {
        if (source < sources) {
            horizon.note(receivedAt);
            queue.write(source, receivedAt, data, length);
        }
    });
    queue.setHorizon(horizon.step(realNanoseconds()));
}

std::vector<RecordingSummary> FrameRecorder::summarize() const {
    std::vector<RecordingSummary> recordings = queue.summarize();
    for (RecordingSummary& recording : recordings) {
        recording.channels.clear();  // they are none of the measurement
        recording.holdsFrames = true;
        recording.lost += getLost();
    }
    return recordings;
}

}  // namespace station
