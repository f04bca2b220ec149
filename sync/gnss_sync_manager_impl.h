#pragma once

#include <cstdint>
#include <memory>

#include "core/performance_counter.h"
#include "core/vector_with_keys.h"
#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_clock.h"
#include "host/host_data.h"
#include "setup/node.h"
#include "sync/gnss_clock_switchable.h"
#include "sync/gnss_sync_manager.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// Owns the clocks, names them for the host, picks the one that leads, and drives them all at every
/// periodic data call with a window of three host times: the first that may still be written, the
/// position that the acquisition has reached, and the last that may be held back.
///
/// The window lets data be up to ten seconds late, but no later than what the host still holds, and
/// always keeps the position of the call before writable, so that an item stamped between two calls
/// isn't lost.
///
/// There are two states: idle, until the leading clock has a time and the host's clock runs, and
/// running, from there to the next restart. There is no stop. Between restarts the clocks stay as
/// they are, and a clock that is made in a run starts with the next one.
///
/// Everything runs on the host's thread. Failed host calls and missing objects raise
/// `HostCallException`; what was done before stays done.
class GNSSSyncManagerImpl final : public GNSSSyncManager {
  public:
    /// What `GetMasterSampleCount` gives in both halves without a clock that leads, and takes in
    /// `low` for a reduced count.
    static constexpr std::uint32_t noSampleCount = 0xFFFFFFFFU;

    /// The counter isn't owned.
    explicit GNSSSyncManagerImpl(const PerformanceCounter& performanceCounter)
        : counter(performanceCounter) {}

    std::shared_ptr<GNSSClock> CreateClock() override;
    std::shared_ptr<GNSSClock> GetClock(std::uint32_t id) override;
    /// A clock that led leaves none in its place.
    void RemoveClock(std::shared_ptr<GNSSClock>& clock) override;
    std::uint32_t GetClockId(const std::shared_ptr<GNSSClock>& clock) const override;

    /// Replaces the host for what comes after; a clock keeps the one that it was made with.
    void SetHost(HostApp* hostApp) { host = CountedRef<HostApp>(hostApp); }
    /// Whether new clocks notify the host when they come, go or change their names.
    void SetNotifyHost(bool notify) { notifyHost = notify; }

    /// Replaces all clocks by the stored ones and picks the one that leads. A clock without a
    /// readable id, or with the id of an earlier one, is skipped. One that fails to load raises:
    /// the clocks before it stay, and none leads.
    void Load(const Serialization::Node& node);
    void Save(Serialization::Node& node) const;

    /// One periodic step, before devices and channels: starts the clocks if they can start, and if
    /// they are started moves the window.
    void Tick();
    /// For the start of an acquisition. In setup the clocks release data at once, in a measurement
    /// not before `EnableClocks`.
    void RestartWithAcceptAll();
    /// For the preparation of an acquisition: the host's hold value says whether data is held.
    void RestartWithHold();
    /// Lets all clocks release data.
    void EnableClocks();

    /// Whether a clock leads. That is a matter of the setup, not of a signal.
    bool HasMaster() const { return master != nullptr; }
    /// Whether it is this one.
    bool IsMaster(const std::shared_ptr<GNSSClock>& clock) const {
        return master != nullptr && master == clock;
    }
    /// Its place among the devices of `UpdateDevices`; -1 for a clock of another manager, or null.
    std::int32_t GetClockPosition(const std::shared_ptr<GNSSClock>& clock) const;
    /// Seconds that the host should allow for, the largest of all clocks.
    float GetRequiredDelay() const;
    /// Samples since the start by the leading clock, as the halves of a 64-bit number.
    void GetMasterSampleCount(std::uint32_t& low, std::uint32_t& high) const;
    /// Names the clocks, gives each its place among the host's devices, picks the one that leads
    /// and restarts. Null raises.
    void UpdateDevices(HostGnssDeviceCollection* collection);

  private:
    using Clock = std::shared_ptr<GNSSClockSwitchable>;

    /// Adds a clock under a free id, with what `setup` holds, if it isn't null.
    Clock AddClock(std::uint32_t id, const Serialization::Node* setup);
    void LoadClock(const Serialization::Node& node);
    /// Calls `action` with each clock in list order. An entry whose clock is still being made has
    /// none: the host may call back from there.
    template <typename Action>
    void ForEachClock(Action action) const;
    /// A clock that shares its device name with others gets a number behind it.
    void AssignDisplayNames() const;
    /// The first clock that is in step with a pulse per second and is a source, or none.
    void SelectMaster();

    void Restart();
    bool CanStart() const;
    void StartClocks();
    void MoveWindow();
    /// Seconds of host time that the acquisition has reached.
    double GetAcquisitionPosition() const;
    /// Whether the host has a source of satellite time of its own.
    bool HostHasSource() const;
    CountedRef<HostData> GetHostData() const;

    const PerformanceCounter& counter;
    CountedRef<HostApp> host;
    bool started = false;
    bool accepting = false;
    double historySeconds = 0.0;  ///< how far behind the position the host still takes data
    double windowStart = 0.0;
    double windowCurrent = 0.0;
    double windowLimit = 0.0;
    VectorWithKeys<std::uint32_t, Clock> clocks;
    Clock master;
    bool notifyHost = false;
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
