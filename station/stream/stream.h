#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "station/nats/nats_options.h"
#include "station/recording/recording_series.h"
#include "station/session/summary.h"

namespace station {

struct StreamSettings {
    NatsOptions nats;
    std::string streamName;
    int replicas = 0;  ///< these three for a stream that isn't there; 0: as the broker has it
    std::int64_t mostNanoseconds = 0;
    std::int64_t mostBytes = 0;
    std::string station;  ///< name, UTF-8
    bool isByChannel = false;
    std::string spool;  ///< folder
    std::uint64_t spoolBytes = 0;
    std::size_t batchBytes = 0;
    std::chrono::milliseconds batchAge{};
};

/// A station's messages on their way to a broker, by way of a spool on the disk. What earlier
/// runs have left there is sent while nothing newer waits.
///
/// Called on the host's thread, and waits for nothing but the end. A module that is loaded on
/// demand has it.
class Stream {
  public:
    /// As `end`.
    virtual ~Stream() = default;

    /// The spool as a recording of a measurement, to be used as any other. Throws `FileError`.
    virtual std::unique_ptr<RecordingSeries> openSession(const std::string& session,
                                                         std::uint64_t leastFreeBytes) = 0;
    /// For the heartbeat: messages a second, and how many the measurement lost.
    virtual void noteMeasurement(double rate, std::uint64_t lost) = 0;
    virtual StreamSummary summarize() const = 0;
    /// What the user must know since the last call.
    virtual std::vector<std::string> takeTexts() = 0;
    /// Stops sending, in three seconds at most; what isn't acknowledged stays in the spool.
    virtual void end() = 0;
};

/// What the module exports, by the name below. Throws `UserError`: the spool can't be used, or the
/// caller is of another version.
using OpenStream = Stream* (*)(const char* version, const StreamSettings& settings);
inline constexpr const char* openStreamName = "openStream";

/// Loads the module, which stays loaded. Throws `UserError`, `PluginError`.
std::unique_ptr<Stream> openStream(const StreamSettings& settings);

}  // namespace station
