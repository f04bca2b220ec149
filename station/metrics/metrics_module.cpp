#include "station/metrics/metrics_module.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "core/descriptor.h"
#include "station/errors.h"
#include "station/session/loaded_module.h"

namespace station {
namespace {

constexpr const char* moduleName = "cmp_metrics.so";

sockaddr_in parseAddress(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    const std::string host = colon == text.npos ? "127.0.0.1" : text.substr(0, colon);
    const std::string port = colon == text.npos ? text : text.substr(colon + 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::uint16_t number = 0;
    const char* const end = port.data() + port.size();
    const auto [rest, failure] = std::from_chars(port.data(), end, number);
    if (failure != std::errc() || rest != end || number == 0) {
        throw UserError(
            fmt::format("--metrics: \"{}\" has no port from 1 to 65535; write PORT, which is at "
                        "127.0.0.1, or ADDRESS:PORT",
                        text));
    }
    address.sin_port = htons(number);
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        throw UserError(
            fmt::format("--metrics: \"{}\" is no IPv4 address, such as 127.0.0.1; the HTTP server "
                        "of the metrics library takes no others",
                        host));
    }
    return address;
}

/// The library doesn't say why it can't listen.
void requireFree(const sockaddr_in& address, const std::string& text) {
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const auto* const general = reinterpret_cast<const sockaddr*>(&address);
    if (!socket.isOpen() || ::bind(socket.get(), general, sizeof address) != 0 ||
        ::listen(socket.get(), 1) != 0) {
        throw UserError(ExitCode::Failed, fmt::format("--metrics: no page can be served at {}: {}",
                                                      text, std::strerror(errno)));
    }
}

}  // namespace

std::unique_ptr<MetricsPage> openMetricsPage(const std::string& where) {
    const sockaddr_in address = parseAddress(where);
    std::array<char, INET_ADDRSTRLEN> host{};
    ::inet_ntop(AF_INET, &address.sin_addr, host.data(), host.size());
    const std::string text = fmt::format("{}:{}", host.data(), ntohs(address.sin_port));
    requireFree(address, text);
    const auto open = reinterpret_cast<OpenMetricsPage>(
        findInOwnModule(moduleName, openMetricsPageName, "module of the metrics page"));
    std::string failure;
    MetricsPage* const page = open(CMP_VERSION, text, failure);
    if (page == nullptr) {
        throw UserError(ExitCode::Failed,
                        fmt::format("--metrics: {} opens no page: {}", moduleName, failure));
    }
    return std::unique_ptr<MetricsPage>(page);
}

}  // namespace station
