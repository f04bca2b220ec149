#include "capture/cmp_packet_reader.h"
#include "capture/frame_decoder.h"

// What becomes of a decoded message. All of it runs on the capture thread.

void CmpPacketReader::onMessage(const CmpHeader& header, const std::uint8_t* payload) {
    const DeviceTime time = splitTimestamp(header.timestamp);
    switch (header.messageType) {
        case MessageType::cmStatus:
            onCmStatusMessage(time, header, payload);
            break;
        case MessageType::busStatus:
            onBusStatusMessage(header, payload);
            break;
        case MessageType::data:
            onDataMessage(time, header, payload);
            break;
        default:
            break;
    }
}

void CmpPacketReader::onCmStatusMessage(const DeviceTime& time, const CmpHeader& header,
                                        const std::uint8_t* payload) {
    CmStatus status;
    if (header.isAsam) {
        if (decodeAsamCmStatus(payload, header.dataLength, status) != DecodeResult::ok) {
            return;
        }
        status.cmId = header.cmId;
    } else if (decodeCmStatus(header, payload, status) != DecodeResult::ok) {
        return;
    }
    onCmStatus(time, status);
}

void CmpPacketReader::onCmStatus(const DeviceTime& time, const CmStatus& status) {
    if (CmpDevice* const device = latestDirectory().findDevice(status.cmId)) {
        device->setLatestTime(time, frameTimeStamp, readData);
        device->setStatus(time, status);
    } else if (autoAddDevices) {
        const auto added = devices.add();
        added->setCmId(status.cmId);
        added->setStatus(time, status);
    }
}

void CmpPacketReader::onBusStatusMessage(const CmpHeader& header, const std::uint8_t* payload) {
    std::int32_t offset = 0;
    BusStatus status;
    while (decodeBusStatus(header, payload, &offset, status) == DecodeResult::ok) {
        const auto interfaceId = static_cast<std::uint16_t>(status.interfaceId);
        if (CmpChannel* const channel = latestDirectory().find(status.cmId, interfaceId).channel) {
            channel->setBusStatus(status);
        }
    }
}

void CmpPacketReader::onDataMessage(const DeviceTime& time, const CmpHeader& header,
                                    const std::uint8_t* payload) {
    RebuiltPayload rebuilt;
    std::uint32_t length = header.dataLength;
    if (header.isAsam) {
        rebuildAsamData(header, payload, length, rebuilt);
        payload = rebuilt.bytes;
        length = rebuilt.length;
    }
    onData(time, header, payload, length);
}

void CmpPacketReader::onData(const DeviceTime& time, const CmpHeader& header,
                             const std::uint8_t* payload, std::uint32_t length) {
    if (!readData || length == 0) {
        return;
    }
    const auto interfaceId = static_cast<std::uint16_t>(header.channelId);
    const DeviceDirectory::Route route = latestDirectory().find(header.cmId, interfaceId);
    if (route.device != nullptr) {
        burst.add(route, time, payload, length);
    }
}

void CmpPacketReader::onPassEnd() {
    handOver();
    for (const auto& device : latestDirectory().getDevices()) {
        device->publishTime();
    }
}
