#pragma once

#include <netinet/in.h>

#include <chrono>
#include <string>
#include <vector>

#include "core/descriptor.h"

namespace station {

/// Announces to the networks of an address where which buses are served: every two seconds, by a
/// datagram to port 42000 of all in each of them. Nothing waits for it, and what can't be
/// sent isn't.
class BusBeacon {
  public:
    using Clock = std::chrono::steady_clock;

    /// Throws `UserError` if there is no socket for it.
    BusBeacon(const sockaddr_in& servedAddress, const std::vector<std::string>& busNames);

    /// Sends if it is time to. Returns when it is time again.
    Clock::time_point sendIfDue(Clock::time_point now);

  private:
    void send();

    const sockaddr_in served;
    std::string buses;
    Descriptor socket;
    Clock::time_point next;
};

}  // namespace station
