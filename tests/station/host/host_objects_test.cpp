#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_error.h"
#include "station/host/station_host.h"
#include "tests/station/host/stand_ins.h"

namespace station {
namespace {

using testing::ElementsAre;

class HostObjects : public testing::Test {
  protected:
    StillCounter counter;
    CountedRef<StationHost> host = makeCounted<StationHost>(counter, StationHostOptions{});
};

TEST_F(HostObjects, ThePositionStandsStillUntilItIsMoved) {
    MasterClock& clock = host->clock();
    counter.pass(3.0);
    EXPECT_EQ(clock.getSeconds(), 0.0);
    clock.start();
    counter.pass(70.0005);
    EXPECT_EQ(clock.getPosition(), 0);
    EXPECT_DOUBLE_EQ(clock.getSeconds(), 70.0005);
    clock.movePosition();
    EXPECT_EQ(clock.getPositionInBuffer(), 70000 - 65536);
    EXPECT_EQ(clock.getWrapCount(), 1);
    clock.startNextPart(69.0);
    EXPECT_EQ(clock.getPosition(), 0);
    EXPECT_NEAR(clock.getSeconds(), 1.0005, 1e-9);
    clock.stop();
    counter.pass(5.0);
    EXPECT_NEAR(clock.getSeconds(), 1.0005, 1e-9);
}

class Clocks : public HostObjects {
  protected:
    Clocks() {
        device = hostObject(CountedRef<GnssDeviceList>(&host->gnssDevices()),
                            &HostGnssDeviceList::createDevice);
        device->setDefaultSyncMode(12);
        device->addSyncMode(12);
        device->addSyncMode(2);
    }
    HostResult attach(const wchar_t* name, HostGnssDevice* which) {
        return hostObject(CountedRef<GnssDeviceCollection>(&host->gnssPlaces()),
                          &HostGnssDeviceCollection::open, name)
            ->attach(which);
    }
    std::int32_t mode() { return hostValue(device, &HostGnssDevice::getSyncMode); }

    CountedRef<HostGnssDevice> device;
};

TEST_F(Clocks, TheUsersChoiceReachesItsDeviceAndNoOther) {
    EXPECT_EQ(mode(), 2);
    host->gnssPlaces().choose(L"Front", {12, true});
    host->gnssPlaces().choose(L"Fornt", {12, false});
    EXPECT_EQ(attach(L"Rear", device.get()), HostCode::success);
    EXPECT_EQ(mode(), 2);
    EXPECT_EQ(attach(L"Front", device.get()), HostCode::success);
    EXPECT_EQ(mode(), 12);
    EXPECT_EQ(hostValue(device, &HostGnssDevice::getClockSource), hostTrue);
    EXPECT_THAT(host->gnssPlaces().getChoicesWithoutDevice(), ElementsAre(L"Fornt"));
}

}  // namespace
}  // namespace station
