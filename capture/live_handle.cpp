#include "capture/live_handle.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "core/finally.h"

namespace {

using namespace std::chrono_literals;

/// Room for the frames that wait, in bytes, and how long the system fills a block of it before it
/// shows it. A ring consists of blocks of 256 KiB, and a block is closed that long after its first
/// frame with whatever is in it: a ring of N MiB holds the frames of the last 4 N times that, and
/// fewer where they are many. It must last as long as a busy machine may leave the capture thread
/// without a core, and no frame is seen later than that after it came in.
///
/// An interface with modules has 32 MiB, half a second, and a quarter with frames of 1.3 kB at
/// 100,000 a second. One on which no module was heard has 3 MiB, as there may be dozens of those.
/// Its blocks are filled for longer, so that they last for a third of a second until it has the
/// wide ring too.
constexpr int wideRing = 32 * 1024 * 1024;
constexpr std::int32_t wideTimeoutMs = 4;
constexpr int narrowRing = 3 * 1024 * 1024;
constexpr std::int32_t narrowTimeoutMs = 32;

constexpr std::uint32_t mostFramesInTurn = 4096;
/// Of a link that went away frames may be missing for good.
constexpr auto patience = 1s;

bool isLoopback(const std::string& name) {
    ifreq request{};
    if (name.size() >= sizeof request.ifr_name) {
        return false;
    }
    std::strncpy(request.ifr_name, name.c_str(), sizeof request.ifr_name - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return false;
    }
    const bool answered = ioctl(descriptor, SIOCGIFHWADDR, &request) == 0;
    close(descriptor);
    return answered && request.ifr_hwaddr.sa_family == ARPHRD_LOOPBACK;
}

/// Opens a wide ring and has the interface's frames go there. Null if that can't be done; then the
/// ring that there is goes on getting them.
std::unique_ptr<PcapRing> openBeside(const PcapRing::Settings& settings, PcapRing::GroupId group) {
    std::string unused;
    auto wide = PcapRing::open(settings, wideRing, wideTimeoutMs, unused);
    if (wide && !(wide->joinGroup(group) && wide->sendAllTo(PcapRing::Member::Second))) {
        wide.reset();
    }
    return wide;
}

}  // namespace

void OpenLinks::wait(std::int32_t milliseconds) {
    const LockGuard guard(lock);
    poll(polled.data(), polled.size(), milliseconds);
}

void OpenLinks::enter(int descriptor) {
    const LockGuard guard(lock);
    polled.push_back({descriptor, POLLIN, 0});
}

void OpenLinks::leave(int descriptor) {
    const LockGuard guard(lock);
    std::erase_if(polled, [descriptor](const pollfd& entry) { return entry.fd == descriptor; });
}

std::unique_ptr<LiveHandle> LiveHandle::open(const PcapRing::Settings& settings,
                                             std::int32_t timeoutMs,
                                             std::shared_ptr<OpenLinks> links, std::string& error) {
    std::optional<GroupId> group;
    Ring ring;
    // Whether a ring of the loopback is emptied can't be known.
    if (!isLoopback(settings.interface)) {
        ring = PcapRing::open(settings, narrowRing, narrowTimeoutMs, error);
        if (ring == nullptr) {
            return nullptr;
        }
        if (GroupId made = 0; ring->makeGroup(made)) {
            group = made;
        } else {
            ring.reset();
        }
    }
    if (!ring) {
        ring = PcapRing::open(settings, wideRing, wideTimeoutMs, error);
    }
    return ring ? std::unique_ptr<LiveHandle>(
                      new LiveHandle(settings, timeoutMs, std::move(ring), group, std::move(links)))
                : nullptr;
}

LiveHandle::LiveHandle(PcapRing::Settings ringSettings, std::int32_t readTimeoutMs, Ring openRing,
                       std::optional<GroupId> ringGroup, std::shared_ptr<OpenLinks> openLinks)
    : settings(std::move(ringSettings)),
      timeoutMs(readTimeoutMs),
      links(std::move(openLinks)),
      showsAllFrames(!isLoopback(settings.interface)),
      ring(std::move(openRing)),
      group(ringGroup),
      link(std::make_shared<LiveLink>(ring->getInterfaceIndex())) {}

