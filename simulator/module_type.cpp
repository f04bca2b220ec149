#include "simulator/module_type.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace sim {
namespace {

constexpr std::array<std::uint16_t, 10> linComboInterfaces = {0x10, 0x20, 0x30, 0x40, 0x50,
                                                              0x60, 0x70, 0x80, 0x90, 0xA0};
constexpr std::array<std::uint16_t, 7> canComboInterfaces = {0x10, 0x20, 0x30, 0x40,
                                                             0x50, 0x60, 0x70};
/// No interface 10: this module doesn't report one.
constexpr std::array<std::uint16_t, 19> neoviFire3Interfaces = {
    1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};

constexpr std::array<ModuleType, 3> types = {{
    {"LIN combo", 2, 0x30, Bus::Lin, Framing::Tecmp, linComboInterfaces},
    {"CAN combo", 4, 0x40, Bus::Can, Framing::Tecmp, canComboInterfaces},
    {"NeoviFire3", 0, 0, Bus::Can, Framing::AsamCmp, neoviFire3Interfaces},
}};

constexpr std::uint16_t configIdMask = 0x0F;

}  // namespace

std::string_view toText(Bus bus) {
    return bus == Bus::Can ? "CAN" : "LIN";
}

std::string_view toText(Framing framing) {
    return framing == Framing::Tecmp ? "tecmp" : "asam";
}

std::uint16_t ModuleType::cmIdOf(std::uint16_t configId) const {
    if (configId > configIdMask)
        return configId;
    return static_cast<std::uint16_t>(baseId | configId);
}

std::uint16_t ModuleType::configIdOf(std::uint16_t cmId) const {
    return baseId == 0 ? cmId : cmId & configIdMask;
}

std::span<const ModuleType> moduleTypes() {
    return types;
}

const ModuleType* findModuleType(std::string_view name) {
    const auto same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    };
    const auto found = std::find_if(types.begin(), types.end(), [&](const ModuleType& type) {
        return std::equal(type.name.begin(), type.name.end(), name.begin(), name.end(), same);
    });
    return found == types.end() ? nullptr : &*found;
}

}  // namespace sim
