#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/mutex.h"
#include "station/nats/nats_connection.h"
#include "station/stream/publisher.h"
#include "station/stream/station_name.h"

namespace station {

/// How a stream is made that isn't there. One that is there stays as it is.
struct StreamRules {
    std::string name;
    int replicas = 0;                  ///< 0: one
    std::int64_t mostNanoseconds = 0;  ///< messages older than that go; 0: they stay
    std::int64_t mostBytes = 0;        ///< beyond that the oldest go; 0: no limit
};

/// Publishes into a JetStream stream.
///
/// Of each subject one batch is on its way at a time. Two could be stored in the wrong order, or
/// the second without the first: a disk that is full for a large one takes a small one, and a
/// cluster that gets another leader may lose one of several. So the stream always has the first
/// batches of a subject and session, and after `open` its last one says which are stored: also
/// after hours, when the broker doesn't know the identifiers of batches any more. It is believed
/// once the batch of its number has come and is the same, byte for byte: whoever else may publish
/// there can name any number. So is what the broker calls a duplicate.
class NatsPublisher final : public Publisher {
  public:
    /// `report` gets what the user must know and isn't a failure. `name` is claimed with each
    /// `open`.
    NatsPublisher(NatsOptions connectionOptions, StreamRules streamRules,
                  std::unique_ptr<StationName> name, std::function<void(std::string)> reportToUser);
    ~NatsPublisher() override;

    void open() override;
    bool publish(const Batch& batch) override;
    std::uint64_t getAcknowledged(std::chrono::milliseconds patience) override;
    void close() override;

    /// What others see of this station; while it is open. Throws `PublishError`: another one has
    /// taken its name, or the last one wasn't answered.
    void beat(const std::string& json);
    /// That was connected last; empty: none was. Of any thread.
    std::string getServer() const;

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t leastBytesPerSecond = 10'000;  ///< of a link that is good enough

    enum class Way : std::uint8_t { Sent, Presumed, Stored };
    struct OnTheWay {
        std::string subject;
        NatsMessage message;  ///< that was sent, until it is stored
        Clock::time_point since;
        Way way;
        std::optional<Clock::time_point> arrived;  ///< at the broker, when that was known
    };
    /// The last batch of a subject in the stream, until it has been compared.
    struct Last {
        NatsMessage message;  ///< null: there is none
        std::string session;
        std::uint64_t number = 0;
        std::uint64_t sequence = 0;
    };

    [[noreturn]] void fail(const std::string& what, const std::string& why) const;
    [[noreturn]] void distrust(const std::string& subject, std::uint64_t sequence);
    void makeStream();
    void createStream();
    void reportDifferences(const jsStreamConfig& config);
    void subscribe();
    Last& findLast(const std::string& subject);
    Way compareWithLast(const Batch& batch);
    NatsMessage send(const Batch& batch);
    natsStatus noteMessageAsked(natsStatus status);
    std::chrono::milliseconds patienceFor(std::size_t bytes) const;
    void noteSpeed(std::size_t bytes, Clock::duration time);
    Clock::time_point getAnswerEnd(std::size_t largest) const;
    bool takeAnswer(std::chrono::milliseconds patience);
    void noteStored(std::string_view number, bool isDuplicate, std::uint64_t sequence);
    void discard(NatsMessage message);

    const NatsOptions options;
    const StreamRules rules;
    const std::unique_ptr<StationName> stationName;
    const std::function<void(std::string)> report;

    std::uint64_t attempt = 0;      ///< to open
    std::uint64_t lastReached = 0;  ///< the last that got as far as to the name
    std::size_t largestBatch = std::size_t{256} << 10U;  ///< a connection is made for it; bytes
    std::chrono::milliseconds messagePatience{5000};     ///< for a message of the stream
    bool wasStreamThere = false;
    bool areDifferencesReported = false;
    std::unique_ptr<NatsConnection> connection;  ///< null while it isn't open
    JetStream jetStream;
    JetStream messages;  ///< with the patience for a message of the stream
    std::string inbox;
    NatsSubscription answers;
    std::map<std::string, Last> lastBySubject;     ///< as it was at the first batch since `open`
    std::map<std::string, std::uint64_t> foreign;  ///< by subject: a message that isn't ours
    std::deque<OnTheWay> onTheWay;
    std::set<std::string> awaited;     ///< subjects of those that were sent
    std::size_t bytesOnTheWay = 0;     ///< of those
    Clock::time_point latestPresumed;  ///< when the last of those came
    std::vector<NatsMessage> discarded;
    std::size_t bytesDiscarded = 0;
    std::uint64_t acknowledged = 0;  ///< in front of those
    /// What the link and the broker take at least, as this connection has shown.
    std::size_t bytesPerSecond = leastBytesPerSecond;
    Clock::time_point lastStored;  ///< when the broker last said so of a batch
    Clock::time_point beatSent;    ///< the last heartbeat
    Clock::time_point beatEnd;     ///< an answer to it is due then

    mutable Mutex lock;
    std::string server CMP_GUARDED_BY(lock);
};

}  // namespace station
