#pragma once

#include <cstdint>

#include "core/performance_counter.h"
#include "host/host_clock.h"
#include "station/host/counted.h"

namespace station {

/// The time of the acquisition, and the acquisition position, which is that time as a number of
/// samples.
///
/// The time runs with the counter. The position moves only when the owner says so, before a
/// periodic call: within the call every look at it gives the same, also where it takes two
/// operations (buffer state and wrap count). A position that isn't moved any more marks the end of
/// the measurement, while the time goes on for the clocks that follow it.
///
/// A plug-in works the position out in 32 bits. So no position goes beyond `lastPosition`, and the
/// owner begins a new part of the measurement as soon as `needsNewPart` says so.
///
/// Called on the host's thread. The counter isn't owned and outlives the clock.
class MasterClock final : public Counted<HostMasterClock> {
  public:
    static constexpr std::int64_t lastPosition = 2147483647;
    static constexpr double defaultSampleRate = 1000.0;
    static constexpr double highestSampleRate = 1e6;
    static constexpr std::int32_t bufferSize = 65536;  ///< samples until the position wraps

    /// Throws `std::invalid_argument` for a rate that isn't above 0 and up to `highestSampleRate`.
    explicit MasterClock(const PerformanceCounter& performanceCounter,
                         double samplesPerSecond = defaultSampleRate);

    /// A measurement begins: its time is `second` now, its position 0.
    void start(double second = 0.0);
    /// The next part begins: time 0 is that second of the part that ends. The position is 0 until
    /// it is moved.
    void startNextPart(double second);
    /// The measurement has ended: time and position stay where they are.
    void stop();
    /// Back to 0, to be done before the next measurement is prepared.
    void reset();

    /// Since the start of the part; 0.0 before.
    double getSeconds() const;
    double getSampleRate() const { return rate; }

    /// To where the time is now. Never back.
    void movePosition();
    std::int64_t getPosition() const { return position; }
    double getPositionSeconds() const { return static_cast<double>(position) / rate; }
    std::int32_t getPositionInBuffer() const;
    std::int32_t getWrapCount() const;
    /// Some minutes, and at very high rates a fifth of the way, before `lastPosition`.
    bool needsNewPart() const;

    HostResult getTimeSeconds(double* seconds) override;

  private:
    const PerformanceCounter& counter;
    const double rate;
    bool running = false;
    std::int64_t startNanoseconds = 0;  ///< on the counter
    double stoppedAt = 0.0;             ///< seconds, while it isn't running
    std::int64_t position = 0;
};

}  // namespace station
