#pragma once

#include <initializer_list>

/// Frames as capture modules send them, written down from docs/wire.md without the decoder's code.
namespace wire {

using Bytes = std::vector<std::uint8_t>;

inline void put(Bytes& bytes, std::uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

inline void put(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline Bytes ethernet(std::uint16_t etherType) {
    Bytes frame(12, 0x02);
    put(frame, etherType, 2);
    return frame;
}

/// The frame behind a VLAN tag.
inline Bytes tagged(Bytes frame) {
    const Bytes tag{0x81, 0x00, 0x00, 0x05};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

inline Bytes can(std::uint32_t identifier, const Bytes& data) {
    Bytes payload;
    put(payload, identifier, 4);
    put(payload, data.size(), 1);
    put(payload, data);
    put(payload, 0xC5C5, 2);
    return payload;
}

inline Bytes lin(std::uint8_t identifier, const Bytes& data, std::uint8_t checksum) {
    Bytes payload{identifier, static_cast<std::uint8_t>(data.size())};
    put(payload, data);
    payload.push_back(checksum);
    return payload;
}

struct Message {
    std::uint32_t channelId = 0x10;
    std::uint64_t timestamp = 0;
    Bytes payload;
};

/// TECMP: `type` 1 CM status, 2 bus status, 3 data.
inline Bytes tecmp(std::uint16_t cmId, std::uint8_t type, const std::vector<Message>& messages,
                   std::uint16_t etherType = 0x99FE) {
    Bytes frame = ethernet(etherType);
    put(frame, cmId, 2);
    put(frame, 0x0102, 2);  // counter
    put(frame, 3, 1);       // version
    put(frame, type, 1);
    put(frame, 0x0002, 2);  // data type
    put(frame, 0, 2);
    put(frame, 0x000F, 2);  // device flags
    for (const Message& message : messages) {
        put(frame, message.channelId, 4);
        put(frame, message.timestamp, 8);
        put(frame, message.payload.size(), 2);
        put(frame, 0, 2);
        put(frame, message.payload);
    }
    return frame;
}

inline Bytes tecmpData(std::uint16_t cmId, const std::vector<Message>& messages) {
    return tecmp(cmId, 3, messages);
}

/// ASAM CMP: `type` 1 data, 3 status; `payloadType` 1 capture module, 2 interface.
inline Bytes asam(std::uint16_t cmId, std::uint8_t type, std::uint8_t payloadType,
                  const Message& message) {
    Bytes frame = ethernet(0x99FE);
    put(frame, 1, 1);  // version
    put(frame, 0, 1);
    put(frame, cmId, 2);
    put(frame, type, 1);
    put(frame, 0, 1);
    put(frame, 0x0102, 2);  // counter
    put(frame, message.timestamp, 8);
    put(frame, message.channelId, 4);
    put(frame, 0, 1);
    put(frame, payloadType, 1);
    put(frame, message.payload.size(), 2);
    put(frame, message.payload);
    return frame;
}

inline Bytes asamCan(std::uint32_t identifier, const Bytes& data) {
    Bytes payload(4, 0);
    put(payload, identifier, 4);
    put(payload, Bytes{0xAB, 0xCD, 0, 0, 0, 0});  // CRC field and what follows it
    put(payload, data.size(), 1);
    put(payload, 0, 1);
    put(payload, data);
    return payload;
}

inline Bytes asamStatus(const std::string& description, const std::string& serialText) {
    Bytes payload(26, 0);
    put(payload, description.size(), 2);
    payload.insert(payload.end(), description.begin(), description.end());
    put(payload, serialText.size() + 1, 2);
    payload.insert(payload.end(), serialText.begin(), serialText.end());
    payload.push_back(0);
    return payload;
}

/// The 12 bytes with which both status payloads of TECMP begin.
inline Bytes statusHead(std::uint16_t cmId, std::uint32_t serial, std::uint16_t vendorDataLength) {
    Bytes payload{0x0C, 0x21, 0x22, 0x23};
    put(payload, vendorDataLength, 2);
    put(payload, cmId, 2);
    put(payload, serial, 4);
    return payload;
}

inline Bytes cmStatus(std::uint16_t cmId, std::uint32_t serial,
                      const std::string& serialText = {}) {
    Bytes payload = statusHead(cmId, serial, 73);
    for (std::uint8_t i = 12; i < 35; ++i) {
        payload.push_back(i);
    }
    payload.insert(payload.end(), serialText.begin(), serialText.end());
    payload.resize(85);
    return payload;
}

struct BusRecord {
    std::uint32_t interfaceId = 0;
    std::uint32_t messages = 0;
    std::uint32_t errors = 0;
};

inline Bytes busStatus(std::uint16_t cmId, const std::vector<BusRecord>& records,
                       std::uint16_t vendorDataLength = 4) {
    Bytes payload = statusHead(cmId, 77, vendorDataLength);
    for (const BusRecord& record : records) {
        put(payload, record.interfaceId, 4);
        put(payload, record.messages, 4);
        put(payload, record.errors, 4);
        for (std::uint8_t i = 0; i < vendorDataLength && i < 4; ++i) {
            payload.push_back(static_cast<std::uint8_t>(0xE0 + i));
        }
    }
    return payload;
}

}  // namespace wire
