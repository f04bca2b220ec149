#pragma once

#include <cstdint>
#include <iterator>
#include <map>

namespace station {

/// Which batches of a subject are there, as ranges of their numbers, which begin with 1.
class BatchNumbers {
  public:
    /// By the first of a range its last.
    using Ranges = std::map<std::uint64_t, std::uint64_t>;

    bool has(std::uint64_t number) const {
        const auto next = ranges.upper_bound(number);
        return next != ranges.begin() && std::prev(next)->second >= number;
    }
    void add(std::uint64_t first, std::uint64_t last) {
        auto next = ranges.upper_bound(first);
        if (next != ranges.begin() && std::prev(next)->second + 1 >= first) {
            --next;
            first = next->first;
        }
        while (next != ranges.end() && next->first <= last + 1) {
            last = next->second > last ? next->second : last;
            next = ranges.erase(next);
        }
        ranges.emplace(first, last);
    }
    void add(std::uint64_t number) { add(number, number); }

    /// 0 if there are none.
    std::uint64_t getHighest() const { return ranges.empty() ? 0 : ranges.rbegin()->second; }
    /// How many below the highest aren't there.
    std::uint64_t countMissing() const {
        std::uint64_t there = 0;
        for (const auto& [first, last] : ranges) {
            there += last - first + 1;
        }
        return getHighest() - there;
    }
    const Ranges& getRanges() const { return ranges; }

  private:
    Ranges ranges;
};

}  // namespace station
