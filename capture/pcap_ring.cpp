#include "capture/pcap_ring.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <pcap/pcap.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace {

pcap_stat statisticsOf(pcap* handle) {
    pcap_stat statistics{};
    pcap_stats(handle, &statistics);
    return statistics;
}

bool setOption(pcap* handle, int option, const void* value, std::size_t size) {
    return setsockopt(pcap_fileno(handle), SOL_PACKET, option, value,
                      static_cast<socklen_t>(size)) == 0;
}

/// Of frames that leave by the interface the group gets none: PACKET_FANOUT_FLAG_IGNORE_OUTGOING,
/// which older headers lack and older kernels pass over.
constexpr std::uint32_t ignoreOutgoing = 0x4000;

/// A filter program decides for the group: it gives the number of the member for each frame.
bool enterGroup(pcap* handle, std::uint32_t flags, PcapRing::GroupId group) {
    const std::uint32_t argument = (PACKET_FANOUT_CBPF | ignoreOutgoing | flags) << 16U | group;
    return setOption(handle, PACKET_FANOUT, &argument, sizeof argument);
}

}  // namespace

PcapRing::~PcapRing() {
    pcap_close(handle);
}

std::unique_ptr<PcapRing> PcapRing::open(const Settings& settings, int bytes, std::int32_t holdMs,
                                         std::string& error) {
    char text[PCAP_ERRBUF_SIZE] = {};
    pcap* const opened = pcap_create(settings.interface.c_str(), text);
    if (opened == nullptr) {
        error = text;
        return nullptr;
    }
    std::unique_ptr<PcapRing> ring(new PcapRing(opened));
    pcap_set_snaplen(opened, settings.snapLength);
    pcap_set_promisc(opened, settings.promiscuous ? 1 : 0);
    pcap_set_timeout(opened, holdMs);
    pcap_set_buffer_size(opened, bytes);
    pcap_set_tstamp_precision(opened, PCAP_TSTAMP_PRECISION_NANO);  // else it stays microseconds
    const int result = pcap_activate(opened);
    if (result < 0) {
        const std::string detail = pcap_geterr(opened);
        const std::string status = pcap_statustostr(result);
        error = settings.interface + ": " + status +
                (detail.empty() || detail == status ? "" : " (" + detail + ")");
        return nullptr;
    }
    // A bridge sends what comes in by one of its ports out by the others.
    const int yes = 1;
    setOption(opened, PACKET_IGNORE_OUTGOING, &yes, sizeof yes);
    if (pcap_setnonblock(opened, 1, text) != 0) {
        error = text;
        return nullptr;
    }
    // Only now does the handle say what it stamps with.
    ring->tick = pcap_get_tstamp_precision(opened) == PCAP_TSTAMP_PRECISION_NANO ? 1 : 1000;
    return ring;
}

std::int32_t PcapRing::read(CapturedFrame& frame) {
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(handle, &header, &bytes);
    if (result != 1) {
        failed = failed || result < 0;
        return failed ? PCAP_ERROR : CaptureHandle::timeout;
    }
    ++framesRead;
    frame.data = bytes;
    frame.length = std::min(header->len, header->caplen);
    frame.receivedAt = header->ts.tv_sec * nanosecondsPerSecond + header->ts.tv_usec * tick;
    return CaptureHandle::gotFrame;
}

/// libpcap for Linux counts what was dropped as received too.
SystemCounts PcapRing::getCounts() {
    const pcap_stat counted = statisticsOf(handle);
    received += counted.ps_recv - std::exchange(latestReceived, counted.ps_recv);
    dropped += counted.ps_drop - std::exchange(latestDropped, counted.ps_drop);
    const std::uint32_t waiting = latestReceived - latestDropped - framesRead;
    return {received, waiting, dropped};
}

int PcapRing::getDescriptor() const {
    return pcap_get_selectable_fd(handle);
}

int PcapRing::getInterfaceIndex() const {
    sockaddr_ll address{};
    socklen_t size = sizeof address;
    const int result =
        getsockname(pcap_fileno(handle), reinterpret_cast<sockaddr*>(&address), &size);
    return result == 0 ? address.sll_ifindex : 0;
}

bool PcapRing::makeGroup(GroupId& group) {
    std::uint32_t made = 0;
    socklen_t size = sizeof made;
    if (!enterGroup(handle, PACKET_FANOUT_FLAG_UNIQUEID, 0) || !sendAllTo(Member::First) ||
        getsockopt(pcap_fileno(handle), SOL_PACKET, PACKET_FANOUT, &made, &size) != 0) {
        return false;
    }
    group = static_cast<GroupId>(made);
    return true;
}

bool PcapRing::joinGroup(GroupId group) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds longest(1);
    if (!enterGroup(handle, 0, group) || !sendAllTo(Member::First)) {
        return false;
    }
    CapturedFrame unused;
    for (const auto start = Clock::now(); !isEmptied();) {
        if (read(unused) == CaptureHandle::gotFrame) {
            continue;
        }
        if (failed || Clock::now() - start > longest) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    received = 0;
    dropped = 0;
    return true;
}

/// A group's program is replaced here, never set for the first time but in `makeGroup`: the system
/// returns when no frame is under way by the former one, nor to a ring that wasn't in the group
/// yet.
bool PcapRing::sendAllTo(Member member) {
    sock_filter toMember{BPF_RET | BPF_K, 0, 0, static_cast<std::uint32_t>(member)};
    const sock_fprog program{1, &toMember};
    return setOption(handle, PACKET_FANOUT_DATA, &program, sizeof program);
}
