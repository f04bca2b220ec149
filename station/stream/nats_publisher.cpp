#include "station/stream/nats_publisher.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "core/parse_number.h"
#include "core/performance_counter.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostBytesOnTheWay = std::size_t{8} << 20U;
constexpr auto answerPatience = 5s;
constexpr auto mostMessagePatience = 80s;
constexpr auto beatPause = 1s;  // for the answer to the last one
constexpr const char* beatAnswer = "beat";

std::string headerOf(natsMsg* message, const char* name) {
    const char* text = nullptr;
    return natsMsgHeader_Get(message, name, &text) == NATS_OK && text != nullptr ? text : "";
}

std::string tokenOf(const std::string& subject) {
    const std::size_t from = std::string_view(subjectPrefix).size();
    return subject.substr(from, subject.find('.', from) - from);
}

/// Empty for none.
std::span<const std::uint8_t> payloadOf(const NatsMessage& message) {
    return message
               ? std::span(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message.get())),
                           static_cast<std::size_t>(natsMsg_GetDataLength(message.get())))
               : std::span<const std::uint8_t>();
}

}  // namespace

NatsPublisher::NatsPublisher(NatsOptions connectionOptions, StreamRules streamRules,
                             std::unique_ptr<StationName> name,
                             std::function<void(std::string)> reportToUser)
    : options(std::move(connectionOptions)),
      rules(std::move(streamRules)),
      stationName(std::move(name)),
      report(std::move(reportToUser)) {}

NatsPublisher::~NatsPublisher() = default;

void NatsPublisher::fail(const std::string& what, const std::string& why) const {
    throw PublishError(fmt::format("{}: {}: {}", connection->getServer(), what, why));
}

void NatsPublisher::open() {
    close();
    const std::string& address = options.servers[attempt++ % options.servers.size()];
    try {
        connection = std::make_unique<NatsConnection>(options, address, "cmp-station stream",
                                                      patienceFor(largestBatch));
        jetStream = connection->openJetStream();
        messages = connection->openJetStream(static_cast<int>(messagePatience.count()));
        makeStream();
        // One of several may be down for long.
        const bool wasAway = attempt - std::exchange(lastReached, attempt) > options.servers.size();
        stationName->claim(*connection, jetStream.get(), wasAway);
        subscribe();
    } catch (const NameTaken& failure) {
        throw PublishError(failure.what(), PublishError::Cause::NameTaken);
    } catch (const NatsError& failure) {
        throw PublishError(failure.what());
    }
    const LockGuard guard(lock);
    server = address;
}

void NatsPublisher::close() {
    answers.reset();
    messages.reset();
    jetStream.reset();
    connection.reset();
    lastBySubject.clear();
    onTheWay.clear();
    awaited.clear();
    bytesOnTheWay = 0;
    acknowledged = 0;
    bytesPerSecond = leastBytesPerSecond;
}

/// For an answer that waits behind so many bytes.
std::chrono::milliseconds NatsPublisher::patienceFor(std::size_t bytes) const {
    return answerPatience + std::chrono::milliseconds(bytes * 1000 / bytesPerSecond);
}

/// One batch that was slow counts at once, several quick ones step by step. Small ones say little:
/// a link may take them at once and be slow for more.
void NatsPublisher::noteSpeed(std::size_t bytes, Clock::duration time) {
    constexpr double slack = 8.0;
    const double speed = static_cast<double>(bytes) / slack /
                         std::max(std::chrono::duration<double>(time).count(), 1e-3);
    const auto most =
        static_cast<double>(bytes < largestBatch / 4 ? bytesPerSecond : 2 * bytesPerSecond);
    bytesPerSecond = std::max(static_cast<std::size_t>(std::min(speed, most)), leastBytesPerSecond);
}

std::string NatsPublisher::getServer() const {
    const LockGuard guard(lock);
    return server;
}

void NatsPublisher::makeStream() {
    StreamInfo info;
    jsErrCode code{};
    const natsStatus status = askStream(jetStream.get(), rules.name.c_str(), info, code);
    if (status == NATS_OK) {
        reportDifferences(*info->Config);
        wasStreamThere = true;
    } else if (code == JSStreamNotFoundErr) {
        createStream();
        if (std::exchange(wasStreamThere, true)) {
            report(
                fmt::format("the stream \"{}\" was deleted at the broker, and is made again: what "
                            "had been in it isn't any more",
                            rules.name));
        }
    } else {
        fail(fmt::format("stream \"{}\"", rules.name), describeStatus(status, code));
    }
}

