#include "simulator/frame_sinks.h"

#include <fmt/format.h>
#include <linux/ethtool.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "simulator/clocks.h"
#include "simulator/failure.h"

namespace sim {

namespace {

ifreq requestFor(const std::string& name) {
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

bool isVeth(int socket, const std::string& name) {
    ethtool_drvinfo driver{};
    driver.cmd = ETHTOOL_GDRVINFO;
    ifreq request = requestFor(name);
    request.ifr_data = reinterpret_cast<char*>(&driver);
    return ioctl(socket, SIOCETHTOOL, &request) == 0 && std::strcmp(driver.driver, "veth") == 0;
}

bool inOwnNamespace() {
    struct stat own {};
    struct stat first {};
    return stat("/proc/self/ns/net", &own) == 0 && stat("/proc/1/ns/net", &first) == 0 &&
           (own.st_ino != first.st_ino || own.st_dev != first.st_dev);
}

}  // namespace

InterfaceFacts inspectInterface(const std::string& name) {
    InterfaceFacts facts;
    facts.exists = name.size() < IFNAMSIZ && if_nametoindex(name.c_str()) != 0;
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0 || !facts.exists)
        return facts;
    ifreq request = requestFor(name);
    if (ioctl(socket, SIOCGIFFLAGS, &request) == 0) {
        facts.loopback = (request.ifr_flags & IFF_LOOPBACK) != 0;
        facts.up = (request.ifr_flags & IFF_UP) != 0;
    }
    request = requestFor(name);
    if (ioctl(socket, SIOCGIFMTU, &request) == 0)
        facts.mtu = static_cast<std::size_t>(request.ifr_mtu);
    facts.veth = isVeth(socket, name);
    facts.ownNamespace = inOwnNamespace();
    close(socket);
    return facts;
}

std::string refusalFor(const std::string& name, const InterfaceFacts& facts) {
    if (facts.loopback || facts.veth || facts.ownNamespace)
        return {};
    return fmt::format(
        "{} may be a real network: made-up frames there would reach other devices and be taken for "
        "measurements. Use a veth pair, the loopback or a network namespace of your own "
        "(unshare --net), or give --force if you mean it.",
        name);
}

namespace {

constexpr std::size_t mostPerCall = 64;

int openSocket() {
    const int socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (socket >= 0)
        return socket;
    if (errno == EPERM || errno == EACCES)
        throw Failure(ExitCode::NotAllowed,
                      "not allowed to send raw frames. Run with sudo, or allow this program once "
                      "with \"sudo setcap cap_net_raw+ep FILE\", or run it in a namespace of your "
                      "own with \"unshare --map-root-user --net\".");
    throw Failure(ExitCode::FailedWhileRunning,
                  fmt::format("can't open a packet socket: {}", std::strerror(errno)));
}

}  // namespace

PacketSocketSink::PacketSocketSink(const std::string& interfaceName)
    : name(interfaceName), socket(openSocket()) {
    const InterfaceFacts facts = inspectInterface(name);
    longest = std::min<std::size_t>(facts.mtu + ETH_HLEN, 65535);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
    const int on = 1;
    const bool ready =
        facts.up &&
        bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        setsockopt(socket, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on) == 0;
    if (ready)
        return;
    const int error = errno;
    close(socket);
    if (!facts.up)
        throw Failure(ExitCode::FailedWhileRunning,
                      fmt::format("{} is down: set it up with \"ip link set {} up\"", name, name));
    throw Failure(ExitCode::FailedWhileRunning,
                  fmt::format("can't send on {}: {}", name, std::strerror(error)));
}

PacketSocketSink::~PacketSocketSink() {
    close(socket);
}

std::size_t PacketSocketSink::send(std::span<const OutFrame> frames) {
    std::array<iovec, mostPerCall> parts;
    std::array<mmsghdr, mostPerCall> messages{};
    const std::size_t count = std::min(frames.size(), mostPerCall);
    for (std::size_t i = 0; i < count; ++i) {
        // The kernel only reads what it is to send.
        parts[i] = {const_cast<std::uint8_t*>(frames[i].bytes.data()), frames[i].bytes.size()};
        messages[i].msg_hdr.msg_iov = &parts[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int taken = sendmmsg(socket, messages.data(), static_cast<unsigned>(count), 0);
    if (taken >= 0)
        return static_cast<std::size_t>(taken);
    if (errno == ENOBUFS || errno == EAGAIN || errno == EINTR || errno == ENOMEM)
        return 0;
    if (errno == ENETDOWN || errno == ENXIO || errno == ENODEV)
        throw Failure(ExitCode::FailedWhileRunning, fmt::format("{} went down or away", name));
    throw Failure(ExitCode::FailedWhileRunning,
                  fmt::format("can't send on {}: {}", name, std::strerror(errno)));
}

namespace {

constexpr int snapLength = 65535;

}  // namespace

PcapFileSink::PcapFileSink(const std::string& path, std::int64_t startUtc, bool overwrite)
    : name(path),
      start(startUtc),
      format(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLength,
                                                  PCAP_TSTAMP_PRECISION_NANO)) {
    if (format == nullptr)
        throw Failure(ExitCode::FailedWhileRunning, "out of memory");
    struct stat there {};
    if (!overwrite && path != "-" && stat(path.c_str(), &there) == 0 && S_ISREG(there.st_mode) &&
        there.st_size > 0) {
        pcap_close(format);
        throw Failure(
            ExitCode::WrongUse,
            fmt::format("{} is there and not empty; name another file, or give --overwrite", path));
    }
    file = pcap_dump_open(format, path.c_str());
    if (file == nullptr) {
        const std::string why = pcap_geterr(format);
        pcap_close(format);
        throw Failure(ExitCode::FailedWhileRunning, fmt::format("can't write {}", why));
    }
}

PcapFileSink::~PcapFileSink() {
    pcap_dump_close(file);
    pcap_close(format);
}

std::size_t PcapFileSink::send(std::span<const OutFrame> frames) {
    errno = 0;
    for (const OutFrame& frame : frames) {
        pcap_pkthdr header{};
        header.ts.tv_sec = (start + frame.due) / nsPerSecond;
        header.ts.tv_usec = (start + frame.due) % nsPerSecond;  // nanoseconds in this format
        header.caplen = header.len = static_cast<bpf_u_int32>(frame.bytes.size());
        pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.bytes.data());
    }
    if (std::ferror(pcap_dump_file(file)) != 0)
        fail();
    return frames.size();
}

void PcapFileSink::finish() {
    errno = 0;
    if (pcap_dump_flush(file) != 0 || std::ferror(pcap_dump_file(file)) != 0)
        fail();
}

void PcapFileSink::fail() const {
    throw Failure(
        ExitCode::FailedWhileRunning,
        fmt::format("can't write {}: {}; the file is not complete", name, std::strerror(errno)));
}

}  // namespace sim
