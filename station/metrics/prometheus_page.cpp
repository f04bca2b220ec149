#include <arpa/inet.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/descriptor.h"
#include "core/mutex.h"
#include "station/metrics/metric_families.h"
#include "station/metrics/metrics_page.h"

namespace station {
namespace {

/// Of the HTTP server. A reader that sends or takes nothing has a thread for two seconds; those for
/// which there is none wait, some with a descriptor here and the others in the system.
const std::vector<std::string>& serverOptions() {
    static const std::vector<std::string> options = {
        "num_threads",    "4",  "request_timeout_ms", "2000", "connection_queue",  "16",
        "listen_backlog", "64", "max_request_size",   "8192", "enable_keep_alive", "no"};
    return options;
}

class LatestSummary final : public prometheus::Collectable {
  public:
    void set(std::shared_ptr<const Summary> summary) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        latest.swap(summary);
    }
    /// On a thread of the server.
    std::vector<prometheus::MetricFamily> Collect() const override CMP_EXCLUDES(lock) {
        const std::shared_ptr<const Summary> summary = get();
        return summary ? toMetricFamilies(*summary) : std::vector<prometheus::MetricFamily>();
    }

  private:
    std::shared_ptr<const Summary> get() const CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return latest;
    }

    mutable Mutex lock;
    std::shared_ptr<const Summary> latest CMP_GUARDED_BY(lock);
};

std::vector<std::string> optionsFor(const std::string& address) {
    std::vector<std::string> options = serverOptions();
    options.insert(options.end(), {"listening_ports", address});
    return options;
}

/// Whether it is a connection to the server at that address.
bool isConnectionTo(int descriptor, const sockaddr_in& server) {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    int listens = 0;
    socklen_t flagSize = sizeof listens;
    return ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0 &&
           own.sin_family == AF_INET && own.sin_port == server.sin_port &&
           ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &flagSize) == 0 &&
           listens == 0;
}

/// The server sleeps for up to two seconds before it looks whether it is to end, unless somebody
/// connects, and waits as long for readers that send or take nothing, unless they are gone.
class Knocking {
  public:
    explicit Knocking(const std::string& address) : thread([this, address] { run(address); }) {}
    Knocking(const Knocking&) = delete;
    Knocking& operator=(const Knocking&) = delete;
    ~Knocking() {
        isOver = true;
        thread.join();
    }

  private:
    void run(const std::string& text) const {
        constexpr auto period = std::chrono::milliseconds(20);
        const std::size_t colon = text.rfind(':');
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(text.substr(colon + 1))));
        ::inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr);
        for (; !isOver; std::this_thread::sleep_for(period)) {
            const Descriptor socket(
                ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            // It need not come through: the next one may.
            (void)::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address),
                            sizeof address);
            sendAway(address);
        }
    }
    static void sendAway(const sockaddr_in& server) {
        std::error_code error;
        std::filesystem::directory_iterator entry("/proc/self/fd", error);
        for (; !error && entry != end(entry); entry.increment(error)) {
            const int descriptor = std::stoi(entry->path().filename().string());
            if (isConnectionTo(descriptor, server)) {
                ::shutdown(descriptor, SHUT_RDWR);
            }
        }
    }

    std::atomic<bool> isOver{false};
    std::thread thread;
};

class PrometheusPage final : public MetricsPage {
  public:
    explicit PrometheusPage(const std::string& address)
        : where(address), server(std::make_unique<prometheus::Exposer>(optionsFor(address))) {
        server->RegisterCollectable(latest);
    }
    ~PrometheusPage() override {
        const Knocking knocking(where);
        server.reset();
    }
    void show(std::shared_ptr<const Summary> summary) override { latest->set(std::move(summary)); }

  private:
    const std::shared_ptr<LatestSummary> latest = std::make_shared<LatestSummary>();
    const std::string where;
    std::unique_ptr<prometheus::Exposer> server;
};

}  // namespace
}  // namespace station

extern "C" station::MetricsPage* openMetricsPage(const char* version, const std::string& address,
                                                 std::string& failure) {
    if (std::string(version) != CMP_VERSION) {
        failure = "it is of version " CMP_VERSION ", and the program of another one";
        return nullptr;
    }
    try {
        return new station::PrometheusPage(address);
    } catch (const std::exception& error) {
        failure = error.what();
        return nullptr;
    }
}
