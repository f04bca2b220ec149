#pragma once

#include "sync/gnss_clock_base.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// The clocks of devices that a pulse per second keeps in step with the host's sampling: a device
/// second is a host second by definition, and only the device time of the host's zero is unknown.
class GNSSClockGPSPPS : public GNSSClockBase {
  public:
    using GNSSClockBase::GNSSClockBase;

    GNSSTimeResult GetTime(const GNSSTime deviceTime) override {
        return Classify(deviceTime - origin);
    }

  protected:
    void OnReset() override {}
};

/// The clock that leads: at its start it fixes the device time of the host's zero, on a whole
/// second, and gives it to the host as the start of the measurement.
class GNSSClockGPSPPSMaster final : public GNSSClockGPSPPS {
  public:
    using GNSSClockGPSPPS::GNSSClockGPSPPS;

    double GetElapsedTime() const override { return Now().elapsed; }
    GNSSClockState GetState() const override { return BasicState(GNSSClockMode::PPSMaster); }

  private:
    void OnStart(bool hostHasSource) override;
    void OnWindowChanged() override {}

    /// The device time of the host's zero, to be rounded to the nearest second: a host with a
    /// source of its own counts from a pulse already.
    GNSSTime DeviceTimeOfHostZero() const;
};

/// Takes its origin from the start time that the host holds, again at every change of the window:
/// so it follows as soon as the clock that leads has set it.
class GNSSClockGPSPPSSlave final : public GNSSClockGPSPPS {
  public:
    using GNSSClockGPSPPS::GNSSClockGPSPPS;

    GNSSClockState GetState() const override { return BasicState(GNSSClockMode::PPSSlave); }

  private:
    void OnStart(bool) override {}
    void OnWindowChanged() override;
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
