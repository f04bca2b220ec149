#include "core/thread_ex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <stdexcept>
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

TEST(ThreadEx, SecondStartLeavesTheRunningThreadAlone) {
    TestThread thread([](TestThread&) {});
    thread.Start();
    const auto id = thread.GetThreadId();
    EXPECT_THAT([&] { thread.Start(); },
                ::testing::ThrowsMessage<std::runtime_error>("Thread is already started."));
    EXPECT_EQ(thread.GetThreadId(), id);
    EXPECT_FALSE(thread.IsStopRequested() || thread.IsFinished());
}

TEST(ThreadEx, StopWithoutAThreadIsForgottenByTheNextStart) {
    TestThread thread([](TestThread&) {});
    thread.Stop();
    EXPECT_TRUE(thread.IsStopRequested());
    thread.Start();
    EXPECT_FALSE(thread.IsStopRequested());
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

TEST(ThreadEx, ThreadThatExitsInTheMiddleOfRunReadsFinished) {
    TestThread thread([](TestThread&) { pthread_exit(nullptr); });
    thread.Start();
    thread.Join();
    EXPECT_TRUE(thread.IsFinished());
}

TEST(ThreadEx, LongNamesAreCutAndPriorityIsOnlyAWish) {
    std::string name(32, '\0');
    TestThread thread([&](TestThread&) {
        ThreadEx::SetThreadName("capture of the second module");
        pthread_getname_np(pthread_self(), name.data(), name.size());
    });
    thread.SetPriority(6);
    thread.Start();
    EXPECT_NO_THROW(thread.SetPriority(0));
    EXPECT_THROW(thread.SetPriority(7), std::out_of_range);
    thread.Stop();
    EXPECT_STREQ(name.c_str(), "capture of the ");
}

}  // namespace
