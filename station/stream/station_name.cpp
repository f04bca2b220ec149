#include "station/stream/station_name.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/performance_counter.h"
#include "station/nats/stream_names.h"

namespace station {
namespace {

using namespace std::chrono_literals;

constexpr auto silence = 5s;  // beats come every two seconds
constexpr double worstClockSeconds = 5.0;

std::string firstWordOf(const char* path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    return word;
}

/// When this process began, in the system's ticks since its start.
std::string startOfProcess() {
    std::ifstream file("/proc/self/stat");
    std::string text;
    std::getline(file, text);
    std::size_t at = text.rfind(')');  // behind the program's name, which may hold anything
    for (int field = 2; field < 22 && at != text.npos; ++field) {
        at = text.find(' ', at + 1);
    }
    return at == text.npos ? "" : text.substr(at + 1, text.find(' ', at + 1) - at - 1);
}

std::string nameProcess() {
    std::string machine = firstWordOf("/etc/machine-id");
    if (machine.empty()) {
        machine = firstWordOf("/proc/sys/kernel/random/boot_id");
    }
    return fmt::format("{}/{}/{}", machine, ::getpid(), startOfProcess());
}

struct Entry {
    std::string owner;
    std::string host;
    bool isEnded = false;
};

Entry parseEntry(const char* text) {
    const auto json = nlohmann::json::parse(text == nullptr ? "" : text, nullptr, false);
    if (!json.is_object()) {
        return {};
    }
    const auto textOf = [&](const char* key) {
        const auto found = json.find(key);
        return found != json.end() && found->is_string() ? found->get<std::string>() : "";
    };
    const auto ended = json.find(beat::ended);
    return {textOf(beat::owner), textOf(beat::host),
            ended != json.end() && ended->is_boolean() && ended->get<bool>()};
}

}  // namespace

StationName::StationName(std::string stationName, int bucketReplicas,
                         std::function<void(std::string)> reportToUser)
    : name(std::move(stationName)),
      token(toToken(name)),
      owner(nameProcess()),
      replicas(bucketReplicas),
      report(std::move(reportToUser)) {}

KeyValueStore StationName::openBucket(const NatsConnection& connection, jsCtx* jetStream) const {
    KeyValueStore bucket;
    natsStatus status = openHeartbeats(jetStream, bucket);
    if (status == NATS_NOT_FOUND) {
        kvStore* made = nullptr;
        kvConfig config;
        kvConfig_Init(&config);
        config.Bucket = heartbeatBucket;
        config.History = 1;
        config.Replicas = replicas > 0 ? replicas : 1;
        status = js_CreateKeyValue(&made, jetStream, &config);
        bucket.reset(made);
    }
    if (status != NATS_OK) {
        throw NatsError(fmt::format("{}: bucket \"{}\" of heartbeats: {}", connection.getServer(),
                                    heartbeatBucket, describeStatus(status)),
                        status);
    }
    return bucket;
}

void StationName::claim(const NatsConnection& connection, jsCtx* jetStream, bool wasAway) {
    const KeyValueStore bucket = openBucket(connection, jetStream);
    kvEntry* found = nullptr;
    natsStatus status = kvStore_Get(&found, bucket.get(), token.c_str());
    const KeyValueEntry there(found);
    const std::string value = nlohmann::json{{beat::owner, owner}}.dump();
    const std::int64_t putAt = realNanoseconds();
    std::uint64_t revision = 0;
    if (status == NATS_OK) {
        const Entry entry = parseEntry(kvEntry_ValueString(found));
        revision = kvEntry_Revision(found);
        if (entry.owner != owner && !entry.owner.empty() && !entry.isEnded) {
            const auto now = Clock::now();
            if (revision != otherRevision) {
                isOtherAlive = otherRevision != 0;
                otherRevision = revision;
                otherSeen = now;
            }
            if (wasAway) {
                otherSeen = now;
            }
            if (now - otherSeen < silence) {
                const std::string where = entry.host.empty() ? "" : " on " + entry.host;
                if (isOtherAlive) {
                    throw NameTaken(fmt::format(
                        "another station is called \"{}\" and runs{}: give one of them another "
                        "name with --station",
                        name, where));
                }
                throw NatsError(
                    fmt::format("\"{}\" was last used by another process{}: it is "
                                "watched for five seconds whether that still runs",
                                name, where));
            }
        }
        status =
            kvStore_UpdateString(&revision, bucket.get(), token.c_str(), value.c_str(), revision);
    } else if (status == NATS_NOT_FOUND) {
        status = kvStore_CreateString(&revision, bucket.get(), token.c_str(), value.c_str());
    }
    if (status != NATS_OK) {
        throw NatsError(
            fmt::format("{}: entry \"{}\" of the bucket \"{}\": {}", connection.getServer(), token,
                        heartbeatBucket, describeStatus(status)),
            status);
    }
    ownRevision = revision;
    isAwaited = false;
    otherRevision = 0;
    isOtherAlive = false;
    compareClocks(bucket.get(), putAt);
}

/// With the time that the broker gave the entry.
void StationName::compareClocks(kvStore* bucket, std::int64_t putAt) {
    constexpr double nanosecondsPerSecond = 1e9;
    kvEntry* found = nullptr;
    if (isClockReported || kvStore_Get(&found, bucket, token.c_str()) != NATS_OK) {
        return;
    }
    const KeyValueEntry entry(found);
    const double behind =
        static_cast<double>(kvEntry_Created(found) - putAt) / nanosecondsPerSecond;
    if (std::abs(behind) > worstClockSeconds) {
        isClockReported = true;
        report(
            fmt::format("this machine's clock is {:.0f} s {} the broker's: the times of all "
                        "messages are as wrong as it is; set the clock of the one that is wrong",
                        std::abs(behind), behind > 0 ? "behind" : "ahead of"));
    }
}

void StationName::beat(const NatsConnection& connection, const std::string& json,
                       const std::string& reply) {
    if (isAwaited) {
        return;
    }
    const std::string subject = fmt::format("$KV.{}.{}", heartbeatBucket, token);
    natsMsg* made = nullptr;
    natsStatus status = natsMsg_Create(&made, subject.c_str(), reply.c_str(), json.data(),
                                       static_cast<int>(json.size()));
    const NatsMessage message(made);
    if (status == NATS_OK) {
        status =
            natsMsgHeader_Set(made, header::expectedRevision, std::to_string(ownRevision).c_str());
    }
    status = status == NATS_OK ? natsConnection_PublishMsg(connection.get(), made) : status;
    if (status != NATS_OK) {
        throw NatsError(
            fmt::format("{}: heartbeat: {}", connection.getServer(), describeStatus(status)),
            status);
    }
    isAwaited = true;
}

bool StationName::noteBeaten(const StreamAnswer& answer) {
    isAwaited = false;
    if (answer.refusal.empty()) {
        ownRevision = answer.sequence;
    }
    return answer.code != JSStreamWrongLastSequenceErr;
}

}  // namespace station
