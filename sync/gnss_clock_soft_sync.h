#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

#include "sync/gnss_clock_base.h"
#include "sync/soft_sync_algorithm.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// The clock of a device that isn't tied to the host's sampling: a line is fitted through readings
/// of the two clocks, one at every change of the window.
///
/// Where the line and the device disagree by more than `largestError`, the device's time has jumped
/// or was not placed yet, and the fit begins again at a new origin with the rate that it knew. That
/// is the only recovery; a smaller jump goes through the fit. The rate outlasts a `Reset`.
///
/// Items from before a jump still come when it is found. So for a while the former line is kept,
/// and an item belongs to the line by which it lies nearer to the position of the acquisition.
class GNSSClockSoftSync final : public GNSSClockBase {
  public:
    using GNSSClockBase::GNSSClockBase;

    GNSSTimeResult GetTime(const GNSSTime deviceTime) override {
        double hostTime = algorithm.SlaveToMaster(deviceTime - origin);
        if (former) {
            const double formerly = former->algorithm.SlaveToMaster(deviceTime - former->origin);
            const double position = GetPosition();
            if (std::abs(formerly - position) < std::abs(hostTime - position)) {
                hostTime = formerly;
            }
        }
        GNSSTimeResult result = Classify(hostTime);
        if (result.status == GNSSTimeStatus::Discard && !algorithm.IsPlaced()) {
            result.reason = GNSSTimeReason::NotPlaced;
        }
        return result;
    }
    GNSSClockState GetState() const override;

  private:
    static constexpr double largestError = 1.0;  ///< seconds of device time
    static constexpr double formerKept = 1.0;    ///< seconds of host time

    /// The line before a jump.
    struct Former {
        Utils::Synchronization::SoftSyncAlgorithm algorithm;
        GNSSTime origin;
        double until;  ///< host time
    };

    void OnStart(bool hostHasSource) override;
    void OnWindowChanged() override;
    void OnReset() override { algorithm.CommitRate(); }

    /// Reads both clocks, the device's first, and extends the fit.
    void TakeReading();

    Utils::Synchronization::SoftSyncAlgorithm algorithm;
    std::optional<Former> former;
    bool hasFollowed = false;  ///< whether the latest reading was one of a module that was heard
    std::uint64_t jumps = 0;   ///< since the start
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
