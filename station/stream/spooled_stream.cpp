#include <fmt/format.h>
#include <fmt/ranges.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <random>
#include <utility>

#include "core/mutex.h"
#include "core/performance_counter.h"
#include "station/errors.h"
#include "station/nats/stream_names.h"
#include "station/stream/nats_publisher.h"
#include "station/stream/sender.h"
#include "station/stream/spool_part.h"
#include "station/stream/stream.h"

namespace station {
namespace {

/// A part is what goes at once when the spool is full.
constexpr std::uint64_t mostPartBytes = std::uint64_t{16} << 20U;
constexpr std::uint64_t partsOfLimit = 8;

/// Two measurements of a station may begin in the same second, on a clock that was set back too.
std::string makeUnique(const std::string& session) {
    return fmt::format("{}-{:04x}", session, std::random_device()() & 0xFFFFU);
}

/// The client library allocates and frees each batch. Without this its memory goes back to the
/// system each time, and is cleared page by page for the next one. For the whole process: it keeps
/// that much more.
void keepMemoryOfBatches(std::size_t batchBytes) {
    constexpr std::size_t most = std::size_t{32} << 20U;  // glibc takes no higher threshold
    const auto kept = static_cast<int>(std::min(8 * batchBytes, most));
    ::mallopt(M_MMAP_THRESHOLD, kept);
    ::mallopt(M_TRIM_THRESHOLD, kept);
}

/// What several threads report to the user.
class Texts {
  public:
    void add(std::string text) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        texts.push_back(std::move(text));
    }
    std::vector<std::string> take() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return std::exchange(texts, {});
    }

  private:
    Mutex lock;
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
};

/// What the heartbeat says of the measurement.
struct Measured {
    std::string session;
    double rate = 0.0;
    std::uint64_t lost = 0;
};

/// What the thread that sends has too: it may outlive the stream.
struct Core {
    explicit Core(const StreamSettings& streamSettings, const char* programVersion)
        : settings(streamSettings), version(programVersion) {
        const auto report = [texts = texts](std::string text) { texts->add(std::move(text)); };
        auto name = std::make_unique<StationName>(settings.station, settings.replicas, report);
        token = name->getToken();
        owner = name->getOwner();
        spool = std::make_shared<Spool>(settings.spool, token, settings.spoolBytes);
        publisher = std::make_shared<NatsPublisher>(
            settings.nats,
            StreamRules{settings.streamName, settings.replicas, settings.mostNanoseconds,
                        settings.mostBytes},
            std::move(name), report);
    }

    void setMeasured(Measured latest) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        measured = std::move(latest);
    }
    Measured getMeasured() const CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return measured;
    }

    std::string makeBeat(std::uint64_t onTheWay, bool isEnded) const {
        const Spool::Counts counts = spool->getCounts();
        const Measured latest = getMeasured();
        nlohmann::ordered_json json = {{beat::station, settings.station},
                                       {beat::owner, owner},
                                       {beat::host, nameOfMachine()},
                                       {beat::session, latest.session},
                                       {beat::time, realNanoseconds()},
                                       {beat::rate, latest.rate},
                                       {beat::published, counts.acknowledged + onTheWay},
                                       {beat::acknowledged, counts.acknowledged},
                                       {beat::backlogMessages, counts.messages},
                                       {beat::backlogBytes, counts.bytes},
                                       {beat::spoolLost, counts.lost},
                                       {beat::lost, latest.lost},
                                       {beat::version, version},
                                       {beat::ended, isEnded}};
        return json.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    }

    const StreamSettings settings;
    const std::string version;
    std::string token;  // constant after construction, as the next three
    std::string owner;
    std::shared_ptr<Spool> spool;
    std::shared_ptr<NatsPublisher> publisher;
    const std::shared_ptr<Texts> texts = std::make_shared<Texts>();

    mutable Mutex lock;
    Measured measured CMP_GUARDED_BY(lock);
};

class SpooledStream final : public Stream {
  public:
    SpooledStream(const char* version, const StreamSettings& settings)
        : core(std::make_shared<Core>(settings, version)),
          sender(core->spool, core->publisher, [held = core](const Sender::State& state) {
              held->publisher->beat(held->makeBeat(state.onTheWay, state.isEnding));
          }) {}
    ~SpooledStream() override { sender.end(); }

    std::unique_ptr<RecordingSeries> openSession(const std::string& session,
                                                 std::uint64_t leastFreeBytes) override {
        const auto common =
            std::make_shared<SpoolSession>(SpoolSession{.identifier = makeUnique(session),
                                                        .stationToken = core->token,
                                                        .isByChannel = core->settings.isByChannel,
                                                        .batchBytes = core->settings.batchBytes,
                                                        .batchAge = core->settings.batchAge});
        core->setMeasured({common->identifier, 0.0, 0});
        PartRules rules;
        rules.bytes = std::min(mostPartBytes, core->settings.spoolBytes / partsOfLimit);
        rules.leastFreeBytes = leastFreeBytes;
        rules.goesOn = true;
        rules.session = common->identifier;
        return std::make_unique<RecordingSeries>(
            core->spool->nameNext(), false, rules,
            [spool = core->spool, common](const std::string& path, bool, const std::string&) {
                return std::make_unique<SpoolPart>(path, spool, common);
            });
    }

    void noteMeasurement(double rate, std::uint64_t lost) override {
        core->setMeasured({core->getMeasured().session, rate, lost});
    }

    StreamSummary summarize() const override {
        const Spool::Counts counts = core->spool->getCounts();
        const Sender::State state = sender.getState();
        StreamSummary summary;
        summary.servers = fmt::format("{}", fmt::join(core->settings.nats.servers, ","));
        summary.station = core->settings.station;
        summary.session = core->getMeasured().session;
        summary.spool = core->spool->getFolder();
        summary.server = core->publisher->getServer();
        summary.isConnected = state.isOpen;
        summary.failure = state.failure;
        summary.published = counts.acknowledged + state.onTheWay;
        summary.acknowledged = counts.acknowledged;
        summary.backlogMessages = counts.messages;
        summary.backlogBytes = counts.bytes;
        summary.lost = counts.lost;
        summary.isNameTaken = state.isNameTaken;
        return summary;
    }

    std::vector<std::string> takeTexts() override {
        std::vector<std::string> all = core->texts->take();
        std::ranges::move(sender.takeTexts(), std::back_inserter(all));
        return all;
    }

    void end() override { sender.end(); }

  private:
    const std::shared_ptr<Core> core;
    Sender sender;
};

}  // namespace
}  // namespace station

extern "C" station::Stream* openStream(const char* version,
                                       const station::StreamSettings& settings) {
    if (std::string(version) != CMP_VERSION) {
        throw station::UserError(station::ExitCode::Failed,
                                 "cmp_stream.so is of version " CMP_VERSION
                                 ", and the program of another one");
    }
    station::keepMemoryOfBatches(settings.batchBytes);
    return new station::SpooledStream(version, settings);
}
