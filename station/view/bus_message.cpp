#include "station/view/bus_message.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "station/recording/bus_record.h"

namespace station {

BusMessage::BusMessage(const StoredMessage& message, BusType busType)
    : channel(message.channel), utc(message.utc), bus(busType) {
    const auto take = [&](const auto& decoded) {
        id = decoded.id;
        length = decoded.length;
        std::copy_n(decoded.data, length, data.begin());
    };
    if (bus == BusType::Lin) {
        take(LinRecord(message.record));
    } else {
        const CanRecord can(message.record);
        take(can);
        isExtended = can.extended;
    }
}

std::string identifierText(const BusMessage& message) {
    return message.bus == BusType::Lin ? fmt::format("{:02X}", message.id)
           : message.isExtended        ? fmt::format("{:08X}x", message.id)
                                       : fmt::format("{:03X}", message.id);
}

std::string dataText(const BusMessage& message) {
    return dataText(std::span(message.data.data(), message.length));
}

bool isFd(const BusMessage& message) {
    return message.bus == BusType::Can && message.length > CanRecord::mostClassicData;
}

std::string flagsText(const BusMessage& message) {
    return fmt::format("{}{}{}", message.isExtended ? "ext" : "",
                       message.isExtended && isFd(message) ? " " : "", isFd(message) ? "FD" : "");
}

}  // namespace station
