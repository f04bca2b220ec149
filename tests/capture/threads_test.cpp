#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

#include "tests/support/capture_bench.h"
#include "tests/support/setup_tree.h"

namespace {

using wire::Bytes;

/// Lets the other thread work.
void pause() {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
}

/// An interface without an end, read by the capture thread. Every fourth frame carries the next
/// running number, on two interfaces of the module 0x41; those between are status and data of the
/// modules that come and go.
class EndlessFrames {
  public:
    std::uint32_t getSent() const { return sent; }

    ScriptedRead operator()() {
        if (++reads % 64 == 0) {
            pause();
            return {};
        }
        constexpr std::uint16_t bases[] = {0x30, 0x40, 0x00};
        const auto guest = static_cast<std::uint16_t>(bases[reads / 4 % 3] + 8 + reads / 12 % 8);
        switch (reads % 4) {
            case 0:
                return {1, wire::tecmp(1, 1, {{0, reads, wire::cmStatus(guest, 7, "S")}})};
            case 1:
                return {1, wire::tecmp(1, 2, {{0, reads, wire::busStatus(guest, {{0x10, 5}})}})};
            case 2:  // long, so that it is often in work when its module goes
                return {1, wire::tecmpData(guest, std::vector<wire::Message>(
                                                      50, {0x10, reads, wire::can(1, {})}))};
            default:
                Bytes number;
                wire::put(number, ++sent, 4);
                return {1, wire::tecmpData(0x41, {{0x10, reads, wire::can(1, number)},
                                                  {0x20, reads, wire::can(1, number)}})};
        }
    }

  private:
    std::uint64_t reads = 0;
    std::atomic<std::uint32_t> sent = 0;
};

/// The host's thread at work on the device list while the capture thread reads. The resident is
/// 0x41, all others are guests: each is named after its ConfigId, 8 to 15.
class ThreadsTest : public ::testing::Test, protected CaptureBench {
  protected:
    ThreadsTest() {
        port.interfaces[0].endless = std::ref(frames);
        // Each thread is now and then held up where it publishes times, in the midst of the list.
        counter.onCount = [this] { ++looksAtCounter % 16 == 0 ? pause() : void(); };
        add(DeviceTypeInfo::canComboId, 1).setName("1");
    }

    std::uint32_t pick(std::size_t count) { return static_cast<std::uint32_t>(random() % count); }
    std::shared_ptr<CmpDevice> resident() const { return devices.findByCmId(0x41); }

    void setConfigId(CmpDevice& device) {
        const auto configId = static_cast<std::uint16_t>(8 + pick(8));
        device.setName(std::to_string(configId));
        device.setConfigId(configId);
    }
    /// What is taken out is gone, on this thread, when the call is back.
    void remove(unsigned position) {
        const std::weak_ptr<CmpDevice> removed = devices.list()[position];
        devices.remove(position);
        EXPECT_TRUE(removed.expired());
    }
    void switchType(CmpDevice& device, const DeviceTypeInfo& type) {
        const bool stays = device.getType().typeId == type.typeId;
        const std::weak_ptr<const CmpDevice::ChannelList> before = device.getChannels();
        device.setType(type);
        EXPECT_EQ(before.expired(), !stays);
    }

    /// One thing that a user may do.
    void changeSomething() {
        const std::size_t count = devices.list().size();
        const std::uint32_t at = pick(count);
        const std::uint32_t action = pick(5);
        if (action == 0) {
            devices.moveUp(static_cast<std::int32_t>(at));
        } else if (action == 1) {
            devices.moveDown(static_cast<std::int32_t>(at));
        } else if (count < 4 || devices.list()[at] == resident()) {
            setConfigId(add(pick(4), 8));
        } else if (action == 2 || count > 12) {
            remove(at);
        } else if (action == 3) {
            switchType(*devices.list()[at], deviceTypes()[pick(4)]);
        } else {
            setConfigId(*devices.list()[at]);
        }
    }

    void lookAtEverything() {
        for (const auto& device : devices.list()) {
            EXPECT_EQ(device->getName(), std::to_string(device->getConfigId()));
            looked += device->getSerialNumberText() == "S" ? 1 : 0;
            for (const auto& channel : *device->getChannels()) {
                looked += channel->getLastValueText().size();
                looked += channel->getBusStatus().messageCount;
            }
        }
    }

