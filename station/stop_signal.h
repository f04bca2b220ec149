#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace station {

/// The request to stop: Ctrl-C, SIGTERM, or a terminal that was closed.
///
/// A program that doesn't look for the request waits for something: a reader, a pipe, a disk. It is
/// ended then, 0.4 s after it last looked; after a second request every program is, at once. The
/// exit code is that of a failure. The same signal within a twentieth of a second is
/// the same request: some programs signal their child and then its group.
///
/// Made once in `main`, before any thread starts: the threads take over its signal mask, so that
/// the signals arrive here and nowhere else. SIGPIPE is ignored from then on.
class StopSignal {
  public:
    static constexpr auto usualPatience = std::chrono::milliseconds(400);

    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// From now on the signals have their usual effect on this thread, as before and as after the
    /// end of this object: what is still done then, or a program that takes the place of this one,
    /// is ended by the first. Once more is nothing.
    void letGo();

    /// Waits until `moment` or until the request is there; answers whether it is. Once true, always
    /// true.
    bool waitUntil(std::chrono::steady_clock::time_point moment);
    bool isRequested() { return waitUntil(std::chrono::steady_clock::time_point::min()); }
    /// From now on SIGHUP asks for no stop; `takeHangup` says whether one came since the last
    /// call.
    void keepHangups() { keepsHangups = true; }
    bool takeHangup() { return hadHangup.exchange(false); }
    /// From now on the program waits for nobody but the system: only a second request ends it.
    void beginCleanUp() { patience = forever; }
    /// From now on the program looks for a second request too, and only a third one ends it.
    void keepSecond() { keepsSecond = true; }
    bool isRequestedTwice() const { return hadSecond; }
    /// For a program that may do more between two looks than most.
    void setPatience(std::chrono::milliseconds time) { patience = static_cast<int>(time.count()); }
    /// Written there before the program is ended, to restore a terminal. A literal, or null.
    void setFarewell(const char* text, int descriptor) {
        farewellDescriptor = descriptor;
        farewell = text;
    }

  private:
    static constexpr int forever = -1;
    static constexpr auto samePeriod = std::chrono::milliseconds(50);

    void watch();
    void noteLook() { lastLook = std::chrono::steady_clock::now().time_since_epoch(); }
    int patienceLeft() const;
    int waitForSignal(int milliseconds);
    [[noreturn]] void endProgram();

    sigset_t maskBefore{};
    int signals = -1;
    int request = -1;  ///< readable once the request is there
    int destroyed = -1;
    std::atomic<int> patience{usualPatience.count()};  ///< milliseconds
    std::atomic<bool> keepsHangups{false};
    std::atomic<bool> hadHangup{false};
    std::atomic<bool> keepsSecond{false};
    std::atomic<bool> hadSecond{false};
    std::atomic<std::chrono::steady_clock::duration> lastLook{};  ///< when it saw the request
    std::atomic<const char*> farewell{nullptr};
    std::atomic<int> farewellDescriptor{-1};
    std::thread watcher;
};

}  // namespace station
