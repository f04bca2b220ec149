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
    CountedRef<StationHost> host = makeObject<StationHost>(counter, StationHostOptions{});
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

}  // namespace
}  // namespace station
