#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "core/mutex.h"
#include "core/performance_counter.h"
#include "host/counted_ref.h"
#include "host/host_app.h"
#include "sync/gnss_clock.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// What the three relations of device time to host time have in common: the latest time of the
/// device, and the gate and the window that decide what becomes of an item. The derived classes say
/// how a device time becomes a host time, and when `origin` moves.
///
/// Before the first `SetTime` an item is discarded. Then it waits, until the clock is started, the
/// manager accepts and the host has begun to count; so nothing is lost across the start of a
/// measurement. From there on the window decides.
///
/// Only `SetTime` is called on the capture thread too. What it writes is guarded by `timeLock`, but
/// for `hasTime`, which is atomic so that `GetTime`, called for every item, takes no lock. All the
/// rest belongs to the host's thread. No lock is held across a host call.
class GNSSClockBase : public GNSSClock {
  public:
    struct Reading {
        double elapsed;  ///< seconds of device time since `origin`
        GNSSTime time;   ///< device time
    };

    /// The counter isn't owned.
    GNSSClockBase(CountedRef<HostApp> hostApp, const PerformanceCounter& performanceCounter);

    void SetTime(const GNSSTime deviceTime) override CMP_EXCLUDES(timeLock);
    // A strategy has no name of its own.
    void SetDeviceName(const std::string&) override {}
    std::string GetDeviceName() const override { return {}; }
    std::string GetDisplayName() const override { return {}; }
    /// Seconds of device time since `origin`, now, for a clock that can lead; 0.0 for the others.
    virtual double GetElapsedTime() const { return 0.0; }

    /// Starts the relation. `hostHasSource`: the host has a source of satellite time of its own.
    /// Where the host is in setup, the window will not limit anything. Raises the host's failures.
    void Start(bool hostHasSource);
    /// Stops the clock and forgets that it has a time; `origin`, the window and `SetAccepting`
    /// stay.
    void Reset() CMP_EXCLUDES(timeLock);
    /// Takes the earliest host time that may be written, the host time reached, and the latest that
    /// may be held back, in seconds, and lets the relation follow. Raises the host's failures.
    void SetWindow(double start, double current, double limit);
    /// Whether items may be released at all.
    void SetAccepting(bool accept) { accepting = accept; }
    /// Whether a device time arrived since the last `Reset`.
    bool HasTime() const { return hasTime; }
    /// The first device time since the last `Reset`.
    GNSSTime GetFirstTime() const CMP_EXCLUDES(timeLock);
    /// The device's time, extrapolated on the performance counter since it was set.
    Reading Now() const CMP_EXCLUDES(timeLock);

  protected:
    virtual void OnStart(bool hostHasSource) = 0;
    virtual void OnWindowChanged() = 0;
    virtual void OnReset() = 0;

    /// What becomes of an item at this host time, in seconds.
    GNSSTimeResult Classify(double hostTime) const {
        using Status = GNSSTimeStatus;
        using Reason = GNSSTimeReason;
        if (!hasTime) {
            return {Status::Discard, 0.0, Reason::NotPlaced};
        }
        const bool counting = std::abs(windowCurrent) > std::numeric_limits<double>::epsilon();
        if (!started || !accepting || !counting) {
            return {Status::Wait, hostTime, Reason::NotBegun};
        }
        if (acceptAll && hostTime >= 0.0) {
            return {Status::Valid, hostTime, Reason::None};
        }
        if (hostTime >= windowStart && hostTime <= windowCurrent) {
            return {Status::Valid, hostTime, Reason::None};
        }
        if (hostTime > windowCurrent && hostTime <= windowLimit) {
            return {Status::Wait, hostTime,
                    hostTime <= windowCurrent + longestTail ? Reason::AheadOfPosition
                                                            : Reason::FarAhead};
        }
        return {Status::Discard, 0.0, DiscardReason(hostTime)};
    }
    /// Host time that the acquisition has reached, in seconds.
    double GetPosition() const { return windowCurrent; }
    /// The part of the state that doesn't depend on the relation.
    GNSSClockState BasicState(GNSSClockMode mode) const;

    const CountedRef<HostApp> host;
    GNSSTime origin;  ///< the device time that counts as zero

  private:
    GNSSTimeReason DiscardReason(double hostTime) const {
        // What came in before the last time that the window moved was asked about then.
        if (hostTime < 0.0) {
            const double before = windowBefore.value_or(0.0);
            return before > 0.0 && before - hostTime > dataDelay ? GNSSTimeReason::TooOld
                                                                 : GNSSTimeReason::BeforeStart;
        }
        // A time that is no number is in no window and can't be placed.
        return hostTime < windowStart   ? GNSSTimeReason::TooOld
               : hostTime > windowLimit ? GNSSTimeReason::TooNew
                                        : GNSSTimeReason::NotPlaced;
    }

    const PerformanceCounter& counter;

    // The host's thread only.
    bool started = false;
    bool accepting = false;
    bool acceptAll = false;  ///< the host was in setup at `Start`
    double windowStart = 0.0;
    double windowCurrent = 0.0;
    /// `windowCurrent` until it moved, 0.0 when it first did; none: it hasn't since `Reset`.
    std::optional<double> windowBefore;
    double windowLimit = 0.0;

    mutable SharedMutex timeLock;
    std::atomic<bool> hasTime = false;  ///< written under `timeLock`, read without
    std::int64_t lastTimeStampNs CMP_GUARDED_BY(timeLock) = 0;  ///< counter at the last `SetTime`
    GNSSTime lastTime CMP_GUARDED_BY(timeLock);
    GNSSTime firstTime CMP_GUARDED_BY(timeLock);
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
