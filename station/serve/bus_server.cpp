#include "station/serve/bus_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <ifaddrs.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "station/errors.h"
#include "station/recording/word_names.h"
#include "station/serve/bus_address.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr int backlog = 64;
constexpr int mostAcceptedAtOnce = 32;
/// How often messages are fetched while somebody reads; and how often the others are looked at.
constexpr auto readingPeriod = std::chrono::milliseconds(10);
constexpr auto idlePeriod = std::chrono::milliseconds(100);
/// When the system has no descriptors left.
constexpr auto acceptPause = std::chrono::seconds(1);
/// At the end, for all readers and for those that take nothing.
constexpr auto endPatience = std::chrono::seconds(3);
constexpr auto stallPatience = std::chrono::seconds(1);
constexpr std::size_t mostNamedBuses = 8;
constexpr std::size_t mostTexts = 100;  ///< that nobody fetched

/// IPv4 addresses of this machine's interfaces: "127.0.0.1, 192.0.2.5".
std::string listAddresses() {
    std::vector<std::string> found;
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, ::freeifaddrs);
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
            std::array<char, INET_ADDRSTRLEN> text{};
            const auto* const address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
            ::inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
            found.emplace_back(text.data());
        }
    }
    return fmt::format("{}", fmt::join(found, ", "));
}

/// What can be done about it.
std::string hintFor(int errorNumber) {
    switch (errorNumber) {
        case EADDRINUSE:
            return "; another program is there, name another port";
        case EADDRNOTAVAIL:
            return "; this machine has " + listAddresses() + ", and 0.0.0.0 stands for all of them";
        default:
            return {};
    }
}

Descriptor listenAt(const sockaddr_in& address) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (socket.isOpen()) {
        ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    if (!socket.isOpen() ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), backlog) != 0) {
        const int errorNumber = errno;
        throw UserError(ExitCode::Failed,
                        fmt::format("--serve: nothing can be served at {}: {}{}", toText(address),
                                    std::strerror(errorNumber), hintFor(errorNumber)));
    }
    return socket;
}

/// In an answer to a client.
std::string listBuses(const std::vector<std::string>& names) {
    const std::span first(names.data(), std::min(names.size(), mostNamedBuses));
    return fmt::format("{}{}", fmt::join(first, " "), first.size() < names.size() ? " ..." : "");
}

}  // namespace

BusServer::BusServer(const BusServerSettings& serverSettings)
    : settings(serverSettings),
      listener(listenAt(serverSettings.address)),
      wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake.isOpen()) {
        throw UserError(ExitCode::Failed,
                        fmt::format("--serve: no descriptor is left: {}", std::strerror(errno)));
    }
    const LockGuard guard(lock);
    counts.address = toText(settings.address);
}

BusServer::~BusServer() {
    end();
}

void BusServer::begin(const std::vector<ChannelDescription>& channels) {
    WordNames names;
    for (const ChannelDescription& channel : channels) {
        const bool isServed = channel.bus == BusType::Can;
        busOfChannel.push_back(isServed ? buses.size() : notServed);
        if (isServed) {
            buses.push_back(names.add(channel.name));
            channelNames.push_back(channel.name);
        }
    }
    readers = std::make_unique<std::atomic<int>[]>(buses.size());
    if (settings.hasBeacon) {
        beacon.emplace(settings.address, buses);
    }
    {
        const LockGuard guard(lock);
        notPassed.resize(buses.size());
        for (std::size_t bus = 0; bus < buses.size(); ++bus) {
            counts.buses.push_back({buses[bus], channelNames[bus]});
        }
    }
    thread = std::thread([this] { run(); });
}

void BusServer::onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                          std::size_t size) {
    const std::size_t bus = channel < busOfChannel.size() ? busOfChannel[channel] : notServed;
    if (bus == notServed || size != CanRecord::size ||
        readers[bus].load(std::memory_order_acquire) == 0) {
        return;
    }
    const LockGuard guard(lock);
    if (passed.size() >= settings.mostPassed) {
        ++notPassed[bus];
        return;
    }
    Passed& message = passed.emplace_back();
    message.bus = bus;
    message.utcNanoseconds = utcNanoseconds;
    std::memcpy(message.record.data(), record, size);
}

ServeSummary BusServer::summarize() const {
    const LockGuard guard(lock);
    return counts;
}

std::vector<std::string> BusServer::takeTexts() {
    const LockGuard guard(lock);
    return std::exchange(texts, {});
}

void BusServer::end() {
    if (thread.joinable()) {
        const std::uint64_t one = 1;
        // Can't fail: it is the only one that is ever added.
        static_cast<void>(::write(wake.get(), &one, sizeof one));
        thread.join();
    }
}

void BusServer::run() {
    while (!isEnding) {
        auto now = Clock::now();
        waitUntil(findNextLook(now), now);
        now = Clock::now();
        accept(now);
        for (Connection& connection : connections) {
            serve(connection, now);
        }
        passOn(now);
        removeGone();
        noteCounts();
    }
    finish();
}

