#include "simulator/interface_guard.h"

#include <fmt/format.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

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

}  // namespace sim
