#include "station/fleet/nats_heartbeats.h"

#include <fmt/format.h>
#include <nats/nats.h>

#include <memory>

#include "station/nats/stream_names.h"

namespace station {
namespace {

constexpr std::int64_t bucketWait = 5000;  // milliseconds
constexpr int longestHeartbeat = 65536;

[[noreturn]] void refuse(const NatsConnection& connection, natsStatus status) {
    throw NatsError(
        fmt::format("{}: what the stations say of themselves (key-value bucket {}) can't be read: "
                    "{}",
                    connection.getServer(), heartbeatBucket, describeStatus(status)),
        status);
}

}  // namespace

std::vector<Heartbeat> readNatsHeartbeats(NatsConnection& connection) {
    const JetStream stream = connection.openJetStream();
    KeyValueStore bucket;
    const natsStatus found = openHeartbeats(stream.get(), bucket);
    if (found == NATS_NOT_FOUND) {
        return {};
    }
    kvWatchOptions options;
    kvWatchOptions_Init(&options);
    options.IgnoreDeletes = true;
    kvWatcher* made = nullptr;
    const natsStatus watched =
        found == NATS_OK ? kvStore_WatchAll(&made, bucket.get(), &options) : found;
    const std::unique_ptr<kvWatcher, NatsDelete<kvWatcher_Destroy>> watcher(made);
    if (watched != NATS_OK) {
        refuse(connection, watched);
    }
    std::vector<Heartbeat> heartbeats;
    while (true) {
        kvEntry* entry = nullptr;
        const natsStatus status = kvWatcher_Next(&entry, watcher.get(), bucketWait);
        const KeyValueEntry owned(entry);
        if (status != NATS_OK) {
            refuse(connection, status);
        }
        if (entry == nullptr) {  // these were all
            return heartbeats;
        }
        if (kvEntry_ValueLen(entry) <= longestHeartbeat) {
            heartbeats.push_back({kvEntry_Key(entry),
                                  std::string(static_cast<const char*>(kvEntry_Value(entry)),
                                              static_cast<std::size_t>(kvEntry_ValueLen(entry))),
                                  kvEntry_Created(entry)});
        }
    }
}

}  // namespace station
