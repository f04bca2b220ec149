#include <numeric>

#include "tests/support/capture_rig.h"
#include "tests/support/setup_tree.h"

namespace {

using Reason = Kestrova::Utils::Kcom::Synchronization::GNSSTimeReason;
using Status = FakeClock::Status;

/// Lets the other thread work.
void pause() {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
}

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// Numbered samples from frames to outputs, and all that may happen meanwhile, at random: frames,
/// calls of the host, failing writes, and modules that come, go, change and restart. Each sample
/// comes out once and in order, at times that don't go back, or is in one of the counts.
///
/// One module, 0x41, always stays: of it nothing is lost on the way to the queues. The others are
/// named after their ConfigIds, 8 to 15. CMP_MODEL_SAMPLES and CMP_MODEL_SEED make other runs.
class RandomModel : public ::testing::Test, protected CaptureRig {
  protected:
    static constexpr std::uint32_t mostMessages = 5;  ///< of a frame
    struct Model {
        std::uint64_t number = 0;
        double time = 0.0;
        std::uint64_t delivered = 0;
    };

    RandomModel() {
        counter.frequency = counter.count = 1'000'000;
        port.interfaces[0].endless = [this] { return nextRead(); };
        manager.onCreate = [this](FakeClock& clock) {
            clock.answers = [this](GNSSTime) { return randomAnswer(); };
        };
    }
    ~RandomModel() override {
        reader.Stop();
        devices.clear();
    }

    static std::uint32_t pick(std::minstd_rand& random, std::size_t count) {
        return static_cast<std::uint32_t>(random() % count);
    }
    std::uint32_t pick(std::size_t count) { return pick(random, count); }

    /// On the capture thread, where there is one.
    ScriptedRead nextRead() {
        if (isInPass && pick(16) == 0) {
            pick(16) == 0 ? changeSomething() : flush();
        }
        if (framesToSend == 0 || pick(wireRandom, 16) == 0) {
            hasThread ? pause() : void();
            return {};
        }
        --framesToSend;
        constexpr std::uint16_t firstIds[] = {0x38, 0x48, 0x08};
        const std::uint32_t base = pick(wireRandom, 3);
        const bool stays = pick(wireRandom, 2) == 0;
        const bool isLin = !stays && base == 0;
        const auto cmId =
            static_cast<std::uint16_t>(stays ? 0x41 : firstIds[base] + pick(wireRandom, 8));
        const auto time = static_cast<std::uint64_t>(counter.getRealNanoseconds());
        const std::uint32_t kind = pick(wireRandom, 16);
        if (kind == 0) {
            return {1, wire::ethernet(0x0800)};
        }
        if (kind <= 2) {
            const auto payload =
                kind == 1 ? wire::cmStatus(cmId, 7, "S") : wire::busStatus(cmId, {{0x10, 5}});
            return {1, wire::tecmp(1, static_cast<std::uint8_t>(kind), {{0, time, payload}})};
        }
        std::vector<wire::Message> messages(1 + pick(wireRandom, mostMessages));
        for (wire::Message& message : messages) {
            const bool isUsable = pick(wireRandom, 50) != 0;
            wire::Bytes data;
            wire::put(data, ++sent, 8);
            data.resize(isUsable ? 8 + (isLin ? 0 : pick(wireRandom, 57)) : 65);
            message = {16 * (1 + pick(wireRandom, 7)), time,
                       isLin ? wire::lin(1, data, 0) : wire::can(1, data)};
            sentToStaying += stays && isReading ? 1 : 0;
        }
        return {1, wire::tecmpData(cmId, messages), counter.getRealNanoseconds()};
    }

    FakeClock::Result randomAnswer() {
        constexpr Reason discards[] = {Reason::NotPlaced, Reason::BeforeStart, Reason::TooOld,
                                       Reason::TooNew};
        if (answersBeforeStart != 0) {
            --answersBeforeStart;
            return {Status::Discard, 0.0, Reason::BeforeStart};
        }
        if (pick(waitOneIn) == 0) {
            return {Status::Wait, 0.0, pick(2) == 0 ? Reason::NotBegun : Reason::AheadOfPosition};
        }
        return pick(20) == 0
                   ? FakeClock::Result{Status::Discard, 0.0, discards[pick(4)]}
                   : FakeClock::Result{Status::Valid, latestAnswer += pick(100) / 1e3 - 0.04};
    }

