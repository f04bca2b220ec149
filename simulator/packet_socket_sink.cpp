#include "simulator/packet_socket_sink.h"

#include <fmt/format.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "simulator/failure.h"
#include "simulator/interface_guard.h"

namespace sim {
namespace {

constexpr std::size_t ethernetHeader = 14;
constexpr std::size_t mostAtOnce = 64;

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
    longest = std::min<std::size_t>(facts.mtu + ethernetHeader, 65535);
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
    std::array<iovec, mostAtOnce> parts;
    std::array<mmsghdr, mostAtOnce> messages{};
    const std::size_t count = std::min(frames.size(), mostAtOnce);
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

}  // namespace sim
