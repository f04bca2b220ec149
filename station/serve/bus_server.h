#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "core/mutex.h"
#include "station/recording/bus_record.h"
#include "station/recording/recording.h"
#include "station/serve/bus_beacon.h"
#include "station/serve/bus_client.h"
#include "station/session/measurement_recorder.h"
#include "station/session/summary.h"

namespace station {

struct BusServerSettings {
    sockaddr_in address{};
    bool hasBeacon = false;
    std::size_t mostClients = 16;
    /// Bytes of text that may wait for a client.
    std::size_t mostWaiting = std::size_t{4} << 20U;
    /// Messages that may wait for the server's thread.
    std::size_t mostPassed = std::size_t{1} << 16U;
};

/// Gives the messages of a measurement's CAN channels to other programs, by the socketcand protocol
/// in raw mode: each channel is a bus, under the name that it has in a candump log. What programs
/// send is refused.
///
/// A thread of its own has the connections. The host's thread copies a message for it, and only if
/// somebody reads its bus. What waits is bounded here and for each client; one that is too slow is
/// disconnected with an error, what it didn't get is counted, and nobody else notices.
///
/// Called on the host's thread, `summarize` and `takeTexts` included.
class BusServer final : public MessageListener {
  public:
    /// Takes the address. Throws `UserError` if that can't be.
    explicit BusServer(const BusServerSettings& serverSettings);
    ~BusServer();  // as `end`
    BusServer(const BusServer&) = delete;
    BusServer& operator=(const BusServer&) = delete;

    /// Begins to serve these channels, which are those of `onMessage` by their numbers; those of
    /// other buses than CAN aren't served. Once. Throws as the constructor, for the beacon.
    void begin(const std::vector<ChannelDescription>& channels);

    void onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                   std::size_t size) override;

    ServeSummary summarize() const CMP_EXCLUDES(lock);
    /// The same with the channels of a measurement.
    void begin(const Summary& measured);

    /// What the user must know since the last call.
    std::vector<std::string> takeTexts() CMP_EXCLUDES(lock);

    /// Sends what waits, as long as clients take it and for three seconds at most, and closes all
    /// connections.
    void end();

  private:
    using Clock = BusClient::Clock;
    static constexpr std::size_t notServed = static_cast<std::size_t>(-1);

    /// A message on its way to the thread.
    struct Passed {
        std::size_t bus;
        std::int64_t utcNanoseconds;
        std::array<std::uint8_t, CanRecord::size> record;
    };

    struct Connection {
        BusClient client;
        short events = 0;  ///< of the last wait
        bool isGone = false;
        std::uint64_t counted = 0;  ///< of its sent messages, in the summary
    };

    void run();
    Clock::time_point findNextLook(Clock::time_point now);
    void waitUntil(Clock::time_point moment, Clock::time_point now);
    void waitForRoom(Clock::time_point now);
    void accept(Clock::time_point now);
    void serve(Connection& connection, Clock::time_point now);
    void handle(BusClient& client, const std::string& command, Clock::time_point now);
    void openBus(BusClient& client, const std::string& name, Clock::time_point now);
    void passOn(Clock::time_point now) CMP_EXCLUDES(lock);
    void leave(BusClient& client, std::string_view lastText, Clock::time_point now);
    void stopReading(const BusClient& client);
    void cutOff(BusClient& client, std::uint64_t lostFrames, Clock::time_point now)
        CMP_EXCLUDES(lock);
    void removeGone();
    void noteSent(Connection& connection) CMP_EXCLUDES(lock);
    void noteCounts() CMP_EXCLUDES(lock);
    std::uint64_t countSent() const CMP_EXCLUDES(lock);
    void finish();

    const BusServerSettings settings;
    const Descriptor listener;
    Descriptor wake;  ///< readable once it is to end
    std::thread thread;

    // Constant while the thread runs.
    std::vector<std::size_t> busOfChannel;        ///< or `notServed`
    std::vector<std::string> buses;               ///< their names
    std::vector<std::string> channelNames;        ///< by bus
    std::unique_ptr<std::atomic<int>[]> readers;  ///< by bus: clients in raw mode

    // The thread's own.
    std::list<Connection> connections;
    std::optional<BusBeacon> beacon;
    std::vector<Passed> taken;
    Clock::time_point acceptsFrom;
    bool isEnding = false;

    mutable Mutex lock;
    std::vector<Passed> passed CMP_GUARDED_BY(lock);
    std::vector<std::uint64_t> notPassed CMP_GUARDED_BY(lock);  ///< by bus: found no room
    ServeSummary counts CMP_GUARDED_BY(lock);
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
};

/// What a user has to name to a program that reads.
std::string describeBuses(const ServeSummary& serve);

}  // namespace station
