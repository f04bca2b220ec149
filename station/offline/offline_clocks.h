#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sync/gnss_sync_manager.h"

namespace station {

/// The clocks of the modules in stored frames: by them a module's time becomes a host time. Used on
/// one thread.
class OfflineClocks {
  public:
    using GNSSClock = Kestrova::Utils::Kcom::Synchronization::GNSSClock;
    using GNSSSyncManager = Kestrova::Utils::Kcom::Synchronization::GNSSSyncManager;

    OfflineClocks() = default;
    OfflineClocks(const OfflineClocks&) = delete;
    OfflineClocks& operator=(const OfflineClocks&) = delete;
    virtual ~OfflineClocks() = default;

    /// Where the modules get them.
    virtual GNSSSyncManager& getManager() = 0;
    /// One that a module has got, and that has its name.
    virtual void addClock(const std::shared_ptr<GNSSClock>&) {}
    /// When the modules have them, before the first frame is read.
    virtual void begin() {}
    /// After each stretch of frames, between the taking over of its messages and their flush.
    virtual void tick() {}
    /// For how long after the last frame, in nanoseconds, they have to be asked.
    virtual std::int64_t getTail() const { return 0; }
    /// What the user must know: a text for each clock that jumped or had wrong times.
    virtual std::vector<std::string> describeJumps() const = 0;
};

}  // namespace station