void NatsPublisher::createStream() {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    const char* subjects[] = {streamSubjects};
    config.Name = rules.name.c_str();
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Replicas = std::max(rules.replicas, 1);
    config.MaxAge = rules.mostNanoseconds;
    config.MaxBytes = rules.mostBytes != 0 ? rules.mostBytes : -1;
    jsErrCode code{};
    const natsStatus status = js_AddStream(nullptr, jetStream.get(), &config, nullptr, &code);
    if (status != NATS_OK) {
        fail(fmt::format("stream \"{}\" can't be made", rules.name),
             describeStatus(status, code) + detailOf(status, nats_GetLastError(nullptr)));
    }
}

void NatsPublisher::reportDifferences(const jsStreamConfig& config) {
    if (std::exchange(areDifferencesReported, true)) {
        return;
    }
    const struct {
        const char* option;
        std::int64_t wanted;
        std::int64_t there;
    } values[] = {{"--stream-replicas", rules.replicas, config.Replicas},
                  {"--stream-max-age (ns)", rules.mostNanoseconds, config.MaxAge},
                  {"--stream-max-bytes", rules.mostBytes, config.MaxBytes}};
    for (const auto& [option, wanted, there] : values) {
        if (wanted != 0 && wanted != there) {
            report(
                fmt::format("the stream \"{}\" is there already and stays as it is: {} is {}, not "
                            "{}; the broker's own tools change it",
                            rules.name, option, std::max<std::int64_t>(there, 0), wanted));
        }
    }
    if (config.Retention != js_LimitsPolicy || config.MaxMsgs > 0 || config.MaxMsgsPerSubject > 0) {
        report(
            fmt::format("the stream \"{}\" doesn't keep all batches (its retention, or a limit on "
                        "messages): what it says that it has stored may be gone before it is "
                        "collected",
                        rules.name));
    }
    const bool takesOurs =
        std::any_of(config.Subjects, config.Subjects + config.SubjectsLen, [](const char* subject) {
            return std::string_view(subject) == streamSubjects || std::string_view(subject) == ">";
        });
    if (!takesOurs) {
        report(
            fmt::format("the stream \"{}\" isn't one for {}: name another one with --stream-name",
                        rules.name, streamSubjects));
    }
}

void NatsPublisher::subscribe() {
    natsInbox* made = nullptr;
    natsSubscription* subscription = nullptr;
    natsStatus status = natsInbox_Create(&made);
    if (status == NATS_OK) {
        inbox = made;
        natsInbox_Destroy(made);
        status =
            natsConnection_SubscribeSync(&subscription, connection->get(), (inbox + ".*").c_str());
    }
    if (status != NATS_OK) {
        fail("answers", describeStatus(status));
    }
    answers.reset(subscription);
}

NatsPublisher::Last& NatsPublisher::findLast(const std::string& subject) {
    const auto known = lastBySubject.find(subject);
    if (known != lastBySubject.end()) {
        return known->second;
    }
    natsMsg* found = nullptr;
    jsErrCode code{};
    const natsStatus status = noteMessageAsked(
        js_GetLastMsg(&found, messages.get(), rules.name.c_str(), subject.c_str(), nullptr, &code));
    NatsMessage message(found);
    Last last;
    if (status == NATS_OK) {
        last.session = headerOf(found, header::session);
        last.number = parseNumber<std::uint64_t>(headerOf(found, header::batch)).value_or(0);
        last.sequence = natsMsg_GetSequence(found);
        last.message = std::move(message);
    } else if (code != JSNoMessageFoundErr) {
        fail("last batch of " + subject, describeStatus(status, code));
    }
    return lastBySubject[subject] = std::move(last);
}

/// Whether it is to be sent. Those in front of the last one that names their session are presumed
/// to be stored until that one is known to be ours.
NatsPublisher::Way NatsPublisher::compareWithLast(const Batch& batch) {
    Last& last = findLast(batch.subject);
    const auto isPresumed = [&](const OnTheWay& other) {
        return other.way == Way::Presumed && other.subject == batch.subject;
    };
    const bool isOurs = last.session == batch.session && batch.number <= last.number;
    const auto known = foreign.find(batch.subject);
    if (last.message == nullptr || (known != foreign.end() && known->second == last.sequence)) {
        return Way::Sent;
    }
    if (isOurs && batch.number < last.number) {
        return Way::Presumed;
    }
    const bool isLast = isOurs && std::ranges::equal(payloadOf(last.message), batch.payload);
    if (!isLast && (isOurs || std::ranges::any_of(onTheWay, isPresumed))) {
        distrust(batch.subject, last.sequence);
    }
    last = {};
    for (OnTheWay& other : onTheWay) {
        other.way = isPresumed(other) ? Way::Stored : other.way;
    }
    return isLast ? Way::Stored : Way::Sent;
}

