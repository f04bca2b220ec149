#include <exception>
#include <string>

#include "station/errors.h"
#include "station/fleet/fleet_module.h"
#include "station/fleet/nats_batches.h"
#include "station/fleet/nats_heartbeats.h"
#include "station/nats/nats_connection.h"

namespace station {
namespace {

/// The program knows nothing of the library's errors.
template <typename Call>
auto asUserError(const Call& call) {
    try {
        return call();
    } catch (const NatsError& error) {
        throw UserError(ExitCode::Failed, error.what());
    }
}

class NatsFleet final : public FleetModule {
  public:
    std::unique_ptr<BatchSource> openBatches(const NatsOptions& brokers,
                                             const BatchOptions& options) override {
        return asUserError([&] { return openNatsBatches(brokers, options); });
    }
    std::vector<Heartbeat> readHeartbeats(const NatsOptions& brokers) override {
        return asUserError([&] {
            const auto connection = connectToAny(brokers, "cmp-station fleet");
            return readNatsHeartbeats(*connection);
        });
    }
};

}  // namespace
}  // namespace station

extern "C" station::FleetModule* openFleetModule(const char* version, std::string& failure) {
    if (std::string(version) != CMP_VERSION) {
        failure = "it is of version " CMP_VERSION ", and the program of another one";
        return nullptr;
    }
    return new station::NatsFleet;
}
