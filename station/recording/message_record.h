#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "host/bus_record.h"
#include "station/recording/message_reader.h"

namespace station {

/// Puts a CAN or CAN FD message of at most 64 bytes into the record of `message`.
inline void setCanRecord(RecordedMessage& message, std::uint32_t identifier, bool isExtended,
                         std::span<const std::uint8_t> data) {
    CanFrame frame;
    frame.id = identifier & CanFrame::identifierMask;
    frame.extended = isExtended ? 1 : 0;
    frame.length = static_cast<std::uint8_t>(std::min(data.size(), CanFrame::mostData));
    std::copy_n(data.begin(), frame.length, frame.data);
    message.size = sizeof frame;
    std::memcpy(message.record.data(), &frame, sizeof frame);
}

/// The same for a LIN message of at most 8 bytes; `identifier` may have its parity.
inline void setLinRecord(RecordedMessage& message, std::uint32_t identifier, std::uint8_t checksum,
                         std::span<const std::uint8_t> data) {
    LinFrame frame;
    frame.id = static_cast<std::uint8_t>(identifier & LinFrame::identifierMask);
    frame.checksum = checksum;
    frame.length = static_cast<std::uint8_t>(std::min(data.size(), LinFrame::mostData));
    std::copy_n(data.begin(), frame.length, frame.data);
    message.size = sizeof frame;
    std::memcpy(message.record.data(), &frame, sizeof frame);
}

}  // namespace station
