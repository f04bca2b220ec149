#include "capture/pcap_port.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <optional>
#include <system_error>

#include "capture/pcap_ring.h"
#include "core/mutex.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Room for the frames that wait, in bytes, and how long the system fills a block of it before it
/// shows it. A ring consists of blocks of 256 KiB, and a block is closed after that time with
/// whatever is in it: a ring of N MiB holds the frames of the last 4 N times that, and fewer where
/// they are many. It must last as long as a busy machine may leave the capture thread without a
/// core.
///
/// An interface with modules has 32 MiB: blocks of the read timeout of 1 ms, which on a busy
/// machine are some 3 ms, last for a third of a second, and frames of 1.3 kB at 100,000 a second
/// for a quarter. One on which no module was heard has 4 MiB, as there may be dozens of those. Its
/// blocks are filled for longer, so that they last as long until it has the wide ring too; the
/// first frames are seen that much later.
constexpr int wideRing = 32 * 1024 * 1024;
constexpr int narrowRing = 4 * 1024 * 1024;
constexpr std::int32_t narrowTimeoutMs = 24;

constexpr int noLink = -1;

/// The hardware type of a link (`ARPHRD_...`). libpcap's pseudo-devices are no links at all.
int linkType(const char* name) {
    ifreq request{};
    if (std::strlen(name) >= sizeof request.ifr_name) {
        return noLink;
    }
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return noLink;
    }
    const bool answered = ioctl(descriptor, SIOCGIFHWADDR, &request) == 0;
    close(descriptor);
    return answered ? request.ifr_hwaddr.sa_family : noLink;
}

/// Whether the link carries Ethernet frames.
bool isEthernet(const char* name) {
    const int type = linkType(name);
    return type == ARPHRD_ETHER || type == ARPHRD_LOOPBACK;
}

using Ring = std::unique_ptr<PcapRing>;

/// Opens a wide ring and has the interface's frames go there. Null if that can't be done; then the
/// ring that there is goes on getting them.
Ring openBeside(const PcapRing::Settings& settings, PcapRing::GroupId group) {
    std::string unused;
    Ring wide = PcapRing::open(settings, wideRing, unused);
    if (wide && !(wide->joinGroup(group) && wide->sendAllTo(PcapRing::Member::Second))) {
        wide.reset();
    }
    return wide;
}

}  // namespace

/// What the open links share.
struct PcapPort::OpenLinks {
    Mutex lock;
    std::vector<pollfd> polled CMP_GUARDED_BY(lock);
    std::atomic<bool> isWidening{false};  ///< a wide ring is being opened for one of them
};

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
class PcapPort::LiveHandle final : public CaptureHandle {
  public:
    /// `ring` is the only one of `group`. Without a group it is kept as it is.
    LiveHandle(PcapRing::Settings ringSettings, Ring openRing,
               std::optional<PcapRing::GroupId> ringGroup, std::shared_ptr<OpenLinks> openLinks)
        : settings(std::move(ringSettings)),
          links(std::move(openLinks)),
          ring(std::move(openRing)),
          group(ringGroup) {
        enter();
    }
    ~LiveHandle() override {
        leave();
        if (opening.valid()) {
            opening.wait();
            links->isWidening = false;
        }
    }

    std::int32_t next(CapturedFrame& frame) override {
        std::int32_t result = timeout;
        if (framesInTurn < mostFramesInTurn) {
            result = read(frame);
            if (result == timeout && framesInTurn == 0) {
                wait();
                result = read(frame);
            }
        }
        framesInTurn = result == gotFrame ? framesInTurn + 1 : 0;
        return result;
    }

    std::uint64_t getDropped() override {
        if (!gone) {
            dropped = droppedBefore + ring->getDropped();
        }
        return dropped;
    }

  private:
    static constexpr std::uint32_t mostFramesInTurn = 4096;
    static constexpr auto patience = 1s;

    std::int32_t read(CapturedFrame& frame) {
        if (gone) {
            return timeout;
        }
        std::int32_t result = ring->read(frame);
        if (result != gotFrame && (opening.valid() || wide)) {
            result = changeRing() ? ring->read(frame) : timeout;
        }
        if (result < 0) {
            gone = true;
            leave();
            return timeout;
        }
        if (group && result == gotFrame && frame.isCaptureFrame() &&
            !links->isWidening.exchange(true)) {
            widen();
        }
        return result;
    }

