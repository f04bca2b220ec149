#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "simulator/clocks.h"
#include "simulator/frame_sinks.h"
#include "simulator/malformed_frames.h"
#include "simulator/simulated_module.h"

namespace sim {

/// What the sink took.
struct Totals {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t dataMessages = 0;
    std::uint64_t badFrames = 0;
    std::uint64_t statusFrames = 0;
    std::int64_t maxLateNs = 0;  ///< longest time that a frame left after it was due; 0 unpaced
};

/// Sends what all modules have to say, in the order in which it is due, into one sink.
///
/// Runs on the caller's thread. Frames are due on an absolute schedule, so a late one doesn't delay
/// the next. They go out in batches: all that is due by now, and at high rates the sender sleeps a
/// little longer than to the next frame, so that a wake-up pays for many. Buffers are made once.
///
/// With stamps of the sending, a receiver must be able to separate its own error from the delay of
/// this sender. So data frames then go out one by one, and are stamped immediately before the sink
/// is asked, each time that it is.
///
/// Nothing is counted before the sink took it, so `totals` is exact whenever the sending ends.
class Simulation {
  public:
    /// Throws `Failure` when a frame of the settings is too long for the sink. All references stay
    /// with the caller and outlive the simulation.
    Simulation(const std::vector<ModuleSettings>& moduleSettings,
               const TrafficSettings& trafficSettings, HostClock& hostClock, FrameSink& frameSink);

    /// Sends until a limit is reached or `stop` is set; status frames come first and last. Throws
    /// `Failure` from the sink, `totals` staying right. `onBatch` is called after each batch.
    void run(const std::atomic<bool>& stop, const std::function<void()>& onBatch);

    const Totals& getTotals() const { return sum; }
    const std::vector<SimulatedModule>& getModules() const { return all; }

  private:
    bool isLimitReached() const { return messagesLeft == 0; }
    SimulatedModule& firstDue(std::int64_t (SimulatedModule::*due)() const);
    std::int64_t nextDue();
    void fillBatch();
    void addData(std::int64_t nowNs);
    void addStatus(SimulatedModule& module, std::int64_t atNs);
    void addMalformed();
    void add(std::size_t length, OutFrame frame);
    std::span<std::uint8_t> nextBuffer();
    void flush(const std::atomic<bool>& stop);
    void count(std::span<const OutFrame> taken);
    void waitUntil(std::int64_t elapsedNs, const std::atomic<bool>& stop);
    std::size_t indexOf(const SimulatedModule& module) const {
        return static_cast<std::size_t>(&module - all.data());
    }

    const TrafficSettings traffic;
    const bool paced;
    const bool stampsSending;
    HostClock& clock;
    FrameSink& sink;

    std::vector<SimulatedModule> all;
    MalformedFrames malformed;
    std::size_t frameRoom = 0;
    std::vector<std::uint8_t> buffers;  ///< `frameRoom` bytes for each frame of a batch
    std::vector<OutFrame> batch;

    std::uint64_t messagesLeft;
    double malformedOwed = 0;  ///< malformed frames to send to keep their share
    std::uint64_t malformedMade = 0;
    std::int64_t lastDue = 0;  ///< of the frame encoded last
    Totals sum;
};

}  // namespace sim
