#include "capture/cmp_device.h"

#include "tests/support/capture_rig.h"

namespace {

constexpr std::uint32_t unknownType = 65535;
constexpr std::uint32_t linType = 0;
constexpr std::uint32_t canType = 1;
constexpr std::uint32_t neoviType = 2;

class DeviceTest : public ::testing::Test, protected CaptureRig {
  protected:
    /// A status with the device time `seconds` comes in.
    void giveStatus(std::uint64_t seconds, std::uint32_t serial, const std::string& text = {}) {
        read({wire::tecmp(1, 1, {{0, seconds * 1000000000, wire::cmStatus(0x41, serial, text)}})});
    }

    CmpDevice& device = add(canType, 1);
};

TEST_F(DeviceTest, ConfigIdIsPartOfTheCmIdAndItsLowByteOutlastsTheType) {
    const std::tuple<std::uint32_t, std::uint16_t, std::uint32_t, int, const char*> cases[] = {
        {canType, 15, canType, 0x4F, "0xF"},      {canType, 0x123, canType, 0x123, "0x3"},
        {linType, 2, linType, 0x32, "0x2"},       {linType, 16, linType, 16, "0x0"},
        {neoviType, 7, neoviType, 7, "0x7"},      {neoviType, 0x1AB, neoviType, 0x1AB, "0x1AB"},
        {unknownType, 5, unknownType, 5, "0x5"},  {canType, 5, linType, 0x35, "0x5"},
        {linType, 15, canType, 0x4F, "0xF"},      {canType, 5, 7, 5, "0x5"},
        {neoviType, 0x1A7, canType, 0xE7, "0x7"}, {neoviType, 0xF0, linType, 0x120, "0x0"}};
    for (const auto& [from, configId, to, cmId, text] : cases) {
        const auto fresh = devices.add();
        EXPECT_EQ(fresh->getCmId(), 0x40);
        fresh->setTypeById(from);
        fresh->setConfigId(configId);
        fresh->setTypeById(to);
        EXPECT_EQ(fresh->getCmId(), cmId) << from << " to " << to;
        EXPECT_EQ(fresh->getConfigIdText(), text) << from << " to " << to;
        const auto other = devices.add();
        other->setTypeById(to);
        other->setCmId(static_cast<std::uint16_t>(cmId));
        EXPECT_EQ(other->getCmId(), cmId) << from << " to " << to;
    }
}

TEST_F(DeviceTest, NewTypeKeepsTheUsersName) {
    EXPECT_EQ(device.getName(), "Technica CAN combo");
    device.setTypeById(linType);
    EXPECT_EQ(device.getName(), "Technica LIN combo");
    device.setName("front");
    EXPECT_EQ(clockOf(device).deviceName, "front");
    device.setTypeById(neoviType);
    EXPECT_EQ(device.getName(), "front");
}

TEST_F(DeviceTest, ModuleWithoutStatusForTwoSecondsIsNotConnected) {
    counter.count = 50000;
    EXPECT_EQ(device.getStatusText(), "Not connected") << "never spoke";
    giveStatus(100, 77);
    counter.count += 1999;
    EXPECT_EQ(device.getStatusText(), "Connected");
    EXPECT_EQ(device.getSerialNumberText(), "77");
    counter.count += 1;
    EXPECT_EQ(device.getStatusText(), "Not connected");
    EXPECT_EQ(device.getSerialNumberText(), "N/A");
    giveStatus(103, 77, std::string(50, 'x'));
    EXPECT_EQ(device.getSerialNumberText(), std::string(49, 'x')) << "no terminator on the wire";
    read({wire::tecmpData(0x41, {{0x10, 105'000000000, wire::can(1, {})}})});
    EXPECT_FALSE(device.isConnected()) << "data still flow, status doesn't";
}

TEST_F(DeviceTest, DeviceTimeRunsOnOnTheCounter) {
    const struct {
        std::uint64_t frequency, arrival, now, latest;
        DeviceTime expected;
    } cases[] = {
        {1000, 5900, 6100, 10'900000000, {11, 100000000}},
        {1000, 5100, 5900, 10'100000000, {10, 900000000}},
        {1000, 5900, 5700, 10'100000000, {9, 900000000}},
        {10000000, 9999999, 10000001, 7'999999800, {8, 0}},
        {3, 1, 2, 0, {0, 333333333}},
        // The product of a count and 1e9 exceeds 64 bits.
        {3000000000, 6000000000'000000000, 6000000006'000000000, 1'000000000, {3, 0}},
    };
    for (const auto& row : cases) {
        counter.frequency = row.frequency;
        counter.count = row.arrival;
        read({wire::tecmpData(0x41, {{0x10, row.latest, wire::can(1, {})}})});
        counter.count = row.now;
        EXPECT_EQ(device.getDeviceNow(), row.expected) << row.frequency;
    }
}

TEST(SequenceCountsTest, WhatComesLateOrTwiceIsNotMissing) {
    struct Case {
        std::vector<std::uint16_t> counters;
        std::uint64_t gaps;
        std::uint64_t missing;
    };
    for (const auto& [counters, gaps, missing] :
         {Case{{65534, 65535, 0, 1}, 0, 0}, Case{{65534, 2, 3}, 1, 3}, Case{{5, 7, 6, 8}, 2, 0},
          Case{{5, 9, 9, 7, 10}, 3, 2}, Case{{700, 0, 1, 2, 4}, 3, 1},
          Case{{3, 5, 2000, 2001}, 2, 1}, Case{{5, 7, 4, 8}, 2, 1}, Case{{5, 8, 6, 7, 9}, 3, 0},
          Case{{900, 902, 0, 1, 2}, 3, 1}, Case{{64, 65, 130, 67, 66}, 3, 63},
          Case{{900, 903, 702, 904, 703, 905}, 3, 2}, Case{{5, 3, 4, 1, 2, 6}, 4, 0},
          Case{{0, 101, 0, 1, 2}, 3, 100}, Case{{0, 1001, 2003}, 2, 1000},
          Case{{5, 8, 6, 6, 6, 9}, 4, 1}, Case{{3000, 1, 5}, 2, 3}}) {
        SequenceCounts counts;
        for (const std::uint16_t counter : counters) {
            counts.note(counter);
        }
        EXPECT_EQ(std::pair(counts.gaps, counts.missing), std::pair(gaps, missing))
            << testing::PrintToString(counters);
    }
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
    while (!done) {
        const auto value = latest.load();
        EXPECT_EQ(std::count(value.begin(), value.end(), value[0]), 19);
    }
    writer.join();
}

}  // namespace
