#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "capture/cmp_packet_reader.h"
#include "core/standing_clocks.h"
#include "station/offline/direct_output.h"
#include "station/offline/offline_clocks.h"
#include "station/offline/stored_frames.h"
#include "station/recording/channel_traffic.h"
#include "station/recording/horizon.h"
#include "station/recording/recording_queue.h"
#include "station/recording/unique_names.h"
#include "station/session/module.h"
#include "station/session/summary.h"

namespace station {

/// The capture core with modules of its own, whose samples go straight into recordings and a
/// summary: a measurement without a host around it.
///
/// Used on one thread, which does the work of the capture thread too.
class DirectCapture final : private SampleSink {
  public:
    /// Host time 0 is `startNanoseconds` on the counter and `startTime` in UTC. Port, counter,
    /// clocks and recordings aren't owned and outlive this; the recordings are left to be closed.
    DirectCapture(CapturePort& port, const PerformanceCounter& performanceCounter,
                  OfflineClocks& offlineClocks, std::int64_t startNanoseconds,
                  Summary::Clock::time_point startTime, RecordingQueue& recordingQueue);

    /// Sets up a module with all its channels used and named after module and interface. To be
    /// called before the reader starts. Throws UserError for a type that doesn't exist and for a
    /// second module with the same CM ID, which would get no messages.
    void addModule(const Module& option);

    /// Messages in the file that have no place in its time, which in a measurement is no loss.
    std::uint64_t countOutside() const;
    /// What the user must know of the modules' clocks.
    std::vector<std::string> describeClocks() const;
    /// The whole of the file that the port reads, when all modules are there. `goOn` is called
    /// after each stretch of it; false ends it there.
    void run(StoredFrames& frames, const std::function<bool()>& goOn);
    Summary summarize();
    /// Messages that came out so far.
    std::uint64_t getCount() const { return count; }

  private:
    struct Channel {
        std::size_t module = 0;
        std::shared_ptr<CmpChannel> channel;
        BusType bus = BusType::Can;
        ChannelTraffic traffic;
    };

    /// What a host does periodically: moves what has come in into the summary and the recordings.
    void poll();
    void onSample(std::uint32_t channel, const void* data, std::size_t size, double time) override;
    void addChannels(std::size_t module, const CmpDevice& device);
    double secondsSinceStart() const;
    void updateRates();
    void lookAtClocks();

    const PerformanceCounter& counter;
    const std::int64_t start;
    const Summary::Clock::time_point startUtc;
    const std::int64_t startUtcNanoseconds;
    RecordingQueue& recordings;
    Horizon horizon{50'000'000};  ///< a module collects messages for a frame
    OfflineClocks& clocks;
    DirectOutputs outputs;
    CmpPacketReader reader;
    std::vector<std::shared_ptr<CmpDevice>> modules;
    std::map<std::uint16_t, std::shared_ptr<CmpDevice>> moduleOfCmId;
    std::vector<Channel> channels;  ///< by index of the output
    std::uint64_t count = 0;        ///< messages that came out
    UniqueNames names;              ///< modules of one type have the same one until they get others
    StandingClocks standing;
    std::vector<std::string> standingModules;  ///< texts
    double clocksTime = 0.0;                   ///< when the clocks were looked at
    double markTime = 0.0;  ///< when the rates were worked out, seconds since the start
};

}  // namespace station
