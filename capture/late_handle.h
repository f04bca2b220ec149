#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "capture/capture_messages.h"
#include "capture/live_handle.h"
#include "capture/network_links.h"
#include "core/mutex.h"
#include "core/thread_ex.h"

/// The interfaces that are opened while the capture runs, read as one.
///
/// A thread of its own, the watch, asks the system for the interfaces whenever one has changed,
/// opens those that shall be captured on and aren't, and closes those that have ended. The capture
/// thread takes the opened ones over and gives the ended ones back, under a lock that nobody holds
/// for longer than that takes; it looks at one flag a read otherwise.
///
/// An interface is known by the system's index, so that one that was made again is another one.
class LateHandle final : public CaptureHandle, private Kestrova::Utils::Threading::ThreadEx {
  public:
    /// Null if the system can't report changes; `wanted.messages` then gets the reason.
    static std::unique_ptr<LateHandle> open(const LateCapture& wanted,
                                            std::shared_ptr<OpenLinks> openLinks);
    ~LateHandle() override;

    std::int32_t next(CapturedFrame& frame) override;
    SystemCounts getCounts() override;

  private:
    using Handles = std::vector<std::unique_ptr<LiveHandle>>;

    LateHandle(const LateCapture& wanted, std::shared_ptr<OpenLinks> openLinks);
    void Run() override;

    // The capture thread.
    std::int32_t nextAtOnce(CapturedFrame& frame);
    void takeOver();
    void giveBack();

    // The watch.
    bool look();
    bool openMissing(const NetworkLinks& present, bool repeatOthers);
    std::vector<std::string> findRepeated(const NetworkLinks& present, int index) const;
    void forgetEnded(const NetworkLinks& present);
    void reportUpAndDown(const NetworkLinks& present);
    bool openLink(const NetworkLink& wanted);
    void closeEnded();

    // Constant.
    const std::vector<std::string> selection;
    const PcapRing::Settings settings;  ///< without a name
    const std::int32_t timeoutMs;
    CaptureMessages& messages;
    const std::shared_ptr<OpenLinks> links;

    // The watch's own.
    struct Captured {
        std::string name;
        std::shared_ptr<LiveLink> link;
        bool isUp = true;
    };
    std::map<int, Captured> captured;  ///< by index: those that are open, at the start or later
    LinkEvents events;

    // The capture thread's own.
    Handles reading;
    std::size_t position = 0;  ///< in `reading`
    bool hadNothing = true;
    SystemCounts countsBefore{0};  ///< of those that have ended

    std::atomic<bool> hasOpened{false};
    Mutex lock;
    Handles opened CMP_GUARDED_BY(lock);  ///< not taken over yet
    Handles ended CMP_GUARDED_BY(lock);   ///< not closed yet
};
