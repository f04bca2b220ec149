#include "station/stream/nats_publisher.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "core/parse_number.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostBytesOnTheWay = std::size_t{8} << 20U;
constexpr auto answerPatience = 5s;
constexpr std::size_t longestReason = 300;

std::string headerOf(natsMsg* message, const char* name) {
    const char* text = nullptr;
    return natsMsgHeader_Get(message, name, &text) == NATS_OK && text != nullptr ? text : "";
}

std::string tokenOf(const std::string& subject) {
    const std::size_t from = std::string_view(subjectPrefix).size();
    return subject.substr(from, subject.find('.', from) - from);
}

std::int64_t nowNanoseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

}  // namespace

NatsPublisher::NatsPublisher(NatsOptions connectionOptions, StreamRules streamRules,
                             std::unique_ptr<StationName> name,
                             std::function<void(std::string)> tellUser)
    : options(std::move(connectionOptions)),
      rules(std::move(streamRules)),
      stationName(std::move(name)),
      tell(std::move(tellUser)) {}

NatsPublisher::~NatsPublisher() = default;

void NatsPublisher::fail(const std::string& what, const std::string& why) const {
    throw PublishError(fmt::format("{}: {}: {}", connection->getServer(), what, why));
}

void NatsPublisher::open() {
    close();
    const std::string& address = options.servers[attempt++ % options.servers.size()];
    try {
        connection = std::make_unique<NatsConnection>(options, address, "cmp-station stream");
        jetStream = connection->openJetStream();
        makeStream();
        // One of several may be down for long.
        const bool wasAway = attempt - std::exchange(lastReached, attempt) > options.servers.size();
        stationName->claim(*connection, jetStream.get(), wasAway);
        subscribe();
    } catch (const NatsError& failure) {
        throw PublishError(failure.what());
    }
    const LockGuard guard(lock);
    server = address;
}

