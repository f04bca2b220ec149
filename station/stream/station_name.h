#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "station/nats/nats_connection.h"

namespace station {

/// Another station has the name and is alive.
class NameTaken : public NatsError {
  public:
    using NatsError::NatsError;
};

/// The name of a station among all that publish: an entry of the bucket of heartbeats, which the
/// owner of the name renews. Used on one thread.
///
/// An entry of another owner is taken over once it wasn't renewed for five seconds, by this
/// machine's steady clock: clocks of different machines aren't compared.
class StationName {
  public:
    /// `report` gets what the user must know, such as that this machine's clock is wrong.
    StationName(std::string stationName, int bucketReplicas,
                std::function<void(std::string)> reportToUser);

    const std::string& getToken() const { return token; }
    /// Of this process: machine, process, and when it began.
    const std::string& getOwner() const { return owner; }

    /// Throws `NameTaken`, or `NatsError`: another station may have it and has to be watched for a
    /// while, or the bucket can't be used. `wasAway`: no broker could be reached since the last
    /// call, so nobody knows whether the other one is silent.
    void claim(const NatsConnection& connection, jsCtx* jetStream, bool wasAway);
    /// Renews it, if the entry is still as this station has left it. Doesn't wait for the broker,
    /// whose answer goes to `reply`; nothing is sent while one is awaited. Throws `NatsError`.
    void beat(const NatsConnection& connection, const std::string& json, const std::string& reply);
    bool isBeating() const { return isAwaited; }
    /// That answer. False: another station has changed the entry.
    bool noteBeaten(const StreamAnswer& answer);

  private:
    using Clock = std::chrono::steady_clock;

    KeyValueStore openBucket(const NatsConnection& connection, jsCtx* jetStream) const;
    void compareClocks(kvStore* bucket, std::int64_t putAt);

    const std::string name;
    const std::string token;
    const std::string owner;
    const int replicas;
    const std::function<void(std::string)> report;

    std::uint64_t ownRevision = 0;    ///< of the entry, as this station has left it
    bool isAwaited = false;           ///< the answer to a heartbeat
    std::uint64_t otherRevision = 0;  ///< of another owner's entry
    Clock::time_point otherSeen;      ///< when it had that first
    bool isOtherAlive = false;
    bool isClockReported = false;
};

}  // namespace station
