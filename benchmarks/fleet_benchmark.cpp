// fleet-benchmark live URL COUNT RATE SECONDS FOLDER BACKLOG
// fleet-benchmark drain URL COUNT MEGABYTES FOLDER BATCH
// fleet-benchmark plain URL COUNT MEGABYTES BYTES
//
// Live: so many processes stream RATE messages a second each by the station's own spool and
// publisher, where an earlier measurement has left BACKLOG megabytes in all. Drain: their spools
// are full of so much in all, in batches of BATCH bytes, when the broker is there. Plain: processes
// publish payloads of that size in a loop over the client library and wait for what it
// acknowledges. In all three a collector's consumer takes what comes.

#include <fmt/format.h>
#include <nats/nats.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/bus_record.h"
#include "station/fleet/fleet_module.h"
#include "station/nats/stream_names.h"
#include "station/stream/stream.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto tick = 10ms;
constexpr auto patience = 60s;

/// What a process has to say at its end.
struct Outcome {
    std::uint64_t messages = 0;  ///< that were acknowledged
    std::uint64_t memory = 0;    ///< kB of its own, shared with no other process
    double processor = 0.0;      ///< seconds of it, for the work
};

std::int64_t utcNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::uint64_t ownMemory() {
    std::ifstream maps("/proc/self/smaps_rollup");
    std::uint64_t sum = 0;
    for (std::string word; maps >> word;) {
        std::uint64_t kilobytes = 0;
        if ((word == "Private_Dirty:" || word == "Private_Clean:") && maps >> kilobytes) {
            sum += kilobytes;
        }
    }
    return sum;
}

/// Seconds that this process, all its threads, had a processor.
double processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// A process that works, in two steps: it prepares itself, and begins with all others.
class Worker {
  public:
    virtual ~Worker() = default;
    virtual void prepare(int) {}
    virtual Outcome work(int number) = 0;
};

/// Closes what `::pipe` opened.
struct Pipe {
    Pipe() {
        if (::pipe(ends) != 0) {
            throw std::runtime_error("no pipe");
        }
    }
    void closeEnd(int end) {
        if (ends[end] >= 0) {
            ::close(std::exchange(ends[end], -1));
        }
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    int ends[2] = {-1, -1};
};

/// Nothing of the client library may be used before: its threads aren't there in a new process.
class Workers {
  public:
    Workers(int count, Worker& worker) : running(count) {
        for (int i = 0; i < count; ++i) {
            if (::fork() == 0) {
                ::_exit(runHere(i, worker));
            }
        }
        said.closeEnd(1);
        ready.closeEnd(1);
        start.closeEnd(0);
        for (char byte = 0; ::read(ready.ends[0], &byte, 1) == 1;) {
        }
    }
    void begin() { start.closeEnd(1); }
    bool areRunning() {
        int status = 0;
        while (running > 0 && ::waitpid(-1, &status, WNOHANG) > 0) {
            hasFailed |= status != 0;
            --running;
        }
        return running > 0;
    }
    /// After that.
    std::vector<Outcome> getOutcomes() {
        std::vector<Outcome> outcomes;
        for (Outcome outcome; ::read(said.ends[0], &outcome, sizeof outcome) == sizeof outcome;) {
            outcomes.push_back(outcome);
        }
        if (hasFailed) {
            throw std::runtime_error("a process has failed");
        }
        return outcomes;
    }

  private:
    int runHere(int number, Worker& worker) {
        try {
            start.closeEnd(1);
            worker.prepare(number);
            ready.closeEnd(1);
            char byte = 0;
            while (::read(start.ends[0], &byte, 1) == 1) {
            }
            const double before = processorTime();
            Outcome outcome = worker.work(number);
            outcome.processor = processorTime() - before;
            return ::write(said.ends[1], &outcome, sizeof outcome) == sizeof outcome ? 0 : 1;
        } catch (const std::exception& error) {
            fmt::print(stderr, "fleet-benchmark: {}\n", error.what());
            return 1;
        }
    }

