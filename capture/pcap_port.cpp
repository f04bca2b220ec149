#include "capture/pcap_port.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core/mutex.h"

namespace {

struct CloseHandle {
    void operator()(pcap_t* handle) const { pcap_close(handle); }
};
using PcapHandle = std::unique_ptr<pcap_t, CloseHandle>;

/// Frames of 1.3 kB at 100,000 a second fill this in a quarter of a second, which is as long as a
/// busy machine may leave the capture thread without a core.
constexpr int kernelBufferBytes = 32 * 1024 * 1024;

/// Whether the link carries Ethernet frames. libpcap's pseudo-devices are no links at all.
bool isEthernet(const char* name) {
    ifreq request{};
    if (std::strlen(name) >= sizeof request.ifr_name) {
        return false;
    }
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return false;
    }
    const bool answered = ioctl(descriptor, SIOCGIFHWADDR, &request) == 0;
    close(descriptor);
    return answered && (request.ifr_hwaddr.sa_family == ARPHRD_ETHER ||
                        request.ifr_hwaddr.sa_family == ARPHRD_LOOPBACK);
}

}  // namespace

/// The open links that are there.
struct PcapPort::OpenLinks {
    Mutex lock;
    std::vector<pollfd> polled CMP_GUARDED_BY(lock);
};

/// On Linux a blocking read of a silent link doesn't end by itself, as the timeout begins with the
/// first packet. So the handle reads without blocking, and waits on its descriptor in between.
///
/// The reader stays on an interface until a read times out. So a read that comes when all that was
/// there has been taken times out at once, and so does one after very many frames: a link that is
/// never quiet for a millisecond would else keep the reader from the others until their buffers
/// have run over. Only a link that had nothing is waited for, and only until any link has
/// something, so that a silent link doesn't delay another's frames.
class PcapPort::LiveHandle final : public CaptureHandle {
  public:
    LiveHandle(PcapHandle openHandle, std::int32_t readTimeoutMs,
               std::shared_ptr<OpenLinks> openLinks)
        : handle(std::move(openHandle)),
          tick(pcap_get_tstamp_precision(handle.get()) == PCAP_TSTAMP_PRECISION_NANO ? 1 : 1000),
          descriptor(pcap_get_selectable_fd(handle.get())),
          timeoutMs(readTimeoutMs),
          links(std::move(openLinks)) {
        const LockGuard guard(links->lock);
        links->polled.push_back({descriptor, POLLIN, 0});
    }
    ~LiveHandle() override { leave(); }

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
        pcap_stat statistics{};
        if (!gone && pcap_stats(handle.get(), &statistics) == 0) {
            dropped = statistics.ps_drop;
        }
        return dropped;
    }

  private:
    static constexpr std::uint32_t mostFramesInTurn = 4096;
    static constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

    std::int32_t read(CapturedFrame& frame) {
        if (gone) {
            return timeout;
        }
        pcap_pkthdr* header = nullptr;
        const u_char* bytes = nullptr;
        const int result = pcap_next_ex(handle.get(), &header, &bytes);
        if (result < 0) {
            gone = true;
            leave();
            return timeout;
        }
        if (result == 0) {
            return timeout;
        }
        frame.data = bytes;
        frame.length = std::min(header->len, header->caplen);
        frame.receivedAt = header->ts.tv_sec * nanosecondsPerSecond + header->ts.tv_usec * tick;
        return gotFrame;
    }

    void wait() const {
        const LockGuard guard(links->lock);
        poll(links->polled.data(), links->polled.size(), timeoutMs);
    }

    void leave() {
        const LockGuard guard(links->lock);
        std::erase_if(links->polled, [this](const pollfd& link) { return link.fd == descriptor; });
    }

    PcapHandle handle;
    const std::int64_t tick;  ///< nanoseconds in a unit of the fraction of a time stamp
    const int descriptor;
    const std::int32_t timeoutMs;
    const std::shared_ptr<OpenLinks> links;
    bool gone = false;               ///< the interface was taken away
    std::uint32_t framesInTurn = 0;  ///< since the last timeout
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
    char text[PCAP_ERRBUF_SIZE] = {};
    pcap_t* const opened = pcap_create(name.c_str(), text);
    PcapHandle handle(opened);
    if (opened == nullptr) {
        error = text;
        return nullptr;
    }
    pcap_set_snaplen(opened, snapLength);
    pcap_set_promisc(opened, promiscuous ? 1 : 0);
    pcap_set_timeout(opened, timeoutMs);
    pcap_set_buffer_size(opened, kernelBufferBytes);
    pcap_set_tstamp_precision(opened, PCAP_TSTAMP_PRECISION_NANO);  // else it stays microseconds
    const int result = pcap_activate(opened);
    if (result < 0) {
        const std::string detail = pcap_geterr(opened);
        error =
            name + ": " + pcap_statustostr(result) + (detail.empty() ? "" : " (" + detail + ")");
        return nullptr;
    }
    if (pcap_setnonblock(opened, 1, text) != 0) {
        error = text;
        return nullptr;
    }
    return std::make_unique<LiveHandle>(std::move(handle), timeoutMs, links);
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
