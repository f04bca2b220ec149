#include "station/stop_signal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "station/errors.h"

namespace station {
namespace {

bool isIgnored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

int orThrow(int descriptor) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "signals");
    }
    return descriptor;
}

void raise(int event) {
    eventfd_write(event, 1);
}

/// Or not at all, where it would have to be waited for.
void writeAtOnce(int descriptor, const char* text) {
    pollfd output{descriptor, POLLOUT, 0};
    if (poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) {
        [[maybe_unused]] const ssize_t unused = write(descriptor, text, std::strlen(text));
    }
}

}  // namespace

StopSignal::StopSignal() {
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGINT);
    sigaddset(&wanted, SIGTERM);
    if (!isIgnored(SIGHUP)) {  // nohup has it ignored
        sigaddset(&wanted, SIGHUP);
    }
    orThrow(-pthread_sigmask(SIG_BLOCK, &wanted, &maskBefore));
    signals = orThrow(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    request = orThrow(eventfd(0, EFD_CLOEXEC));
    destroyed = orThrow(eventfd(0, EFD_CLOEXEC));
    // A shell without job control starts background commands with SIGINT ignored, and an ignored
    // signal would never arrive.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
    watcher = std::thread([this] { watch(); });
}

StopSignal::~StopSignal() {
    letGo();
    for (const int descriptor : {signals, request, destroyed}) {
        close(descriptor);
    }
}

/// The mask comes last: a second request that came meanwhile ends the program, as it should.
void StopSignal::letGo() {
    if (watcher.joinable()) {
        raise(destroyed);
        watcher.join();
        pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    }
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point moment) {
    using namespace std::chrono;
    for (;;) {
        const auto now = steady_clock::now();
        const auto left = moment > now ? ceil<milliseconds>(moment - now) : milliseconds(0);
        pollfd watched{request, POLLIN, 0};
        poll(&watched, 1, static_cast<int>(std::min<milliseconds::rep>(left.count(), 60000)));
        if ((watched.revents & POLLIN) != 0) {
            noteLook();
            return true;
        }
        if (steady_clock::now() >= moment) {
            return false;
        }
    }
}

void StopSignal::watch() {
    int signal = 0;
    do {
        signal = waitForSignal(forever);
        hadHangup = hadHangup || signal == SIGHUP;
    } while (signal == SIGHUP && keepsHangups);
    if (signal == 0) {
        return;
    }
    noteLook();
    raise(request);
    const auto first = std::chrono::steady_clock::now();
    do {
        const int next = waitForSignal(patienceLeft());
        const bool isSame = next == signal && std::chrono::steady_clock::now() - first < samePeriod;
        if (next != 0 && !isSame) {
            if (!keepsSecond || hadSecond.exchange(true)) {
                endProgram();
            }
            noteLook();
        }
        pollfd end{destroyed, POLLIN, 0};
        if (poll(&end, 1, 0) == 1) {
            return;
        }
    } while (patienceLeft() != 0);
    endProgram();
}

/// Milliseconds until the program is held up, unless it looks once more.
int StopSignal::patienceLeft() const {
    using namespace std::chrono;
    const milliseconds most(patience);
    if (most.count() == forever) {
        return forever;
    }
    const auto end = steady_clock::time_point(lastLook) + most;
    return static_cast<int>(
        std::max(ceil<milliseconds>(end - steady_clock::now()), milliseconds(0)).count());
}

/// Its number; 0 after that time, and when the object goes.
int StopSignal::waitForSignal(int milliseconds) {
    pollfd watched[] = {{signals, POLLIN, 0}, {destroyed, POLLIN, 0}};
    while (poll(watched, std::size(watched), milliseconds) < 0) {
    }
    signalfd_siginfo info{};
    return read(signals, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

/// Says so where standard error takes it at once.
void StopSignal::endProgram() {
    if (const char* const last = farewell; last != nullptr) {
        writeAtOnce(farewellDescriptor, last);
    }
    writeAtOnce(STDERR_FILENO, "ended at once\n");
    _exit(static_cast<int>(ExitCode::Failed));
}

}  // namespace station