void NatsPublisher::close() {
    answers.reset();
    jetStream.reset();
    connection.reset();
    lastBySubject.clear();
    onTheWay.clear();
    acknowledged = 0;
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
        tellDifferences(*info->Config);
        wasStreamThere = true;
    } else if (code == JSStreamNotFoundErr) {
        createStream();
        if (std::exchange(wasStreamThere, true)) {
            tell(
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
        const char* const detail = nats_GetLastError(nullptr);
        fail(fmt::format("stream \"{}\" can't be made", rules.name),
             fmt::format("{} ({})", describeStatus(status, code), detail == nullptr ? "" : detail));
    }
}

void NatsPublisher::tellDifferences(const jsStreamConfig& config) {
    if (std::exchange(areDifferencesTold, true)) {
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
            tell(
                fmt::format("the stream \"{}\" is there already and stays as it is: {} is {}, not "
                            "{}; the broker's own tools change it",
                            rules.name, option, std::max<std::int64_t>(there, 0), wanted));
        }
    }
    if (config.Retention != js_LimitsPolicy || config.MaxMsgs > 0 || config.MaxMsgsPerSubject > 0) {
        tell(
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
        tell(fmt::format("the stream \"{}\" isn't one for {}: name another one with --stream-name",
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

const NatsPublisher::Last& NatsPublisher::findLast(const std::string& subject) {
    const auto known = lastBySubject.find(subject);
    if (known != lastBySubject.end()) {
        return known->second;
    }
    natsMsg* found = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_GetLastMsg(&found, jetStream.get(), rules.name.c_str(), subject.c_str(), nullptr, &code);
    const NatsMessage message(found);
    Last last;
    if (status == NATS_OK) {
        last = {headerOf(found, header::session),
                parseNumber<std::uint64_t>(headerOf(found, header::batch)).value_or(0)};
    } else if (code != JSNoMessageFoundErr) {
        fail("last batch of " + subject, describeStatus(status, code));
    }
    return lastBySubject[subject] = last;
}

bool NatsPublisher::publish(const Batch& batch) {
    std::size_t bytes = batch.payload.size();
    for (const OnTheWay& other : onTheWay) {
        bytes += other.bytes;
        if (!other.isStored && other.subject == batch.subject) {
            return false;
        }
    }
    if (!onTheWay.empty() && bytes > mostBytesOnTheWay) {
        return false;
    }
    const Last& last = findLast(batch.subject);
    const bool isStored = last.session == batch.session && batch.number <= last.number;
    if (!isStored) {
        send(batch);
    }
    onTheWay.push_back({batch.subject, batch.payload.size(), Clock::now(), isStored});
    return true;
}

void NatsPublisher::send(const Batch& batch) {
    natsMsg* made = nullptr;
    const std::string reply = fmt::format("{}.{}", inbox, acknowledged + onTheWay.size());
    natsStatus status = natsMsg_Create(&made, batch.subject.c_str(), reply.c_str(),
                                       reinterpret_cast<const char*>(batch.payload.data()),
                                       static_cast<int>(batch.payload.size()));
    const NatsMessage message(made);
    const std::pair<const char*, std::string> headers[] = {
        {header::identifier, batch.getIdentifier()},
        {header::station, tokenOf(batch.subject)},
        {header::session, batch.session},
        {header::batch, std::to_string(batch.number)},
        {header::firstTime, std::to_string(batch.firstTime)},
        {header::lastTime, std::to_string(batch.lastTime)},
        {header::messages, std::to_string(batch.messages)},
        {header::sentTime, std::to_string(nowNanoseconds())}};
    for (const auto& [name, value] : headers) {
        status = status == NATS_OK ? natsMsgHeader_Set(made, name, value.c_str()) : status;
    }
    if (batch.isEnd && status == NATS_OK) {
        status = natsMsgHeader_Set(made, header::end, "1");
    }
    if (status == NATS_OK) {
        status = natsConnection_PublishMsg(connection->get(), made);
    }
    if (status != NATS_OK) {
        fail(fmt::format("batch of {} bytes", batch.payload.size()), describeStatus(status));
    }
}

std::uint64_t NatsPublisher::getAcknowledged(std::chrono::milliseconds patience) {
    const std::uint64_t before = acknowledged;
    const auto end = Clock::now() + patience;
    for (;;) {
        while (!onTheWay.empty() && onTheWay.front().isStored) {
            onTheWay.pop_front();
            ++acknowledged;
        }
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        natsMsg* answer = nullptr;
        const auto wait = acknowledged != before ? 0ms : std::max(rest, 0ms);
        const natsStatus status = natsSubscription_NextMsg(&answer, answers.get(), wait.count());
        if (status == NATS_OK) {
            takeAnswer(answer);
        } else if (status != NATS_TIMEOUT || !connection->isOpen()) {
            throw PublishError(connection->describeFailure());
        } else if (acknowledged != before || rest <= 0ms) {
            break;
        }
    }
    if (!onTheWay.empty() && Clock::now() - onTheWay.front().sent > answerPatience) {
        throw PublishError(
            fmt::format("{} takes batches and doesn't say that it keeps them: look into its log",
                        connection->getServer()));
    }
    return acknowledged;
}

void NatsPublisher::takeAnswer(natsMsg* answer) {
    const NatsMessage owned(answer);
    const auto number = parseNumber<std::uint64_t>(
        std::string_view(natsMsg_GetSubject(answer)).substr(inbox.size() + 1));
    if (natsMsg_IsNoResponders(answer)) {
        fail("batch", describeStatus(NATS_NO_RESPONDERS));
    }
    const char* const text = natsMsg_GetData(answer);
    const auto size = static_cast<std::size_t>(natsMsg_GetDataLength(answer));
    std::string stream;
    std::string refusal;
    try {
        const auto json = nlohmann::json::parse(text, text + size);
        if (const auto error = json.find("error"); error != json.end()) {
            const std::string detail =
                error->value("description", "no reason is given").substr(0, longestReason);
            const std::string known =
                describeStatus(NATS_ERR, static_cast<jsErrCode>(error->value("err_code", 0)));
            refusal = known == natsStatus_GetText(NATS_ERR) ? "it isn't taken: " + detail
                                                            : fmt::format("{} ({})", known, detail);
        } else {
            stream = json.at("stream").get<std::string>();
        }
    } catch (const nlohmann::json::exception&) {
        refusal = "the broker's answer can't be understood";
    }
    if (refusal.empty() && stream != rules.name) {
        refusal =
            "it went into another stream than \"" + rules.name + "\": name that with --stream-name";
    }
    if (!refusal.empty()) {
        fail("batch", refusal);
    }
    if (number && *number >= acknowledged && *number - acknowledged < onTheWay.size()) {
        onTheWay[*number - acknowledged].isStored = true;
    }
}

void NatsPublisher::beat(const std::string& json) {
    stationName->beat(*connection, json);
}

}  // namespace station