    Pipe said;
    Pipe ready;  ///< closed by each that is
    Pipe start;  ///< closed when they may begin
    int running;
    bool hasFailed = false;
};

class Station : public Worker {
  public:
    Station(station::NatsOptions servers, std::string spoolFolder,
            std::size_t bytes = std::size_t{256} << 10U)
        : brokers(std::move(servers)), folder(std::move(spoolFolder)), batchBytes(bytes) {}

  protected:
    std::unique_ptr<station::Stream> open(int number, const station::NatsOptions& servers) const {
        station::StreamSettings settings;
        settings.nats = servers;
        settings.streamName = station::defaultStreamName;
        settings.station = fmt::format("load{}", number);
        settings.spool = fmt::format("{}/{}", folder, number);
        settings.spoolBytes = std::uint64_t{4} << 30U;
        settings.batchBytes = batchBytes;
        settings.batchAge = 200ms;
        return station::openStream(settings);
    }
    static Outcome waitForAll(station::Stream& stream, std::uint64_t messages) {
        const auto start = Clock::now();
        while (stream.summarize().acknowledged < messages && Clock::now() - start < patience) {
            std::this_thread::sleep_for(tick * 5);
        }
        return {.messages = stream.summarize().acknowledged, .memory = ownMemory()};
    }

    const station::NatsOptions brokers;
    const std::string folder;
    const std::size_t batchBytes;
};

/// The messages of a session, on one channel.
class Session {
  public:
    explicit Session(station::Stream& stream)
        : series(stream.openSession(fmt::format("load{}", utcNow()), 0)),
          channel(series->addChannel({"Front", station::BusType::Can})) {
        frame.length = 8;
    }
    ~Session() { series->close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void write() {
        frame.id = static_cast<std::uint32_t>(++count % 2048);
        series->write(channel, utcNow(), &frame, sizeof frame);
    }
    void flush() { series->flush(Clock::now()); }
    std::uint64_t getCount() const { return count; }

  private:
    const std::unique_ptr<station::RecordingSeries> series;
    const std::size_t channel;
    CanFrame frame;
    std::uint64_t count = 0;
};

class FullStation : public Station {
  public:
    FullStation(station::NatsOptions servers, std::string spoolFolder, double content,
                std::size_t bytes = std::size_t{256} << 10U)
        : Station(std::move(servers), std::move(spoolFolder), bytes), megabytes(content) {}

    void prepare(int number) override {
        station::NatsOptions nobody;
        nobody.servers = {"nats://127.0.0.1:1"};
        const auto stream = open(number, nobody);
        Session session(*stream);
        while (static_cast<double>(stream->summarize().backlogBytes) < megabytes * 1e6) {
            for (int i = 0; i < 100; ++i) {
                session.write();
            }
        }
        backlog = session.getCount();
    }
    Outcome work(int number) override { return waitForAll(*open(number, brokers), backlog); }

  protected:
    std::uint64_t backlog = 0;  ///< messages

  private:
    const double megabytes;
};

class LiveStation final : public FullStation {
  public:
    LiveStation(station::NatsOptions servers, std::string spoolFolder, double perSecond,
                double length, double content)
        : FullStation(std::move(servers), std::move(spoolFolder), content),
          rate(perSecond),
          seconds(length) {}

    Outcome work(int number) override {
        const auto stream = open(number, brokers);
        std::uint64_t messages = backlog;
        {
            Session session(*stream);
            for (const auto start = Clock::now(); secondsSince(start) < seconds;) {
                while (static_cast<double>(session.getCount()) < rate * secondsSince(start)) {
                    session.write();
                }
                session.flush();
                std::this_thread::sleep_for(tick);
            }
            messages += session.getCount();
        }
        return waitForAll(*stream, messages);
    }

  private:
    const double rate;
    const double seconds;
};

void check(natsStatus status, const char* what) {
    if (status != NATS_OK) {
        throw std::runtime_error(fmt::format("{}: {}", what, natsStatus_GetText(status)));
    }
}

class PlainClient final : public Worker {
  public:
    PlainClient(std::string brokerServer, double content, std::size_t payloadSize)
        : server(std::move(brokerServer)), megabytes(content), bytes(payloadSize) {}