void NatsPublisher::distrust(const std::string& subject, std::uint64_t sequence) {
    foreign[subject] = sequence;
    fail("message " + std::to_string(sequence) + " of the stream, on " + subject,
         "it names a session of this station and isn't what this station published: another "
         "program publishes under this name, or the spool was changed. What isn't known to be in "
         "the stream is sent again");
}

bool NatsPublisher::publish(const Batch& batch) {
    const bool hasRoom =
        bytesOnTheWay == 0 || bytesOnTheWay + batch.payload.size() <= mostBytesOnTheWay;
    if (!hasRoom || awaited.contains(batch.subject)) {
        return false;
    }
    largestBatch = std::max(largestBatch, batch.payload.size());
    const Way way = compareWithLast(batch);
    NatsMessage message;
    if (way == Way::Sent) {
        message = send(batch);
        awaited.insert(batch.subject);
        bytesOnTheWay += batch.payload.size();
    } else if (way == Way::Presumed) {
        latestPresumed = Clock::now();
    }
    onTheWay.push_back({batch.subject, std::move(message), Clock::now(), way, std::nullopt});
    return true;
}

/// How large the message is that was asked for is known once it is there.
natsStatus NatsPublisher::noteMessageAsked(natsStatus status) {
    if (status == NATS_TIMEOUT) {
        messagePatience =
            std::min<std::chrono::milliseconds>(2 * messagePatience, mostMessagePatience);
    }
    return status;
}

NatsMessage NatsPublisher::send(const Batch& batch) {
    natsMsg* made = nullptr;
    const std::string reply = fmt::format("{}.{}", inbox, acknowledged + onTheWay.size());
    natsStatus status = natsMsg_Create(&made, batch.subject.c_str(), reply.c_str(),
                                       reinterpret_cast<const char*>(batch.payload.data()),
                                       static_cast<int>(batch.payload.size()));
    NatsMessage message(made);
    const std::pair<const char*, std::string> headers[] = {
        {header::identifier, batch.getIdentifier()},
        {header::station, tokenOf(batch.subject)},
        {header::session, batch.session},
        {header::batch, std::to_string(batch.number)},
        {header::firstTime, std::to_string(batch.firstTime)},
        {header::lastTime, std::to_string(batch.lastTime)},
        {header::messages, std::to_string(batch.messages)},
        {header::sentTime, std::to_string(realNanoseconds())}};
    for (const auto& [name, value] : headers) {
        status = status == NATS_OK ? natsMsgHeader_Set(made, name, value.c_str()) : status;
    }
    for (const auto& [name, isSet] :
         {std::pair{header::end, batch.isEnd}, {header::others, batch.hasOthers}}) {
        status = status == NATS_OK && isSet ? natsMsgHeader_Set(made, name, "1") : status;
    }
    if (status == NATS_OK) {
        status = natsConnection_PublishMsg(connection->get(), made);
    }
    if (status != NATS_OK) {
        fail(fmt::format("batch of {} bytes", batch.payload.size()), describeStatus(status));
    }
    return message;
}

std::uint64_t NatsPublisher::getAcknowledged(std::chrono::milliseconds patience) {
    const std::uint64_t before = acknowledged;
    const auto end = Clock::now() + patience;
    for (;;) {
        while (!onTheWay.empty() && onTheWay.front().way == Way::Stored) {
            onTheWay.pop_front();
            ++acknowledged;
        }
        if (onTheWay.empty() && acknowledged != before) {
            break;
        }
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        const auto wait = acknowledged != before ? 0ms : std::max(rest, 0ms);
        if (!takeAnswer(wait) && (acknowledged != before || rest <= 0ms)) {
            break;
        }
    }
    // One comes behind the other, so each answer begins the wait for the next.
    std::size_t largest = 0;
    for (const OnTheWay& batch : onTheWay) {
        largest = std::max(largest, payloadOf(batch.message).size());
    }
    if (!onTheWay.empty() && Clock::now() > getAnswerEnd(largest)) {
        const std::string& subject = onTheWay.front().subject;
        if (onTheWay.front().way == Way::Presumed) {
            distrust(subject, lastBySubject[subject].sequence);
        }
        throw PublishError(
            fmt::format("{} takes batches and doesn't say that it keeps them: look into its log",
                        connection->getServer()));
    }
    return acknowledged;
}

