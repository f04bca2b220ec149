#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "capture/capture_port.h"

struct pcap;

/// One libpcap handle on one interface: the ring into which the system puts the frames, read
/// without blocking.
///
/// Rings of one interface can be in a group (a fanout group of packet sockets). The system then
/// puts each frame into exactly one ring of the group, so that a change from one ring to another
/// loses no frame and doubles none.
///
/// One thread at a time may use it.
class PcapRing {
  public:
    using GroupId = std::uint16_t;
    enum class Member : std::uint32_t { First = 0, Second = 1 };  ///< in the order of joining

    struct Settings {
        std::string interface;
        std::int32_t snapLength = 0;
        bool promiscuous = false;
    };

    /// `holdMs` is how long the system may hold a frame back. Null on failure, with the library's
    /// text in `error`.
    static std::unique_ptr<PcapRing> open(const Settings& settings, int bytes, std::int32_t holdMs,
                                          std::string& error);
    ~PcapRing();
    PcapRing(const PcapRing&) = delete;
    PcapRing& operator=(const PcapRing&) = delete;

    /// As `CaptureHandle::next`, but `timeout` at once. After the first error, which means that the
    /// interface went away, frames that are still there are read, and then errors.
    std::int32_t read(CapturedFrame& frame);
    /// Whether every frame that the system put into it has been read. The system shows frames in
    /// blocks, some milliseconds late, so that "nothing to read" doesn't say it.
    bool isEmptied() { return getCounts().waiting == 0; }
    /// Of the frames since it was opened, or since it joined a group. To be called at least once in
    /// 2^32 frames.
    SystemCounts getCounts();
    int getDescriptor() const;  ///< to wait on
    /// The system's index of the interface; not positive if it went away.
    int getInterfaceIndex() const;

    /// Makes a group of this ring alone. False where the system has no such groups.
    bool makeGroup(GroupId& group);
    /// Becomes the second in a group, in which the first goes on getting all frames. Those that
    /// came in before, and which the first has too, are thrown away, neither read nor counted.
    /// False if that fails; then the ring must go.
    bool joinGroup(GroupId group);
    /// From now on all frames go to that member of the group. When it returns, no other gets any.
    bool sendAllTo(Member member);

  private:
    explicit PcapRing(pcap* newHandle) : handle(newHandle) {}

    pcap* const handle;
    std::int64_t tick = 1;  ///< nanoseconds in a unit of the fraction of a time stamp
    // These wrap around with libpcap's counts of 32 bits.
    std::uint32_t framesRead = 0;
    std::uint32_t latestReceived = 0;
    std::uint32_t latestDropped = 0;
    std::uint64_t received = 0;
    std::uint64_t dropped = 0;
    bool failed = false;
};
