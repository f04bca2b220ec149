#include "station/cli/service_manager.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "core/parse_number.h"
#include "station/terminal_text.h"

namespace station {
namespace {

std::string_view fromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

std::optional<std::int64_t> numberFromEnvironment(const char* variable) {
    return parseNumber<std::int64_t>(fromEnvironment(variable));
}

/// Half of the time in which the manager wants a sign of life; zero if it wants none of this
/// process.
ServiceManager::Clock::duration feedingPeriodFromEnvironment() {
    constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max() / 1000;
    const std::int64_t microseconds = numberFromEnvironment("WATCHDOG_USEC").value_or(0);
    if (microseconds <= 0 || microseconds > longest ||
        numberFromEnvironment("WATCHDOG_PID").value_or(getpid()) != getpid()) {
        return {};
    }
    return std::chrono::microseconds(microseconds) / 2;
}

/// Connected to the socket of that name; where that fails it is closed and `errno` says why.
Descriptor connectTo(std::string_view name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return Descriptor();
    }
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name.front() == '@') {  // an abstract name, which has no end but its length
        address.sun_path[0] = '\0';
    }
    const std::size_t length = offsetof(sockaddr_un, sun_path) + name.size();
    Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto* const general = reinterpret_cast<const sockaddr*>(&address);
    if (socket.isOpen() && ::connect(socket.get(), general, static_cast<socklen_t>(length)) != 0) {
        return Descriptor();
    }
    return socket;
}

}  // namespace

ServiceManager::ServiceManager() {
    const std::string_view name = fromEnvironment("NOTIFY_SOCKET");
    if (name.empty()) {
        return;
    }
    socket = connectTo(name);
    if (!socket.isOpen()) {
        printMessage(fmt::format(
            "the service manager won't know that it measures: NOTIFY_SOCKET, \"{}\": {}", name,
            std::strerror(errno)));
    }
    feedingPeriod = feedingPeriodFromEnvironment();
}

bool ServiceManager::send(std::string_view text) {
    return ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL) >= 0;
}

void ServiceManager::notifyAlive(Clock::time_point now, std::string_view status) {
    if (!socket.isOpen()) {
        return;
    }
    if (status != statusSent && send(fmt::format("READY=1\nSTATUS={}", status))) {
        statusSent = status;
    }
    if (feedingPeriod != Clock::duration::zero() && now >= nextFeeding && send("WATCHDOG=1")) {
        nextFeeding = now + feedingPeriod;
    }
}

void ServiceManager::notifyStopping() {
    if (socket.isOpen()) {
        send("STOPPING=1\nSTATUS=Closing the recordings");
    }
}

}  // namespace station
