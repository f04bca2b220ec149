#pragma once

#include <cstdint>
#include <memory>

#include "sync/gnss_clock.h"

namespace Kestrova::Utils::Kcom::Synchronization {

/// Hands out the clocks of the devices and keeps their ids. Called on the host's thread.
class GNSSSyncManager {
  public:
    /// What `GetClockId` answers for a clock that isn't in the list.
    static constexpr std::uint32_t unknownClockId = 0xFFFFFFFFU;

    GNSSSyncManager() = default;
    GNSSSyncManager(const GNSSSyncManager&) = delete;
    GNSSSyncManager& operator=(const GNSSSyncManager&) = delete;
    virtual ~GNSSSyncManager() = default;

    /// A new clock under the lowest free id.
    virtual std::shared_ptr<GNSSClock> CreateClock() = 0;
    /// The clock of that id, or a new one, whose id need not be `id`: ask `GetClockId`.
    virtual std::shared_ptr<GNSSClock> GetClock(std::uint32_t id) = 0;
    /// Forgets the clock and empties the reference; an unknown clock is left as it is.
    virtual void RemoveClock(std::shared_ptr<GNSSClock>& clock) = 0;
    virtual std::uint32_t GetClockId(const std::shared_ptr<GNSSClock>& clock) const = 0;
};

}  // namespace Kestrova::Utils::Kcom::Synchronization
