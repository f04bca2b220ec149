// signals-benchmark DATABASE RECORDING: what decoding the recording's messages takes on one core,
// from memory, as a ratio to one uncontended mutex lock/unlock pair (LP). Measured in slices over
// several rounds, in turn; the best slice counts, as what else runs on the machine can only make
// one slower.

#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "benchmarks/allocation_count.h"
#include "benchmarks/timing.h"
#include "station/recording/bus_record.h"
#include "station/recording/message_reader.h"
#include "station/signals/decoder.h"
#include "station/signals/signal_watch.h"

namespace {

using namespace station;

constexpr int rounds = 40;
constexpr int pairs = 100'000;

double measureLock() {
    Best best;
    std::mutex mutex;
    for (int round = 0; round < rounds; ++round) {
        StopWatch watch;
        for (int i = 0; i < pairs; ++i) {
            const std::lock_guard lock(mutex);
        }
        best.add(watch.lap(), pairs);
    }
    return best.get();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fmt::print(stderr, "signals-benchmark DATABASE RECORDING\n");
        return 2;
    }
    const auto decoder =
        std::make_shared<const Decoder>(std::make_shared<const Database>(readDatabase(argv[1])));
    std::vector<RecordedMessage> messages;
    const auto reader = openMessages(argv[2]);
    for (RecordedMessage message; reader->next(message);) {
        messages.push_back(message);
    }
    SignalWatch noting({decoder});
    std::uint64_t signals = 0;
    double sum = 0.0;  // so that nothing is left out
    const auto decodeAll = [&] {
        signals = 0;
        for (const RecordedMessage& message : messages) {
            const CanRecord can(message.record.data());
            const Decoder::Message* const found = decoder->find(can.id, can.extended);
            if (found != nullptr) {
                found->decode({can.data, can.length}, [&](const DecodedSignal& signal) {
                    ++signals;
                    sum += signal.value;
                });
            }
        }
    };
    const auto noteAll = [&] {
        for (const RecordedMessage& message : messages) {
            noting.note(0, message.record.data(), message.size);
        }
    };
    decodeAll();
    noteAll();
    const std::uint64_t before = allocations;
    Best perSignal;
    Best perNote;
    for (int round = 0; round < rounds; ++round) {
        StopWatch watch;
        decodeAll();
        perSignal.add(watch.lap(), signals);
        noteAll();
        perNote.add(watch.lap(), messages.size());
    }
    const std::uint64_t allocated = allocations - before;
    const double lp = measureLock();
    fmt::print("LP {:.1f} ns; {} messages with {} signals\n", lp * 1e9, messages.size(), signals);
    fmt::print("decoding a signal: {:.1f} ns, {:.2f} LP, {:.1f} million a second\n",
               perSignal.get() * 1e9, perSignal.get() / lp, 1e-6 / perSignal.get());
    fmt::print("noting a message in a measurement: {:.1f} ns, {:.2f} LP\n", perNote.get() * 1e9,
               perNote.get() / lp);
    fmt::print("allocations: {}\n", allocated);
    return sum == 0.5 ? 1 : 0;
}
