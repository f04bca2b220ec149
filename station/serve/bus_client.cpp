#include "station/serve/bus_client.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace station {
namespace {

/// What is given to the system at once. It is sent as one segment where the link has room for it,
/// so that no message is cut: clients were seen that lose one whose pieces come apart.
constexpr std::size_t mostAtOnce = 16 * 1024;
constexpr int mostPieces = 64;
/// A client may read once for the answer to "rawmode" and take all that comes for it.
constexpr auto settlingTime = std::chrono::milliseconds(200);
/// How long one may take to choose a bus, and how long it is waited for at its end.
constexpr auto openingTime = std::chrono::seconds(10);
constexpr auto leavingTime = std::chrono::seconds(2);
/// Whoever sends more while it is leaving isn't waited for.
constexpr std::size_t mostIgnored = 64 * 1024;

void set(int socket, int level, int option, int value) {
    ::setsockopt(socket, level, option, &value, sizeof value);
}

/// Whether the system has sent all that it was given.
bool isUnderWay(int socket) {
    int bytes = 0;
    return ::ioctl(socket, SIOCOUTQNSD, &bytes) == 0 && bytes == 0;
}

bool isForLater(int errorNumber) {
    return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK || errorNumber == EINTR;
}

}  // namespace

BusClient::BusClient(Descriptor connected, std::string address, std::size_t mostWaiting,
                     Clock::time_point now)
    : socket(std::move(connected)), peer(std::move(address)), limit(mostWaiting), started(now) {
    set(socket.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    // What the system keeps for one that doesn't read is little, so that there is room for the last
    // message.
    set(socket.get(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, 1);
    set(socket.get(), SOL_SOCKET, SO_KEEPALIVE, 1);
    set(socket.get(), IPPROTO_TCP, TCP_KEEPIDLE, 30);
    set(socket.get(), IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set(socket.get(), IPPROTO_TCP, TCP_KEEPCNT, 3);
    reply("< hi >");
}

bool BusClient::receive() {
    std::array<char, 4096> bytes;
    const ssize_t count = ::recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count <= 0) {
        return count < 0 && isForLater(errno);
    }
    const auto size = static_cast<std::size_t>(count);
    if (isLeaving()) {
        ignored += size;
        return ignored <= mostIgnored;
    }
    commands.add({bytes.data(), size});
    return true;
}

bool BusClient::reply(std::string_view text) {
    return add(text) && (!raw || add(" "));
}

void BusClient::beginRaw(Clock::time_point now) {
    raw = true;
    framesFrom = now + settlingTime;
}

bool BusClient::add(std::string_view frameText) {
    constexpr std::size_t worthMoving = 64 * 1024;
    if (sent > worthMoving && sent > waiting.size() / 2) {
        waiting.erase(0, sent);
        sent = 0;
    }
    if (waiting.size() - sent + frameText.size() > limit) {
        return false;
    }
    waiting += frameText;
    return true;
}

bool BusClient::wantsToSend(Clock::time_point now) const {
    return !isAllSent() && (now >= framesFrom || isLeaving());
}

bool BusClient::send() {
    for (int piece = 0; piece < mostPieces && !isAllSent(); ++piece) {
        std::size_t size = std::min(waiting.size() - sent, mostAtOnce);
        if (const std::size_t end = waiting.rfind(endOfFrameText, sent + size - 1);
            end != waiting.npos && end >= sent && !isLeaving()) {
            size = end + 1 - sent;
        }
        const ssize_t count =
            ::send(socket.get(), waiting.data() + sent, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            return isForLater(errno);
        }
        const std::size_t before = std::exchange(sent, sent + static_cast<std::size_t>(count));
        countSent(before);
        if (!isUnderWay(socket.get()) && !isLeaving()) {
            break;
        }
    }
    if (isAllSent()) {
        waiting.clear();
        sent = 0;
        if (isLeaving() && !std::exchange(isEndSent, true)) {
            ::shutdown(socket.get(), SHUT_WR);
        }
    }
    return true;
}

/// A message counts when its end is sent.
void BusClient::countSent(std::size_t from) {
    framesSent += static_cast<std::uint64_t>(
        std::count(waiting.begin() + static_cast<std::ptrdiff_t>(from),
                   waiting.begin() + static_cast<std::ptrdiff_t>(sent), endOfFrameText));
}

void BusClient::leave(std::string_view lastText, Clock::time_point now) {
    waiting += lastText;
    deadline = now + leavingTime;
    // The room that was kept free for it.
    set(socket.get(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, 0);
    send();
}

std::uint64_t BusClient::dropWaiting() {
    std::size_t kept = sent;
    if (raw && sent != 0 && !isAllSent() && waiting[sent - 1] != endOfFrameText) {
        kept = std::min(waiting.find(endOfFrameText, sent), waiting.size() - 1) + 1;
    }
    const auto frames = std::count(waiting.begin() + static_cast<std::ptrdiff_t>(kept),
                                   waiting.end(), endOfFrameText);
    waiting.resize(kept);
    return static_cast<std::uint64_t>(frames);
}

bool BusClient::isOver(Clock::time_point now) const {
    return deadline ? now >= *deadline : !raw && now >= started + openingTime;
}

}  // namespace station
