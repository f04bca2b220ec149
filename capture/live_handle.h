#pragma once

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/capture_port.h"
#include "capture/pcap_ring.h"
#include "core/mutex.h"

/// What the open interfaces of a port share.
class OpenLinks {
  public:
    /// Returns when one of them has a frame, and at the latest after that time.
    void wait(std::int32_t milliseconds);
    void enter(int descriptor);
    void leave(int descriptor);

    std::atomic<bool> isWidening{false};  ///< a wide ring is being opened for one of them

  private:
    Mutex lock;
    std::vector<pollfd> polled CMP_GUARDED_BY(lock);
};

/// What an open interface shares with those who look after it.
struct LiveLink {
    explicit LiveLink(int systemIndex) : index(systemIndex) {}
    const int index;  ///< the system's; not positive if the interface went away while it was opened
    /// It isn't read any more: it went away, or others have its frames too. Any thread may set it.
    std::atomic<bool> isEnded{false};
};

/// An interface that is open for live capture.
///
/// On Linux a blocking read of a silent link doesn't end by itself, as the timeout begins with the
/// first packet. So the handle reads without blocking, and waits on its descriptor in between.
///
/// The reader stays on an interface until a read times out. So a read that comes when all that was
/// there has been taken times out at once, and so does one after very many frames: a link that is
/// never quiet for a millisecond would else keep the reader from the others until their buffers
/// have run over. Only a link that had nothing is waited for, and only until any link has
/// something, so that a silent link doesn't delay another's frames.
///
/// At the first capture frame the handle changes to a wide ring. Opening takes 20 ms and more, and
/// so does closing the narrow one, in which other links' rings would run over: each is done on a
/// thread of its own. One link does it at a time: many at once would keep the capture thread from
/// its core. When the frames go to the wide ring, the narrow one is read to its end, and only then
/// the wide one: each frame is read once, in order.
class LiveHandle final : public CaptureHandle {
  public:
    /// `timeoutMs` is how long a read waits. Null on failure, with the library's text in `error`.
    static std::unique_ptr<LiveHandle> open(const PcapRing::Settings& settings,
                                            std::int32_t timeoutMs,
                                            std::shared_ptr<OpenLinks> links, std::string& error);
    ~LiveHandle() override;

    std::int32_t next(CapturedFrame& frame) override;
    SystemCounts getCounts() override;

    /// As `next`, but without waiting.
    std::int32_t nextAtOnce(CapturedFrame& frame);
    /// From now on waits, also those for other links, end when this one has a frame. By the thread
    /// that reads, or before there is one.
    void enterWaits();
    const std::shared_ptr<LiveLink>& getLink() const { return link; }
    const std::string& getName() const { return settings.interface; }

  private:
    using Ring = std::unique_ptr<PcapRing>;
    using GroupId = PcapRing::GroupId;
    using Clock = std::chrono::steady_clock;

    /// `ring` is the only one of `group`. Without a group it is kept as it is.
    LiveHandle(PcapRing::Settings ringSettings, std::int32_t readTimeoutMs, Ring openRing,
               std::optional<GroupId> ringGroup, std::shared_ptr<OpenLinks> openLinks);
    std::int32_t read(CapturedFrame& frame);
    void widen();
    bool changeRing();
    SystemCounts getLastCounts();
    void leaveWaits();

    const PcapRing::Settings settings;
    const std::int32_t timeoutMs;
    const std::shared_ptr<OpenLinks> links;
    /// Of the two copies of a frame on the loopback libpcap may leave one out.
    const bool showsAllFrames;
    Ring ring;                     ///< what is read
    Ring wide;                     ///< gets the frames while `ring` is read to its end
    std::optional<GroupId> group;  ///< of a ring that can be changed for a wide one
    const std::shared_ptr<LiveLink> link;
    std::future<Ring> opening;  ///< of `wide`
    std::future<void> closing;
    Clock::time_point openedAt;
    std::optional<Clock::time_point> failedAt;  ///< the first error of a read
    bool isWaitedFor = false;                   ///< it is among those that a wait looks at
    std::uint32_t framesInTurn = 0;             ///< since the last timeout
    SystemCounts countsBefore{0};               ///< of the rings before
    SystemCounts counts;                        ///< the latest
    bool isCountOver = false;
};
