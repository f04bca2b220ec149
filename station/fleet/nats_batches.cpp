#include "station/fleet/nats_batches.h"

#include <fmt/format.h>
#include <nats/nats.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>
#include <utility>

#include "core/parse_number.h"
#include "station/errors.h"
#include "station/nats/nats_connection.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// After which a batch is given again: what a disk takes for some megabytes, with room.
constexpr std::int64_t acknowledgeWait = 5'000'000'000;  // nanoseconds
/// What a collector may have in memory: these and no more are given out at once.
constexpr std::int64_t mostOutstanding = 256;
/// So much is fetched at once: more than the largest message that a broker may take (64 MiB).
constexpr std::int64_t mostBytes = std::int64_t{80} << 20U;
constexpr int requestWait = 1500;            // milliseconds
constexpr std::int64_t consumerWait = 5000;  // the same
constexpr auto openAgain = 1s;
constexpr auto findAgain = 10s;
/// Requests of a collector that has just ended have ended by then.
constexpr auto oldRequests = 600ms;
constexpr auto watchOthers = 500ms;
/// Stations whose clocks are ahead by so much are taken into account.
constexpr std::int64_t mostAhead = std::int64_t{86'400} * 1'000'000'000;
constexpr std::size_t longestSubject = 1024;
constexpr std::size_t longestSession = 200;
constexpr std::string_view requestEnded = "408";

using ConsumerInfo = std::unique_ptr<jsConsumerInfo, NatsDelete<jsConsumerInfo_Destroy>>;

bool isSafeSubject(std::string_view subject) {
    return subject.size() <= longestSubject && std::ranges::all_of(subject, [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '_' || c == '=' || c == '.';
           });
}

bool isPrintableAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

/// The header's text; empty if it isn't there.
std::string_view headerOf(natsMsg* message, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr
               ? std::string_view(value)
               : std::string_view();
}

template <typename Number>
bool readHeader(natsMsg* message, const char* name, Number& number) {
    const auto parsed = parseNumber<Number>(headerOf(message, name));
    number = parsed.value_or(0);
    return parsed.has_value();
}

/// What is wrong with it; empty for nothing.
std::string readBatch(natsMsg* message, StoredBatch& batch) {
    const std::string_view subject(batch.subject);
    const std::size_t begin = subject.find('.') + 1;
    batch.stationToken = subject.substr(begin, subject.find('.', begin) - begin);
    if (!isSafeSubject(subject) || begin == 0 || batch.stationToken.empty()) {
        return "its subject names no station";
    }
    if (headerOf(message, header::station) != batch.stationToken) {
        return "its header names another station than its subject";
    }
    batch.session = headerOf(message, header::session);
    if (batch.session.empty() || batch.session.size() > longestSession ||
        !isPrintableAscii(batch.session)) {
        return "its header names no session";
    }
    if (!readHeader(message, header::batch, batch.number) || batch.number == 0 ||
        batch.number > StoredBatch::highestNumber) {
        return "its header has no number of a batch";
    }
    if (!readHeader(message, header::firstTime, batch.firstTime) ||
        !readHeader(message, header::lastTime, batch.lastTime) ||
        !readHeader(message, header::messages, batch.messages)) {
        return "its header doesn't say which messages are in it";
    }
    readHeader(message, header::sentTime, batch.sentTime);
    batch.isEnd = headerOf(message, header::end) == "1";
    batch.hasOthers = headerOf(message, header::others) == "1";
    return {};
}

/// What comes in place of a batch: that the request has ended, or can't be served. Empty for a
/// batch.
std::string_view statusOf(natsMsg* message) {
    return natsMsg_GetDataLength(message) == 0 ? headerOf(message, "Status") : std::string_view();
}

/// Of the message of a stream that this answer has; 0 if it has none.
std::uint64_t sequenceOf(natsMsg& answer) {
    const auto* const data = natsMsg_GetData(&answer);
    const auto json =
        nlohmann::json::parse(data, data + natsMsg_GetDataLength(&answer), nullptr, false);
    const auto message = json.is_object() ? json.find("message") : json.end();
    if (message == json.end() || !message->is_object()) {
        return 0;
    }
    const auto sequence = message->find("seq");
    return sequence != message->end() && sequence->is_number_unsigned()
               ? sequence->get<std::uint64_t>()
               : 0;
}

class NatsBatches final : public BatchSource {
  public:
    NatsBatches(NatsOptions servers, BatchOptions wanted)
        : brokers(std::move(servers)), options(std::move(wanted)) {
        connection = connectToAny(brokers, client);
        stream = connection->openJetStream(requestWait);
        const Failure failure = open();
        if (!failure.text.empty() && !failure.mayPass) {
            throw UserError(ExitCode::Failed, failure.text);
        }
        if (failure.mayPass) {
            texts.push_back(failure.text + "; trying again");
        }
    }
    ~NatsBatches() override = default;
    NatsBatches(const NatsBatches&) = delete;
    NatsBatches& operator=(const NatsBatches&) = delete;

    std::vector<StoredBatch> fetch(std::size_t most, std::chrono::milliseconds wait) override {
        std::vector<StoredBatch> batches;
        if (!reopen()) {
            std::this_thread::sleep_for(wait);
            return batches;
        }
        const auto end = Clock::now() + wait;
        bool isRefused = false;
        if (!isAwaiting()) {
            ask(most, wait);
        }
        while (!isRefused && awaited != 0 && batches.size() < most) {
            const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
                batches.empty() ? end - Clock::now() : Clock::duration());
            natsMsg* message = nullptr;
            if (natsSubscription_NextMsg(&message, subscription.get(),
                                         std::max(rest, 0ms).count()) != NATS_OK) {
                break;
            }
            NatsMessage owned(message);
            const std::string_view state = statusOf(message);
            if (state == requestEnded && rest > 0ms) {
                ask(most, rest);
            } else if (!state.empty()) {
                awaited = 0;
                isRefused = state != requestEnded;
            } else {
                --awaited;
                batches.push_back(toBatch(owned.release()));
            }
        }
        if (isRefused && batches.empty()) {
            std::this_thread::sleep_until(end);
        }
        return batches;
    }

    std::optional<StoredBatch> find(const std::string& subject, std::uint64_t sequence) override {
        if (!isServed() || !isSafeSubject(subject) || Clock::now() < nextFind) {
            return std::nullopt;
        }
        natsMsg* made = nullptr;
        const std::string request =
            fmt::format(R"({{"seq":{},"next_by_subj":"{}"}})", sequence, subject);
        const std::string api = "$JS.API.STREAM.MSG.GET." + options.stream;
        natsConnection_RequestString(&made, connection->get(), api.c_str(), request.c_str(),
                                     requestWait);
        const NatsMessage answer(made);
        if (answer == nullptr) {
            nextFind = Clock::now() + findAgain;
            texts.push_back(
                fmt::format("{} doesn't say what the stream has of {}: what its consumer left out "
                            "counts as missing. A collector needs the right to publish to {}",
                            connection->getServer(), subject, api));
        }
        const std::uint64_t found = answer ? sequenceOf(*answer) : 0;
        made = nullptr;
        if (found == 0 || js_GetMsg(&made, stream.get(), options.stream.c_str(), found, nullptr,
                                    nullptr) != NATS_OK) {
            return std::nullopt;
        }
        StoredBatch batch = toBatch(made);
        batch.sequence = found;
        return batch;
    }

    /// By the message's own subject for that: also over a later connection than it came by.
    void acknowledge(const StoredBatch& batch) override {
        const char* const reply = natsMsg_GetReply(static_cast<natsMsg*>(batch.owner.get()));
        if (connection != nullptr && reply != nullptr) {
            natsConnection_PublishString(connection->get(), reply, "+ACK");
        }
    }

    std::optional<Position> askPosition() override {
        if (!isServed()) {
            return std::nullopt;
        }
        jsErrCode code{};
        const StreamInfo streamInfo = askStream(code);
        const ConsumerInfo consumer = streamInfo ? askConsumer(code) : ConsumerInfo();
        if (code == JSStreamNotFoundErr || code == JSConsumerNotFoundErr) {
            texts.push_back(code == JSStreamNotFoundErr
                                ? fmt::format("the stream {} is gone; collecting goes on when "
                                              "there is one of that name",
                                              options.stream)
                                : fmt::format("the consumer {} is gone; another one begins at the "
                                              "stream's first message, and what is collected "
                                              "already is left out",
                                              options.durable));
            subscription.reset();
        }
        if (!streamInfo || !consumer) {
            return std::nullopt;
        }
        return Position{consumer->AckFloor.Stream,
                        static_cast<std::uint64_t>(consumer->NumAckPending), consumer->NumPending,
                        streamInfo->State.LastSeq};
    }

    bool isServed() const override {
        return connection != nullptr && connection->isOpen() && subscription != nullptr;
    }

    std::vector<std::string> takeTexts() override { return std::exchange(texts, {}); }

  private:
    static constexpr const char* client = "cmp-station collect";

    /// Requests are made here and not by the library's fetch: where messages of an earlier request
    /// are still there, 3.4 puts more into its list than that has room for.
    void ask(std::size_t most, std::chrono::milliseconds wait) {
        const std::string subject =
            fmt::format("$JS.API.CONSUMER.MSG.NEXT.{}.{}", options.stream, options.durable);
        const std::string request =
            fmt::format(R"({{"batch":{},"max_bytes":{},"expires":{}}})", most, mostBytes,
                        std::chrono::nanoseconds(std::max(wait, 1ms)).count());
        const bool isSent =
            natsConnection_PublishRequestString(connection->get(), subject.c_str(), inbox.c_str(),
                                                request.c_str()) == NATS_OK;
        awaited = isSent ? most : 0;
        awaitedUntil = Clock::now() + wait;
    }
    bool isAwaiting() const { return awaited != 0 && Clock::now() < awaitedUntil; }

    StreamInfo askStream(jsErrCode& code) {
        jsStreamInfo* info = nullptr;
        js_GetStreamInfo(&info, stream.get(), options.stream.c_str(), nullptr, &code);
        return StreamInfo(info);
    }
    ConsumerInfo askConsumer(jsErrCode& code) {
        jsConsumerInfo* info = nullptr;
        js_GetConsumerInfo(&info, stream.get(), options.stream.c_str(), options.durable.c_str(),
                           nullptr, &code);
        return ConsumerInfo(info);
    }

    /// Why something can't be done; empty if it can. A cluster that elects a leader is well again
    /// soon.
    struct Failure {
        std::string text;
        bool mayPass = false;
    };

    /// Two collectors with one consumer would get half of the batches each. What is still given to
    /// one that was killed isn't a sign of another, and one sign may come of a cluster whose leader
    /// changes.
    void refuseSecond() {
        constexpr int fewSigns = 1;
        jsErrCode code{};
        std::this_thread::sleep_for(oldRequests);
        ConsumerInfo before = askConsumer(code);
        const auto start = Clock::now();
        for (int signs = 0; before != nullptr && Clock::now() - start < watchOthers;) {
            std::this_thread::sleep_for(100ms);
            ConsumerInfo now = askConsumer(code);
            const bool isSign =
                now != nullptr &&
                (now->NumWaiting != 0 || now->Delivered.Consumer != before->Delivered.Consumer);
            if (isSign && ++signs > fewSigns) {
                throw UserError(ExitCode::Failed,
                                fmt::format("another collector uses the consumer {} of this "
                                            "stream; end it, or name another one with --durable",
                                            options.durable));
            }
            before = std::move(now);
        }
    }

    Failure open() {
        jsErrCode code{};
        const StreamInfo info = askStream(code);
        if (info == nullptr && code == JSStreamNotFoundErr) {
            return {
                fmt::format("there is no stream {}; a station makes it (cmp-station run "
                            "--stream), or name another one with --stream-name",
                            options.stream)};
        }
        if (info == nullptr) {
            return failureOf("asking for the stream " + options.stream, code);
        }
        const ConsumerInfo there = askConsumer(code);
        if (there != nullptr && !isAlone) {
            refuseSecond();
        } else if (there == nullptr) {
            if (code != JSConsumerNotFoundErr) {
                return failureOf("asking for the consumer " + options.durable, code);
            }
            jsConsumerConfig config;
            jsConsumerConfig_Init(&config);
            config.Durable = options.durable.c_str();
            config.Description = "cmp-station collect";
            config.AckPolicy = js_AckExplicit;
            config.AckWait = acknowledgeWait;
            config.MaxAckPending = mostOutstanding;
            if (options.from) {
                config.DeliverPolicy = js_DeliverByStartTime;
                config.OptStartTime = std::max<std::int64_t>(*options.from - mostAhead, 1);
            }
            jsOptions slow;  // in a cluster they agree on it first
            jsOptions_Init(&slow);
            slow.Wait = consumerWait;
            if (js_AddConsumer(nullptr, stream.get(), options.stream.c_str(), &config, &slow,
                               &code) != NATS_OK) {
                return failureOf("making the consumer " + options.durable, code);
            }
        }
        natsInbox* madeInbox = nullptr;
        natsSubscription* made = nullptr;
        natsStatus status = natsInbox_Create(&madeInbox);
        if (status == NATS_OK) {
            inbox = madeInbox;
            natsInbox_Destroy(madeInbox);
            status = natsConnection_SubscribeSync(&made, connection->get(), inbox.c_str());
        }
        if (status != NATS_OK) {
            return failureOf("using the consumer " + options.durable, code);
        }
        natsSubscription_SetPendingLimits(made, -1, -1);  // the consumer's limit is lower
        subscription.reset(made);
        awaited = 0;
        isAlone = true;
        return {};
    }

    /// Whether there is something to fetch from; else tries to have it, once a second.
    bool reopen() {
        if (isServed()) {
            return true;
        }
        const auto now = Clock::now();
        if (connection != nullptr && !connection->isOpen()) {
            texts.push_back(connection->describeFailure() + "; trying again");
            subscription.reset();
            stream.reset();
            connection.reset();
        }
        if (now < nextOpen) {
            return false;
        }
        nextOpen = now + openAgain;
        try {
            if (connection == nullptr) {
                nextServer = (nextServer + 1) % brokers.servers.size();
                auto made =
                    std::make_unique<NatsConnection>(brokers, brokers.servers[nextServer], client);
                stream = made->openJetStream(requestWait);
                connection = std::move(made);
            }
        } catch (const NatsError&) {
            return false;
        }
        if (!open().text.empty()) {
            return false;
        }
        texts.push_back("collecting goes on from " + connection->getServer());
        return true;
    }

    Failure failureOf(const std::string& what, jsErrCode code) const {
        natsStatus status = NATS_OK;
        const char* const text = nats_GetLastError(&status);
        return {fmt::format("{} fails {}: {}{}", connection->getServer(), what,
                            describeStatus(status, code),
                            text != nullptr && *text != '\0' ? fmt::format(" ({})", text) : ""),
                status == NATS_TIMEOUT || status == NATS_NO_RESPONDERS ||
                    code == JSClusterNotAvailErr || code == JSClusterNotLeaderErr};
    }

    StoredBatch toBatch(natsMsg* message) const {
        StoredBatch batch;
        batch.owner = std::shared_ptr<void>(
            message, [](void* owned) { natsMsg_Destroy(static_cast<natsMsg*>(owned)); });
        batch.subject = natsMsg_GetSubject(message);
        jsMsgMetaData* meta = nullptr;
        if (natsMsg_GetMetaData(&meta, message) == NATS_OK) {
            batch.sequence = meta->Sequence.Stream;
            jsMsgMetaData_Destroy(meta);
        }
        batch.payload = {reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message)),
                         static_cast<std::size_t>(natsMsg_GetDataLength(message))};
        batch.fault = readBatch(message, batch);
        return batch;
    }

    const NatsOptions brokers;
    const BatchOptions options;
    std::unique_ptr<NatsConnection> connection;  ///< null: lost
    JetStream stream;
    std::string inbox;              ///< where batches come in
    NatsSubscription subscription;  ///< to that
    std::size_t awaited = 0;        ///< batches of the last request that haven't come
    Clock::time_point awaitedUntil;
    std::size_t nextServer = 0;
    bool isAlone = false;  ///< no other collector had the consumer when this one began
    Clock::time_point nextOpen;
    Clock::time_point nextFind;
    std::vector<std::string> texts;
};

}  // namespace

std::unique_ptr<BatchSource> openNatsBatches(const NatsOptions& brokers,
                                             const BatchOptions& options) {
    return std::make_unique<NatsBatches>(brokers, options);
}

}  // namespace station