    Outcome work(int number) override {
        natsConnection* connection = nullptr;
        jsCtx* stream = nullptr;
        jsOptions options;
        jsOptions_Init(&options);
        options.PublishAsync.MaxPending = 32;  // some megabytes, as the station has
        options.PublishAsync.StallWait = 10'000;
        check(natsConnection_ConnectTo(&connection, server.c_str()), "connecting");
        check(natsConnection_JetStream(&stream, connection, &options), "JetStream");
        const std::string payload(bytes, 'x');
        const std::string subject = fmt::format("cmp.plain{}", number);
        Outcome outcome;
        while (static_cast<double>(outcome.messages * bytes) < megabytes * 1e6) {
            const std::string identifier = fmt::format("{}/{}", number, ++outcome.messages);
            jsPubOptions publishing;
            jsPubOptions_Init(&publishing);
            publishing.MsgId = identifier.c_str();
            check(js_PublishAsync(stream, subject.c_str(), payload.data(), static_cast<int>(bytes),
                                  &publishing),
                  "publishing");
        }
        check(js_PublishAsyncComplete(stream, nullptr), "waiting for acknowledgements");
        outcome.memory = ownMemory();
        jsCtx_Destroy(stream);
        natsConnection_Destroy(connection);
        return outcome;
    }

  private:
    const std::string server;
    const double megabytes;
    const std::size_t bytes;
};

class StreamMaker final : public Worker {
  public:
    explicit StreamMaker(std::string brokerServer) : server(std::move(brokerServer)) {}

    Outcome work(int) override {
        natsConnection* connection = nullptr;
        jsCtx* stream = nullptr;
        check(natsConnection_ConnectTo(&connection, server.c_str()), "connecting");
        check(natsConnection_JetStream(&stream, connection, nullptr), "JetStream");
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        const char* subjects[] = {station::streamSubjects};
        config.Name = station::defaultStreamName;
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        check(js_AddStream(nullptr, stream, &config, nullptr, nullptr), "making the stream");
        jsCtx_Destroy(stream);
        natsConnection_Destroy(connection);
        return {};
    }

  private:
    const std::string server;
};

/// Of how long messages were on their way, from the frame to the collector, in milliseconds.
class Latencies {
  public:
    /// Messages of a batch are taken to be evenly apart.
    void add(const station::StoredBatch& batch, std::int64_t now) {
        constexpr std::uint64_t most = 50;
        const std::uint64_t steps = std::min(batch.messages, most);
        for (std::uint64_t i = 0; i < steps; ++i) {
            const double share =
                steps > 1 ? static_cast<double>(i) / static_cast<double>(steps - 1) : 0.0;
            const double time = static_cast<double>(batch.firstTime) +
                                share * static_cast<double>(batch.lastTime - batch.firstTime);
            all.push_back((static_cast<double>(now) - time) / 1e6);
        }
    }
    double get(double share) {
        if (all.empty()) {
            return 0.0;
        }
        const auto place =
            all.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(all.size() - 1));
        std::nth_element(all.begin(), place, all.end());
        return *place;
    }

