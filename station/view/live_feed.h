#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/recording/channel_traffic.h"
#include "station/session/measurement_recorder.h"
#include "station/signals/decoder.h"
#include "station/view/identifier_table.h"
#include "station/view/message_store.h"

namespace station {

struct LiveChannel {
    std::string name;
    std::string busName;
    BusType bus = BusType::Can;
    std::uint32_t color = 0;                  ///< 0xRRGGBB
    ChannelTraffic traffic = {};              ///< of all messages, also those that aren't shown
    std::uint64_t lost = 0;                   ///< messages
    std::optional<BusLoadSummary> load = {};  ///< empty: its bit rate isn't known
    std::vector<std::string> account = {};  ///< of these, and of others that aren't as they should
    std::shared_ptr<const Decoder> decoder = {};  ///< null: no database

    /// Null: it isn't defined.
    const Decoder::Message* findMessage(std::uint32_t id, bool isExtended) const {
        return decoder ? decoder->find(id, isExtended) : nullptr;
    }
};

/// What the live view shows: of each channel how many messages came, of each identifier what came
/// with it, and the last messages of all. It listens to a measurement and takes nothing from it:
/// each message costs a copy. All else is worked out by `refresh`.
///
/// A copy is a picture of what has come so far, and nothing may be added to it. Called on the
/// host's thread.
class LiveFeed final : public MessageListener {
  public:
    using Clock = std::chrono::steady_clock;

    /// What is set aside for messages, bytes: three quarters for those that come, a quarter for
    /// those that come while a picture is held.
    static constexpr std::size_t memory = std::size_t{256} << 20;

    using Decoders = std::vector<std::shared_ptr<const Decoder>>;

    /// A measurement has started, with the channels of that summary in its order, and their
    /// decoders; none or null for those without a database.
    void begin(const Summary& summary, const Decoders& decoders = {});
    /// Databases are being read: what is decoded by them comes with `setDecoders`.
    void awaitDecoders() { awaitsDecoders = true; }
    bool isAwaitingDecoders() const { return awaitsDecoders; }
    /// By channel, as for `begin`.
    void setDecoders(const Decoders& decoders);
    /// What the measurement knows by now: its start, which a clock that leads may move, its time,
    /// and messages that are missing or have another time.
    void follow(const Summary& summary);
    /// Forgets what has come.
    void clear();
    /// Takes what has come into the table of identifiers, for about so long, and works out the
    /// rates, if it is time.
    void refresh(Clock::time_point now, std::chrono::milliseconds slice = std::chrono::hours(1));
    /// Whether a copy of this is being looked at, which keeps its messages.
    void setHeld(bool isHeld);

    const std::vector<LiveChannel>& getChannels() const { return channels; }
    const std::vector<BusType>& getBuses() const { return buses; }
    const MessageStore& getMessages() const { return messages; }
    const IdentifierTable& getIdentifiers() const { return identifiers; }
    /// Messages that the table hasn't, as they were gone again before it was worked out.
    std::uint64_t getMissed() const { return missed; }
    /// As `Summary::getLoad`, of all.
    std::optional<double> getLoad() const { return load; }
    /// Goes up when the channels are other ones, or all was forgotten.
    std::uint64_t getGeneration() const { return generation; }
    /// UTC nanoseconds.
    std::int64_t getStart() const { return startUtc; }
    /// The measurement's time, UTC nanoseconds; stands still when it is over.
    std::int64_t getNow() const { return nowUtc; }

    void onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                   std::size_t size) override;

  private:
    static constexpr std::size_t heldShare = memory / 4;

    std::vector<LiveChannel> channels;
    std::vector<BusType> buses;  ///< of the channels
    MessageStore messages{memory - heldShare};
    IdentifierTable identifiers;
    std::uint64_t looked = 0;  ///< messages that are in the table
    std::uint64_t missed = 0;
    std::uint64_t generation = 0;
    std::int64_t startUtc = 0;
    std::int64_t nowUtc = 0;
    std::optional<double> load;
    bool awaitsDecoders = false;
    Clock::time_point mark;
};

}  // namespace station
