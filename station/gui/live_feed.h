#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/recording/bus_record.h"
#include "station/recording/channel_traffic.h"
#include "station/session/measurement_recorder.h"

namespace station {

/// Which messages the user wants to see, by their identifiers: all of them by default.
class IdentifierFilter {
  public:
    IdentifierFilter() = default;
    /// Numbers and ranges with commas, hexadecimal after 0x: "0x100-0x1FF, 17". An empty text lets
    /// all pass. Throws `UserError` for a text that is no filter.
    static IdentifierFilter parse(std::string_view text);

    bool passes(std::uint32_t identifier) const;
    bool passesAll() const { return ranges.empty(); }

  private:
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;  ///< first and last
};

/// A message as the live view has it.
struct LiveMessage {
    std::uint64_t number = 0;  ///< in the order in which they came
    std::size_t channel = 0;   ///< position in `LiveFeed::getChannels`
    std::int64_t utc = 0;      ///< nanoseconds since 1970
    std::uint32_t id = 0;
    bool isExtended = false;
    std::size_t length = 0;  ///< data bytes
    std::array<std::uint8_t, CanRecord::mostData> data = {};
};

struct LiveChannel {
    std::string name;
    std::string busName;
    BusType bus = BusType::Can;
    ChannelTraffic traffic = {};             ///< of all messages, also those that aren't shown
    std::optional<LiveMessage> newest = {};  ///< of all
    std::optional<LiveMessage> last = {};    ///< of those that pass the filter
    std::uint64_t lost = 0;                  ///< messages
    std::vector<std::string> account = {};   ///< of these, and of others that aren't as they should
};

/// The last messages, up to `most` of them.
class MessageRing {
  public:
    static constexpr std::size_t most = 10000;

    void add(const LiveMessage& message);
    void clear();
    /// Oldest first.
    std::vector<LiveMessage> inOrder() const;

  private:
    std::vector<LiveMessage> messages;  ///< grows up to `most`
    std::size_t oldest = 0;             ///< in a full ring
};

/// What the live view shows: of each channel how many messages came and the last one, and the last
/// messages. It listens to a measurement and takes nothing from it: each message costs a copy.
///
/// The filter chooses what is shown and throws nothing away. The last messages of all are kept
/// beside the last ones that pass, so that another filter has something to choose from, and rare
/// messages aren't pushed out by frequent ones.
///
/// A copy is a picture of what has come so far. Called on the host's thread.
class LiveFeed final : public MessageListener {
  public:
    using Clock = std::chrono::steady_clock;

    /// A measurement has started, with the channels of that summary in its order.
    void begin(const Summary& summary);
    /// A clock that leads may move the start of a running measurement.
    void setStart(Summary::Clock::time_point start);
    /// What the measurement knows by now of messages that are missing or have another time.
    void setAccounts(const Summary& summary);
    void setFilter(IdentifierFilter newFilter);
    /// Forgets what has come, whether it passes or not.
    void clear();
    /// Works out the rates, if it is time to.
    void updateRates(Clock::time_point now);

    const std::vector<LiveChannel>& getChannels() const { return channels; }
    /// Seconds since the start of the measurement.
    double secondsOf(const LiveMessage& message) const;
    /// The last ones that came and pass the filter, in the order of their times.
    std::vector<LiveMessage> lastMessages() const;

    void onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                   std::size_t size) override;

  private:
    void show(const LiveMessage& message);

    IdentifierFilter filter;
    std::vector<LiveChannel> channels;
    std::uint64_t received = 0;  ///< messages
    MessageRing all;
    MessageRing passing;        ///< empty while all pass
    std::int64_t startUtc = 0;  ///< nanoseconds
    Clock::time_point mark;
};

/// "0x123" or "0x123 (ext)" for CAN, "17" for LIN.
std::string identifierText(const LiveMessage& message, BusType bus);
/// The data bytes in hexadecimal.
std::string dataText(const LiveMessage& message);

}  // namespace station
