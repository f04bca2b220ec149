#include "station/serve/bus_address.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "station/errors.h"

namespace station {
namespace {

constexpr std::string_view scheme = "socketcand://";
constexpr std::uint16_t usualPort = 29536;

}  // namespace

sockaddr_in parseBusAddress(const std::string& text) {
    const auto refuse = [&](const char* why) {
        return UserError(
            fmt::format("--serve: {} in \"{}\"; write socketcand://127.0.0.1:{}, with "
                        "0.0.0.0 for all of this machine's addresses",
                        why, text, usualPort));
    };
    if (!text.starts_with(scheme)) {
        throw refuse("there is no socketcand:// in front");
    }
    const std::string rest = text.substr(scheme.size());
    const std::size_t colon = rest.find(':');
    if (colon != rest.npos && rest.find(':', colon + 1) != rest.npos) {
        throw refuse("IPv6 addresses aren't served");
    }
    const std::string host = rest.substr(0, colon);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (::inet_pton(AF_INET, host.empty() ? "127.0.0.1" : host.c_str(), &address.sin_addr) != 1) {
        throw refuse("there is no IPv4 address such as 127.0.0.1");
    }
    std::uint16_t port = usualPort;
    if (colon != rest.npos) {
        const char* const end = rest.data() + rest.size();
        const auto [at, failure] = std::from_chars(rest.data() + colon + 1, end, port);
        if (failure != std::errc() || at != end || port == 0) {
            throw refuse("there is no port from 1 to 65535");
        }
    }
    address.sin_port = htons(port);
    return address;
}

std::string toText(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> host{};
    ::inet_ntop(AF_INET, &address.sin_addr, host.data(), host.size());
    return fmt::format("{}:{}", host.data(), ntohs(address.sin_port));
}

}  // namespace station
