#include "station/host/master_clock.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace station {
namespace {

constexpr double nanosecondsPerSecond = 1e9;
/// How long before the last position a new part is asked for: it has to begin while data goes on.
constexpr double marginSeconds = 300.0;

double checked(double samplesPerSecond) {
    if (!(samplesPerSecond > 0.0 && samplesPerSecond <= MasterClock::highestSampleRate)) {
        throw std::invalid_argument(
            "the sample rate must be above 0 and at most 1000000 samples a second");
    }
    return samplesPerSecond;
}

}  // namespace

MasterClock::MasterClock(const PerformanceCounter& performanceCounter, double samplesPerSecond)
    : counter(performanceCounter), rate(checked(samplesPerSecond)) {}

void MasterClock::start(double second) {
    startNanoseconds = counter.getNanoseconds() - std::llround(second * nanosecondsPerSecond);
    position = 0;
    running = true;
}

void MasterClock::startNextPart(double second) {
    startNanoseconds += std::llround(second * nanosecondsPerSecond);
    position = 0;
}

void MasterClock::stop() {
    stoppedAt = getSeconds();
    running = false;
}

void MasterClock::reset() {
    stoppedAt = 0.0;
    running = false;
    position = 0;
}

double MasterClock::getSeconds() const {
    return running ? static_cast<double>(counter.getNanoseconds() - startNanoseconds) /
                         nanosecondsPerSecond
                   : stoppedAt;
}

void MasterClock::movePosition() {
    const double limited = std::min(getSeconds() * rate, static_cast<double>(lastPosition));
    position = std::max(position, static_cast<std::int64_t>(limited));
}

std::int32_t MasterClock::getPositionInBuffer() const {
    return static_cast<std::int32_t>(position % bufferSize);
}

std::int32_t MasterClock::getWrapCount() const {
    return static_cast<std::int32_t>(position / bufferSize);
}

bool MasterClock::needsNewPart() const {
    constexpr auto last = static_cast<double>(lastPosition);
    return static_cast<double>(position) >= last - std::min(marginSeconds * rate, last / 5.0);
}

HostResult MasterClock::getTimeSeconds(double* seconds) {
    *seconds = getSeconds();
    return HostCode::success;
}

}  // namespace station
