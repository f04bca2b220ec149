#include "capture/device_types.h"

#include <algorithm>
#include <array>

namespace {

const std::array<DeviceTypeInfo, 4>& table() {
    static const std::array<DeviceTypeInfo, 4> types = {{
        {DeviceTypeInfo::unknownId, "Unknown", "", 0, {}},
        {DeviceTypeInfo::linComboId,
         "LIN combo",
         "Technica LIN combo",
         0x30,
         {0x00100004, 0x00200004, 0x00300004, 0x00400004, 0x00500004, 0x00600004, 0x00700004,
          0x00800004, 0x00900004, 0x00A00004}},
        {DeviceTypeInfo::canComboId,
         "CAN combo",
         "Technica CAN combo",
         0x40,
         {0x00100003, 0x00200003, 0x00300003, 0x00400003, 0x00500003, 0x00600003, 0x00700008}},
        // The tenth interface is 1 once more and not 10: what comes in on 1 goes to the first.
        {DeviceTypeInfo::neoviFire3Id,
         "NeoviFire3",
         "NeoviFire3",
         0,
         {0x00010003, 0x00020003, 0x00030003, 0x00040003, 0x00050003, 0x00060003, 0x00070003,
          0x00080003, 0x00090003, 0x00010003, 0x000B0003, 0x000C0003, 0x000D0003, 0x000E0003,
          0x000F0003, 0x00100003, 0x00110003, 0x00120003, 0x00130003, 0x00140003}},
    }};
    return types;
}

}  // namespace

std::span<const DeviceTypeInfo> deviceTypes() {
    return table();
}

const DeviceTypeInfo& deviceTypeById(std::uint32_t typeId) {
    const auto types = deviceTypes();
    const auto found = std::find_if(types.begin(), types.end(),
                                    [&](const auto& type) { return type.typeId == typeId; });
    return found != types.end() ? *found : types.front();
}

const DeviceTypeInfo& getDefaultTypeForCmId(std::uint16_t cmId) {
    switch (cmId & 0xFFF0) {
        case 0x30:
            return deviceTypeById(DeviceTypeInfo::linComboId);
        case 0x40:
            return deviceTypeById(DeviceTypeInfo::canComboId);
        default:
            return deviceTypeById(DeviceTypeInfo::unknownId);
    }
}
