#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/performance_counter.h"
#include "station/offline/offline_clocks.h"

namespace station {

/// Host time without a host: the moment at which a module's first message came in, and from there
/// on the module's own time, second by second.
///
/// The first answer is `Wait`: only a device time that is set after it is sure to rest on a
/// message. That one is anchored to the counter. Nothing is ever discarded.
///
/// A time that is more than half a second off what the counter makes of it, and off the time before
/// it, is out of line. (A counter that was set alone leaves all in line.) Its message has the
/// moment at which it came in, and nothing else changes, so that a single wrong stamp affects
/// itself alone. If the next time out of line goes with it, the module's clock has jumped, and is
/// anchored again. As a channel's messages from before the jump may be asked for after another's
/// from behind it, those that fit the line before go by that one. Jumps and wrong stamps are
/// counted.
///
/// Used on one thread, as all clocks of stored frames.
class PassThroughClock final : public Kestrova::Utils::Kcom::Synchronization::GNSSClock {
  public:
    using Result = Kestrova::Utils::Kcom::Synchronization::GNSSTimeResult;

    /// Host time is the counter's nanoseconds minus `startNanoseconds`. The counter isn't owned.
    PassThroughClock(const PerformanceCounter& performanceCounter, std::int64_t startNanoseconds)
        : counter(performanceCounter), start(startNanoseconds) {}

    void SetTime(const GNSSTime deviceTime) override;
    Result GetTime(const GNSSTime deviceTime) override;
    void SetDeviceName(const std::string& name) override { deviceName = name; }
    std::string GetDeviceName() const override { return deviceName; }
    std::string GetDisplayName() const override { return deviceName; }

    std::uint64_t getJumps() const { return jumps; }
    std::uint64_t getWrongStamps() const { return wrongStamps + (suspect ? 1U : 0U); }

  private:
    enum class State { NotAsked, Asked, Set };

    /// The module's time `device` is the host time `host`, and it runs on as the module's does.
    struct Line {
        GNSSTime device;
        double host = 0.0;
        double lead = 0.0;  ///< of the module's time before the counter, lately

        double at(const GNSSTime& deviceTime) const { return host + (deviceTime - device); }
        /// Whether a time that `at` gave is in line, `now` being the counter's.
        bool takes(double position, double now) const;
        void follow(double position, double now) { lead = position - now; }
    };

    double secondsOfCounter() const;

    const PerformanceCounter& counter;
    const std::int64_t start;
    std::string deviceName;
    State state = State::NotAsked;
    Line set;  ///< by the time that was set last
    std::optional<Line> line;
    double latest = 0.0;          ///< host time of the latest in `line`
    std::optional<Line> former;   ///< before the last jump
    std::optional<Line> suspect;  ///< by the last time, if that was out of line
    std::uint64_t jumps = 0;
    std::uint64_t wrongStamps = 0;
};

/// The same, by id.
class PassThroughClocks final : public OfflineClocks,
                                private Kestrova::Utils::Kcom::Synchronization::GNSSSyncManager {
  public:
    PassThroughClocks(const PerformanceCounter& performanceCounter, std::int64_t startNanoseconds)
        : counter(performanceCounter), start(startNanoseconds) {}

    OfflineClocks::GNSSSyncManager& getManager() override { return *this; }
    std::shared_ptr<GNSSClock> CreateClock() override;
    std::shared_ptr<GNSSClock> GetClock(std::uint32_t id) override;
    void RemoveClock(std::shared_ptr<GNSSClock>& clock) override;
    std::uint32_t GetClockId(const std::shared_ptr<GNSSClock>& clock) const override;
    std::vector<std::string> describeJumps() const override;

  private:
    const PerformanceCounter& counter;
    const std::int64_t start;
    std::map<std::uint32_t, std::shared_ptr<PassThroughClock>> clocks;
};

}  // namespace station
