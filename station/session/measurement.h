#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "station/recording/recording_set.h"
#include "station/session/measurement_recorder.h"
#include "station/session/session.h"

namespace station {

/// One measurement of a session, from its start to the closing of its recordings: polls the
/// plug-in, writes what came into the host's channels, begins a new part in time, drains the tail.
///
///     start
///         poll, every `period`, until isOver; requestStop somewhere between
///     close
///
/// A failure of the plug-in ends the measurement: it comes out of `poll` as `PluginError`, what is
/// in the channels is recorded, and `isOver` is true. Called on the host's thread. Session and
/// recordings aren't owned and outlive this.
class Measurement {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr auto period = std::chrono::milliseconds(20);

    Measurement(Session& measuringSession, RecordingSet& recordingSet);

    /// Null for none; not owned.
    void setListener(MessageListener* listener) { recorder.setListener(listener); }
    /// Throws `PluginError`.
    void start();
    /// Returns what the user must know: lost messages, failed recordings, network interfaces that
    /// come and go.
    std::vector<std::string> poll(Clock::time_point now);
    /// Marks the end: what was stamped up to now is still waited for.
    void requestStop();
    bool isOver() const { return over; }
    /// Writes all out and closes the recordings; returns what the user must know.
    std::vector<std::string> close();
    /// Whether messages were lost by any cause that is known.
    bool hasLost() const { return lost; }

    Summary summarize();

  private:
    void read(std::vector<std::string>& texts);
    void readDropped(std::vector<std::string>& texts);
    void readInterfaceMessages(std::vector<std::string>& texts);
    void readCounts(std::vector<std::string>& texts);
    /// The name of the module whose clock leads, while the measurement waits for it; else empty.
    std::string awaitedLeader();
    void takeStep();

    Session& session;
    RecordingSet& recordings;
    MeasurementRecorder recorder;
    Clock::time_point nextFlush;
    Clock::time_point nextCounts;
    std::uint64_t droppedTold = 0;               ///< frames
    std::vector<std::string> interfaceMessages;  ///< the first of them
    std::vector<std::string> untold;  ///< for `close`, as a failure came out of `poll` instead
    bool stopping = false;
    bool over = false;
    bool lost = false;
    std::string missedLeader;  ///< the module that was awaited when it ended; empty: none
};

}  // namespace station
