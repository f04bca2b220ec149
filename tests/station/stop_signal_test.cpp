#include "station/stop_signal.h"

#include <unistd.h>

namespace station {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ExitedWithCode;

/// The work of a program of its own, which is sent a signal.
using Work = std::function<void(StopSignal&)>;

[[noreturn]] void run(int signal, const Work& work) {
    StopSignal stop;
    stop.setFarewell("restored, ", STDERR_FILENO);
    kill(getpid(), signal);
    work(stop);
    _exit(7);
}

void look(StopSignal& stop) {
    while (!stop.isRequested()) {
    }
}

void say(const char* text) {
    [[maybe_unused]] const ssize_t size = write(STDERR_FILENO, text, std::strlen(text));
}

void waitForEver() {
    for (;;) {
        pause();
    }
}

TEST(StopSignalTest, ProgramThatLooksEndsItselfAndOneThatWaitsIsEnded) {
    const Work looking = [](StopSignal& stop) {
        look(stop);
        const auto end = steady_clock::now() + seconds(1);
        while (steady_clock::now() < end) {  // its work goes on for a while
            stop.waitUntil(end);
        }
    };
    // The thread sanitizer takes a second to exit, in which the watcher still speaks.
    EXPECT_EXIT(run(SIGTERM, looking), ExitedWithCode(7), "");
    const Work waiting = [](StopSignal&) { waitForEver(); };
    EXPECT_EXIT(run(SIGINT, waiting), ExitedWithCode(1), "^restored, ended at once\n$");
    const Work patient = [](StopSignal& stop) {
        stop.setPatience(seconds(2));
        look(stop);
        std::this_thread::sleep_for(seconds(1));
        say("alive, ");
        waitForEver();
    };
    EXPECT_EXIT(run(SIGHUP, patient), ExitedWithCode(1), "^alive, restored, ended at once\n$");
}

TEST(StopSignalTest, SecondRequestEndsAnyProgram) {
    const Work cleaningUp = [](StopSignal& stop) {
        look(stop);
        stop.beginCleanUp();
        std::this_thread::sleep_for(seconds(1));
        say("clean, ");
        kill(getpid(), SIGTERM);
        waitForEver();
    };
    EXPECT_EXIT(run(SIGTERM, cleaningUp), ExitedWithCode(1), "^clean, restored, ended at once\n$");
}

/// Asks twice at once, which is one request; again where the machine was too busy for "at once".
[[noreturn]] void runKeeping() {
    for (int rest = 20;; --rest) {
        StopSignal stop;
        stop.setFarewell("restored, ", STDERR_FILENO);
        stop.keepSecond();
        kill(getpid(), SIGTERM);
        look(stop);
        stop.beginCleanUp();
        kill(getpid(), SIGTERM);  // as some programs do, which signal the group too
        std::this_thread::sleep_for(seconds(1));
        if (stop.isRequestedTwice() && rest > 0) {
            continue;
        }
        say(stop.isRequestedTwice() ? "too early, " : "once, ");
        kill(getpid(), SIGTERM);
        while (!stop.isRequestedTwice()) {
        }
        std::this_thread::sleep_for(seconds(1));
        say("twice, ");
        kill(getpid(), SIGTERM);
        waitForEver();
    }
}

TEST(StopSignalTest, SecondRequestIsReportedWhereItIsKeptAndTheThirdEndsTheProgram) {
    EXPECT_EXIT(runKeeping(), ExitedWithCode(1), "^once, twice, restored, ended at once\n$");
}

}  // namespace
}  // namespace station
