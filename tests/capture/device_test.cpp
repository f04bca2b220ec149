#include "capture/cmp_device.h"

#include "tests/support/capture_bench.h"

namespace {

constexpr std::uint32_t unknown = 65535;
constexpr std::uint32_t linCombo = 0;
constexpr std::uint32_t canCombo = 1;
constexpr std::uint32_t neoviFire3 = 2;

class DeviceTest : public ::testing::Test, protected CaptureBench {
  protected:
    /// A status with the device time `seconds` comes in.
    void giveStatus(std::uint64_t seconds, std::uint32_t serial, const std::string& text = {}) {
        read({wire::tecmp(1, 1, {{0, seconds * 1000000000, wire::cmStatus(0x41, serial, text)}})});
    }

    CmpDevice& device = add(canCombo, 1);
};

TEST_F(DeviceTest, ConfigIdIsPartOfTheCmIdAndItsLowByteOutlastsTheType) {
    const struct {
        std::uint32_t from, to;
        std::uint16_t set, cmId;
        const char* configId;
    } cases[] = {{canCombo, canCombo, 15, 0x4F, "0xF"},
                 {canCombo, canCombo, 0x123, 0x123, "0x3"},
                 {linCombo, linCombo, 2, 0x32, "0x2"},
                 {linCombo, linCombo, 16, 16, "0x0"},
                 {neoviFire3, neoviFire3, 7, 7, "0x7"},
                 {neoviFire3, neoviFire3, 0x1AB, 0x1AB, "0x1AB"},
                 {unknown, unknown, 5, 5, "0x5"},
                 {canCombo, linCombo, 5, 0x35, "0x5"},
                 {linCombo, canCombo, 15, 0x4F, "0xF"},
                 {canCombo, 7, 5, 5, "0x5"},
                 {neoviFire3, canCombo, 0x1A7, 0xE7, "0x7"},
                 {neoviFire3, linCombo, 0xF0, 0x120, "0x0"}};
    for (const auto& row : cases) {
        const auto fresh = devices.add();
        EXPECT_EQ(fresh->getCmId(), 0x40);
        fresh->setTypeById(row.from);
        fresh->setConfigId(row.set);
        fresh->setTypeById(row.to);
        EXPECT_EQ(fresh->getCmId(), row.cmId) << row.from << " to " << row.to;
        EXPECT_EQ(fresh->getConfigIdText(), row.configId) << row.from << " to " << row.to;
        const auto other = devices.add();
        other->setTypeById(row.to);
        other->setCmId(row.cmId);
        EXPECT_EQ(other->getCmId(), row.cmId) << row.from << " to " << row.to;
    }
}

TEST_F(DeviceTest, NewTypeKeepsTheUsersName) {
    EXPECT_EQ(device.getName(), "Technica CAN combo");
    device.setTypeById(linCombo);
    EXPECT_EQ(device.getName(), "Technica LIN combo");
    device.setName("front");
    EXPECT_EQ(clockOf(device).deviceName, "front");
    device.setTypeById(neoviFire3);
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
