// What a message costs the desktop's live view while a million come in a second: the copy in the
// host's call, and what is worked out five times a second, for 64 channels with 200 identifiers
// each. LP: how long it takes to write and to read 88 bytes elsewhere in memory that no cache
// holds.

#include <fmt/format.h>

#include <cstring>
#include <vector>

#include "benchmarks/timing.h"
#include "station/recording/bus_record.h"
#include "station/view/live_feed.h"
#include "station/view/message_list.h"

namespace {

using namespace station;

constexpr std::uint32_t channels = 64;
constexpr std::uint32_t identifiers = 200;  // of each channel
constexpr int turns = 50;                   // a fifth of a second each
constexpr int perTurn = 200'000;

double measureMemory() {
    constexpr std::size_t size = 88;
    constexpr std::size_t places = 1'000'000;
    std::vector<std::uint8_t> from(size * places, 1);
    std::vector<std::uint8_t> to(size * places);
    Best best;
    for (int i = 0; i < 5; ++i) {
        StopWatch watch;
        for (std::size_t place = 0; place < places; ++place) {
            constexpr std::size_t step = 7919;
            std::memcpy(&to[place * size], &from[place * step % places * size], size);
        }
        best.add(watch.lap(), places);
    }
    return best.get();
}

}  // namespace

int main() {
    const double unit = measureMemory();
    Summary summary;
    summary.channels.resize(channels);
    LiveFeed feed;
    feed.begin(summary);
    MessageList list;
    Best copy;
    Best worked;
    double longest = 0.0;
    std::array<std::uint8_t, CanRecord::size> record = {};
    constexpr std::uint8_t length = 8;
    record[7] = length;
    std::uint32_t number = 0;
    for (int turn = 0; turn < turns; ++turn) {
        StopWatch watch;
        for (int i = 0; i < perTurn; ++i, ++number) {
            const std::uint32_t id = number / channels % identifiers;
            std::memcpy(record.data(), &id, sizeof id);
            record[8] = static_cast<std::uint8_t>(number);
            feed.onMessage(number % channels, std::int64_t{number} * 1000, record.data(),
                           record.size());
        }
        copy.add(watch.lap(), perTurn);
        feed.refresh(LiveFeed::Clock::now());
        list.update(feed.getMessages(), feed.getBuses(), feed.getNow(),
                    std::chrono::milliseconds(15));
        const double took = watch.lap();
        worked.add(took, perTurn);
        longest = std::max(longest, took);
    }
    constexpr double nanoseconds = 1e9;
    constexpr double milliseconds = 1e3;
    fmt::print("LP: {:.1f} ns\n", unit * nanoseconds);
    fmt::print("  the copy             {:>6.1f} ns a message, {:.2f} LP\n",
               copy.get() * nanoseconds, copy.get() / unit);
    fmt::print("  table and list       {:>6.1f} ns a message, {:.2f} LP\n",
               worked.get() * nanoseconds, worked.get() / unit);
    fmt::print(
        "  of a million a second: {:.0f} ms each fifth of a second, {:.0f} at worst; {} in "
        "the list, {} came too fast for it\n",
        worked.get() * perTurn * milliseconds, longest * milliseconds, list.size(),
        list.getMissed());
    return 0;
}
