#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/mutex.h"
#include "core/performance_counter.h"
#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_clock.h"
#include "setup/node.h"
#include "sync/gnss_clock.h"
#include "sync/gnss_clock_base.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// The clock that a capture module holds. To the host it is a GNSS device, in which the user
/// chooses the sync mode and whether the clock leads; to the module it is one `GNSSClock`, whatever
/// the choice. Everything goes on to the strategy that fits the choice, and `Rebuild` replaces the
/// strategy with all its state.
///
/// `SetTime` is called on the capture thread too, all the rest on the host's thread alone. The
/// strategy is owned and used by the host's thread without a lock. `SetTime` reaches it through
/// `timed`, under `activeLock`, and keeps the lock for the length of the strategy's own `SetTime`,
/// a few stores; so a strategy ends on the host's thread and never under the capture thread. A new
/// strategy is built before the lock is taken and the old one destroyed after it: no host call is
/// made under it. Lock order: `activeLock`, then the strategy's `timeLock`.
///
/// Failed host calls raise `HostCallException` and leave the present strategy in place.
class GNSSClockSwitchable final : public GNSSClock {
  public:
    /// Makes the host's device and offers it both modes. `notifyOnChange` as in `SetNotifyHost`.
    /// The counter isn't owned.
    GNSSClockSwitchable(CountedRef<HostApp> hostApp, const PerformanceCounter& performanceCounter,
                        bool notifyOnChange);
    /// Notifies the host, if it is to be notified; a failure of that call is nobody's any more.
    ~GNSSClockSwitchable() override;

    void SetTime(const GNSSTime deviceTime) override CMP_EXCLUDES(activeLock);
    GNSSTimeResult GetTime(const GNSSTime deviceTime) override {
        return active->GetTime(deviceTime);
    }
    void SetDeviceName(const std::string& name) override;
    std::string GetDeviceName() const override { return deviceName; }
    std::string GetDisplayName() const override { return displayName; }
    GNSSClockState GetState() const override { return active->GetState(); }

    // As in `GNSSClockBase`.
    void Start(bool hostHasSource) { active->Start(hostHasSource); }
    void Reset() { active->Reset(); }
    void SetWindow(double start, double current, double limit) {
        active->SetWindow(start, current, limit);
    }
    void SetAccepting(bool accept) { active->SetAccepting(accept); }
    bool HasTime() const { return active->HasTime(); }
    double GetElapsedTime() const { return active->GetElapsedTime(); }

    /// The name under which the user sees the clock.
    void SetDisplayName(const std::string& name) { displayName = name; }
    /// Whether the host is notified (`HostApp::notifyDevicesChanged`) when this clock comes, goes
    /// or changes its name.
    void SetNotifyHost(bool notify) { notifyHost = notify; }
    /// The mode that the host's device has now.
    std::int32_t GetSyncMode() const;
    /// Whether the user chose this clock to lead; of effect with a pulse per second only.
    bool IsClockSource() const;

    /// Gives the host's device the stored mode and source and rebuilds. A mode other than that of
    /// the pulse per second becomes soft sync without a source. Also raises `XmlException`.
    void Load(const Serialization::Node& node);
    void Save(Serialization::Node& node) const;
    /// Puts the host's device in the place that the host keeps for this clock, and rebuilds, as the
    /// host may have changed the device. Null raises.
    void AttachTo(HostGnssDeviceHandle* handle);
    /// Replaces the strategy by a new one that fits the device's mode and source. It has no time
    /// and is neither started nor accepting, so this is not for a running acquisition.
    void Rebuild() CMP_EXCLUDES(activeLock);

  private:
    std::unique_ptr<GNSSClockBase> MakeStrategy() const;

    const CountedRef<HostApp> host;
    const PerformanceCounter& counter;
    CountedRef<HostGnssDevice> device;  ///< constant after construction
    bool notifyHost;
    std::string deviceName = "GNSS-Device";
    std::string displayName;
    std::unique_ptr<GNSSClockBase> active;  ///< never null once constructed
    Mutex activeLock;
    GNSSClockBase* timed CMP_GUARDED_BY(activeLock) = nullptr;  ///< `active`, for `SetTime`
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