/// Until when the broker may say that it has stored the first of those. What was published before a
/// heartbeat that it has answered has come to it, and only its disk takes time.
NatsPublisher::Clock::time_point NatsPublisher::getAnswerEnd(std::size_t largest) const {
    const OnTheWay& first = onTheWay.front();
    const auto since = first.way == Way::Presumed ? latestPresumed : first.since;
    const auto end = std::max(since, lastStored) + patienceFor(largest);
    return first.arrived ? std::min(end, std::max(*first.arrived, lastStored) + answerPatience)
                         : end;
}

/// Of a batch, or of a heartbeat. False if none has come.
bool NatsPublisher::takeAnswer(std::chrono::milliseconds patience) {
    natsMsg* answer = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&answer, answers.get(), patience.count());
    NatsMessage owned(answer);
    if (status == NATS_TIMEOUT && connection->isOpen()) {
        return false;
    }
    if (status != NATS_OK) {
        throw PublishError(connection->describeFailure());
    }
    const std::string_view what =
        std::string_view(natsMsg_GetSubject(answer)).substr(inbox.size() + 1);
    if (natsMsg_IsNoResponders(answer)) {
        fail(std::string(what == beatAnswer ? "heartbeat" : "batch"),
             describeStatus(NATS_NO_RESPONDERS));
    }
    const StreamAnswer said = parseAnswer(
        {natsMsg_GetData(answer), static_cast<std::size_t>(natsMsg_GetDataLength(answer))});
    if (what == beatAnswer) {
        if (!stationName->noteBeaten(said)) {
            throw PublishError(fmt::format("{}: another station has taken the name of this one",
                                           connection->getServer()));
        }
        for (OnTheWay& batch : onTheWay) {
            if (batch.way == Way::Sent && batch.since < beatSent && !batch.arrived) {
                batch.arrived = Clock::now();
            }
        }
        return true;
    }
    if (!said.refusal.empty()) {
        fail("batch", said.refusal);
    }
    if (said.stream != rules.name) {
        fail("batch", fmt::format("it went into another stream than \"{}\": name that with "
                                  "--stream-name",
                                  rules.name));
    }
    noteStored(what, said.isDuplicate, said.sequence);
    discard(std::move(owned));
    return true;
}

/// A duplicate is one by its identifier, which another program may have used before.
void NatsPublisher::noteStored(std::string_view number, bool isDuplicate, std::uint64_t sequence) {
    const auto place = parseNumber<std::uint64_t>(number);
    if (!place || *place < acknowledged || *place - acknowledged >= onTheWay.size()) {
        return;
    }
    OnTheWay& batch = onTheWay[*place - acknowledged];
    if (batch.way != Way::Sent) {
        return;
    }
    if (isDuplicate) {
        natsMsg* found = nullptr;
        jsErrCode code{};
        const natsStatus status = noteMessageAsked(
            js_GetMsg(&found, messages.get(), rules.name.c_str(), sequence, nullptr, &code));
        const NatsMessage there(found);
        if (status != NATS_OK && code != JSNoMessageFoundErr) {
            fail(fmt::format("message {} of the stream", sequence), describeStatus(status, code));
        }
        if (status == NATS_OK && !std::ranges::equal(payloadOf(there), payloadOf(batch.message))) {
            distrust(batch.subject, sequence);
        }
    }
    const auto now = Clock::now();
    const std::size_t bytes = payloadOf(batch.message).size();
    noteSpeed(bytes, now - std::max(batch.since, lastStored));
    awaited.erase(batch.subject);
    bytesOnTheWay -= bytes;
    discard(std::move(batch.message));
    batch.way = Way::Stored;
    lastStored = now;
}

/// The library frees each message on a thread that it wakes for it: many at once are cheaper.
void NatsPublisher::discard(NatsMessage message) {
    constexpr std::size_t mostMessages = 64;
    constexpr std::size_t mostBytes = std::size_t{512} << 10U;
    bytesDiscarded += payloadOf(message).size();
    discarded.push_back(std::move(message));
    if (discarded.size() >= mostMessages || bytesDiscarded >= mostBytes) {
        discarded.clear();
        bytesDiscarded = 0;
    }
}

void NatsPublisher::beat(const std::string& json) {
    const auto end = Clock::now() + beatPause;
    while (stationName->isBeating() && Clock::now() < end) {
        takeAnswer(50ms);
    }
    if (stationName->isBeating()) {
        if (Clock::now() > beatEnd) {
            fail("heartbeat", describeStatus(NATS_TIMEOUT));
        }
        return;
    }
    beatSent = Clock::now();
    beatEnd = beatSent + patienceFor(bytesOnTheWay);
    stationName->beat(*connection, json, fmt::format("{}.{}", inbox, beatAnswer));
}

}  // namespace station
