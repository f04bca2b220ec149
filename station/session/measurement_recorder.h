#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin.h"
#include "station/host/station_host.h"
#include "station/recording/bus_record.h"
#include "station/recording/horizon.h"
#include "station/recording/recording_queue.h"
#include "station/recording/unique_names.h"
#include "station/session/summary.h"

namespace station {

/// Sees each message of a measurement as it is recorded, on the host's thread.
class MessageListener {
  public:
    /// `channel` is the place in `Summary::channels`; the record is there for the call only.
    virtual void onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                           std::size_t size) = 0;

  protected:
    ~MessageListener() = default;
};

/// Reads the used bus channels of the station behind the plug-in: writes each message into the
/// recordings, at the UTC time of its host time, and keeps what the summary shows.
///
/// A channel of data type 14 is a CAN channel, one of type 12 a LIN channel; others aren't bus
/// channels. Within a channel the UTC time never goes back, also not across the parts of a
/// measurement. A message that was overwritten before it was read is counted and reported.
///
/// Called on the host's thread. Host and recordings aren't owned and outlive this.
class MeasurementRecorder {
  public:
    MeasurementRecorder(StationHost& stationHost, RecordingQueue& recordingQueue);
    ~MeasurementRecorder();
    MeasurementRecorder(const MeasurementRecorder&) = delete;
    MeasurementRecorder& operator=(const MeasurementRecorder&) = delete;

    /// Takes in the channels that are used now, under names of their own: a second "Front" becomes
    /// "Front (2)". Once, before the measurement starts.
    void addChannels(const std::vector<Module>& modules);
    /// One more; not owned, and outlives this.
    void addListener(MessageListener& listener) { listeners.push_back(&listener); }
    /// After each periodic call. The recordings get what lies some calls back, in the order of
    /// time.
    void takeNew();
    /// Before the next part of the measurement begins.
    void endPart();
    /// A text for each channel that lost messages since the last call, because they were
    /// overwritten before they could be read.
    std::vector<std::string> takeOverruns();
    /// Keeps what the plug-in counts for the summary. Returns a text for each channel of which the
    /// plug-in lost messages since the last call, which sets `hasLost`, or gave them another time,
    /// and for the first that it can't deliver.
    std::vector<std::string> takeCounts(const std::vector<ChannelStatistics>& statistics,
                                        bool& hasLost);

    /// Times count from the start of the first part. A channel without an owner among the modules
    /// goes to a module without a name behind them.
    Summary summarize(std::vector<Module> modules);

  private:
    class Channel;

    std::int64_t startNanoseconds() const;
    double secondsSinceStart() const;
    void updateRates();

    StationHost& host;
    RecordingQueue& recordings;
    std::vector<MessageListener*> listeners;
    UniqueNames names;
    std::vector<std::unique_ptr<Channel>> channels;
    /// The first for what is under way in the network and the system, the second for a process that
    /// was held up for longer.
    Horizon horizon{10'000'000, 5};
    std::optional<std::int64_t> firstStart;  ///< UTC nanoseconds, from the second part on
    std::uint64_t unused = 0;                ///< messages of channels that aren't used
    double markTime = 0.0;  ///< when the rates were worked out, seconds since the start
};

}  // namespace station
