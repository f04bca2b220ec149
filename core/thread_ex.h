#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Kestrova::Utils::Threading {

/// A thread as a base class, with a stop that the body looks for: nothing interrupts `Run`, which
/// must ask `IsStopRequested` at short intervals.
///
/// One controlling thread calls `Start`, `Stop`, `Join` and `SetPriority`; `RequestStop`,
/// `IsStopRequested` and `IsFinished` may be called from anywhere, the rest from the controlling
/// thread and from within `Run`. The started thread enters `Run` only when the object describes it
/// completely, so `Run` sees `IsStarted` as true and `GetThreadId` as its own.
///
/// The destructor of the class that supplies `Run` must call `Stop`: here it would be too late, as
/// `Run` is already gone, and destroying an object whose thread is still joinable ends the process.
///
/// An exception that leaves `Run` ends the process, as with `std::thread`, while the stack that
/// threw it is still there for a debugger. Catching it here would leave a measurement running
/// without its thread. However else the body ends, `IsFinished` then reads true.
class ThreadEx {
  public:
    ThreadEx() = default;
    virtual ~ThreadEx() = default;
    ThreadEx(const ThreadEx&) = delete;
    ThreadEx& operator=(const ThreadEx&) = delete;

    /// Returns when the new thread has begun. Throws `std::runtime_error` "Thread is already
    /// started." between a `Start` and its `Stop` or `Join`, and `std::system_error` if the system
    /// gives no thread.
    virtual void Start();

    /// Asks the thread to end and waits for it; after that `Start` can be called again. Without a
    /// thread it only asks, and the next `Start` forgets it. From within `Run` it throws
    /// `std::system_error` `resource_deadlock_would_occur`, and the thread goes on (asked to end).
    virtual void Stop();

    /// The body, on the new thread.
    virtual void Run() = 0;

    void RequestStop();
    /// Waits for the end without asking for it; throws as `Stop` does.
    void Join();

    bool IsStarted() const { return thread != nullptr; }
    bool IsStopRequested() const { return stopRequested; }
    /// True once the body has ended; false again after the next `Start`.
    bool IsFinished() const { return finished; }
    /// The id of no thread while not started.
    std::thread::id GetThreadId() const;

    /// `index` 0 (only when the machine is idle) to 6 (most urgent); 3 is what the system gave the
    /// thread when it was made. Takes effect at once on a started thread and at the next `Start`
    /// otherwise. A request only: raising the priority needs a privilege, and a refusal is passed
    /// over. Throws `std::out_of_range` for an index above 6.
    void SetPriority(std::uint32_t index);

    void SetUserData(std::uint64_t value) { userData = value; }
    std::uint64_t GetUserData() const { return userData; }

    /// Names the calling thread for debuggers and `top`; to be called from within `Run`. Linux
    /// keeps the first 15 bytes.
    static void SetThreadName(const std::string& name);

    /// For the derived class, which decides what it guards; never taken here.
    std::recursive_mutex& GetMutex() { return mutex; }

  private:
    void applyPriority() const;

    std::recursive_mutex mutex;
    std::atomic<bool> stopRequested = false;
    std::atomic<bool> finished = false;
    std::uint64_t userData = 0;
    std::unique_ptr<std::thread> thread;  ///< set from `Start` to `Stop`
    pid_t systemThreadId = 0;             ///< of `thread`, for the system's priority call
    int niceAtStart = 0;                  ///< of `thread`; that of who started it
    std::uint32_t priority = 3;
};

}  // namespace Kestrova::Utils::Threading
