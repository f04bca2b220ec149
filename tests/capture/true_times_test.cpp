#include "capture/cmp_packet_reader.h"
#include "sync/gnss_sync_manager_impl.h"
#include "tests/support/capture_rig.h"
#include "tests/support/scripted_host.h"

namespace {

using Kestrova::Utils::Kcom::Synchronization::GNSSClockSwitchable;
using Kestrova::Utils::Kcom::Synchronization::GNSSSyncManagerImpl;

/// The capture core with its real clocks, in a world with a true time: modules whose clocks run
/// fast or slow, begin late, jump and fall silent, and a host that calls now and then, all at
/// random. Each message comes out once, in order, and at the moment at which it was sent.
///
/// CMP_MODEL_SECONDS and CMP_MODEL_SEED make other runs.
class TrueTimes : public ::testing::Test {
  protected:
    static constexpr std::uint64_t firstCount = 5'000'000'000;
    static constexpr std::size_t modules = 4;
    /// A clock that isn't heard is taken to run as the host's.
    static constexpr double longestSilence = 0.3;
    static constexpr double mostPpm = 500;
    static constexpr double tolerance = 2 * longestSilence * mostPpm / 1e6;
    /// Seconds: by then nothing from before a jump still comes.
    static constexpr double betweenJumps = 1.2;

    struct Module {
        CmpDevice* device = nullptr;
        double ahead = 0.0;  ///< of the true time, seconds
        double ppm = 0.0;
        double speaksFrom = 0.0;
        double steadyUntil = 5.0;
        std::uint64_t jumps = 0;
        std::vector<double> sent = {};  ///< when each message was
        std::size_t delivered = 0;
        double latest = 0.0;
    };

    TrueTimes() {
        // As on a computer, a look takes a moment.
        counter.onCount = [this] { counter.count += 50; };
        manager.SetHost(&host.app);
        port.add("if0", {});
        reader.openInterfaces();
        for (std::size_t i = 0; i < modules; ++i) {
            CmpDevice& device = *devices.add();
            device.setTypeById(DeviceTypeInfo::canComboId);
            device.setConfigId(static_cast<std::uint16_t>(1 + i));
            device.createOutputs();
            host.gnssDevices.devices.back()->syncMode = HostGnssDevice::syncModeSoft;
            dynamic_cast<GNSSClockSwitchable&>(*device.getClock()).Rebuild();
            world.push_back({.device = &device,
                             .ahead = uniform(-1e5, 1e8),
                             .ppm = uniform(-mostPpm, mostPpm),
                             .speaksFrom = i == 0 ? 0.0 : uniform(0, 3)});
        }
        reader.prepareRead(true);
        manager.RestartWithAcceptAll();
        manager.EnableClocks();
    }
    ~TrueTimes() override { devices.clear(); }

    double uniform(double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(random);
    }
    bool isOneIn(double times) { return uniform(0, times) < 1; }
    static std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
        const char* const text = std::getenv(name);
        return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
    }

    void passTo(double moment) {
        now = moment;
        counter.count = std::max<std::uint64_t>(counter.count,
                                                firstCount + static_cast<std::uint64_t>(now * 1e9));
        host.clock.seconds = now;
        host.data.position = static_cast<std::int32_t>(now * host.data.sampleRate);
    }
    ScriptedRead send(Module& module) {
        const double deviceTime = 1e9 + module.ahead + now * (1 + module.ppm / 1e6);
        const auto seconds = static_cast<std::uint64_t>(deviceTime);
        const auto nanoseconds =
            static_cast<std::uint64_t>((deviceTime - std::floor(deviceTime)) * 1e9);
        module.sent.push_back(now);
        wire::Bytes number;
        wire::put(number, module.sent.size(), 8);
        return {
            CaptureHandle::gotFrame,
            wire::tecmpData(module.device->getCmId(),
                            {{0x10, seconds * 1'000'000'000 + nanoseconds, wire::can(1, number)}}),
            counter.getRealNanoseconds()};
    }
    /// A frame of a module, which may have jumped or fall silent, or the end of a pass. The host
    /// calls amid a pass as well.
    ScriptedRead live() {
        passTo(now + uniform(0.00005, 0.001));
        if (now >= nextCall) {
            nextCall = now + uniform(0.005, 0.1);
            call();
        }
        Module& module = world[static_cast<std::size_t>(uniform(0, modules))];
        if (now < module.speaksFrom || isOneIn(50)) {
            return {};
        }
        if (isOneIn(300)) {
            module.speaksFrom = now + uniform(0.01, longestSilence);
        }
        if (now > module.steadyUntil && isOneIn(600)) {
            module.steadyUntil = now + betweenJumps;
            module.ahead += (isOneIn(2) ? 1 : -1) * uniform(2, 1e6);
            ++module.jumps;
        }
        return send(module);
    }
    void call() {
        reader.takeOver();
        manager.Tick();
        reader.flushTakenOver();
        host.script.forget();
        for (Module& module : world) {
            for (const auto& sample :
                 std::exchange(CaptureRig::samplesOf(*module.device, 0x10), {})) {
                const std::uint64_t number = std::accumulate(
                    &sample.bytes[8], &sample.bytes[16], std::uint64_t{0},
                    [](std::uint64_t sum, std::uint8_t byte) { return sum << 8 | byte; });
                ASSERT_EQ(number, ++module.delivered);
                ASSERT_GE(sample.time, std::exchange(module.latest, sample.time));
                worst = std::max(worst, std::abs(sample.time - module.sent[number - 1]));
            }
        }
    }

    ScriptedHost host;
    ManualCounter counter{1'000'000'000, firstCount};
    ScriptedPort port;
    FakeOutputFactory factory;
    GNSSSyncManagerImpl manager{counter};
    CmpPacketReader reader{&manager, &factory, port, counter};
    CmpDevices& devices = reader.getDevices();
    const std::uint64_t seed = fromEnvironment("CMP_MODEL_SEED", 1);
    std::minstd_rand random{static_cast<unsigned>(seed)};
    std::vector<Module> world;
    double now = 0.0;
    double nextCall = 0.02;
    double worst = 0.0;
};

TEST_F(TrueTimes, OfEachMessageWhateverTheClocksDo) {
    const auto end = static_cast<double>(fromEnvironment("CMP_MODEL_SECONDS", 60));
    port.interfaces[0].endless = [this] { return live(); };
    while (now < end && !HasFailure()) {
        reader.readPass();
    }
    for (int i = 0; i < 20; ++i) {
        passTo(now + 0.02);
        call();
    }
    reader.prepareRead(false);
    EXPECT_LT(worst, tolerance) << "seed " << seed;
    for (const Module& module : world) {
        const ChannelCounts counts = module.device->findChannel(0x10)->getCounts();
        EXPECT_EQ(counts.queued, module.sent.size()) << "seed " << seed;
        EXPECT_EQ(counts.delivered, module.sent.size())
            << "too old " << counts.tooOld << ", too new " << counts.tooNew << ", not placed "
            << counts.notPlaced << ", left " << counts.leftQueued << ", before the start "
            << counts.beforeStart;
        EXPECT_EQ(counts.raised, 0U);
        EXPECT_EQ(module.device->getClock()->GetState().jumps, module.jumps);
    }
}

}  // namespace
