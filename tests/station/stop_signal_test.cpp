#include "station/stop_signal.h"

#include <sys/wait.h>
#include <unistd.h>

namespace station {
namespace {

/// A program of its own, which begins with a look at the signal, and what it exits with.
class Program {
  public:
    explicit Program(const std::function<void(StopSignal&)>& work) {
        std::array<int, 2> ends = {};
        EXPECT_EQ(pipe(ends.data()), 0);
        id = fork();
        if (id == 0) {
            StopSignal stop;
            stop.setFarewell("restored ", ends[1]);
            dup2(ends[1], STDERR_FILENO);
            [[maybe_unused]] const ssize_t ready = write(ends[1], "r", 1);
            work(stop);
            _exit(7);
        }
        close(ends[1]);
        errors = ends[0];
        EXPECT_EQ(readSome(), "r");
    }
    void send(int number) const { kill(id, number); }
    int exitCode() {
        int status = 0;
        waitpid(id, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string readSome() const {
        std::array<char, 100> bytes = {};
        return std::string(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(
                                             read(errors, bytes.data(), 100), 0)));
    }

  private:
    pid_t id = 0;
    int errors = -1;
};

void waitForEver(StopSignal&) {
    for (;;) {
        pause();
    }
}

TEST(StopSignalTest, ProgramThatLooksEndsItselfAndOneThatWaitsIsEnded) {
    Program looking([](StopSignal& stop) {
        while (!stop.isRequested()) {
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (std::chrono::steady_clock::now() < end) {  // its work goes on for a while
            stop.waitUntil(end);
        }
    });
    looking.send(SIGTERM);
    EXPECT_EQ(looking.exitCode(), 7);

    Program waiting(waitForEver);
    waiting.send(SIGINT);
    EXPECT_EQ(waiting.exitCode(), 1);
    EXPECT_EQ(waiting.readSome(), "restored ended at once\n");
}

TEST(StopSignalTest, SecondRequestEndsAnyProgram) {
    Program cleaningUp([](StopSignal& stop) {
        while (!stop.isRequested()) {
        }
        stop.beginCleanUp();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        [[maybe_unused]] const ssize_t clean = write(STDERR_FILENO, "c", 1);
        waitForEver(stop);
    });
    cleaningUp.send(SIGTERM);
    EXPECT_EQ(cleaningUp.readSome(), "c");
    cleaningUp.send(SIGTERM);
    EXPECT_EQ(cleaningUp.exitCode(), 1);

    Program desktop([](StopSignal& stop) {
        stop.setPatience(std::chrono::seconds(2));
        while (!stop.isRequested()) {
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
        [[maybe_unused]] const ssize_t alive = write(STDERR_FILENO, "a", 1);
        waitForEver(stop);
    });
    desktop.send(SIGHUP);
    EXPECT_EQ(desktop.readSome(), "a");
    EXPECT_EQ(desktop.exitCode(), 1);
}

}  // namespace
}  // namespace station
