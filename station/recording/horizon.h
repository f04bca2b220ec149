#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace station {

/// Up to which time all messages of a measurement are there, so that they can be written in the
/// order of their times.
///
/// A message comes in some time after its own: it travels, and a module's clock may run behind.
/// How much that was lately is taken for how much it will be. So a channel that is silent holds up
/// nobody, and one whose messages begin to come later than they did is late until that is known.
///
/// All times are nanoseconds on one clock, such as UTC.
class Horizon {
  public:
    /// `leastDelay` is assumed at least. The horizon stays behind by so many steps more, at most
    /// `mostMargin`: a process that was held up learns of the time before it reads the messages.
    explicit Horizon(std::int64_t leastDelay, std::size_t stepsOfMargin = 0)
        : least(leastDelay), margin(std::min(stepsOfMargin, mostMargin)) {
        reached.fill(earliest);
    }

    /// A message came in since the last step.
    void note(std::int64_t time) {
        if (time < before) {
            delays[0] = std::max(delays[0], before - time);
        }
    }

    /// The clock has reached `now`, which may go back (then it stays where it was), and all that
    /// came in so far was noted. Answers the time before which nothing more is expected.
    std::int64_t step(std::int64_t now) {
        before = std::max(before, now);
        if (before - windowStart >= window) {
            delays = {0, delays[0]};
            windowStart = before;
        }
        std::rotate(reached.begin(), reached.end() - 1, reached.end());
        reached[0] = before;
        if (reached[margin] != earliest) {
            const std::int64_t delay =
                std::clamp(std::max(delays[0], delays[1]), least, longestDelay);
            horizon = std::max(horizon, reached[margin] - delay);
        }
        return horizon;
    }
    std::int64_t get() const { return horizon; }

  private:
    static constexpr std::size_t mostMargin = 7;
    static constexpr std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
    static constexpr std::int64_t window = 10'000'000'000;
    /// Messages that come later than this are discarded by the clocks.
    static constexpr std::int64_t longestDelay = 5'000'000'000;

    const std::int64_t least;
    const std::size_t margin;
    std::int64_t before = 0;                  ///< what the clock had reached at the last step
    std::array<std::int64_t, 2> delays = {};  ///< the longest of this window and of the one before
    std::int64_t windowStart = 0;
    std::array<std::int64_t, mostMargin + 1> reached = {};  ///< at the last steps
    std::int64_t horizon = earliest;
};

}  // namespace station
