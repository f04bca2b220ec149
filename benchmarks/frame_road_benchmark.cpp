// The cost of the way from a stored frame to a record on the host's side, as ratios to what stands
// beside it in the same run: a bare loop over the same file, and one uncontended mutex lock/unlock
// pair (LP). Every figure is the best of several rounds, taken in turn.

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/stored_traffic.h"
#include "bridge/output/plain_output_channel.h"
#include "capture/cmp_packet_reader.h"
#include "station/offline/direct_output.h"
#include "station/offline/pass_through_clock.h"
#include "station/offline/stored_frames.h"

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// Not inlined: a compiler that sees through both sides takes malloc and delete for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

using Clock = std::chrono::steady_clock;

double secondsOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The host's side of a channel: a ring of records and one of times, as a host has them.
class HostRing final : public Kestrova::Utils::Kcom::OutputChannel::PlainOutputChannel {
  public:
    explicit HostRing(std::size_t size) : samples(size) {}

    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override {
        if (size != recordSize) {
            std::abort();
        }
        std::memcpy(&records[position * recordSize], data, recordSize);
        times[position] = time;
        position = position + 1 == samples ? 0 : position + 1;
        ++count;
    }
    void addVariantSample(const void* data, std::uint64_t size, double time) override {
        addAsynchronousSample(data, size, time);
    }
    std::uint64_t count = 0;

  private:
    static constexpr std::uint64_t recordSize = 72;
    const std::size_t samples;
    std::vector<std::uint8_t> records = std::vector<std::uint8_t>(samples * recordSize);
    std::vector<double> times = std::vector<double>(samples);
    std::size_t position = 0;
};

/// Rings that take the same memory in all, however many modules there are: what is compared is the
/// way, and not how much of the rings the processor's caches hold.
class HostRings final : public Kestrova::Utils::Kcom::OutputChannel::OutputFactory {
  public:
    explicit HostRings(std::uint32_t modules) : samples(8192 / (modules * Traffic::interfaces)) {}

    using OutputChannel = Kestrova::Utils::Kcom::OutputChannel::OutputChannel;
    using OutputChannelType = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;

    std::shared_ptr<OutputChannel> createChannel(OutputChannelType, const Init&) override {
        rings.push_back(std::make_shared<HostRing>(samples));
        return rings.back();
    }
    std::shared_ptr<OutputChannel> getOrCreateChannel(std::uint32_t, OutputChannelType type,
                                                      const Init& init) override {
        return createChannel(type, init);
    }
    void removeChannel(const std::shared_ptr<OutputChannel>&) override {}
    void setChannelGroupName(const std::vector<std::int32_t>&, const std::string&) override {}
    void beginMultipleMount() override {}
    std::int32_t endMultipleMount() override { return 0; }

    std::uint64_t count() const {
        std::uint64_t sum = 0;
        for (const auto& ring : rings) {
            sum += ring->count;
        }
        return sum;
    }

  private:
    const std::size_t samples;
    std::vector<std::shared_ptr<HostRing>> rings;
};

/// The whole way over one file.
class Road {
  public:
    Road(const std::string& path, std::uint32_t modules)
        : frames(path),
          rings(modules),
          clocks(frames, frames.getFirstTime()),
          reader(&clocks, &rings, frames, frames) {
        for (std::uint32_t i = 0; i < modules; ++i) {
            const auto device = reader.getDevices().add();
            device->setTypeById(DeviceTypeInfo::neoviFire3Id);
            device->setCmId(static_cast<std::uint16_t>(1 + i));
            device->createOutputs();
        }
        reader.openInterfaces();
        reader.prepareRead(true);
    }

    /// Capture and host in turn on this thread; answers the samples delivered.
    std::uint64_t runOnOneThread() {
        while (!frames.isAtEnd()) {
            reader.readPass();
            reader.flushAll();
        }
        reader.flushAll();
        return rings.count();
    }

    /// Capture on a thread of its own.
    std::uint64_t runOnTwoThreads() {
        std::atomic<bool> done{false};
        std::thread capture([&] {
            while (!frames.isAtEnd()) {
                reader.readPass();
            }
            done = true;
        });
        while (!done) {
            reader.flushAll();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        capture.join();
        reader.flushAll();
        reader.flushAll();
        return rings.count();
    }

  private:
    station::StoredFrames frames;
    HostRings rings;
    station::PassThroughClocks clocks;
    CmpPacketReader reader;
};

void bareLoop(const std::string& path) {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const file = pcap_open_offline(path.c_str(), error);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    std::uint64_t captureFrames = 0;
    while (pcap_next_ex(file, &header, &data) == 1) {
        captureFrames += data[12] == 0x99 && data[13] == 0xFE ? 1 : 0;
    }
    pcap_close(file);
    if (captureFrames == 0) {
        std::abort();
    }
}

/// Seconds of one lock/unlock pair, with a second thread in the process as there is in the product.
double lockPair() {
    constexpr int pairs = 1'000'000;
    std::mutex mutex;
    std::mutex hold;
    hold.lock();
    std::thread other([&] { const std::lock_guard guard(hold); });
    volatile int guarded = 0;
    const double seconds = secondsOf([&] {
        for (int i = 0; i < pairs; ++i) {
            const std::lock_guard guard(mutex);
            guarded = guarded + 1;
        }
    });
    hold.unlock();
    other.join();
    return seconds / pairs;
}

struct Case {
    std::string path;
    Traffic traffic;
    bool twoThreads = false;
    double bare = 1e9;
    double way = 1e9;

