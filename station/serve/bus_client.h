#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/descriptor.h"
#include "station/recording/bus_record.h"
#include "station/serve/bus_text.h"

namespace station {

/// One connection of the server, with what waits for it. Nothing here blocks. Used on the server's
/// thread.
class BusClient {
  public:
    using Clock = std::chrono::steady_clock;
    using BusPlace = std::optional<std::size_t>;

    /// Takes over a connected socket, and greets the client. `mostWaiting`: bytes of messages that
    /// may wait for it.
    BusClient(Descriptor connected, std::string address, std::size_t mostWaiting,
              Clock::time_point now);

    int getSocket() const { return socket.get(); }
    /// "127.0.0.1:40000".
    const std::string& getPeer() const { return peer; }

    /// Reads what came; a second call is needed where there is more. False: the client has gone.
    bool receive();
    /// The next command of it.
    std::optional<std::string> takeCommand() { return commands.take(); }
    bool sendsGarbage() const { return commands.isBroken(); }

    /// False: there is no room, as the client is too slow.
    bool reply(std::string_view text);
    void open(std::size_t place) { bus = place; }
    BusPlace getBus() const { return bus; }
    /// From now on it gets the messages of the bus.
    void beginRaw(Clock::time_point now);
    bool isRaw() const { return raw; }

    /// A message of its bus. False as with `reply`.
    bool add(std::string_view frameText);

    /// Whether to wait until the socket takes something.
    bool wantsToSend(Clock::time_point now) const;
    /// Sends what the socket takes. False: the client has gone.
    bool send();
    bool isAllSent() const { return sent == waiting.size(); }
    std::uint64_t getSentFrames() const { return framesSent; }

    /// Nothing more comes but what waits and this text, for a short time.
    void leave(std::string_view lastText, Clock::time_point now);
    /// The same, but what waits goes too, up to the end of a message that was begun. Returns how
    /// many messages those were.
    std::uint64_t dropWaiting();
    bool isLeaving() const { return deadline.has_value(); }
    /// Whether nothing more is to be done for it: it had its time, or never opened a bus.
    bool isOver(Clock::time_point now) const;

  private:
    void countSent(std::size_t from);

    Descriptor socket;
    const std::string peer;
    const std::size_t limit;
    CommandReader commands;
    BusPlace bus;
    bool raw = false;
    Clock::time_point started;     ///< until it is in raw mode: when it connected
    Clock::time_point framesFrom;  ///< nothing is sent before
    std::string waiting;           ///< whole texts; of the first the front may be sent
    std::size_t sent = 0;          ///< of it
    std::uint64_t framesSent = 0;
    std::size_t ignored = 0;  ///< bytes that came since it is leaving
    bool isEndSent = false;
    std::optional<Clock::time_point> deadline;  ///< when it is leaving
};

}  // namespace station
