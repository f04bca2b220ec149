#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/host_document.h"

namespace station {

/// A capture module as the plug-in's saved settings tell of it.
struct ModuleFacts {
    std::uint32_t typeId = 0;
    std::uint16_t configId = 0;
    std::uint16_t cmId = 0;
    std::string name;        ///< UTF-8
    std::string serial;      ///< UTF-8, as the module reported it; "N/A" while it isn't connected
    bool connected = false;  ///< when the settings were saved
    std::size_t clock = 0;   ///< its place among all clocks; behind the last if it has none
};

/// Whose channel the output channel of that index is.
struct ChannelOwner {
    std::int32_t output = 0;
    std::size_t module = 0;         ///< position in the list of modules
    std::size_t position = 0;       ///< in the module's list of channels
    std::uint16_t interfaceId = 0;  ///< not in the setup: for whoever knows the type to fill in
};

/// The modules of an element that the plug-in saved its settings in, in its order. A value that is
/// missing or no number is 0. Raises `HostCallException` where the document fails.
std::vector<ModuleFacts> readModules(HostDocument& document, HostElement& settings);

/// The channels of all modules, out of the element that the plug-in saved its setup in.
std::vector<ChannelOwner> readChannelOwners(HostDocument& document, HostElement& setup);

}  // namespace station