    double perMessage(double seconds) const { return seconds / traffic.messages; }
};

void runWay(Case& entry) {
    Road road(entry.path, entry.traffic.modules);
    std::uint64_t delivered = 0;
    entry.way = std::min(entry.way, secondsOf([&] {
                             delivered =
                                 entry.twoThreads ? road.runOnTwoThreads() : road.runOnOneThread();
                         }));
    if (delivered != entry.traffic.messages) {
        fmt::print("LOST: {} of {} messages delivered\n", delivered, entry.traffic.messages);
        std::exit(1);
    }
}

/// What a second file of the same kind costs in allocations, beyond what a short one costs.
double allocationsPerMessage(const std::string& directory) {
    const auto count = [&](std::uint32_t messages) {
        const std::string path = directory + "/allocations.pcap";
        writeTraffic(path, {1, 40, messages});
        Road road(path, 1);
        const std::uint64_t before = allocations;
        road.runOnOneThread();
        return allocations - before;
    };
    constexpr std::uint32_t few = 400'000;
    constexpr std::uint32_t many = 1'200'000;
    const std::uint64_t first = count(few);
    const std::uint64_t second = count(many);
    return (static_cast<double>(second) - static_cast<double>(first)) / (many - few);
}

void verdict(const char* what, double value, const char* relation, double limit, bool good) {
    fmt::print("{:<62} {:>8.3f}   {} {:<6} {}\n", what, value, relation, limit,
               good ? "" : "MISSED");
}

void atLeast(const char* what, double value, double limit) {
    verdict(what, value, ">=", limit, value >= limit);
}

void atMost(const char* what, double value, double limit) {
    verdict(what, value, "<=", limit, value <= limit);
}

}  // namespace

int main() {
    constexpr int rounds = 9;
    char pattern[] = "/tmp/frame-road-XXXXXX";
    const std::string directory = mkdtemp(pattern);
    std::vector<Case> cases = {{directory + "/1x1.pcap", {1, 1, 800'000}},
                               {directory + "/8x1.pcap", {8, 1, 800'000}},
                               {directory + "/1x40.pcap", {1, 40, 2'000'000}},
                               {directory + "/64x1.pcap", {64, 1, 800'000}},
                               {directory + "/64x40.pcap", {64, 40, 2'000'000}}};
    for (const Case& entry : cases) {
        writeTraffic(entry.path, entry.traffic);
    }
    cases.push_back(cases[2]);
    cases.back().twoThreads = true;

    double lp = 1e9;
    for (int round = 0; round < rounds; ++round) {
        lp = std::min(lp, lockPair());
        for (Case& entry : cases) {
            entry.bare = std::min(entry.bare, secondsOf([&] { bareLoop(entry.path); }));
            runWay(entry);
        }
    }
    const Case& one = cases[0];
    const Case& eight = cases[1];
    const Case& forty = cases[2];
    const Case& sixtyFour = cases[3];
    const Case& sixtyFourForty = cases[4];
    const Case& two = cases[5];
    fmt::print("LP {:.1f} ns; bare loop {:.1f} ns a frame of one message, {:.1f} ns of 40\n\n",
               lp * 1e9, one.perMessage(one.bare) * 1e9, forty.perMessage(forty.bare) * 40e9);
    atLeast("1 message a frame, 1 module: bare / way", one.bare / one.way, 0.60);
    atLeast("1 message a frame, 8 modules: bare / way", eight.bare / eight.way, 0.60);
    atMost("40 messages a frame: (way - bare) / LP, a message",
           forty.perMessage(forty.way - forty.bare) / lp, 2.0);
    atMost("64 modules / 1 module, 1 message a frame", sixtyFour.way / one.way, 1.15);
    atMost("64 modules / 1 module, 40 messages a frame", sixtyFourForty.way / forty.way, 1.15);
    atLeast("two threads: speed / that of one thread", forty.way / two.way, 0.9);
    atMost("allocations a message in steady state", allocationsPerMessage(directory), 0.0);
    for (const Case& entry : cases) {
        unlink(entry.path.c_str());
    }
    unlink((directory + "/allocations.pcap").c_str());
    rmdir(directory.c_str());
    return 0;
}
