#pragma once

#include "sync/gnss_clock_base.h"
#include "sync/soft_sync_algorithm.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// The clock of a device that isn't tied to the host's sampling: a line is fitted through readings
/// of the two clocks, one at every change of the window.
///
/// Where the line and the device disagree by more than `largestError`, the device's time has jumped
/// or was not placed yet, and the fit begins again at a new origin with the rate that it knew. That
/// is the only recovery; a smaller jump goes through the fit. The rate outlasts a `Reset`.
class GNSSClockSoftSync final : public GNSSClockBase {
  public:
    using GNSSClockBase::GNSSClockBase;

    GNSSTimeResult GetTime(const GNSSTime deviceTime) override {
        GNSSTimeResult result = Classify(algorithm.SlaveToMaster(deviceTime - origin));
        if (result.status == GNSSTimeStatus::Discard && !algorithm.IsPlaced()) {
            result.reason = GNSSTimeReason::NotPlaced;
        }
        return result;
    }
    GNSSClockState GetState() const override;

  private:
    static constexpr double largestError = 1.0;  ///< seconds of device time

    void OnStart(bool hostHasSource) override;
    void OnWindowChanged() override;
    void OnReset() override { algorithm.CommitRate(); }

    /// Reads both clocks, the device's first, and extends the fit.
    void TakeReading();

    Utils::Synchronization::SoftSyncAlgorithm algorithm;
    bool hasFollowed = false;  ///< whether the latest reading was one of a module that was heard
    std::uint64_t jumps = 0;   ///< since the start
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
