#pragma once

#include <cstdint>
#include <string>

#include "core/gnss_time.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// What the caller does with the item that a device time belongs to.
enum class GNSSTimeStatus : std::int32_t {
    Discard = 0,  ///< drops it
    Valid = 1,    ///< writes it at `GNSSTimeResult::time`
    Wait = 2,     ///< keeps it queued, stops for now and asks again at the next pass
};

/// Why an item isn't `Valid`.
enum class GNSSTimeReason : std::int32_t {
    None = 0,
    NotPlaced,    ///< `Discard`: the clock has no time yet, or no relation to the host's time
    BeforeStart,  ///< `Discard`: stamped before the start of the measurement, and came in about
                  ///< then
    TooOld,       ///< `Discard`: before the window, or before the start and came in much later
    TooNew,       ///< `Discard`: behind the window
    NotBegun,     ///< `Wait`: the clock isn't started or not accepting, or the host isn't counting
    AheadOfPosition,  ///< `Wait`: stamped after the position that the acquisition has reached
    FarAhead,         ///< the same by more than `GNSSClock::longestTail`
};

struct GNSSTimeResult {
    GNSSTimeResult() = default;
    GNSSTimeResult(GNSSTimeStatus theStatus, double theTime,
                   GNSSTimeReason theReason = GNSSTimeReason::None)
        : status(theStatus), reason(theReason), time(theTime) {}

    GNSSTimeStatus status = GNSSTimeStatus::Discard;
    GNSSTimeReason reason = GNSSTimeReason::None;  // here it makes the record no larger
    double time = 0.0;  ///< host time, seconds since the start of the measurement; 0.0 on `Discard`
};

/// How a clock relates the two times.
enum class GNSSClockMode : std::int32_t { Other = 0, SoftSync, PPSSlave, PPSMaster };

/// What a clock knows at the moment.
struct GNSSClockState {
    GNSSClockMode mode = GNSSClockMode::Other;
    bool hasTime = false;     ///< whether the module was heard since the last restart
    bool isPlaced = false;    ///< whether a device time has a host time
    double elapsed = 0.0;     ///< of a clock that leads: its seconds since host time 0, now
    double offset = 0.0;      ///< device time at host time 0, seconds since 1970
    double ratePpm = 0.0;     ///< by how much the device's clock is faster than the host's
    double residual = 0.0;    ///< host time of the latest reading minus the fitted line, seconds
    std::uint64_t jumps = 0;  ///< how often the fit had to begin again since the start
};

/// Turns the time of one capture module into host time. One clock belongs to one device.
///
/// Called on the host's thread, but for `SetTime`, which the capture thread calls too, once a pass.
class GNSSClock {
  public:
    /// Seconds by which a stamp may be ahead of the position when all is well: what a host takes in
    /// at the end of a measurement, and what its periodic call is late.
    static constexpr double longestTail = 2.0;

    GNSSClock() = default;
    GNSSClock(const GNSSClock&) = delete;
    GNSSClock& operator=(const GNSSClock&) = delete;
    virtual ~GNSSClock() = default;

    /// Takes the latest time of the device, extrapolated to now.
    virtual void SetTime(const GNSSTime deviceTime) = 0;
    /// Says what becomes of an item stamped `deviceTime`. Allocates nothing, raises nothing.
    virtual GNSSTimeResult GetTime(const GNSSTime deviceTime) = 0;
    virtual void SetDeviceName(const std::string& name) = 0;
    virtual std::string GetDeviceName() const = 0;
    virtual std::string GetDisplayName() const = 0;
    /// For display.
    virtual GNSSClockState GetState() const { return {}; }

    /// Seconds of delay that this clock asks the host to allow for.
    float GetDataDelay() const { return dataDelay; }
    /// Takes 0.01 to 10.0 seconds, both included, and ignores anything else.
    void SetDataDelay(float seconds) {
        if (seconds >= 0.01F && seconds <= 10.0F) {
            dataDelay = seconds;
        }
    }

  protected:
    float dataDelay = 0.2F;
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
