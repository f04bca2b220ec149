#include "core/thread_ex.h"

#include <sys/resource.h>
#include <unistd.h>

#include <system_error>

#include "tests/support/temporary_folder.h"

namespace {

/// Runs until it is asked to end, and then says how urgent it was.
class Waiter : public Kestrova::Utils::Threading::ThreadEx {
  public:
    ~Waiter() override { Stop(); }

    void Run() override {
        EXPECT_TRUE(IsStarted() && !IsFinished());
        EXPECT_EQ(GetThreadId(), std::this_thread::get_id());
        while (!IsStopRequested()) {
            std::this_thread::yield();
        }
        try {
            Stop();  // instead of waiting for itself
            ADD_FAILURE();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
        }
        niceValue = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        SetThreadName("a name of more than 15 bytes");
        EXPECT_EQ(contentOf("/proc/thread-self/comm"), "a name of more \n");
    }

    std::atomic<int> niceValue = 0;
};

TEST(ThreadEx, CanBeStartedAgainAndEachTimeTakesItsPriority) {
    const int usual = getpriority(PRIO_PROCESS, 0);
    Waiter thread;
    thread.Stop();
    EXPECT_TRUE(thread.IsStopRequested()) << "until the start";
    thread.Start();
    thread.RequestStop();
    thread.Join();
    EXPECT_EQ(thread.niceValue, usual) << "as nobody asked for another";
    std::uint32_t index = 0;
    for (const int niceValue : {19, 10, 5, usual, -5, -10, -20}) {
        for (const bool isRunning : {false, true}) {
            EXPECT_FALSE(thread.IsStarted());
            EXPECT_EQ(thread.GetThreadId(), std::thread::id());
            thread.SetPriority(isRunning ? 6 : index);
            thread.Start();
            EXPECT_TRUE(thread.IsStarted() && !thread.IsStopRequested() && !thread.IsFinished());
            EXPECT_THAT([&] { thread.Start(); },
                        testing::ThrowsMessage<std::runtime_error>("Thread is already started."));
            isRunning ? thread.SetPriority(index) : void();
            thread.RequestStop();
            thread.Join();
            EXPECT_TRUE(thread.IsFinished());
            const bool isRefused = niceValue < usual && thread.niceValue == usual;
            EXPECT_TRUE(isRefused || thread.niceValue == niceValue) << thread.niceValue;
        }
        ++index;
    }
    EXPECT_THROW(thread.SetPriority(index), std::out_of_range);
}

}  // namespace
