#include "core/thread_ex.h"

#include <gtest/gtest.h>

#include <functional>
#include <system_error>

namespace {

using Kestrova::Utils::Threading::ThreadEx;

/// Runs a function given by the test, and then waits to be stopped.
class TestThread : public ThreadEx {
  public:
    explicit TestThread(std::function<void(TestThread&)> bodyOfThread)
        : body(std::move(bodyOfThread)) {}
    ~TestThread() override { Stop(); }

    void Run() override {
        body(*this);
        while (!IsStopRequested()) {
            std::this_thread::yield();
        }
    }

  private:
    const std::function<void(TestThread&)> body;
};

TEST(ThreadEx, RunsAgainAfterAStop) {
    int runs = 0;
    TestThread thread([&](TestThread&) { ++runs; });
    for (int i = 1; i <= 3; ++i) {
        thread.Start();
        EXPECT_TRUE(thread.IsStarted());
        thread.Stop();
        EXPECT_FALSE(thread.IsStarted());
        EXPECT_TRUE(thread.IsFinished());
        EXPECT_EQ(runs, i);
    }
}

TEST(ThreadEx, StopFromWithinRunThrowsInsteadOfWaitingForItself) {
    std::error_code code;
    TestThread thread([&](TestThread& self) {
        EXPECT_TRUE(self.IsStarted());
        EXPECT_EQ(self.GetThreadId(), std::this_thread::get_id());
        try {
            self.Stop();
        } catch (const std::system_error& error) {
            code = error.code();
        }
    });
    thread.Start();
    thread.Join();
    EXPECT_EQ(code, std::errc::resource_deadlock_would_occur);
}

}  // namespace
