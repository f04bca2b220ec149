#include "core/thread_ex.h"

#include <gtest/gtest.h>

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

}  // namespace
