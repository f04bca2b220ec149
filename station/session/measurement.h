#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/standing_clocks.h"
#include "station/recording/recording_queue.h"
#include "station/session/frame_recorder.h"
#include "station/session/measurement_recorder.h"
#include "station/session/session.h"

namespace station {

/// One measurement of a session, from its start to the closing of its recordings: polls the
/// plug-in, records what came into the host's channels, begins a new part in time, drains the tail.
///
///     start
///         poll, every `period`, until isOver; requestStop somewhere between
///
/// A failure of the plug-in ends the measurement: it comes out of `poll` as `PluginError`, and what
/// is in the channels is recorded; `poll` goes on until `isOver`. Called on the host's thread, and
/// never waits for the disk. The session isn't owned and outlives this.
class Measurement {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr auto period = std::chrono::milliseconds(20);

    /// `mostWaiting`: bytes of messages that may wait for the disk, and the same of frames.
    Measurement(Session& measuringSession, std::shared_ptr<RecordingSet> recordingSet,
                std::size_t mostWaiting = RecordingQueue::defaultLimit);

    /// The frames themselves are recorded too. Before the start.
    void recordFrames(std::shared_ptr<RecordingSet> frameRecordings);
    /// What came in is given to the recordings so often, 0.5 s by default and at most.
    void setFlushPeriod(std::chrono::milliseconds time);
    /// As that of `MeasurementRecorder`.
    void addListener(MessageListener& listener) { recorder.addListener(listener); }
    /// Throws `PluginError`.
    void start();
    /// Returns what the user must know: lost messages, failed recordings, network interfaces that
    /// come and go.
    std::vector<std::string> poll(Clock::time_point now);
    /// Each recording goes on in another file.
    void endParts();
    /// Marks the end: what was stamped up to now is still waited for.
    void requestStop();
    /// A disk that takes nothing for half a second at the end isn't waited for. Lost is then what
    /// isn't in the recordings, not what the disk only hasn't confirmed.
    void leaveStalledDisk() { leavesStalledDisk = true; }
    /// The plug-in has stopped and the recordings are closed.
    bool isOver() const;
    /// Whether messages were lost by any cause that is known, or a recording failed.
    bool hasLost() const;

    Summary summarize();

  private:
    static constexpr auto longestFlushPeriod = std::chrono::milliseconds(500);

    void read(std::vector<std::string>& texts);
    void readFrames(std::vector<std::string>& texts);
    void readDropped(std::vector<std::string>& texts);
    void readInterfaceMessages(std::vector<std::string>& texts);
    void readCounts(std::vector<std::string>& texts);
    void readClocks(Clock::time_point now, std::vector<std::string>& texts);
    std::vector<ClockStatistics> getClocks() const;
    void readSequences(std::vector<std::string>& texts);
    /// The name of the module whose clock leads, while the measurement waits for it; else empty.
    std::string awaitedLeader();
    void takeStep();
    void noteJumps();
    void giveAccount();
    void beginClose();
    void leaveStalled(std::vector<std::string>& texts);

    Session& session;
    const std::size_t mostWaitingBytes;
    RecordingQueue queue;
    MeasurementRecorder recorder;
    std::unique_ptr<FrameRecorder> frameRecorder;  ///< null: no frames are recorded
    std::vector<RecordingQueue*> queues{&queue};   ///< all there are
    std::uint64_t framesLostReported = 0;
    Clock::time_point lastStep;
    std::chrono::duration<double> longestPause{};  ///< between two steps
    Clock::duration flushPeriod = longestFlushPeriod;
    Clock::time_point nextFlush;
    Clock::time_point nextCounts;
    StandingClocks standing;
    std::vector<ClockStatistics> clocksAtEnd;  ///< empty: it isn't over
    std::vector<std::uint64_t> jumpsBefore;    ///< by module, in the parts before this one
    std::vector<std::uint64_t> jumpsReported;  ///< by module
    std::vector<ModuleStatistics> sequencesReported;
    std::set<std::size_t> rivalsReported;
    std::uint64_t droppedReported = 0;           ///< frames
    std::vector<std::string> interfaceMessages;  ///< the first of them
    std::uint64_t interfaceMessagesLeftOut = 0;
    bool hasInterfaceGap = false;
    bool stopping = false;
    bool stopped = false;  ///< the plug-in has
    bool leavesStalledDisk = false;
    bool abandoned = false;
    bool lost = false;
    std::vector<std::string> unreported;  ///< what the next `poll` is to return
    std::string missedLeader;  ///< the module that was awaited when it ended; empty: none
};

}  // namespace station
