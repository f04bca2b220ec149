#include "station/serve/bus_beacon.h"

#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "station/errors.h"
#include "station/serve/bus_address.h"

namespace station {
namespace {

constexpr std::uint16_t beaconPort = 42000;
constexpr auto beaconPeriod = std::chrono::seconds(2);
/// What a datagram holds, with some room for what is in front. Of more buses the first are named.
constexpr std::size_t mostBusBytes = 60'000;

/// What may stand in an attribute of XML; a name of a machine has no other characters.
std::string machineName() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    std::string text = name.data();
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c == '<' || c == '&' || c == '"' || c == '\x7F'; },
        '_');
    return text;
}

sockaddr_in toInet(const sockaddr* address) {
    sockaddr_in inet{};
    std::memcpy(&inet, address, sizeof inet);
    return inet;
}

}  // namespace

BusBeacon::BusBeacon(const sockaddr_in& servedAddress, const std::vector<std::string>& busNames)
    : served(servedAddress),
      socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int on = 1;
    if (!socket.isOpen() ||
        ::setsockopt(socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        throw UserError(ExitCode::Failed,
                        fmt::format("--serve-beacon: no socket for it: {}", std::strerror(errno)));
    }
    for (const std::string& name : busNames) {
        const std::string text = fmt::format("<Bus name=\"{}\"/>", name);
        if (buses.size() + text.size() <= mostBusBytes) {
            buses += text;
        }
    }
}

BusBeacon::Clock::time_point BusBeacon::sendIfDue(Clock::time_point now) {
    if (now >= next) {
        next = now + beaconPeriod;
        send();
    }
    return next;
}

/// To each network that the address is in: all of them for that of all interfaces. The list is read
/// each time, as interfaces come and go.
void BusBeacon::send() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    const bool isAny = served.sin_addr.s_addr == htonl(INADDR_ANY);
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
        if (at->ifa_addr == nullptr || at->ifa_netmask == nullptr ||
            at->ifa_addr->sa_family != AF_INET || (at->ifa_flags & IFF_UP) == 0) {
            continue;
        }
        const in_addr_t mask = toInet(at->ifa_netmask).sin_addr.s_addr;
        sockaddr_in own = toInet(at->ifa_addr);
        if (!isAny && ((own.sin_addr.s_addr ^ served.sin_addr.s_addr) & mask) != 0) {
            continue;
        }
        sockaddr_in all = own;
        all.sin_addr.s_addr = own.sin_addr.s_addr | ~mask;
        all.sin_port = htons(beaconPort);
        own = isAny ? own : served;
        own.sin_port = served.sin_port;
        const std::string text = fmt::format(
            "<CANBeacon name=\"{}\" type=\"adapter\" description=\"CMP capture\"><URL>can://{}"
            "</URL>{}</CANBeacon>",
            machineName(), toText(own), buses);
        ::sendto(socket.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&all), sizeof all);
    }
}

}  // namespace station
