#pragma once

#include <cstdint>

namespace station {

/// How many messages of a channel came, when, and how often lately.
class ChannelTraffic {
  public:
    /// A message with that time, in nanoseconds; it is taken as it is.
    void note(std::int64_t time) {
        if (count++ == 0) {
            first = time;
        }
        last = time;
    }
    /// The rate is that of the last `seconds`, which began when this was called before.
    void updateRate(double seconds) {
        rate = static_cast<double>(count - countBefore) / seconds;
        countBefore = count;
    }

    std::uint64_t getCount() const { return count; }
    std::int64_t getFirst() const { return first; }  ///< meaningless without messages
    std::int64_t getLast() const { return last; }
    double getRate() const { return rate; }  ///< messages a second

  private:
    std::uint64_t count = 0;
    std::int64_t first = 0;
    std::int64_t last = 0;
    std::uint64_t countBefore = 0;
    double rate = 0.0;
};

}  // namespace station