    /// Flushes; the resident's numbers must go on where they were, on both interfaces.
    void checkNumbers() {
        reader.flushAll();
        const auto device = resident();
        for (const std::size_t place : {0U, 1U}) {
            auto& samples = samplesOf(*device, place == 0 ? 0x10 : 0x20);
            for (const auto& sample : std::exchange(samples, {})) {
                std::uint32_t number = 0;
                for (std::size_t i = 8; i < 12; ++i) {
                    number = number << 8 | sample.bytes[i];
                }
                ASSERT_EQ(number, next[place] == 0 ? number : next[place]);
                next[place] = number + 1;
                ++checked;
            }
        }
    }

    void startRead() {
        next[0] = next[1] = frames.getSent() + 1;
        reader.startRead();
    }
    /// All numbers have arrived, but for those of the frame that the stop cut off.
    void stopAndCheckAll() {
        reader.Stop();
        checkNumbers();
        EXPECT_GE(std::min(next[0], next[1]), frames.getSent());
    }

    /// Loads the list as it is, with the thread running. What was queued goes with the old list.
    void reload() {
        const auto node = makeSetupTree("Setup");
        const auto channels = makeSetupTree("Setup");
        reader.saveDevices(*node);
        reader.saveChannels(*channels);
        manager.reload();
        reader.loadDevices(*node);
        reader.loadChannels(*channels);
        next[0] = next[1] = 0;
        letTheCaptureThreadWork();  // so that something comes before a stop
    }

    void letTheCaptureThreadWork() {
        for (const std::uint32_t before = frames.getSent(); frames.getSent() < before + 8;) {
            pause();
        }
    }

    EndlessFrames frames;
    std::atomic<unsigned> looksAtCounter = 0;
    std::minstd_rand random{1};
    std::uint32_t next[2] = {0, 0};  ///< number expected next; 0: any
    std::size_t checked = 0;
    std::size_t looked = 0;
};

TEST_F(ThreadsTest, ResidentLosesNothingWhileAllElseChanges) {
    startRead();
    for (int round = 1; round <= 600; ++round) {
        changeSomething();
        lookAtEverything();
        letTheCaptureThreadWork();
        checkNumbers();
        if (round % 50 == 0) {
            reload();
        }
        if (round % 75 == 0) {
            stopAndCheckAll();
            const std::size_t before = checked;
            reader.startSetupRead();
            letTheCaptureThreadWork();
            changeSomething();
            checkNumbers();
            EXPECT_EQ(checked, before) << "no data in idle read";
            reader.stopFreeze();
            startRead();
        }
        ASSERT_FALSE(HasFailure());
    }
    stopAndCheckAll();
    EXPECT_GT(checked, 600U);
    EXPECT_GT(looked, 0U);
    EXPECT_EQ(manager.liveClocks(), std::ssize(devices.list()));
    devices.clear();
    EXPECT_EQ(manager.liveClocks(), 0);
    EXPECT_EQ(manager.foreignCalls, 0) << "clocks are made and removed on the host's thread";
}

/// Such an interface never times out, so the pass never ends.
TEST_F(ThreadsTest, FloodOfForeignFramesHoldsUpNeitherAChangeNorAStop) {
    port.interfaces[0].endless = [] { return ScriptedRead{1, wire::ethernet(0x0800)}; };
    reader.startRead();
    for (int i = 0; i < 20; ++i) {
        add(DeviceTypeInfo::linComboId, 1);
        remove(1);
    }
    reader.Stop();
    EXPECT_EQ(manager.liveClocks(), 1);
}

TEST(SequenceLockedTest, NothingIsReadHalfWritten) {
    SequenceLocked<std::array<std::int32_t, 19>> latest;
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (std::int32_t i = 0; i < 300000; ++i) {
            std::array<std::int32_t, 19> value;
            value.fill(i);
            latest.store(value);
        }
        done = true;
    });
    bool whole = true;
    while (!done) {
        const auto value = latest.load();
        whole = whole && std::count(value.begin(), value.end(), value[0]) == 19;
    }
    writer.join();
    EXPECT_TRUE(whole);
}

}  // namespace