  private:
    std::vector<double> all;
};

/// What the collector's consumer got.
struct Collected {
    std::uint64_t batches = 0;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    double seconds = 0.0;      ///< until the workers had all acknowledged
    double secondsHere = 0.0;  ///< until all had come
    Latencies latencies;
};

Collected collect(Workers& workers, const station::NatsOptions& brokers) {
    const auto source = station::loadFleetModule()->openBatches(
        brokers, {station::defaultStreamName, "benchmark", std::nullopt});
    Collected collected;
    ::sync();  // what was written before isn't to be on its way to the disk meanwhile
    workers.begin();
    const auto start = Clock::now();
    const std::int64_t startTime = utcNow();
    constexpr int mostEmpty = 50;  // a busy broker may leave some requests unanswered
    int empty = 0;
    while (empty < mostEmpty && Clock::now() - start < 3 * patience) {
        const bool wereRunning = workers.areRunning();
        collected.seconds = wereRunning ? secondsSince(start) : collected.seconds;
        const auto fetched = source->fetch(64, tick);
        const std::int64_t now = utcNow();
        for (const auto& batch : fetched) {
            source->acknowledge(batch);
            if (batch.firstTime >= startTime) {  // else it is of the backlog
                collected.latencies.add(batch, now);
            }
            collected.bytes += batch.payload.size();
            collected.messages += batch.messages;
            ++collected.batches;
        }
        collected.secondsHere = fetched.empty() ? collected.secondsHere : secondsSince(start);
        empty = wereRunning || !fetched.empty() ? 0 : empty + 1;
    }
    return collected;
}

void measure(const std::string& kind, int count, Worker& worker, const std::string& url) {
    station::NatsOptions brokers;
    brokers.servers = station::parseServers("URL", url);
    {
        StreamMaker maker(brokers.servers.front());
        Workers one(1, maker);
        one.begin();
        while (one.areRunning()) {
            std::this_thread::sleep_for(tick);
        }
        one.getOutcomes();
    }
    Workers workers(count, worker);
    Collected collected = collect(workers, brokers);
    std::uint64_t acknowledged = 0;
    std::uint64_t memory = 0;
    double processor = 0.0;
    for (const Outcome& outcome : workers.getOutcomes()) {
        processor += outcome.processor;
        acknowledged += outcome.messages;
        memory += outcome.memory;
    }
    const auto batches = static_cast<double>(collected.batches);
    const auto bytes = static_cast<double>(collected.bytes);
    const auto messages = static_cast<double>(collected.messages);
    // Which the broker has stored when the workers end; collecting goes on.
    const auto all = kind == "plain" ? batches : messages;
    const double stored = all > 0.0 ? static_cast<double>(acknowledged) / all : 0.0;
    fmt::print(
        "{:5} {:4}: {:7.0f} payloads/s of {:6.0f} bytes, {:5.1f} MB/s, {:8.0f} messages/s "
        "({} collected of {}, at {:5.1f} MB/s); {:.1f} MB of memory each, {:.0f} us of a processor "
        "a payload",
        kind, count, stored * batches / collected.seconds, bytes / batches,
        stored * bytes / collected.seconds / 1e6, stored * messages / collected.seconds,
        kind == "plain" ? collected.batches : collected.messages, acknowledged,
        bytes / collected.secondsHere / 1e6, static_cast<double>(memory) / 1024.0 / count,
        1e6 * processor / std::max(batches, 1.0));
    if (kind == "live") {
        fmt::print("; latency {:.0f} ms median, {:.0f} ms 99 %", collected.latencies.get(0.5),
                   collected.latencies.get(0.99));
    }
    fmt::print("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        const std::string kind = words.empty() ? "" : words[0];
        const std::size_t wanted = kind == "plain" ? 5 : kind == "live" ? 7 : 6;
        if (words.size() != wanted || (kind != "live" && kind != "drain" && kind != "plain")) {
            fmt::print(
                stderr,
                "fleet-benchmark live URL COUNT RATE SECONDS FOLDER BACKLOG, drain URL COUNT "
                "MEGABYTES FOLDER BATCH, or plain URL COUNT MEGABYTES BYTES\n");
            return 2;
        }
        station::NatsOptions brokers;
        brokers.servers = station::parseServers("URL", words[1]);
        const int count = std::stoi(words[2]);
        const double amount = std::stod(words[3]);
        std::unique_ptr<Worker> worker;
        if (kind == "live") {
            worker = std::make_unique<LiveStation>(brokers, words[5], amount, std::stod(words[4]),
                                                   std::stod(words[6]) / count);
        } else if (kind == "drain") {
            worker = std::make_unique<FullStation>(brokers, words[4], amount / count,
                                                   std::stoul(words[5]));
        } else {
            worker = std::make_unique<PlainClient>(brokers.servers.front(), amount / count,
                                                   std::stoul(words[4]));
        }
        measure(kind, count, *worker, words[1]);
    } catch (const std::exception& error) {
        fmt::print(stderr, "fleet-benchmark: {}\n", error.what());
        return 1;
    }
    return 0;
}
