#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "station/gui/identifier_filter.h"
#include "station/recording/bus_record.h"
#include "station/recording/channel_traffic.h"
#include "station/session/measurement_recorder.h"

namespace station {

/// A message as the live view has it.
struct LiveMessage {
    std::size_t channel = 0;  ///< position in `LiveFeed::getChannels`
    std::int64_t utc = 0;     ///< nanoseconds since 1970
    std::array<std::uint8_t, CanRecord::size> record = {};
    std::size_t size = 0;  ///< of the record; 0: there was none yet
};

struct LiveChannel {
    std::string name;
    std::string busName;
    BusType bus = BusType::Can;
    ChannelTraffic traffic = {};
    LiveMessage last = {};
};

/// What the live view shows: of each channel how many messages came and the last one, and the last
/// messages of all. It listens to a measurement and takes nothing from it: each message costs a
/// copy. What the filter holds back isn't counted.
///
/// Called on the host's thread.
class LiveFeed final : public MessageListener {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t mostMessages = 10000;

    /// A measurement has started, with the channels of that summary in its order.
    void begin(const Summary& summary);
    /// A clock that leads may move the start of a running measurement.
    void setStart(Summary::Clock::time_point start);
    void setFilter(IdentifierFilter newFilter);
    /// Forgets what has come.
    void clear();
    /// Works out the rates, if it is time to.
    void updateRates(Clock::time_point now);

    const std::vector<LiveChannel>& getChannels() const { return channels; }
    /// Seconds since the start of the measurement.
    double secondsOf(const LiveMessage& message) const;
    /// The last ones, oldest first.
    std::vector<LiveMessage> lastMessages() const;

    void onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                   std::size_t size) override;

  private:
    IdentifierFilter filter;
    std::vector<LiveChannel> channels;
    std::vector<LiveMessage> ring;  ///< grows up to `mostMessages`
    std::size_t oldest = 0;         ///< in a full ring
    std::int64_t startUtc = 0;      ///< nanoseconds
    Clock::time_point mark;
};

/// "0x123" or "0x123 (ext)" for CAN, "17" for LIN; empty without a message.
std::string identifierText(const LiveMessage& message, BusType bus);
/// The data bytes in hexadecimal.
std::string dataText(const LiveMessage& message, BusType bus);
std::size_t dataLength(const LiveMessage& message, BusType bus);

}  // namespace station
