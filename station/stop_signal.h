#pragma once

#include <chrono>

namespace station {

/// The request to stop: Ctrl-C, SIGTERM, a terminal that was closed, or an output whose reader has
/// gone.
///
/// Made once in `main`, before any thread starts: the threads take over its signal mask, so that
/// the signals arrive here and nowhere else. SIGPIPE is ignored from then on.
class StopSignal {
  public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Waits until `moment` or until the request is there; answers whether it is. Once true, always
    /// true.
    bool waitUntil(std::chrono::steady_clock::time_point moment);
    bool isRequested() { return waitUntil(std::chrono::steady_clock::time_point::min()); }
    /// Whether an output's reader has gone, so that nothing more can be said there.
    bool isPipeBroken() const { return pipeBroken; }

  private:
    int descriptor = -1;
    bool requested = false;
    bool pipeBroken = false;
};

}  // namespace station
