#pragma once

#include <memory>
#include <string>

#include "sync/gnss_sync_manager.h"

/// Clocks that take a module's time for the host's from its first one on, and do nothing else: what
/// is measured with them is the way of the messages.
class PlainClocks final : public Kestrova::Utils::Kcom::Synchronization::GNSSSyncManager {
  public:
    using GNSSClock = Kestrova::Utils::Kcom::Synchronization::GNSSClock;

    std::shared_ptr<GNSSClock> CreateClock() override { return std::make_shared<PlainClock>(); }
    std::shared_ptr<GNSSClock> GetClock(std::uint32_t) override { return CreateClock(); }
    void RemoveClock(std::shared_ptr<GNSSClock>& clock) override { clock.reset(); }
    std::uint32_t GetClockId(const std::shared_ptr<GNSSClock>&) const override {
        return unknownClockId;
    }

  private:
    class PlainClock final : public GNSSClock {
      public:
        using Result = Kestrova::Utils::Kcom::Synchronization::GNSSTimeResult;
        using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;

        void SetTime(const GNSSTime) override {}
        Result GetTime(const GNSSTime deviceTime) override {
            if (!hasOrigin) {
                hasOrigin = true;
                origin = deviceTime;
            }
            return {Status::Valid, deviceTime - origin};
        }
        void SetDeviceName(const std::string&) override {}
        std::string GetDeviceName() const override { return {}; }
        std::string GetDisplayName() const override { return {}; }

      private:
        bool hasOrigin = false;
        GNSSTime origin;
    };
};
