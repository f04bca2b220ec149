#include "sync/soft_sync_algorithm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <utility>
#include <vector>

namespace {

using Kestrova::Utils::Synchronization::SoftSyncAlgorithm;

constexpr double rounding = 1e-9;
constexpr double microsecond = 1e-6;
constexpr double tick = 0.01;

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

TEST_F(SoftSyncTest, SlopeStaysUntilTheThirdReading) {
    sync.Update(10.0, 1.0);
    EXPECT_DOUBLE_EQ(offset(), 9.0);
    sync.Update(12.0, 2.0);
    EXPECT_DOUBLE_EQ(slope(), 1.0);
    EXPECT_NEAR(offset(), (0.5 * 9.0 + 10.0) / 1.5, rounding) << "the newer reading counts double";
    sync.Update(14.0, 3.0);
    EXPECT_NEAR(slope(), 2.0, rounding);
    EXPECT_NEAR(offset(), 8.0, rounding);
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

TEST_F(SoftSyncTest, LineHealsAfterReadingsAtOneSlaveTime) {
    update({{7.0, 1.0}, {7.0, 1.0}, {7.0, 1.0}});
    EXPECT_FALSE(std::isfinite(offset()));
    sync.Update(9.0, 2.0);
    EXPECT_NEAR(slope(), 2.0, rounding);
    EXPECT_NEAR(offset(), 5.0, rounding);
}

TEST_F(SoftSyncTest, FlatLineHasNoInverse) {
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

/// Weighted least squares over stored readings, about their centre and in long double.
class ReferenceFit {
  public:
    void add(double master, double slave) { readings.emplace_back(master, slave); }

    double slaveToMaster(double slave) const {
        // What lies 64 readings back has no weight left.
        const std::size_t first = readings.size() - std::min<std::size_t>(readings.size(), 64);
        long double weights = 0, masterMean = 0, slaveMean = 0, covariance = 0, variance = 0;
        const auto forAll = [&](auto&& use) {
            for (std::size_t place = first; place < readings.size(); ++place) {
                const auto age = static_cast<int>(readings.size() - 1 - place);
                use(std::ldexp(1.0L, -age), readings[place].first, readings[place].second);
            }
        };
        forAll([&](long double weight, long double m, long double s) {
            weights += weight;
            masterMean += weight * m;
            slaveMean += weight * s;
        });
        masterMean /= weights;
        slaveMean /= weights;
        forAll([&](long double weight, long double m, long double s) {
            covariance += weight * (m - masterMean) * (s - slaveMean);
            variance += weight * (s - slaveMean) * (s - slaveMean);
        });
        return static_cast<double>(masterMean + covariance / variance * (slave - slaveMean));
    }

  private:
    std::vector<Reading> readings;
};

/// Pairs of readings every tick, with a rate error and noise on the slave's time.
class Readings {
  public:
    Readings(double start, double ppm, double noiseSeconds)
        : time(start), rate(1.0 + ppm * 1e-6), noise(noiseSeconds) {}

    Reading next() {
        time += tick;
        const double unit = static_cast<double>(generator()) / 4294967296.0;
        return {time, (time + ahead) * rate + noise * (2.0 * unit - 1.0)};
    }
    double masterAt(double slave) const { return slave / rate - ahead; }

  private:
    static constexpr double ahead = 3.0;  // what the slave started before the master

    double time;
    double rate;
    double noise;
    std::mt19937 generator{12345};
};

TEST_F(SoftSyncTest, NoisyReadingsFitAsTheReferenceDoes) {
    constexpr double noise = 0.001;
    Readings readings(0.0, 500.0, noise);
    ReferenceFit reference;
    double worstToReference = 0.0;
    double worstToTruth = 0.0;
    for (int count = 1; count <= 5000; ++count) {
        const auto [master, slave] = readings.next();
        sync.Update(master, slave);
        reference.add(master, slave);
        if (count > 10) {
            const double item = slave - tick;
            const double converted = sync.SlaveToMaster(item);
            worstToReference =
                std::max(worstToReference, std::abs(converted - reference.slaveToMaster(item)));
            worstToTruth = std::max(worstToTruth, std::abs(converted - readings.masterAt(item)));
        }
    }
    EXPECT_LT(worstToReference, microsecond);
    EXPECT_LT(worstToTruth, 2.0 * noise) << "the fit makes noise worse";
    EXPECT_GT(worstToTruth, 0.1 * noise) << "the noise didn't reach the fit";
}

TEST_F(SoftSyncTest, ExactReadingsStayOnTheLineForWeeks) {
    for (const double ppm : {-500.0, -50.0, 0.0, 50.0, 500.0}) {
        for (const double start : {0.0, 250.0, 86400.0, 25.0 * 86400.0}) {
            Readings readings(start, ppm, 0.0);
            sync.Initialize();
            double worst = 0.0;
            for (int count = 1; count <= 60000; ++count) {
                const auto [master, slave] = readings.next();
                sync.Update(master, slave);
                if (count > 10) {
                    const double item = slave - 2.0 * tick;
                    worst = std::max({worst,
                                      std::abs(sync.SlaveToMaster(item) - readings.masterAt(item)),
                                      std::abs(sync.MasterToSlave(master) - slave)});
                }
            }
            EXPECT_LT(worst, microsecond) << ppm << " ppm from " << start << " s";
        }
    }
}

}  // namespace
