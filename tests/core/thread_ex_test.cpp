#include "core/thread_ex.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <system_error>

namespace {

class SelfStopper : public Kestrova::Utils::Threading::ThreadEx {
  public:
    ~SelfStopper() override { Stop(); }

    void Run() override {
        EXPECT_TRUE(IsStarted());
        EXPECT_EQ(GetThreadId(), std::this_thread::get_id());
        try {
            Stop();
        } catch (const std::system_error& error) {
            code = error.code();
        }
    }

    std::error_code code;
};

TEST(ThreadEx, StopFromWithinRunThrowsInsteadOfWaitingForItself) {
    SelfStopper thread;
    thread.Start();
    thread.Join();
    EXPECT_EQ(thread.code, std::errc::resource_deadlock_would_occur);
}

class Waiter : public Kestrova::Utils::Threading::ThreadEx {
  public:
    ~Waiter() override { Stop(); }
    void Run() override {
        for (id = static_cast<id_t>(gettid()); !IsStopRequested();) {
            std::this_thread::yield();
        }
    }
    std::atomic<id_t> id = 0;
};

TEST(ThreadEx, PriorityOfARunningThreadChangesAndComesBackToNormal) {
    const int normal = getpriority(PRIO_PROCESS, 0);
    const bool mayRaise = setpriority(PRIO_PROCESS, 0, normal - 1) == 0;
    setpriority(PRIO_PROCESS, 0, normal);
    Waiter thread;
    thread.Start();
    while (thread.id == 0) {
        std::this_thread::yield();
    }
    for (const auto& [index, nice] : {std::pair(0U, 19), std::pair(3U, normal)}) {
        thread.SetPriority(index);
        EXPECT_EQ(getpriority(PRIO_PROCESS, thread.id), mayRaise ? nice : 19) << index;
    }
}

}  // namespace
