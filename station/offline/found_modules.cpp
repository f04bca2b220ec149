#include "station/offline/found_modules.h"

#include <fmt/format.h>

#include <set>

#include "capture/device_types.h"
#include "capture/frame_decoder.h"
#include "station/errors.h"
#include "station/offline/stored_frames.h"

namespace station {
namespace {

/// Each takes tens of kilobytes. No network has so many, but a damaged file may name any CM ID.
constexpr std::size_t mostModules = 4096;

Module moduleOfCmId(std::uint16_t cmId, bool isAsam) {
    constexpr std::uint16_t configIdMask = 0x0F;
    const DeviceTypeInfo& combo = getDefaultTypeForCmId(cmId);
    Module option;
    if (isAsam || combo.typeId == DeviceTypeInfo::unknownId) {
        option.type = deviceTypeById(DeviceTypeInfo::neoviFire3Id).name;
        option.configId = cmId;
    } else {
        option.type = combo.name;
        option.configId = cmId & configIdMask;
    }
    return option;
}

}  // namespace

std::vector<Module> findModules(const std::string& path) {
    StoredFrames frames(path);
    std::vector<Module> modules;
    std::set<std::uint16_t> seen;
    CmpHeader header;
    CapturedFrame frame;
    while (!frames.isAtEnd() && modules.size() <= mostModules) {
        if (frames.next(frame) != CaptureHandle::gotFrame) {
            continue;
        }
        std::int32_t offset = 0;
        const std::uint8_t* payload = nullptr;
        while (parseFrame(frame.data, static_cast<std::int32_t>(frame.length), &offset, header,
                          payload) == DecodeResult::ok) {
            if (header.messageType != MessageType::cmStatus) {
                break;  // all messages of a frame are of one type
            }
            CmStatus status;
            status.cmId = header.cmId;
            if (!header.isAsam && decodeCmStatus(header, payload, status) != DecodeResult::ok) {
                continue;
            }
            if (seen.insert(status.cmId).second) {
                modules.push_back(moduleOfCmId(status.cmId, header.isAsam));
            }
        }
    }
    if (modules.size() > mostModules) {
        throw UserError(fmt::format(
            "there are status messages of more than {} capture modules in {}; name those that are "
            "wanted with --module \"TYPE:CONFIGID\"",
            mostModules, path));
    }
    return modules;
}

}  // namespace station