    /// Tried once: where there is no memory for a wide ring, the next frames won't bring it.
    void widen() {
        try {
            opening = std::async(std::launch::async, openBeside, settings, *group);
        } catch (const std::system_error&) {  // no thread to be had
            links->isWidening = false;
        }
        group.reset();
    }

    /// To be called when the narrow ring has nothing to read. True when the wide one took its
    /// place.
    bool changeRing() {
        if (opening.valid()) {
            if (opening.wait_for(0s) != std::future_status::ready) {
                return false;
            }
            wide = opening.get();
            links->isWidening = false;
            openedAt = Clock::now();
        }
        // Of a link that went away frames may be missing for good.
        if (!wide || (!ring->isEmptied() && Clock::now() - openedAt < patience)) {
            return false;
        }
        droppedBefore += ring->getDropped();
        leave();
        ring.swap(wide);
        enter();
        try {
            closing = std::async(std::launch::async,
                                 [narrow = std::move(wide)]() mutable { narrow.reset(); });
        } catch (const std::system_error&) {  // it has been closed here
        }
        return true;
    }

    void wait() const {
        const LockGuard guard(links->lock);
        poll(links->polled.data(), links->polled.size(), settings.timeoutMs);
    }

    void enter() {
        const LockGuard guard(links->lock);
        links->polled.push_back({ring->getDescriptor(), POLLIN, 0});
    }

    void leave() {
        const LockGuard guard(links->lock);
        std::erase_if(links->polled, [descriptor = ring->getDescriptor()](const pollfd& link) {
            return link.fd == descriptor;
        });
    }

    const PcapRing::Settings settings;
    const std::shared_ptr<OpenLinks> links;
    Ring ring;                               ///< what is read
    Ring wide;                               ///< gets the frames while `ring` is read to its end
    std::optional<PcapRing::GroupId> group;  ///< of a ring that can be changed for a wide one
    std::future<Ring> opening;               ///< of `wide`
    std::future<void> closing;
    Clock::time_point openedAt;
    bool gone = false;                ///< the interface was taken away
    std::uint32_t framesInTurn = 0;   ///< since the last timeout
    std::uint64_t droppedBefore = 0;  ///< by the ring before
    std::uint64_t dropped = 0;
};

PcapPort::PcapPort() : links(std::make_shared<OpenLinks>()) {}

std::int32_t PcapPort::findAllDevices(std::vector<CaptureInterface>& devices, std::string& error) {
    char text[PCAP_ERRBUF_SIZE] = {};
    pcap_if_t* list = nullptr;
    if (pcap_findalldevs(&list, text) == -1) {
        error = text;
        return -1;
    }
    devices.clear();
    for (const pcap_if_t* device = list; device != nullptr; device = device->next) {
        if (isEthernet(device->name)) {
            devices.push_back(
                {device->name, device->description != nullptr ? device->description : ""});
        }
    }
    pcap_freealldevs(list);
    return 0;
}

std::unique_ptr<CaptureHandle> PcapPort::openLive(const std::string& name, std::int32_t snapLength,
                                                  bool promiscuous, std::int32_t timeoutMs,
                                                  std::string& error) {
    const PcapRing::Settings settings{name, snapLength, promiscuous, timeoutMs};
    std::optional<PcapRing::GroupId> group;
    Ring ring;
    // Of the two copies of a frame on the loopback libpcap leaves one out, so its frames can't be
    // counted.
    if (linkType(name.c_str()) != ARPHRD_LOOPBACK) {
        PcapRing::Settings narrow = settings;
        narrow.timeoutMs = std::max(timeoutMs, narrowTimeoutMs);
        ring = PcapRing::open(narrow, narrowRing, error);
        if (ring == nullptr) {
            return nullptr;
        }
        if (PcapRing::GroupId made = 0; ring->makeGroup(made)) {
            group = made;
        } else {
            ring.reset();
        }
    }
    if (!ring) {
        ring = PcapRing::open(settings, wideRing, error);
    }
    return ring ? std::make_unique<LiveHandle>(settings, std::move(ring), group, links) : nullptr;
}

std::int32_t PcapPort::lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                                 std::string& error) {
    char text[PCAP_ERRBUF_SIZE] = {};
    bpf_u_int32 foundNet = 0;
    bpf_u_int32 foundMask = 0;
    if (pcap_lookupnet(name.c_str(), &foundNet, &foundMask, text) == -1) {
        error = text;
        return -1;
    }
    net = foundNet;
    mask = foundMask;
    return 0;
}