BusServer::Clock::time_point BusServer::findNextLook(Clock::time_point now) {
    auto next = beacon ? beacon->sendIfDue(now) : Clock::time_point::max();
    if (now < acceptsFrom) {
        next = std::min(next, acceptsFrom);
    }
    for (const Connection& connection : connections) {
        next = std::min(next, now + (connection.client.isRaw() ? readingPeriod : idlePeriod));
    }
    return next;
}

/// Or until something comes, can be sent, or it is to end.
void BusServer::waitUntil(Clock::time_point moment, Clock::time_point now) {
    const short listenerEvents = now >= acceptsFrom ? POLLIN : short{0};
    std::vector<pollfd> waits{{wake.get(), POLLIN, 0}, {listener.get(), listenerEvents, 0}};
    for (const Connection& connection : connections) {
        const short events =
            connection.client.wantsToSend(now) ? static_cast<short>(POLLIN | POLLOUT) : POLLIN;
        waits.push_back({connection.client.getSocket(), events, 0});
    }
    const auto time = std::chrono::ceil<std::chrono::milliseconds>(
        std::clamp<Clock::duration>(moment - now, Clock::duration::zero(), std::chrono::hours(1)));
    const bool isForever = moment == Clock::time_point::max();
    const int ready =
        ::poll(waits.data(), waits.size(), isForever ? -1 : static_cast<int>(time.count()));
    isEnding = isEnding || (ready > 0 && waits[0].revents != 0);
    std::size_t place = 2;
    for (Connection& connection : connections) {
        connection.events = ready > 0 ? waits[place].revents : short{0};
        ++place;
    }
}

