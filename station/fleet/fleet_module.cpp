#include "station/fleet/fleet_module.h"

#include "station/errors.h"
#include "station/session/loaded_module.h"

namespace station {

std::unique_ptr<FleetModule> loadFleetModule() {
    const auto open = reinterpret_cast<OpenFleetModule>(
        findInOwnModule("cmp_fleet.so", openFleetModuleName, "module of the fleet"));
    std::string failure;
    FleetModule* const module = open(CMP_VERSION, failure);
    if (module == nullptr) {
        throw UserError(ExitCode::Failed, "cmp_fleet.so can't be used: " + failure);
    }
    return std::unique_ptr<FleetModule>(module);
}

}  // namespace station
