#include "sync/soft_sync_algorithm.h"

namespace {

using Kestrova::Utils::Synchronization::SoftSyncAlgorithm;

constexpr double rounding = 1e-9;

using Reading = std::pair<double, double>;  // master, slave

class SoftSyncTest : public ::testing::Test {
  protected:
    SoftSyncTest() { sync.Initialize(); }

    void update(const std::vector<Reading>& readings) {
        for (const auto& [master, slave] : readings) {
            sync.Update(master, slave);
        }
    }
    /// The line, read off where the sums have no part in it.
    double slope() const { return sync.SlaveToMaster(2.0) - sync.SlaveToMaster(1.0); }
    double offset() const { return sync.SlaveToMaster(0.0); }
    void expectNotPlaced(const char* when) const {
        EXPECT_EQ(sync.SlaveToMaster(3.0), -1.0) << when;
        EXPECT_EQ(sync.MasterToSlave(3.0), -1.0) << when;
    }

    SoftSyncAlgorithm sync;
};

TEST_F(SoftSyncTest, NothingIsConvertedBeforeTheFirstReading) {
    SoftSyncAlgorithm fresh;
    EXPECT_EQ(fresh.SlaveToMaster(3.0), -1.0);
    EXPECT_EQ(fresh.MasterToSlave(3.0), -1.0);
    expectNotPlaced("after Initialize");
    update({{7.0, 1.0}, {9.0, 2.0}, {11.0, 3.0}});
    EXPECT_NEAR(sync.MasterToSlave(9.0), 2.0, rounding);
    sync.Reset();
    expectNotPlaced("after Reset");
    sync.Update(100.0, 10.0);
    EXPECT_NEAR(slope(), 2.0, rounding) << "the line went with the readings";
    EXPECT_NEAR(sync.SlaveToMaster(11.0), 102.0, rounding);
}

TEST_F(SoftSyncTest, RefusedReadingsChangeNothing) {
    const std::vector<Reading> refused = {{0.0, 3.0},         {-1.0, 3.0}, {13.0, 0.0},
                                          {13.0, -1.0},       {11.9, 3.0}, {13.0, 1.9},
                                          {std::nan(""), 3.0}};
    update({{0.0, 1.0}, {1.0, 0.0}});
    expectNotPlaced("with zeros alone");
    update({{10.0, 1.0}, {12.0, 2.0}});
    const double before = offset();
    update(refused);
    EXPECT_EQ(offset(), before);
    EXPECT_EQ(slope(), 1.0) << "a refused reading was counted";
    sync.Update(14.0, 3.0);
    EXPECT_NEAR(slope(), 2.0, rounding) << "a refused reading is in the sums";
}

TEST_F(SoftSyncTest, UprightLineHealsAndFlatOneHasNoInverse) {
    update({{7.0, 1.0}, {7.0, 1.0}, {7.0, 1.0}});
    EXPECT_FALSE(std::isfinite(offset()));
    sync.Update(9.0, 2.0);
    EXPECT_NEAR(slope(), 2.0, rounding);
    EXPECT_NEAR(offset(), 5.0, rounding);
    sync.Initialize();
    update({{5.0, 1.0}, {5.0, 2.0}, {5.0, 3.0}});
    EXPECT_EQ(sync.SlaveToMaster(9.0), 5.0);
    EXPECT_EQ(sync.MasterToSlave(5.0), -1.0);
}

TEST_F(SoftSyncTest, RateOfOneRunStartsTheNext) {
    update({{7.0, 1.0}, {9.0, 2.0}});
    sync.CommitRate();
    EXPECT_EQ(sync.GetPeriod(), 1.0) << "two readings know no rate";
    sync.Update(11.0, 3.0);
    sync.CommitRate();
    EXPECT_NEAR(sync.GetPeriod(), 0.5, rounding);
    sync.Initialize();
    sync.Update(50.0, 4.0);
    EXPECT_NEAR(slope(), 2.0, rounding);
    for (const double bad : {0.0, -2.0}) {
        sync.SetPeriod(bad);
        sync.Initialize();
        sync.Update(50.0, 4.0);
        EXPECT_EQ(slope(), 1.0) << bad;
    }
}

/// The lines are worked out in fractions, with weights that halve from each reading to the one
/// before. At the larger scale the sums move to another base on the way; after weeks they could not
/// tell the readings from each other without one.
TEST_F(SoftSyncTest, ScatteredReadingsFitAsWeightedLeastSquaresDoesAlsoAfterWeeks) {
    for (const auto& [scale, start] :
         {std::pair(1.0, 0.0), {100.0, 0.0}, {200.0, 0.0}, {1.0, 2e6}}) {
        sync.Initialize();
        update({{start + 3.0 * scale, start + 1.0 * scale},
                {start + 4.5 * scale, start + 2.25 * scale}});
        for (const auto& [master, slave, expectedSlope, expectedOffset] :
             {std::array{5.0, 3.0, 26.0 / 27.0, 409.0 / 189.0},
              {7.25, 4.0, 730.0 / 471.0, 139.0 / 157.0},
              {9.0, 5.5, 17198.0 / 12213.0, 15907.0 / 12213.0}}) {
            sync.Update(start + master * scale, start + slave * scale);
            const double place = start + expectedOffset * scale;
            EXPECT_NEAR(sync.SlaveToMaster(start), place, rounding * scale) << master;
            EXPECT_NEAR(sync.SlaveToMaster(start + 1.0) - place, expectedSlope, rounding * scale);
            EXPECT_NEAR(sync.MasterToSlave(place), start, rounding * scale) << master;
        }
    }
}

}  // namespace
