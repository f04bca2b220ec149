#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/performance_counter.h"
#include "station/host/station_host.h"
#include "station/offline/offline_clocks.h"
#include "sync/gnss_sync_manager_impl.h"

namespace station {

/// The clocks of a live measurement, over stored frames: soft sync fits each module's clock to the
/// times at which its frames were received, and what comes too late for the acquisition is
/// discarded as it would have been there.
class FittedClocks final : public OfflineClocks {
  public:
    /// Host time 0 is `startNanoseconds` on the counter, which isn't owned and counts nanoseconds.
    FittedClocks(const PerformanceCounter& performanceCounter, std::int64_t startNanoseconds);

    GNSSSyncManager& getManager() override { return manager; }
    void addClock(const std::shared_ptr<GNSSClock>& clock) override { clocks.push_back(clock); }
    void begin() override;
    void tick() override;
    /// The position has to pass the last messages, as at the end of a live measurement.
    std::int64_t getTail() const override { return 500'000'000; }
    std::vector<std::string> describeJumps() const override;

  private:
    /// Goes on by a nanosecond at each look: a clock that is read twice in a moment and finds no
    /// difference takes neither reading.
    class MovingCounter final : public PerformanceCounter {
      public:
        explicit MovingCounter(const PerformanceCounter& standingCounter)
            : standing(standingCounter) {}
        std::uint64_t getCount() const override;
        std::uint64_t getFrequency() const override { return standing.getFrequency(); }
        std::int64_t getRealNanoseconds() const override { return standing.getRealNanoseconds(); }

      private:
        const PerformanceCounter& standing;
        mutable std::uint64_t moment = 0;
        mutable std::uint64_t looks = 0;
    };

    MovingCounter counter;
    const std::int64_t start;
    CountedRef<StationHost> host;
    Kestrova::Utils::Kcom::Synchronization::GNSSSyncManagerImpl manager;
    std::vector<std::shared_ptr<GNSSClock>> clocks;
    bool isRunning = false;
};

}  // namespace station
