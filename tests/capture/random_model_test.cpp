#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include "sync/gnss_sync_manager_impl.h"
#include "tests/support/capture_bench.h"
#include "tests/support/scripted_host.h"

namespace {

using namespace Kestrova::Utils::Kcom::Synchronization;
using Status = GNSSTimeStatus;
using Reason = GNSSTimeReason;

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// Numbered samples from frames to outputs, and all that may happen meanwhile, at random. Each
/// sample comes out once and in order, at times that don't go back, or is in one of the counts.
/// CMP_MODEL_SAMPLES and CMP_MODEL_SEED make other runs.
class RandomModel : public ::testing::Test, protected CaptureBench {
  protected:
    static constexpr std::uint32_t mostMessages = 5;  ///< of a frame
    struct Model {
        ChannelCounts counts;  ///< `unusable`, `queued` and `delivered`
        std::uint64_t number = 0;
        double time = 0.0;
    };

    RandomModel() {
        counter.frequency = counter.count = 1'000'000;
        port.interfaces[0].endless = [this] { return nextRead(); };
        syncManager.SetHost(&host.app);
        manager.onCreate = [this](FakeClock& clock) {
            clock.answers = [this](GNSSTime) { return randomAnswer(); };
        };
    }
    ~RandomModel() override {
        reader.Stop();
        devices.clear();
    }
    void useRealClocks() {
        counter.onCount = [this] { ++counter.count; };
        manager.onCreate = [this](FakeClock& clock) {
            auto real = syncManager.CreateClock();
            if (pick(3) == 0) {
                host.gnssDevices.devices.back()->syncMode = HostGnssDevice::syncModePps;
                static_cast<GNSSClockSwitchable&>(*real).Rebuild();
            }
            clock.answers = [&real = *real](GNSSTime time) { return real.GetTime(time); };
            clock.real = {real.get(),
                          [this, real](auto*) mutable { syncManager.RemoveClock(real); }};
        };
    }

    static std::uint32_t pick(std::mt19937& random, std::size_t count) {
        return static_cast<std::uint32_t>(random() % count);
    }
    std::uint32_t pick(std::size_t count) { return pick(hostRandom, count); }

