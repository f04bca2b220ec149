#include <fmt/format.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

#include "core/standard_descriptors.h"
#include "simulator/failure.h"
#include "simulator/frame_sinks.h"
#include "simulator/options.h"
#include "simulator/report.h"
#include "simulator/simulation.h"

namespace sim {
namespace {

std::atomic<bool> stopRequested = false;

void reportFailure(const std::exception& failure) {
    const std::string line = fmt::format("cmp-sim: {}\n", printable(failure.what()));
    std::fputs(line.c_str(), stderr);  // it may be closed, of which fmt::print would throw
}

bool takesNothing(int descriptor) {
    pollfd polled{descriptor, POLLOUT, 0};
    return poll(&polled, 1, 0) == 0;
}

void lookAgainIn(suseconds_t microseconds) {
    const itimerval once{{}, {0, microseconds}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

/// Called by handlers of signals.
[[noreturn]] void endAtOnce(std::string_view text) {
    if (!takesNothing(STDERR_FILENO)) {
        static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
    }
    _exit(static_cast<int>(ExitCode::FailedWhileRunning));
}

/// Some time behind a request to stop: whoever was to read the output may never do so.
void endIfHeldUp(int) {
    constexpr suseconds_t period = 100'000;
    if (takesNothing(STDOUT_FILENO) || takesNothing(STDERR_FILENO)) {
        endAtOnce("cmp-sim: ended, as nobody reads its output\n");
    }
    lookAgainIn(period);
}

void stopOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) {
        constexpr suseconds_t patience = 300'000;
        if (stopRequested.exchange(true)) {
            endAtOnce("cmp-sim: ended at once\n");
        }
        lookAgainIn(patience);
    };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = endIfHeldUp;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    // A file that outgrows a limit on file sizes is to fail like one on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

void checkInterface(const Options& options) {
    const InterfaceFacts facts = inspectInterface(options.interface);
    if (!facts.exists)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("there is no network interface {}; \"ip link\" lists them",
                                  options.interface));
    const std::string refusal = refusalFor(options.interface, facts);
    if (!refusal.empty() && !options.force)
        throw Failure(ExitCode::WrongUse, refusal);
}

/// Prints a line a second while something is sent.
class Progress {
  public:
    Progress(const Options& options, const Simulation& observed, HostClock& hostClock)
        : shown(options.file.empty() && (options.verbose || isatty(STDERR_FILENO) != 0)),
          simulation(observed),
          clock(hostClock) {}

    void onBatch() {
        const std::int64_t now = clock.elapsed();
        if (!shown || now < next)
            return;
        next = (now / nsPerSecond + 1) * nsPerSecond;
        const std::string line =
            progressText(simulation.getTotals(), static_cast<double>(now) / nsPerSecond);
        std::fputs(line.c_str(), stderr);
    }

  private:
    const bool shown;
    const Simulation& simulation;
    HostClock& clock;
    std::int64_t next = nsPerSecond;
};

void print(const std::string& text, const char* what, std::FILE* out) {
    if (std::fputs(text.c_str(), out) < 0 || std::fflush(out) != 0)
        throw Failure(ExitCode::FailedWhileRunning,
                      fmt::format("can't print the {}: {}", what, std::strerror(errno)));
}

ExitCode simulate(const Options& options, HostClock& clock, FrameSink& sink) {
    Simulation simulation(options.modules, options.traffic, clock, sink);
    Progress progress(options, simulation, clock);
    ExitCode code = ExitCode::Good;
    try {
        simulation.run(stopRequested, [&] { progress.onBatch(); });
    } catch (const Failure& failure) {
        reportFailure(failure);
        code = failure.code;
    }
    const Report report{options, simulation, clock};
    const std::string text =
        options.json
            ? toJson(report).dump(2, ' ', true, nlohmann::json::error_handler_t::replace) + "\n"
            : toText(report);
    print(text, "report", options.file == "-" ? stderr : stdout);
    return code;
}

ExitCode run(int argc, char** argv) {
    const ParsedOptions parsed = parseOptions(argc, argv);
    if (parsed.done) {
        print(parsed.text, "result", stdout);
        return ExitCode::Good;
    }
    const Options& options = parsed.options;
    stopOnSignals();
    if (options.file.empty()) {
        checkInterface(options);
        PacketSocketSink sink(options.interface);
        SystemHostClock clock;
        return simulate(options, clock, sink);
    }
    VirtualHostClock clock;
    PcapFileSink sink(options.file, clock.getStartUtc(), options.overwrite);
    return simulate(options, clock, sink);
}

}  // namespace
}  // namespace sim

int main(int argc, char** argv) {
    holdStandardDescriptors();
    try {
        return static_cast<int>(sim::run(argc, argv));
    } catch (const sim::Failure& failure) {
        sim::reportFailure(failure);
        return static_cast<int>(failure.code);
    } catch (const std::exception& failure) {
        sim::reportFailure(failure);
        return static_cast<int>(sim::ExitCode::FailedWhileRunning);
    }
}
