#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace sim {

enum class Bus { Can, Lin };
enum class Framing { Tecmp, AsamCmp };

std::string_view toText(Bus bus);
std::string_view toText(Framing framing);

/// One kind of capture module that can be simulated.
struct ModuleType {
    std::string_view name;
    std::uint8_t deviceType;  ///< the type byte of its TECMP status
    std::uint16_t baseId;     ///< upper bits of the CM ID; 0: the ConfigId is the whole CM ID
    Bus bus;
    Framing usualFraming;
    std::span<const std::uint16_t> interfaces;  ///< interface IDs, each once, in sending order

    /// The CM ID of a module set to `configId`: a ConfigId of 16 or more is the whole CM ID.
    std::uint16_t cmIdOf(std::uint16_t configId) const;

    /// The ConfigId that a user sees for `cmId`.
    std::uint16_t configIdOf(std::uint16_t cmId) const;
};

std::span<const ModuleType> moduleTypes();

/// The type of that name in any mix of upper and lower case, or null.
const ModuleType* findModuleType(std::string_view name);

}  // namespace sim
