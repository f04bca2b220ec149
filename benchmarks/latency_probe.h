#pragma once

#include <fmt/format.h>

#include <QObject>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

/// How long what comes in waits for the event loop: a thread posts an event every few milliseconds,
/// from when this is made until `end`. All but that thread is on the event loop's.
class LatencyProbe {
  public:
    ~LatencyProbe() { end(); }

    void end() {
        stopping = true;
        if (poster.joinable()) {
            poster.join();
        }
    }
    /// Count, median, 99th percentile and maximum of the delays, in milliseconds.
    std::string toJson() {
        std::sort(delays.begin(), delays.end());
        return fmt::format("{{\"count\": {}, \"p50\": {:.2f}, \"p99\": {:.2f}, \"max\": {:.2f}}}",
                           delays.size(), at(0.5), at(0.99), at(1.0));
    }

  private:
    using Clock = std::chrono::steady_clock;

    void post() {
        constexpr auto period = std::chrono::milliseconds(5);
        for (auto next = Clock::now(); !stopping; next += period) {
            std::this_thread::sleep_until(next);
            QMetaObject::invokeMethod(
                &receiver, [this, posted = Clock::now()] { take(posted); }, Qt::QueuedConnection);
        }
    }
    void take(Clock::time_point posted) {
        const auto waited = Clock::now() - posted;
        delays.push_back(std::chrono::duration<double, std::milli>(waited).count());
    }
    /// Of the sorted delays. The part lies from 0 to 1.
    double at(double part) const {
        const double last = static_cast<double>(delays.size()) - 1.0;
        return delays.empty() ? 0.0 : delays[static_cast<std::size_t>(part * last)];
    }

    QObject receiver;
    std::atomic<bool> stopping = false;
    std::vector<double> delays;
    std::thread poster{[this] { post(); }};
};
