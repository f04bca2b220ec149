#include "station/stop_signal.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace station {
namespace {

bool isIgnored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

StopSignal::StopSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!isIgnored(SIGHUP)) {  // nohup has it ignored
        sigaddset(&signals, SIGHUP);
    }
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0 ||
        (descriptor = signalfd(-1, &signals, SFD_CLOEXEC)) < 0) {
        throw std::system_error(errno, std::generic_category(), "signals");
    }
    // A shell without job control starts background commands with SIGINT ignored, and an ignored
    // signal would never arrive.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
}

StopSignal::~StopSignal() {
    close(descriptor);
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point moment) {
    using namespace std::chrono;
    while (!requested) {
        const auto now = steady_clock::now();
        const auto left = moment > now ? ceil<milliseconds>(moment - now) : milliseconds(0);
        pollfd watched[] = {{descriptor, POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {STDERR_FILENO, 0, 0}};
        const auto timeout = static_cast<int>(std::min<milliseconds::rep>(left.count(), 60000));
        if (poll(watched, std::size(watched), timeout) < 0) {
            continue;
        }
        pipeBroken = ((watched[1].revents | watched[2].revents) & POLLERR) != 0;
        requested = (watched[0].revents & POLLIN) != 0 || pipeBroken;
        if (steady_clock::now() >= moment) {
            break;
        }
    }
    return requested;
}

}  // namespace station
