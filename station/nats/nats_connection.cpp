#include "station/nats/nats_connection.h"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>
#include <utility>

#include "core/mutex.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

constexpr int connectMilliseconds = 2000;
constexpr int writeMilliseconds = 2000;  // for a broker that takes nothing
constexpr int pingMilliseconds = 2000;   // to notice a broker that is gone without a word
constexpr int mostUnansweredPings = 2;

using Options = std::unique_ptr<natsOptions, NatsDelete<natsOptions_Destroy>>;

std::string connectError(natsStatus status) {
    const std::string known =
        status == NATS_PROTOCOL_ERROR
            ? "it ends the connection at once: it may want another certificate of ours "
              "(--nats-cert, --nats-key), or be no NATS broker"
            : describeStatus(status);
    return known + detailOf(status, nats_GetLastError(nullptr));
}

void require(natsStatus status, const char* what) {
    if (status != NATS_OK) {
        throw NatsError(fmt::format("{}: {}", what, connectError(status)), status);
    }
}

void setIdentity(natsOptions* target, const NatsOptions& options) {
    if (!options.credentialsFile.empty()) {
        require(natsOptions_SetUserCredentialsFromFiles(target, options.credentialsFile.c_str(),
                                                        nullptr),
                "--nats-creds");
    }
    if (!options.user.empty()) {
        require(natsOptions_SetUserInfo(target, options.user.c_str(), options.password.c_str()),
                "user and password");
    }
    if (!options.token.empty()) {
        require(natsOptions_SetToken(target, options.token.c_str()), "token");
    }
}

/// The library itself checks that the certificate is for the server's host.
void setSecurity(natsOptions* target, const NatsOptions& options) {
    if (!options.isSecure()) {
        return;
    }
    require(natsOptions_SetSecure(target, true), "TLS");
    if (!options.authorityFile.empty()) {
        require(natsOptions_LoadCATrustedCertificates(target, options.authorityFile.c_str()),
                "--nats-ca");
    }
    if (!options.certificateFile.empty()) {
        require(natsOptions_LoadCertificatesChain(target, options.certificateFile.c_str(),
                                                  options.keyFile.c_str()),
                "--nats-cert, --nats-key");
    }
    if (!options.checksCertificate) {
        require(natsOptions_SkipServerVerification(target, true), "TLS");
    }
}

/// One call of `natsConnection_Connect`, on a thread of its own: the library waits without an end
/// for a broker that greets and then says nothing.
struct Attempt {
    void run() CMP_EXCLUDES(lock) {
        natsConnection* made = nullptr;
        const natsStatus result = natsConnection_Connect(&made, settings.get());
        const std::string text = result == NATS_OK ? "" : connectError(result);
        const LockGuard guard(lock);
        if (isLeft) {
            natsConnection_Destroy(made);
            return;
        }
        connection = made;
        status = result;
        error = text;
        isOver = true;
        changed.notify_all();
    }

    explicit Attempt(Options wanted) : settings(std::move(wanted)) {}

    const Options settings;
    Mutex lock;
    std::condition_variable_any changed;
    natsConnection* connection CMP_GUARDED_BY(lock) = nullptr;
    natsStatus status CMP_GUARDED_BY(lock) = NATS_TIMEOUT;
    std::string error CMP_GUARDED_BY(lock);
    bool isOver CMP_GUARDED_BY(lock) = false;
    bool isLeft CMP_GUARDED_BY(lock) = false;  ///< nobody waits for it any more
};

/// Without it the library prints on standard error.
void ignoreError(natsConnection*, natsSubscription*, natsStatus, void*) {}

}  // namespace

/// Without the place in the library's source.
std::string detailOf(natsStatus status, const char* words) {
    constexpr std::size_t longest = 300;
    const std::string_view text = words == nullptr ? "" : words;
    if (text.empty() || status == NATS_NO_SERVER || status == NATS_TIMEOUT) {
        return {};
    }
    const std::size_t place = text.starts_with('(') ? text.find("): ") : text.npos;
    const std::string_view detail = place == text.npos ? text : text.substr(place + 3);
    return fmt::format(" ({}{})", detail.substr(0, longest), detail.size() > longest ? "..." : "");
}

StreamAnswer parseAnswer(std::string_view text) {
    StreamAnswer answer;
    try {
        const auto json = nlohmann::json::parse(text);
        if (const auto error = json.find("error"); error != json.end()) {
            answer.code = static_cast<jsErrCode>(error->value("err_code", 0));
            const std::string known = describeStatus(NATS_ERR, answer.code);
            const std::string words = error->value("description", "no reason is given");
            answer.refusal = (known == natsStatus_GetText(NATS_ERR) ? "it isn't taken" : known) +
                             detailOf(NATS_ERR, words.c_str());
        } else {
            answer.stream = json.at("stream").get<std::string>();
            answer.sequence = json.at("seq").get<std::uint64_t>();
            answer.isDuplicate = json.value("duplicate", false);
        }
    } catch (const nlohmann::json::exception&) {
        answer.refusal = "the broker's answer can't be understood";
    }
    return answer;
}

