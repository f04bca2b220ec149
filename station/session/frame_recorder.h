#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "station/host/plugin_driver.h"
#include "station/recording/frame_queue.h"
#include "station/recording/horizon.h"
#include "station/recording/recording_queue.h"

namespace station {

/// Records the frames of a measurement as the capture thread read them, with the times at which the
/// system received them: what the recordings of messages are made of.
///
/// Called on the host's thread. The driver isn't owned and outlives this.
class FrameRecorder {
  public:
    /// As `RecordingQueue`; the frames that wait for the host's thread may take as much again. The
    /// driver's next measurement gives its frames here. Throws PluginError if the plug-in doesn't.
    FrameRecorder(PluginDriver& pluginDriver, std::shared_ptr<RecordingSet> recordingSet,
                  std::size_t mostWaiting);
    /// Ends a measurement that still runs.
    ~FrameRecorder();
    FrameRecorder(const FrameRecorder&) = delete;
    FrameRecorder& operator=(const FrameRecorder&) = delete;

    /// Once, when the measurement has started.
    void begin();
    /// After each periodic call, and after the end of the measurement.
    void takeNew();
    /// Frames for which there was no room on the way to the host's thread.
    std::uint64_t getLost() const { return frames.getLost(); }
    RecordingQueue& getQueue() { return queue; }
    /// What is added to the measurement's.
    std::vector<RecordingSummary> summarize() const;

  private:
    PluginDriver& driver;
    FrameQueue frames;
    RecordingQueue queue;
    std::size_t sources = 0;
    /// For what an interface has, while another one is read.
    Horizon horizon{10'000'000, 5};
};

}  // namespace station
