#include "core/thread_ex.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <latch>
#include <stdexcept>
#include <system_error>

namespace Kestrova::Utils::Threading {
namespace {

/// Stands for the nice value that the thread was made with, which the user may have chosen for the
/// whole program.
constexpr std::uint32_t normalPriority = 3;
/// Nice values by priority index. The steps next to normal are the ones that matter on a busy
/// machine; the outer two are the ends of what the system knows.
constexpr std::array<int, 7> niceValues = {19, 10, 5, 0, -5, -10, -20};

/// Sets a flag at the end of a scope, also when the thread exits in the middle of it.
class FlagAtEnd {
  public:
    explicit FlagAtEnd(std::atomic<bool>& flagToSet) : flag(flagToSet) {}
    ~FlagAtEnd() { flag.exchange(true); }
    FlagAtEnd(const FlagAtEnd&) = delete;
    FlagAtEnd& operator=(const FlagAtEnd&) = delete;

  private:
    std::atomic<bool>& flag;
};

}  // namespace

void ThreadEx::Start() {
    if (thread) {
        throw std::runtime_error("Thread is already started.");
    }
    finished.exchange(false);
    stopRequested.exchange(false);

    // Both sides wait for the other: this one for the new thread to have begun, the new one for
    // `thread` to be set. Shared, as either may be the last to leave the latch.
    const auto handover = std::make_shared<std::latch>(2);
    thread = std::make_unique<std::thread>([this, handover] {
        systemThreadId = gettid();
        niceAtStart = getpriority(PRIO_PROCESS, 0);
        handover->arrive_and_wait();
        const FlagAtEnd finishedAtEnd(finished);
        Run();
    });
    handover->arrive_and_wait();
    applyPriority();
}

void ThreadEx::Stop() {
    RequestStop();
    Join();
}

void ThreadEx::RequestStop() {
    stopRequested.exchange(true);
}

void ThreadEx::Join() {
    if (!thread) {
        return;
    }
    if (thread->get_id() == std::this_thread::get_id()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    try {
        thread->join();
    } catch (const std::system_error&) {
        throw std::system_error(std::make_error_code(std::errc::no_such_process));
    }
    thread.reset();
}

std::thread::id ThreadEx::GetThreadId() const {
    return thread ? thread->get_id() : std::thread::id();
}

void ThreadEx::SetPriority(std::uint32_t index) {
    if (index >= niceValues.size()) {
        throw std::out_of_range("Thread priority index must be 0 to 6.");
    }
    priority = index;
    if (thread) {
        applyPriority();
    }
}

void ThreadEx::applyPriority() const {
    if (!finished) {
        // On Linux the nice value belongs to the thread, whatever the name of the constant says.
        setpriority(PRIO_PROCESS, static_cast<id_t>(systemThreadId),
                    priority == normalPriority ? niceAtStart : niceValues[priority]);
    }
}

void ThreadEx::SetThreadName(const std::string& name) {
    constexpr std::size_t longestName = 15;
    pthread_setname_np(pthread_self(), name.substr(0, longestName).c_str());
}

}  // namespace Kestrova::Utils::Threading