void BusServer::accept(Clock::time_point now) {
    for (int i = 0; i < mostAcceptedAtOnce; ++i) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        Descriptor socket(::accept4(listener.get(), reinterpret_cast<sockaddr*>(&peer), &length,
                                    SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.isOpen()) {
            const bool isTransient = errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
            acceptsFrom = isTransient ? now : now + acceptPause;
            return;
        }
        const bool hasRoom = connections.size() < settings.mostClients;
        if (hasRoom) {
            connections.push_back(
                {BusClient(std::move(socket), toText(peer), settings.mostWaiting, now)});
            connections.back().client.send();
        } else {
            static constexpr std::string_view refusal = "< error too many readers are connected >";
            ::send(socket.get(), refusal.data(), refusal.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        const LockGuard guard(lock);
        ++(hasRoom ? counts.connected : counts.refused);
    }
}

void BusServer::serve(Connection& connection, Clock::time_point now) {
    BusClient& client = connection.client;
    if ((connection.events & ~POLLOUT) != 0 && !client.receive()) {
        connection.isGone = true;
        return;
    }
    while (!client.isLeaving()) {
        const auto command = client.takeCommand();
        if (!command) {
            break;
        }
        handle(client, *command, now);
    }
    if (client.sendsGarbage() && !client.isLeaving()) {
        leave(client, "< error that is no command of the socketcand protocol >", now);
    }
    if (client.isOver(now)) {
        connection.isGone = client.isLeaving();
        if (!client.isLeaving()) {
            leave(client, "< error no bus was read for ten seconds >", now);
        }
    }
    if (client.wantsToSend(now) && !client.send()) {
        connection.isGone = true;
    }
}

void BusServer::handle(BusClient& client, const std::string& command, Clock::time_point now) {
    constexpr std::string_view open = "open ";
    bool hasRoom = true;
    if (command == "echo") {
        hasRoom = client.reply("< echo >");
    } else if (command.starts_with(open) && !client.getBus()) {
        openBus(client, command.substr(open.size()), now);
    } else if (!client.getBus()) {
        hasRoom = client.reply("< error open a bus first >");
    } else if (command == "rawmode") {
        hasRoom = client.reply("< ok >");
        if (!client.isRaw()) {
            ++readers[*client.getBus()];
            client.beginRaw(now);
        }
    } else if (command.starts_with("send") || command.starts_with("fdsend")) {
        hasRoom = client.reply("< error nothing can be sent here, buses are only read >");
    } else {
        hasRoom = client.reply("< error unknown command, only raw mode is there >");
    }
    if (!hasRoom) {
        cutOff(client, 0, now);
    }
}

void BusServer::openBus(BusClient& client, const std::string& name, Clock::time_point now) {
    const auto found = std::ranges::find(buses, name);
    if (found == buses.end()) {
        leave(client,
              buses.empty() ? std::string("< error no CAN channel is measured >")
                            : fmt::format("< error no such bus, there are {} >", listBuses(buses)),
              now);
        return;
    }
    client.open(static_cast<std::size_t>(found - buses.begin()));
    client.reply("< ok >");
}

/// The messages that came since the last time, to all that read their buses.
void BusServer::passOn(Clock::time_point now) {
    std::vector<std::uint64_t> missing;
    {
        const LockGuard guard(lock);
        std::swap(passed, taken);
        missing = std::exchange(notPassed, std::vector<std::uint64_t>(buses.size()));
    }
    const auto reads = [](const BusClient& client, std::size_t bus) {
        return client.isRaw() && !client.isLeaving() && client.getBus() == bus;
    };
    std::string text;
    for (const Passed& message : taken) {
        text.clear();
        appendFrameText(text, message.utcNanoseconds, CanRecord(message.record.data()));
        for (Connection& connection : connections) {
            if (reads(connection.client, message.bus) && !connection.client.add(text)) {
                cutOff(connection.client, 1, now);
            }
        }
    }
    taken.clear();
    for (Connection& connection : connections) {
        for (std::size_t bus = 0; bus < missing.size(); ++bus) {
            if (missing[bus] != 0 && reads(connection.client, bus)) {
                cutOff(connection.client, missing[bus], now);
            }
        }
    }
}

void BusServer::leave(BusClient& client, std::string_view lastText, Clock::time_point now) {
    stopReading(client);
    client.leave(lastText, now);
}

/// It gets no more messages; called once for each that gets some.
void BusServer::stopReading(const BusClient& client) {
    if (client.isRaw() && !client.isLeaving()) {
        --readers[*client.getBus()];
    }
}

void BusServer::cutOff(BusClient& client, std::uint64_t lostFrames, Clock::time_point now) {
    const std::uint64_t all = lostFrames + client.dropWaiting();
    leave(client, fmt::format("< error slow reader, {} frames lost >", all), now);
    const LockGuard guard(lock);
    ++counts.cutOff;
    counts.lost += all;
    if (texts.size() < mostTexts) {
        texts.push_back(fmt::format(
            "the reader at {}{} was too slow and is cut off: {} messages didn't reach it; the "
            "measurement has them",
            client.getPeer(),
            client.getBus() ? fmt::format(" of bus {}", buses[*client.getBus()]) : "", all));
    }
}

void BusServer::removeGone() {
    for (auto at = connections.begin(); at != connections.end();) {
        if (at->isGone) {
            noteSent(*at);
            stopReading(at->client);
            at = connections.erase(at);
        } else {
            ++at;
        }
    }
}

void BusServer::noteSent(Connection& connection) {
    const std::uint64_t all = connection.client.getSentFrames();
    const LockGuard guard(lock);
    counts.sent += all - std::exchange(connection.counted, all);
}

void BusServer::noteCounts() {
    for (Connection& connection : connections) {
        noteSent(connection);
    }
    const LockGuard guard(lock);
    counts.readers = connections.size();
}

/// What waits is sent to those that take it.
void BusServer::finish() {
    const auto start = Clock::now();
    passOn(start);
    auto progress = start;
    for (auto now = start; now < start + endPatience && now < progress + stallPatience;
         now = Clock::now()) {
        const bool isAllSent = std::ranges::all_of(connections, [](const Connection& connection) {
            return connection.client.isLeaving() || connection.client.isAllSent();
        });
        if (isAllSent) {
            break;
        }
        waitForRoom(now);
        const std::uint64_t before = countSent();
        for (Connection& connection : connections) {
            serve(connection, now);
        }
        removeGone();
        noteCounts();
        progress = countSent() != before ? now : progress;
    }
    for (Connection& connection : connections) {
        if (!connection.client.isLeaving() && !connection.client.isAllSent()) {
            cutOff(connection.client, 0, Clock::now());
        }
        connection.isGone = true;
    }
    removeGone();
    noteCounts();
}

std::uint64_t BusServer::countSent() const {
    const LockGuard guard(lock);
    return counts.sent;
}

/// Or some milliseconds.
void BusServer::waitForRoom(Clock::time_point now) {
    std::vector<pollfd> waits;
    for (const Connection& connection : connections) {
        const short events = connection.client.wantsToSend(now) ? short{POLLOUT} : short{0};
        waits.push_back({connection.client.getSocket(), events, 0});
    }
    ::poll(waits.data(), waits.size(),
           static_cast<int>(readingPeriod / std::chrono::milliseconds(1)));
    for (Connection& connection : connections) {
        connection.events = 0;
    }
}

void BusServer::begin(const Summary& measured) {
    std::vector<ChannelDescription> channels;
    for (const ChannelSummary& channel : measured.channels) {
        channels.push_back({channel.name, channel.bus});
    }
    begin(channels);
}

std::string describeBuses(const ServeSummary& serve) {
    constexpr std::size_t mostNamed = 4;
    if (serve.buses.empty()) {
        return fmt::format("nothing is served at {}: no CAN channel is used", serve.address);
    }
    std::string text = fmt::format("buses served at {}:", serve.address);
    for (std::size_t i = 0; i < std::min(serve.buses.size(), mostNamed); ++i) {
        text += fmt::format("{} {} ({})", i == 0 ? "" : ",", serve.buses[i].name,
                            printable(serve.buses[i].channel));
    }
    if (serve.buses.size() > mostNamed) {
        text += fmt::format(" and {} more, which --json lists at the end",
                            serve.buses.size() - mostNamed);
    }
    return text;
}

}  // namespace station
