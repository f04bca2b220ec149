#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/device_clock.h"
#include "simulator/module_type.h"

namespace sim {

/// One module to simulate, as given with `--module`.
struct ModuleSettings {
    const ModuleType* type = nullptr;  ///< points into the table, never null after parsing
    std::uint16_t cmId = 0;
    Framing framing = Framing::Tecmp;
    std::uint32_t serial = 0;
    unsigned channels = 0;  ///< the first this many of the type's interfaces; at least 1
    ClockSettings clock;

    std::span<const std::uint16_t> interfaces() const { return type->interfaces.first(channels); }

    /// Reads "TYPE:CONFIGID[,name=value]..."; `serial` is used when the text has none. Throws
    /// `Failure` with a text for the user.
    static ModuleSettings parse(std::string_view text, std::uint32_t usualSerial);
};

/// Reads all of them and refuses two modules of one CM ID, which no receiver could tell apart.
std::vector<ModuleSettings> parseModules(const std::vector<std::string>& texts);

}  // namespace sim
