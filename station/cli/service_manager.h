#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "core/descriptor.h"

namespace station {

/// The service manager that started this program, if one did: systemd, or what speaks its
/// notification protocol (datagrams to the socket that NOTIFY_SOCKET names).
///
/// Nothing here waits: a manager that reads nothing must not hold up a measurement. What it has no
/// room for is sent again with the next call. Used on the measuring thread alone.
class ServiceManager {
  public:
    using Clock = std::chrono::steady_clock;

    /// Reads the environment. A socket that can't be reached is reported to the user.
    ServiceManager();

    /// To be called as often as the measuring loop turns: reports that the program has started, and
    /// what it does whenever that is another thing, and feeds the watchdog, if there is one, twice
    /// in its time.
    void notifyAlive(Clock::time_point now, std::string_view status);
    /// That the program is about to end, which may take a while with a slow disk.
    void notifyStopping();

  private:
    bool send(std::string_view text);

    Descriptor socket;                ///< closed if there is no manager
    Clock::duration feedingPeriod{};  ///< zero without a watchdog
    Clock::time_point nextFeeding{};
    std::string statusSent;
};

}  // namespace station