std::string describeStatus(natsStatus status, jsErrCode code) {
    switch (static_cast<int>(code)) {
        case JSNotEnabledErr:
        case JSNotEnabledForAccountErr:
            return "it has no JetStream for us; switch that on in its configuration";
        case JSStreamNotFoundErr:
            return "it has no such stream";
        case JSStreamSubjectOverlapErr:
            return std::string("another stream of it takes the subjects ") + streamSubjects +
                   " already: name that one with --stream-name";
        case JSInsufficientResourcesErr:
        case JSStorageResourcesExceededErr:
            return "its disk is full, or the space it may use";
        default:
            break;
    }
    switch (status) {
        case NATS_NO_SERVER:
            return "nobody answers there";
        case NATS_TIMEOUT:
            return "it didn't answer in time";
        case NATS_CONNECTION_AUTH_FAILED:
            return "it refuses this user: check --nats-options and --nats-creds";
        case NATS_NOT_PERMITTED:
            return "this user may not do that there";
        case NATS_SSL_ERROR:
            return "no TLS connection can be made";
        case NATS_SECURE_CONNECTION_WANTED:
            return "it has no TLS: write nats://";
        case NATS_SECURE_CONNECTION_REQUIRED:
            return "it wants TLS: write tls://";
        case NATS_CONNECTION_CLOSED:
        case NATS_CONNECTION_DISCONNECTED:
        case NATS_STALE_CONNECTION:
        case NATS_IO_ERROR:
            return "the connection is lost";
        case NATS_NO_RESPONDERS:
            return "it has no JetStream, no such stream, or its cluster has no leader yet";
        case NATS_MAX_PAYLOAD:
            return "it takes no messages of this size: raise its max_payload, or lower "
                   "--stream-batch";
        default:
            return natsStatus_GetText(status);
    }
}

NatsConnection::NatsConnection(const NatsOptions& options, const std::string& address,
                               const std::string& client,
                               std::optional<std::chrono::milliseconds> writePatience)
    : server(address) {
    natsOptions* made = nullptr;
    require(natsOptions_Create(&made), "NATS library");
    Options settings(made);
    require(natsOptions_SetURL(made, server.c_str()), server.c_str());
    natsOptions_SetName(made, client.c_str());
    natsOptions_SetTimeout(made, connectMilliseconds);
    natsOptions_SetWriteDeadline(made, writePatience ? writePatience->count() : writeMilliseconds);
    natsOptions_SetPingInterval(made, pingMilliseconds);
    // One waits behind what is published. Whoever is as patient looks for the broker by himself.
    natsOptions_SetMaxPingsOut(
        made, writePatience ? std::numeric_limits<int>::max() : mostUnansweredPings);
    natsOptions_SetAllowReconnect(made, false);
    natsOptions_SetSendAsap(made, true);  // what is published comes in pieces that are large enough
    natsOptions_SetErrorHandler(made, ignoreError, nullptr);
    setIdentity(made, options);
    setSecurity(made, options);
    const auto attempt = std::make_shared<Attempt>(std::move(settings));
    std::thread([attempt] { attempt->run(); }).detach();
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(2 * connectMilliseconds);
    const LockGuard guard(attempt->lock);
    while (!attempt->isOver &&
           attempt->changed.wait_until(attempt->lock, end) == std::cv_status::no_timeout) {
    }
    attempt->isLeft = !attempt->isOver;
    if (attempt->status != NATS_OK) {
        throw NatsError(
            fmt::format("{}: {}", server,
                        attempt->isLeft ? describeStatus(NATS_TIMEOUT) : attempt->error),
            attempt->status);
    }
    connection = attempt->connection;
}

NatsConnection::~NatsConnection() {
    natsConnection_Destroy(connection);
}

std::string NatsConnection::describeFailure() const {
    const char* text = nullptr;
    const natsStatus status = natsConnection_GetLastError(connection, &text);
    const natsStatus known = status == NATS_OK ? NATS_CONNECTION_CLOSED : status;
    return fmt::format("{}: {}{}", server, describeStatus(known),
                       known == NATS_CONNECTION_CLOSED ? "" : detailOf(known, text));
}

JetStream NatsConnection::openJetStream(int answerMilliseconds) const {
    jsOptions settings;
    jsOptions_Init(&settings);
    settings.Wait = answerMilliseconds;
    jsCtx* context = nullptr;
    const natsStatus status = natsConnection_JetStream(&context, connection, &settings);
    if (status != NATS_OK) {
        throw NatsError(fmt::format("{}: {}", server, describeStatus(status)), status);
    }
    return JetStream(context);
}

natsStatus askStream(jsCtx* jetStream, const char* name, StreamInfo& info, jsErrCode& code) {
    jsStreamInfo* found = nullptr;
    const natsStatus status = js_GetStreamInfo(&found, jetStream, name, nullptr, &code);
    info.reset(found);
    return status == NATS_OK && found->Config == nullptr ? NATS_PROTOCOL_ERROR : status;
}

natsStatus openHeartbeats(jsCtx* jetStream, KeyValueStore& bucket) {
    StreamInfo info;
    jsErrCode code{};
    const std::string stream = std::string("KV_") + heartbeatBucket;
    natsStatus status = askStream(jetStream, stream.c_str(), info, code);
    if (code == JSStreamNotFoundErr) {
        return NATS_NOT_FOUND;
    }
    kvStore* found = nullptr;
    status = status == NATS_OK ? js_KeyValue(&found, jetStream, heartbeatBucket) : status;
    bucket.reset(found);
    return status;
}

std::unique_ptr<NatsConnection> connectToAny(const NatsOptions& options, const std::string& client,
                                             std::size_t first) {
    std::string failures;
    natsStatus status = NATS_NO_SERVER;
    for (std::size_t i = 0; i < options.servers.size(); ++i) {
        const std::string& server = options.servers[(first + i) % options.servers.size()];
        try {
            return std::make_unique<NatsConnection>(options, server, client);
        } catch (const NatsError& failure) {
            failures += (failures.empty() ? "" : "; ") + std::string(failure.what());
            status = failure.getStatus();
        }
    }
    throw NatsError(failures, status);
}

}  // namespace station