    void send() {
        framesToSend += pick(isInPass ? 20 : 200);
        if (!hasThread && !isInPass) {
            isInPass = pick(4) == 0;
            while (framesToSend != 0) {
                reader.readPass();
            }
            isInPass = false;
        }
        while (hasThread && framesToSend > 1000) {
            pause();
        }
    }
    void flush() {
        counter.count += pick(40'000);
        reader.takeOver();
        pick(2) == 0 ? send() : void();
        factory.channels[pick(7)]->failAt = pick(4);  // of the module that stays
        try {
            reader.flushTakenOver();
        } catch (const std::runtime_error&) {  // a write failed, and the sample comes again
        }
        for (const auto& device : devices.list()) {
            looked += device->getSerialNumberText() == "S" ? 1 : 0;
            for (const auto& channel : *device->getChannels()) {
                looked += channel->getLastValueText().size() + channel->getBusStatus().messageCount;
                checkWritten(*channel, models[channel.get()]);
            }
        }
    }
    static void checkWritten(const CmpChannel& channel, Model& model) {
        for (const auto& sample : std::exchange(samplesOf(channel), {})) {
            const auto data = sample.bytes.begin() + (sample.variant ? 4 : 8);
            const std::uint64_t number = std::accumulate(
                data, data + 8, std::uint64_t{0},
                [](std::uint64_t sum, std::uint8_t byte) { return sum << 8 | byte; });
            ASSERT_TRUE(isWholeRecord(sample));
            ASSERT_GT(number, std::exchange(model.number, number));
            ASSERT_GE(sample.time, std::exchange(model.time, sample.time));
            ++model.delivered;
        }
        ASSERT_EQ(channel.getCounts().delivered, model.delivered);
    }

    /// Ends data read, and begins it again. What comes in between goes nowhere.
    void restart() {
        hasThread ? reader.Stop() : void();
        isReading = false;
        hasThread ? reader.startSetupRead() : reader.prepareRead(false);
        framesToSend += 20;
        while (framesToSend != 0) {
            hasThread ? pause() : reader.readPass();
        }
        std::uint64_t came = 0;
        for (const auto& device : devices.list()) {
            for (const auto& channel : *device->getChannels()) {
                const ChannelCounts c = channel->getCounts();
                const std::uint64_t fates[] = {c.delivered, c.beforeStart, c.afterEnd,  c.tooOld,
                                               c.tooNew,    c.notPlaced,   c.leftQueued};
                EXPECT_EQ(std::accumulate(std::begin(fates), std::end(fates), c.noOutput),
                          c.queued);
                for (std::size_t i = 0; i < totals.size(); ++i) {
                    totals[i] += fates[i];
                }
                came += device->getCmId() == 0x41 ? c.queued + c.unusable : 0;
            }
        }
        // Once it is to stop, the capture thread takes no more messages, amid a frame even.
        EXPECT_LE(wasReloaded ? 0 : sentToStaying - came, hasThread ? mostMessages : 0);
        for (int i = 0; i < 5; ++i) {
            changeSomething();
        }
        hasThread ? reader.stopFreeze() : void();
        devices.resetLastTimes();
        models.clear();
        wasReloaded = false;
        sentToStaying = 0;
        answersBeforeStart = pick(20);
        isReading = true;
        hasThread ? reader.startRead() : reader.prepareRead(true);
    }
    /// Loads the list as it is. What was queued goes with the old list.
    void reload() {
        const auto node = makeSetupTree("Setup");
        const auto channels = makeSetupTree("Setup");
        reader.saveDevices(*node);
        reader.saveChannels(*channels);
        devices.findByCmId(0x41)->setConfigId(1);  // what was removed amid a pass goes
        manager.reload();
        reader.loadDevices(*node);
        reader.loadChannels(*channels);
        models.clear();
        wasReloaded = true;
    }

    /// One thing that a user may do. What is taken out is gone, on this thread, when the call is
    /// back.
    void changeSomething() {
        const std::size_t count = devices.list().size();
        const std::uint32_t at = pick(count);
        const std::uint32_t action = pick(5);
        if (action == 0) {
            devices.moveUp(static_cast<std::int32_t>(at));
        } else if (action == 1) {
            devices.moveDown(static_cast<std::int32_t>(at));
        } else if (count < 4 || devices.list()[at]->getCmId() == 0x41) {
            add(pick(4), static_cast<std::uint16_t>(8 + pick(8)));
        } else if (action == 2 || count > 12) {
            forget(*devices.list()[at]);
            const std::weak_ptr<CmpDevice> removed = devices.list()[at];
            devices.remove(at);
            EXPECT_TRUE(isInPass || removed.expired());
        } else if (action == 3) {
            switchType(*devices.list()[at], deviceTypes()[pick(4)]);
        } else {
            devices.list()[at]->setConfigId(static_cast<std::uint16_t>(8 + pick(8)));
        }
    }
    void switchType(CmpDevice& device, const DeviceTypeInfo& type) {
        if (device.getType().typeId != type.typeId) {
            forget(device);
            const std::weak_ptr<const CmpDevice::ChannelList> before = device.getChannels();
            device.setType(type);
            EXPECT_TRUE(isInPass || before.expired());
            device.createOutputs();
        }
    }
    void forget(const CmpDevice& device) {
        for (const auto& channel : *device.getChannels()) {
            models.erase(channel.get());
        }
    }

    void run() {
        constexpr std::uint32_t waits[] = {1, 2, 20, 100'000};
        const std::uint64_t seed = fromEnvironment("CMP_MODEL_SEED", 1);
        const std::uint64_t count = fromEnvironment("CMP_MODEL_SAMPLES", 200'000);
        random.seed(static_cast<unsigned>(seed));
        wireRandom.seed(static_cast<unsigned>(seed + 1));
        add(DeviceTypeInfo::canComboId, 1);
        restart();
        // Which fates are met depends on the threads' turns: the run goes on until each has been.
        const auto isThrough = [&] {
            return sent >= 10 * count || (sent >= count && std::ranges::count(totals, 0U) == 0);
        };
        for (std::uint64_t step = 0; !isThrough() && !HasFailure(); ++step) {
            const std::uint32_t action = pick(200);
            if (action < 60) {
                send();
            } else if (action < 190) {
                flush();
            } else if (action < 197) {
                changeSomething();
            } else if (action == 197) {
                waitOneIn = waits[pick(4)];
            } else {
                pick(8) == 0 ? reload() : restart();
            }
            EXPECT_FALSE(HasFailure()) << "seed " << seed << ", step " << step;
        }
        restart();
        EXPECT_THAT(totals, testing::Each(testing::Gt(0U))) << "a fate that was never met";
        EXPECT_GT(looked, 0U);
        EXPECT_EQ(manager.liveClocks(), std::ssize(devices.list()));
        reader.Stop();
        devices.clear();
        EXPECT_EQ(manager.liveClocks(), 0);
        EXPECT_EQ(manager.foreignCalls, 0) << "clocks are made and removed on the host's thread";
    }

    std::minstd_rand random;
    bool hasThread = false;
    bool isInPass = false;
    bool wasReloaded = false;
    std::uint32_t waitOneIn = 20;
    std::uint32_t answersBeforeStart = 0;  ///< that are left, of the first after a restart
    double latestAnswer = 0.0;
    std::size_t looked = 0;
    std::array<std::uint64_t, 7> totals = {};
    std::map<const CmpChannel*, Model> models;

    // With a second thread these are the capture thread's too, or its alone.
    std::atomic<bool> isReading = false;
    std::atomic<std::uint32_t> framesToSend = 0;
    std::atomic<std::uint64_t> sent = 0;
    std::atomic<std::uint64_t> sentToStaying = 0;
    std::minstd_rand wireRandom;
};

TEST_F(RandomModel, ScriptedClocks) {
    run();
}

TEST_F(RandomModel, SecondThread) {
    hasThread = true;
    run();
}

}  // namespace