LiveHandle::~LiveHandle() {
    leaveWaits();
}

std::int32_t LiveHandle::next(CapturedFrame& frame) {
    const bool hadNothing = framesInTurn == 0;
    std::int32_t result = nextAtOnce(frame);
    if (result == timeout && hadNothing) {
        links->wait(timeoutMs);
        result = nextAtOnce(frame);
    }
    return result;
}

std::int32_t LiveHandle::nextAtOnce(CapturedFrame& frame) {
    const std::int32_t result = framesInTurn < mostFramesInTurn ? read(frame) : timeout;
    framesInTurn = result == gotFrame ? framesInTurn + 1 : 0;
    return result;
}

/// What is left in the rings when the interface comes to repeat others comes by those.
SystemCounts LiveHandle::getCounts() {
    if (isCountOver) {
        return counts;
    }
    counts = countsBefore;
    counts += ring->getCounts();
    if (wide) {
        counts += wide->getCounts();
    }
    if (link->isEnded) {
        isCountOver = true;
        counts.received = *counts.received - std::exchange(counts.waiting, 0);
    }
    if (!showsAllFrames) {
        counts.received.reset();
    }
    return counts;
}

/// What is left in it will never be read.
SystemCounts LiveHandle::getLastCounts() {
    SystemCounts last = ring->getCounts();
    const std::uint64_t left = std::exchange(last.waiting, 0);
    last.dropped += showsAllFrames ? left : 0;
    return last;
}

std::int32_t LiveHandle::read(CapturedFrame& frame) {
    if (link->isEnded) {
        getCounts();
        leaveWaits();
        return timeout;
    }
    std::int32_t result = ring->read(frame);
    if (result != gotFrame && (opening.valid() || wide)) {
        result = changeRing() ? ring->read(frame) : timeout;
    }
    if (result < 0) {
        // The block that the system was filling is shown some milliseconds later.
        leaveWaits();
        failedAt = failedAt.value_or(Clock::now());
        if (ring->isEmptied() || Clock::now() - *failedAt > patience) {
            counts = countsBefore;
            counts += getLastCounts();
            isCountOver = true;
            link->isEnded = true;
        }
        return timeout;
    }
    if (group && result == gotFrame && frame.isCaptureFrame() &&
        !links->isWidening.exchange(true)) {
        widen();
    }
    return result;
}

/// Tried once: where there is no memory for a wide ring, the next frames won't bring it.
void LiveHandle::widen() {
    try {
        opening = std::async(std::launch::async, [this, of = *group] {
            const Finally done([this] { links->isWidening = false; });
            return openBeside(settings, of);
        });
    } catch (const std::system_error&) {  // no thread to be had
        links->isWidening = false;
    }
    group.reset();
}

/// To be called when the narrow ring has nothing to read. True when the wide one took its place.
bool LiveHandle::changeRing() {
    if (opening.valid()) {
        if (opening.wait_for(0s) != std::future_status::ready) {
            return false;
        }
        try {
            wide = opening.get();
        } catch (const std::bad_alloc&) {  // the ring that there is goes on
        }
        openedAt = Clock::now();
    }
    if (!wide || (!ring->isEmptied() && Clock::now() - openedAt < patience)) {
        return false;
    }
    countsBefore += getLastCounts();
    leaveWaits();
    ring.swap(wide);
    enterWaits();
    try {
        closing = std::async(std::launch::async,
                             [narrow = std::move(wide)]() mutable { narrow.reset(); });
    } catch (const std::system_error&) {  // it has been closed here
    }
    return true;
}

void LiveHandle::enterWaits() {
    links->enter(ring->getDescriptor());
    isWaitedFor = true;
}

void LiveHandle::leaveWaits() {
    if (std::exchange(isWaitedFor, false)) {
        links->leave(ring->getDescriptor());
    }
}
