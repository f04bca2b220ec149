// What a plot of a day at 1 kHz costs: a value that comes in, the memory, and what is to be drawn
// of spans of all lengths, into 1,500 columns.

#include <fmt/format.h>

#include <cmath>

#include "benchmarks/timing.h"
#include "station/gui/plot/signal_series.h"

namespace {

using station::SignalSeries;

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t start = 1'700'000'000'000 * millisecond;
constexpr std::int64_t values = 86'400'000;

void fill(SignalSeries& series) {
    StopWatch watch;
    for (std::int64_t i = 0; i < values; ++i) {
        series.append(start + i * millisecond, std::sin(static_cast<double>(i) * 1e-4));
    }
    constexpr double nanoseconds = 1e9;
    constexpr double megabyte = 1e6;
    fmt::print("{} values: {:.0f} ns each, {:.0f} MB, the last {} s as they are\n", values,
               watch.lap() / static_cast<double>(values) * nanoseconds,
               static_cast<double>(series.getMemory()) / megabyte,
               (series.getNewest() - series.oldestPoint()) / millisecond / 1000);
}

/// The best of some, and what it had to draw.
void draw(const SignalSeries& series, const char* name, SignalSeries::Range range) {
    constexpr int times = 20;
    constexpr std::size_t columns = 1500;
    Best best;
    std::size_t drawn = 0;
    for (int i = 0; i < times; ++i) {
        StopWatch watch;
        drawn = series.envelope(range, columns).size();
        best.add(watch.lap(), 1);
    }
    constexpr double milliseconds = 1e3;
    fmt::print("  {:<28}{:>8.2f} ms{:>8}\n", name, best.get() * milliseconds, drawn);
}

}  // namespace

int main() {
    SignalSeries series;
    fill(series);
    const std::int64_t end = series.getNewest() + 1;
    constexpr std::int64_t minute = 60'000 * millisecond;
    draw(series, "the day", {start, end});
    draw(series, "the last hour", {end - 60 * minute, end});
    draw(series, "the last minute", {end - minute, end});
    draw(series, "the last second", {end - 1000 * millisecond, end});
    draw(series, "the first hour", {start, start + 60 * minute});
    return 0;
}
