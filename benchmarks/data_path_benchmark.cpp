// The cost of the way from a stored frame to a record on the host's side, as ratios to what stands
// beside it in the same run: a bare loop over the same file, and one uncontended mutex lock/unlock
// pair (LP). All is measured in slices of a millisecond or two, over several rounds, in turn; the
// best slice counts, as what else runs on the machine can only make one slower.

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/allocation_count.h"
#include "benchmarks/component_path.h"
#include "benchmarks/pcap_frames.h"
#include "benchmarks/plain_clocks.h"
#include "benchmarks/stored_traffic.h"
#include "benchmarks/timing.h"
#include "bridge/output/plain_output_channel.h"
#include "capture/cmp_packet_reader.h"
#include "station/recording/time_merge.h"

namespace {

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

/// Goes over a file to its end. The first slice isn't measured: in it the queues grow, and the
/// clocks let the samples wait. From then on each pass delivers what it read.
template <typename AnyPath>
void runInSlices(AnyPath& dataPath, Best& aMessage) {
    constexpr int passes = 4;
    for (bool first = true; !dataPath.isAtEnd(); first = false) {
        const std::uint64_t before = dataPath.count();
        StopWatch watch;
        for (int pass = 0; pass < passes; ++pass) {
            dataPath.pass();
        }
        if (!first && !dataPath.isAtEnd()) {
            aMessage.add(watch.lap(), dataPath.count() - before);
        }
    }
}

/// The whole way over one file.
class DataPath {
  public:
    DataPath(const std::string& path, std::uint32_t modules)
        : frames(path), rings(modules), reader(&clocks, &rings, frames, frames) {
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
    std::uint64_t runInSlicesToTheEnd(Best& aMessage) {
        runInSlices(*this, aMessage);
        reader.flushAll();
        return count();
    }
    /// The same without slices.
    std::uint64_t runOnOneThread(Best& aMessage) {
        SteadyPart part;
        while (!isAtEnd()) {
            pass();
            part.onPass(frames.getProgress());
        }
        reader.flushAll();
        part.addTo(aMessage, count());
        return count();
    }

    bool isAtEnd() const { return frames.isAtEnd(); }
    void pass() {
        reader.readPass();
        reader.flushAll();
    }
    std::uint64_t count() const { return rings.count(); }

    /// Capture on a thread of its own.
    std::uint64_t runOnTwoThreads(Best& aMessage) {
        SteadyPart part;
        std::atomic<bool> done{false};
        std::thread capture([&] {
            while (!frames.isAtEnd()) {
                reader.readPass();
                part.onPass(frames.getProgress());
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
        part.addTo(aMessage, count());
        return count();
    }

  private:
    PcapFrames frames;
    HostRings rings;
    PlainClocks clocks;
    CmpPacketReader reader;
};

/// Reads a file and looks at each frame's EtherType.
void bareLoop(const std::string& path, std::uint32_t messagesPerFrame, Best& aMessage) {
    constexpr std::uint64_t messages = 20'000;
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const file = pcap_open_offline(path.c_str(), error);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    std::uint64_t captureFrames = 0;
    StopWatch watch;
    while (pcap_next_ex(file, &header, &data) == 1) {
        captureFrames += data[12] == 0x99 && data[13] == 0xFE ? 1 : 0;
        if (captureFrames == messages / messagesPerFrame) {
            aMessage.add(watch.lap(), messages);
            captureFrames = 0;
        }
    }
    pcap_close(file);
}

/// One lock/unlock pair, with a second thread in the process as there is in the product.
void lockPairs(Best& pair) {
    constexpr int slices = 20;
    constexpr int pairs = 50'000;
    std::mutex mutex;
    std::mutex hold;
    hold.lock();
    std::thread other([&] { const std::lock_guard guard(hold); });
    volatile int guarded = 0;
    StopWatch watch;
    for (int slice = 0; slice < slices; ++slice) {
        for (int i = 0; i < pairs; ++i) {
            const std::lock_guard guard(mutex);
            guarded = guarded + 1;
        }
        pair.add(watch.lap(), pairs);
    }
    hold.unlock();
    other.join();
}

/// One kind of traffic, and what a message of it costs in seconds.
struct Case {
    std::string path;
    Traffic traffic;
    Best bare = {};
    Best way = {};         ///< on one thread
    Best component = {};   ///< through the component into the station's buffers, the same
    Best wholeWay = {};    ///< on one thread, all but a file's beginning and not in slices
    Best twoThreads = {};  ///< the same on two threads, which have no slices in common
};

void checkDelivered(const Case& entry, std::uint64_t delivered) {
    if (delivered != entry.traffic.messages) {
        fmt::print("LOST: {} of {} messages delivered\n", delivered, entry.traffic.messages);
        std::exit(1);
    }
}

void runInSlicesToTheEnd(Case& entry) {
    DataPath dataPath(entry.path, entry.traffic.modules);
    checkDelivered(entry, dataPath.runInSlicesToTheEnd(entry.way));
}

void runOnOneThread(Case& entry) {
    DataPath dataPath(entry.path, entry.traffic.modules);
    checkDelivered(entry, dataPath.runOnOneThread(entry.wholeWay));
}

void runThroughComponent(Case& entry) {
    ComponentPath dataPath(entry.path, std::vector<std::uint32_t>(entry.traffic.modules,
                                                                  DeviceTypeInfo::neoviFire3Id));
    runInSlices(dataPath, entry.component);
    dataPath.finish();
    checkDelivered(entry, dataPath.count() + dataPath.countBeforeStart());
}

/// A periodic call with nothing to deliver, of a plug-in with 64 channels.
void idleCalls(const std::string& path, Best& call) {
    using Type = DeviceTypeInfo;
    ComponentPath dataPath(path, {Type::neoviFire3Id, Type::neoviFire3Id, Type::linComboId,
                                  Type::canComboId, Type::canComboId});
    for (int pass = 0; pass < 8 && !dataPath.isAtEnd(); ++pass) {
        dataPath.pass();
    }
    constexpr int slices = 50;
    constexpr int calls = 100;
    StopWatch watch;
    for (int slice = 0; slice < slices; ++slice) {
        for (int i = 0; i < calls; ++i) {
            dataPath.poll();
        }
        call.add(watch.lap(), calls);
    }
}

/// The messages of 64 channels into the order of time, as they come out of a pass: channel by
/// channel, some each, `together` of them in a row without one of another channel between.
void mergeChannels(std::uint32_t together, Best& aMessage) {
    constexpr std::uint32_t channels = 64;
    constexpr std::uint32_t runs = 16;
    constexpr int passes = 50;
    const std::array<std::uint8_t, 72> record{};
    station::TimeMerge merge;
    std::int64_t passStart = 0;
    std::uint64_t bytes = 0;
    StopWatch watch;
    for (int pass = 0; pass < passes; ++pass) {
        for (std::uint32_t channel = 0; channel < channels; ++channel) {
            for (std::uint32_t run = 0; run < runs; ++run) {
                for (std::uint32_t i = 0; i < together; ++i) {
                    merge.add({passStart + (run * channels + channel) * together + i, channel,
                               sizeof record},
                              record.data());
                }
            }
        }
        const std::int64_t length = std::int64_t{channels} * runs * together;
        merge.release(passStart, [&bytes](const auto& head, const std::uint8_t* data) {
            bytes += head.size + data[0];
        });
        passStart += length;
        aMessage.add(watch.lap(), static_cast<std::uint64_t>(length));
    }
    if (bytes != sizeof record * static_cast<std::uint64_t>(passStart) / passes * (passes - 1)) {
        fmt::print("LOST in the merge\n");
        std::exit(1);
    }
}

void runOnTwoThreads(Case& entry) {
    DataPath dataPath(entry.path, entry.traffic.modules);
    checkDelivered(entry, dataPath.runOnTwoThreads(entry.twoThreads));
}

/// What a second file of the same kind costs in allocations, beyond what a short one costs.
double allocationsPerMessage(const std::string& directory) {
    const auto count = [&](std::uint32_t messages) {
        const std::string path = directory + "/allocations.pcap";
        writeTraffic(path, {1, 40, messages});
        DataPath dataPath(path, 1);
        const std::uint64_t before = allocations;
        Best unused;
        dataPath.runInSlicesToTheEnd(unused);
        return allocations - before;
    };
    constexpr std::uint32_t few = 400'000;
    constexpr std::uint32_t many = 1'200'000;
    const std::uint64_t first = count(few);
    const std::uint64_t second = count(many);
    return (static_cast<double>(second) - static_cast<double>(first)) / (many - few);
}

void verdict(const char* what, double value, const char* relation, double limit, bool good) {
    fmt::print("{:<64} {:>8.3f}   {} {:<6} {}\n", what, value, relation, limit,
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
    constexpr int rounds = 15;
    char pattern[] = "/tmp/data-path-XXXXXX";
    const std::string directory = mkdtemp(pattern);
    std::vector<Case> cases = {{directory + "/1x1.pcap", {1, 1, 800'000}},
                               {directory + "/8x1.pcap", {8, 1, 800'000}},
                               {directory + "/1x40.pcap", {1, 40, 2'000'000}},
                               {directory + "/64x1.pcap", {64, 1, 800'000}},
                               {directory + "/64x40.pcap", {64, 40, 2'000'000}}};
    Case& one = cases[0];
    Case& eight = cases[1];
    Case& forty = cases[2];
    Case& sixtyFour = cases[3];
    Case& sixtyFourForty = cases[4];
    for (const Case& entry : cases) {
        writeTraffic(entry.path, entry.traffic);
    }
    Best pair;
    Best idleCall;
    Best mergeOne;
    Best mergeForty;
    for (int round = 0; round < rounds; ++round) {
        lockPairs(pair);
        for (Case& entry : cases) {
            bareLoop(entry.path, entry.traffic.messagesPerFrame, entry.bare);
            runInSlicesToTheEnd(entry);
        }
        runThroughComponent(one);
        runThroughComponent(forty);
        idleCalls(one.path, idleCall);
        mergeChannels(1, mergeOne);
        mergeChannels(40, mergeForty);
        for (int turn = 0; turn < 2; ++turn) {
            runOnOneThread(forty);
            runOnTwoThreads(forty);
        }
    }
    const double lp = pair.get();
    fmt::print("LP {:.1f} ns\n\n1 message, ns:   bare    way\n", lp * 1e9);
    for (const Case& entry : cases) {
        fmt::print("{:>8} x {:<2} {:>8.1f} {:>6.1f}\n", entry.traffic.modules,
                   entry.traffic.messagesPerFrame, entry.bare.get() * 1e9, entry.way.get() * 1e9);
    }
    fmt::print("\n");
    atLeast("1 message a frame, 1 module: bare / way", one.bare.get() / one.way.get(), 0.60);
    atLeast("1 message a frame, 8 modules: bare / way", eight.bare.get() / eight.way.get(), 0.60);
    atMost("40 messages a frame: (way - bare) / LP, a message",
           (forty.way.get() - forty.bare.get()) / lp, 2.0);
    atMost("64 modules / 1 module, 1 message a frame", sixtyFour.way.get() / one.way.get(), 1.15);
    atMost("64 modules / 1 module, 40 messages a frame", sixtyFourForty.way.get() / forty.way.get(),
           1.15);
    atLeast("two threads: speed / that of one thread",
            forty.wholeWay.get() / forty.twoThreads.get(), 0.9);
    atMost("1 message a frame, through the component: (it - the way) / LP",
           (one.component.get() - one.way.get()) / lp, 1.3);
    atMost("40 messages a frame, through the component: (it - the way) / LP",
           (forty.component.get() - forty.way.get()) / lp, 1.3);
    atMost("periodic call with 64 idle channels / LP", idleCall.get() / lp, 640);
    atMost("order of time of 64 channels, with the copy / LP, 1 message in a row",
           mergeOne.get() / lp, 1.5);
    atMost("order of time of 64 channels, with the copy / LP, 40 messages in a row",
           mergeForty.get() / lp, 1.5);
    atMost("allocations a message in steady state", allocationsPerMessage(directory), 0.0);
    for (const Case& entry : cases) {
        unlink(entry.path.c_str());
    }
    unlink((directory + "/allocations.pcap").c_str());
    rmdir(directory.c_str());
    return 0;
}
