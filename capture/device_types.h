#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// Kinds of channel in the low byte of a channel descriptor; any other kind is CAN FD too.
namespace ChannelKind {
inline constexpr std::uint8_t canFd = 3;
inline constexpr std::uint8_t lin = 4;
}  // namespace ChannelKind

/// One kind of capture module.
struct DeviceTypeInfo {
    static constexpr std::uint32_t unknownId = 65535;
    static constexpr std::uint32_t linComboId = 0;
    static constexpr std::uint32_t canComboId = 1;
    static constexpr std::uint32_t neoviFire3Id = 2;

    std::uint32_t typeId = unknownId;
    std::string name;
    std::string fullName;  ///< what a new device of this type is called
    std::uint8_t baseId = 0;
    /// One for each interface: its kind in the low byte, its ID in the upper 16 bits.
    std::vector<std::uint32_t> channelDescriptors;
};

/// All types, in the order in which the user is offered them.
std::span<const DeviceTypeInfo> deviceTypes();
/// The type with that id; "Unknown" if there is none.
const DeviceTypeInfo& deviceTypeById(std::uint32_t typeId);
/// The combo whose modules have a CM ID of this range, or "Unknown".
const DeviceTypeInfo& getDefaultTypeForCmId(std::uint16_t cmId);
