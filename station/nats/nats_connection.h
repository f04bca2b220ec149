#pragma once

#include <nats/nats.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "station/nats/nats_options.h"

namespace station {

/// A broker that can't be reached, refuses, or failed. The text names it, says why and, where that
/// is known, what to do.
class NatsError : public std::runtime_error {
  public:
    explicit NatsError(const std::string& text, natsStatus cause = NATS_ERR)
        : std::runtime_error(text), status(cause) {}
    natsStatus getStatus() const { return status; }

  private:
    natsStatus status;
};

/// What a failed call of the library means, for the user: "it didn't answer in time".
std::string describeStatus(natsStatus status, jsErrCode code = static_cast<jsErrCode>(0));

/// The library's or a broker's own words behind it, " (...)", where they say more than the status.
/// Shortened: a broker may say anything.
std::string detailOf(natsStatus status, const char* words);

/// What a stream answers to a message that is published with a subject for that.
struct StreamAnswer {
    std::string refusal;  ///< for the user; empty: it is stored
    jsErrCode code{};     ///< of the refusal
    std::string stream;
    std::uint64_t sequence = 0;
    bool isDuplicate = false;  ///< its identifier was known
};
StreamAnswer parseAnswer(std::string_view text);

/// Calls the library's function that destroys it.
template <auto destroy>
struct NatsDelete {
    template <class Object>
    void operator()(Object* object) const {
        destroy(object);
    }
};
using NatsMessage = std::unique_ptr<natsMsg, NatsDelete<natsMsg_Destroy>>;
using JetStream = std::unique_ptr<jsCtx, NatsDelete<jsCtx_Destroy>>;
using StreamInfo = std::unique_ptr<jsStreamInfo, NatsDelete<jsStreamInfo_Destroy>>;
using KeyValueStore = std::unique_ptr<kvStore, NatsDelete<kvStore_Destroy>>;
using KeyValueEntry = std::unique_ptr<kvEntry, NatsDelete<kvEntry_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsDelete<natsSubscription_Destroy>>;

/// A connection to one broker. One that is lost stays so: whoever needs another opens it, and asks
/// the broker for its state.
///
/// The library has threads of its own, which call what is subscribed. Any thread may use this.
class NatsConnection {
  public:
    /// Waits four seconds for it at most. `client` is what the broker's own tools show. What is
    /// published is given up after `writePatience`; with none of it the connection has two seconds
    /// for that, and ends by itself when the broker is silent. Throws `NatsError`.
    NatsConnection(const NatsOptions& options, const std::string& server, const std::string& client,
                   std::optional<std::chrono::milliseconds> writePatience = {});
    /// What was given to the library and isn't sent yet may not arrive.
    ~NatsConnection();
    NatsConnection(const NatsConnection&) = delete;
    NatsConnection& operator=(const NatsConnection&) = delete;

    natsConnection* get() const { return connection; }
    const std::string& getServer() const { return server; }
    bool isOpen() const { return natsConnection_Status(connection) == NATS_CONN_STATUS_CONNECTED; }
    /// Why it isn't open any more, for the user; also what the broker last refused.
    std::string describeFailure() const;
    /// With the library's own settings but for the wait for an answer, in milliseconds. Throws
    /// `NatsError`.
    JetStream openJetStream(int answerMilliseconds = 2000) const;

  private:
    const std::string server;
    natsConnection* connection = nullptr;
};

/// What the broker says of a stream. Without its configuration that is no answer: the library would
/// read what isn't there.
natsStatus askStream(jsCtx* jetStream, const char* name, StreamInfo& info, jsErrCode& code);
/// The bucket of heartbeats. `NATS_NOT_FOUND` if there is none.
natsStatus openHeartbeats(jsCtx* jetStream, KeyValueStore& bucket);

/// The first of the servers that can be reached, from the `first` on. Throws `NatsError` with what
/// is wrong with each.
std::unique_ptr<NatsConnection> connectToAny(const NatsOptions& options, const std::string& client,
                                             std::size_t first = 0);

}  // namespace station
