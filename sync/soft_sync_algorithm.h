#pragma once

#include <cstdint>

namespace Kestrova::Utils::Synchronization {

/// Relates two free-running clocks in software: the master, the host's acquisition time, and the
/// slave, the time of a capture module since an origin that the owner chooses. Both in seconds.
///
/// The owner calls `Initialize` at the start of a run, then `Update` with pairs of readings and the
/// two conversions in any order, `Reset` when the slave's time has jumped, and `CommitRate` at the
/// end of the run. Nothing enforces that order, nothing throws or allocates. Not synchronised.
class SoftSyncBase {
  public:
    /// What both conversions give as long as no reading was accepted since the last `Reset`. It
    /// can't be distinguished from a result of that value.
    static constexpr double notPlaced = -1.0;

    SoftSyncBase() = default;
    SoftSyncBase(const SoftSyncBase&) = default;
    SoftSyncBase& operator=(const SoftSyncBase&) = default;
    virtual ~SoftSyncBase() = default;

    /// Prepares for a new run, which starts from the rate of `GetPeriod`.
    virtual void Initialize();
    /// Keeps what was learned of the rate for the next run.
    virtual void CommitRate() = 0;
    /// Takes a reading of both clocks, made as nearly at once as can be.
    virtual void Update(double masterTime, double slaveTime) = 0;
    virtual double SlaveToMaster(double slaveTime) const = 0;
    virtual double MasterToSlave(double masterTime) const = 0;
    /// Slave seconds per master second at the next `Initialize`, which takes 1.0 for anything that
    /// isn't above 0.0.
    virtual void SetPeriod(double slavePerMaster) { period = slavePerMaster; }
    virtual double GetPeriod() const { return period; }
    /// Forgets the readings, but not what was learned from them.
    virtual void Reset();

    /// Whether a reading was accepted since the last `Reset`.
    bool IsPlaced() const { return lastMasterTime > 0.0; }
    /// Master seconds by which the latest reading lies above the line; 0.0 without one.
    double GetResidual() const {
        return IsPlaced() ? lastMasterTime - SlaveToMaster(lastSlaveTime) : 0.0;
    }

  protected:
    // Of the last accepted reading, 0.0 if there is none.
    double lastMasterTime = 0.0;
    double lastSlaveTime = 0.0;
    double period = 1.0;
};

/// Fits a straight line of master over slave by least squares, in which a reading's weight halves
/// with each later one: the line follows the last few readings, and a slave whose rate drifts stays
/// in step. The price is that noise of the readings goes into the line almost unreduced.
///
/// The first reading after a `Reset` places the line with the old slope, and the third is the first
/// to change the slope. A reading that goes back in either time, or isn't above 0.0 in both, is
/// refused without a word: it changes nothing. If all the readings there are have the same slave
/// time, the line is not finite, until another comes.
///
/// Running sums take the place of the readings. They count times from a base that follows the
/// readings: from zero, the squares would swallow the differences, and at a hundred readings a
/// second the line would be off by a millisecond after a day and be none after a week.
class SoftSyncAlgorithm final : public SoftSyncBase {
  public:
    void Initialize() override;
    void CommitRate() override;
    void Update(double masterTime, double slaveTime) override;
    double SlaveToMaster(double slaveTime) const override {
        return lastMasterTime > 0.0 ? (slaveTime - slaveBase) * slope + offset : notPlaced;
    }
    double MasterToSlave(double masterTime) const override {
        const bool placed = lastSlaveTime > 0.0 && slope != 0.0;
        return placed ? (masterTime - offset) / slope + slaveBase : notPlaced;
    }
    void Reset() override;
    /// Master seconds per slave second.
    double GetSlope() const { return slope; }

  private:
    /// How far a reading may lie from the base, in seconds.
    static constexpr double baseReach = 256.0;

    bool accepts(double masterTime, double slaveTime) const;
    /// Makes the sums those about another base.
    void moveBase(double masterTime, double slaveTime);

    double slope = 1.0;   ///< master seconds per slave second
    double offset = 0.0;  ///< master time at `slaveBase`
    std::int32_t minSamples = 2;
    std::int64_t sampleCount = 0;

    double masterBase = 0.0;
    double slaveBase = 0.0;

    // Sums over the readings, each with its weight, of times since the base.
    double sumWeight = 0.0;
    double sumSlave = 0.0;
    double sumMaster = 0.0;
    double sumMasterSlave = 0.0;
    double sumSlaveSquared = 0.0;
    double forgetFactor = 0.0;  ///< what a reading's weight shrinks by at the next one
};

}  // namespace Kestrova::Utils::Synchronization
