#include "sync/soft_sync_algorithm.h"

namespace Kestrova::Utils::Synchronization {

void SoftSyncBase::Initialize() {
    Reset();
}

void SoftSyncBase::Reset() {
    lastMasterTime = 0.0;
    lastSlaveTime = 0.0;
}

void SoftSyncAlgorithm::Initialize() {
    SoftSyncBase::Initialize();
    slope = period > 0.0 ? 1.0 / period : 1.0;
    const auto memory = static_cast<double>(minSamples);
    forgetFactor = (memory - 1.0) / memory;
}

void SoftSyncAlgorithm::Reset() {
    SoftSyncBase::Reset();
    sampleCount = 0;
    masterBase = 0.0;
    slaveBase = 0.0;
    sumWeight = 0.0;
    sumSlave = 0.0;
    sumMaster = 0.0;
    sumMasterSlave = 0.0;
    sumSlaveSquared = 0.0;
}

void SoftSyncAlgorithm::CommitRate() {
    if (sampleCount > minSamples) {
        period = 1.0 / slope;
    }
}

void SoftSyncAlgorithm::Update(double masterTime, double slaveTime) {
    if (!accepts(masterTime, slaveTime)) {
        return;
    }
    if (masterTime - masterBase > baseReach || slaveTime - slaveBase > baseReach) {
        moveBase(masterTime, slaveTime);
    }
    const double master = masterTime - masterBase;
    const double slave = slaveTime - slaveBase;
    ++sampleCount;
    sumWeight = forgetFactor * sumWeight + 1.0;
    sumSlave = forgetFactor * sumSlave + slave;
    sumMaster = forgetFactor * sumMaster + master;
    sumMasterSlave = forgetFactor * sumMasterSlave + master * slave;
    sumSlaveSquared = forgetFactor * sumSlaveSquared + slave * slave;
    if (sampleCount > minSamples) {
        slope = (sumMasterSlave - sumMaster * sumSlave / sumWeight) /
                (sumSlaveSquared - sumSlave * sumSlave / sumWeight);
    }
    lastMasterTime = masterTime;
    lastSlaveTime = slaveTime;
    offset = (sumMaster - sumSlave * slope) / sumWeight + masterBase;
}

void SoftSyncAlgorithm::moveBase(double masterTime, double slaveTime) {
    const double master = masterTime - masterBase;
    const double slave = slaveTime - slaveBase;
    sumMasterSlave -= slave * sumMaster + master * (sumSlave - sumWeight * slave);
    sumSlaveSquared -= slave * (2.0 * sumSlave - sumWeight * slave);
    sumMaster -= sumWeight * master;
    sumSlave -= sumWeight * slave;
    masterBase = masterTime;
    slaveBase = slaveTime;
}

bool SoftSyncAlgorithm::accepts(double masterTime, double slaveTime) const {
    return masterTime > 0.0 && slaveTime > 0.0 && masterTime >= lastMasterTime &&
           slaveTime >= lastSlaveTime;
}

}  // namespace Kestrova::Utils::Synchronization