    /// On the capture thread, where there is one.
    ScriptedRead nextRead() {
        if (isInPass && pick(16) == 0) {
            pick(16) == 0 ? changeDevices() : flush();
        }
        const std::lock_guard guard(lock);
        if (framesToSend == 0 || pick(wireRandom, 16) == 0) {
            return {};
        }
        --framesToSend;
        if (pick(wireRandom, 32) == 0) {
            return {1, wire::ethernet(0x0800)};
        }
        const auto all = devices.list();
        const std::uint16_t cmId = all[pick(wireRandom, all.size())]->getCmId();
        if (pick(wireRandom, 2000) == 0) {  // the module's clock is set
            ahead[cmId] = (std::int64_t{pick(wireRandom, 5)} - 2) * 8'000'000'000;
        }
        std::vector<wire::Message> messages(1 + pick(wireRandom, mostMessages));
        for (wire::Message& message : messages) {
            message = nextMessage(*devices.findByCmId(cmId), ahead[cmId]);
        }
        return {1, wire::tecmpData(cmId, messages), counter.getRealNanoseconds()};
    }
    wire::Message nextMessage(const CmpDevice& device, std::int64_t clockAhead) {
        const std::uint32_t interfaceId = 16 * (1 + pick(wireRandom, 7));
        const bool isUsable = pick(wireRandom, 50) != 0;
        const auto channel = device.findChannel(static_cast<std::uint16_t>(interfaceId));
        if (channel && isReading) {
            ChannelCounts& counts = models[channel.get()].counts;
            ++(isUsable ? counts.queued : counts.unusable);
        }
        const bool isLin = channel && channel->getTypeName() == "LIN";
        wire::Bytes data;
        wire::put(data, ++sent, 8);
        data.resize(isUsable ? 8 + (isLin ? 0 : pick(wireRandom, 57)) : 65);
        return {interfaceId,
                static_cast<std::uint64_t>(counter.getRealNanoseconds() + clockAhead +
                                           gnss_arithmetic::weekEpochUnixSeconds * 1'000'000'000),
                isLin ? wire::lin(1, data, 0) : wire::can(1, data)};
    }

    GNSSTimeResult randomAnswer() {
        constexpr Reason discards[] = {Reason::NotPlaced, Reason::BeforeStart, Reason::TooOld,
                                       Reason::TooNew};
        if (pick(waitOneIn) == 0) {
            return {Status::Wait, 0.0, pick(2) == 0 ? Reason::NotBegun : Reason::AheadOfPosition};
        }
        return pick(20) == 0
                   ? GNSSTimeResult{Status::Discard, 0.0, discards[pick(4)]}
                   : GNSSTimeResult{Status::Valid, latestAnswer += pick(100) / 1e3 - 0.04};
    }

    void send() {
        {
            const std::lock_guard guard(lock);
            framesToSend += pick(isInPass ? 20 : 200);
        }
        if (!hasThread && !isInPass) {
            isInPass = pick(4) == 0;
            while (framesToSend != 0) {
                reader.readPass();
            }
            isInPass = false;
        }
    }
    void flush() {
        factory.channels[pick(factory.channels.size())]->failAt = pick(4);
        counter.count += pick(40'000);
        host.clock.seconds = static_cast<double>(counter.count - zero) / 1e6;
        host.data.position = static_cast<std::int32_t>(host.clock.seconds * 1000);
        host.script.forget();
        reader.takeOver();
        syncManager.Tick();
        pick(2) == 0 ? send() : void();
        try {
            reader.flushTakenOver();
        } catch (const std::runtime_error&) {  // a write failed, and the sample comes again
        }
        forEachChannel([](const CmpChannel& channel, Model& model) {
            for (const auto& sample : std::exchange(samplesOf(channel), {})) {
                const auto data = sample.bytes.begin() + (sample.variant ? 4 : 8);
                const std::uint64_t number = std::accumulate(
                    data, data + 8, std::uint64_t{0},
                    [](std::uint64_t sum, std::uint8_t byte) { return sum << 8 | byte; });
                ASSERT_TRUE(isWholeRecord(sample));
                ASSERT_GT(number, std::exchange(model.number, number));
                ASSERT_GE(sample.time, std::exchange(model.time, sample.time));
                ++model.counts.delivered;
            }
            ASSERT_EQ(channel.getCounts().delivered, model.counts.delivered);
        });
    }
    template <class Action>
    void forEachChannel(const Action& action) {
        const std::lock_guard guard(lock);
        for (const auto& device : devices.list()) {
            for (const auto& channel : *device->getChannels()) {
                action(*channel, models[channel.get()]);
            }
        }
    }

    /// Ends data read, and begins it again or not.
    void restart() {
        hasThread ? reader.Stop() : void();
        reader.prepareRead(false);
        std::uint64_t sentNow = 0;
        std::uint64_t came = 0;
        forEachChannel([&](const CmpChannel& channel, Model& model) {
            const ChannelCounts c = channel.getCounts();
            const std::uint64_t fates[] = {c.delivered, c.beforeStart, c.afterEnd,  c.tooOld,
                                           c.tooNew,    c.notPlaced,   c.leftQueued};
            ASSERT_EQ(std::accumulate(std::begin(fates), std::end(fates), std::uint64_t{0}),
                      c.queued);
            std::transform(std::begin(fates), std::end(fates), totals.begin(), totals.begin(),
                           std::plus());
            sentNow += model.counts.queued + model.counts.unusable;
            came += c.queued + c.unusable;
            ASSERT_LE(model.counts.queued - c.queued, hasThread ? mostMessages : 0);
            model = {};
        });
        // Once it is to stop, the capture thread takes no more messages, amid a frame even.
        EXPECT_LE(sentNow - came, hasThread ? mostMessages : 0);
        for (std::uint32_t i = hasThread ? 5 : pick(5); i < 5; ++i) {
            changeDevices();
        }
        devices.resetLastTimes();
        syncManager.RestartWithAcceptAll();
        syncManager.EnableClocks();
        zero = counter.count;
        host.data.startTime = GNSSTime(0, static_cast<double>(zero) / 1e6).ToDayCount();
        isReading = true;
        hasThread ? reader.startRead() : reader.prepareRead(true);
    }

    /// Modules come and go, change their types, CM IDs and places.
    void changeDevices() {
        const auto all = devices.list();
        const std::uint32_t action = pick(5);
        if (all.size() < 3 || (action == 0 && all.size() < 6)) {
            devices.add()->setConfigId(static_cast<std::uint16_t>(pick(3)));
        } else {
            const std::uint32_t at = pick(all.size());
            const std::uint32_t type = pick(8) == 0 ? pick(4) : pick(2);
            if (action == 1 || (action == 2 && all[at]->getType().typeId != type)) {
                for (const auto& channel : *all[at]->getChannels()) {
                    models.erase(channel.get());
                }
            }
            action == 1   ? devices.remove(at)
            : action == 2 ? all[at]->setTypeById(type)
            : action == 3 ? all[at]->setConfigId(static_cast<std::uint16_t>(pick(3)))
                          : void(devices.moveUp(static_cast<std::int32_t>(at)));
        }
        factory.channels.clear();
        devices.createOutputs();
    }

    /// `never`: places of fates that need not be met.
    void run(const std::set<std::size_t>& never = {}) {
        const std::uint64_t seed = fromEnvironment("CMP_MODEL_SEED", 1);
        const std::uint64_t count = fromEnvironment("CMP_MODEL_SAMPLES", 200'000);
        hostRandom.seed(static_cast<unsigned>(seed));
        wireRandom.seed(static_cast<unsigned>(seed + 1));
        for (int i = 0; i < 20; ++i) {
            changeDevices();
        }
        restart();
        for (std::uint64_t step = 0; sent < count && !HasFailure(); ++step) {
            takeStep();
            EXPECT_FALSE(HasFailure()) << "seed " << seed << ", step " << step;
        }
        restart();
        for (std::size_t i = 0; i < totals.size(); ++i) {
            EXPECT_TRUE(totals[i] != 0 || never.count(i) != 0) << "fate " << i << " was never met";
        }
    }
    void takeStep() {
        constexpr std::uint32_t waits[] = {1, 2, 20, 100'000};
        const std::uint32_t action = pick(200);
        if (action < 60) {
            send();
        } else if (action < 196) {
            while (hasThread && framesToSend > 1000) {
                std::this_thread::yield();
            }
            flush();
        } else if (action == 197) {
            waitOneIn = waits[pick(4)];
        } else if (action == 198) {
            hasThread ? void() : changeDevices();
        } else {
            restart();
        }
    }

    ScriptedHost host;
    GNSSSyncManagerImpl syncManager{counter};
    std::mt19937 hostRandom;
    bool hasThread = false;
    bool isInPass = false;
    std::uint64_t zero = 0;  ///< of the host's time, on the counter
    std::uint32_t waitOneIn = 20;
    double latestAnswer = 0.0;
    std::array<std::uint64_t, 7> totals = {};

    std::mutex lock;  ///< guards what follows, with a second thread
    std::mt19937 wireRandom;
    bool isReading = false;
    std::atomic<std::uint32_t> framesToSend = 0;
    std::atomic<std::uint64_t> sent = 0;
    std::map<std::uint16_t, std::int64_t> ahead;  ///< of the modules' clocks, nanoseconds
    std::map<const CmpChannel*, Model> models;
};

TEST_F(RandomModel, ScriptedClocks) {
    run();
}

TEST_F(RandomModel, RealClocks) {
    useRealClocks();
    run({3, 4});  // no jump is so large that a clock places a sample outside of its window
}

TEST_F(RandomModel, SecondThread) {
    hasThread = true;
    run();
}

}  // namespace
