#include "capture/frame_decoder.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr std::int32_t tagSize = 4;
constexpr std::int32_t messageHeaderSize = 16;
constexpr std::int32_t asamFirstMessage = 22;
constexpr std::int32_t tecmpFirstMessage = 26;
constexpr std::int32_t shortestFrame = tecmpFirstMessage + messageHeaderSize;

constexpr std::uint8_t asamData = 1;
constexpr std::uint8_t asamStatus = 3;
constexpr std::uint16_t asamDataType = 2;

inline std::uint16_t readBe16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline std::uint32_t readBe32(const std::uint8_t* bytes) {
    return std::uint32_t{readBe16(bytes)} << 16 | readBe16(bytes + 2);
}

inline std::uint64_t readBe64(const std::uint8_t* bytes) {
    return std::uint64_t{readBe32(bytes)} << 32 | readBe32(bytes + 4);
}

/// Wire bytes into a field, in wire order, for `normalizeHeader` to turn over.
template <class T>
void copyRaw(T& field, const std::uint8_t* bytes) {
    std::memcpy(&field, bytes, sizeof field);
}

template <class T>
void fromBigEndian(T& field) {
    std::uint8_t bytes[sizeof(T)];
    std::memcpy(bytes, &field, sizeof field);
    field = 0;
    for (const std::uint8_t byte : bytes) {
        field = static_cast<T>(field << 8 | byte);
    }
}

bool isVlanTag(std::uint16_t etherType) {
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

bool isCapture(std::uint16_t etherType) {
    return etherType == 0x99FE || etherType == 0x2090;
}

std::int32_t startOf(const std::int32_t* offset, std::int32_t first) {
    return offset != nullptr && *offset != 0 ? *offset : first;
}

/// The end that both framings share: the payload is at `position` and must fit into the frame.
inline std::int32_t takePayload(const std::uint8_t* frame, std::int32_t frameLength,
                                std::int32_t position, std::int32_t* offset,
                                const CmpHeader& header, const std::uint8_t*& payload) {
    if (header.dataLength == 0) {
        return DecodeResult::noData;
    }
    if (frameLength < header.dataLength + position) {
        return DecodeResult::invalid;
    }
    payload = frame + position;
    if (offset != nullptr) {
        *offset = header.dataLength + position;
    }
    return DecodeResult::ok;
}

void mapAsamMessageType(const std::uint8_t* frame, CmpHeader& header) {
    const std::uint8_t type = frame[18];
    const std::uint8_t payloadType = frame[35];
    if (type == asamStatus) {
        if (payloadType == 1) {
            header.messageType = MessageType::cmStatus;
        } else if (payloadType == 2) {
            header.messageType = MessageType::busStatus;
        }
    } else if (type == asamData) {
        header.messageType = MessageType::data;
        const std::uint8_t wireForm[] = {0, asamDataType};
        copyRaw(header.dataType, wireForm);
    }
}

/// The header is at fixed offsets, also for a second message, whose payload alone moves on.
std::int32_t parseAsam(const std::uint8_t* frame, std::int32_t frameLength, std::int32_t* offset,
                       CmpHeader& header, const std::uint8_t*& payload) {
    const std::int32_t position = startOf(offset, asamFirstMessage);
    if (frameLength < position + messageHeaderSize) {
        return DecodeResult::noData;
    }
    copyRaw(header.cmId, frame + 16);
    copyRaw(header.counter, frame + 20);
    mapAsamMessageType(frame, header);
    copyRaw(header.channelId, frame + 30);
    copyRaw(header.timestamp, frame + 22);
    copyRaw(header.dataLength, frame + 36);
    normalizeHeader(header);
    if (header.messageType == MessageType::busStatus) {
        return DecodeResult::invalid;
    }
    header.isAsam = true;
    return takePayload(frame, frameLength, position + messageHeaderSize, offset, header, payload);
}

/// A message at `position`, without what is once at the beginning of the frame.
inline std::int32_t parseTecmpMessage(const std::uint8_t* frame, std::int32_t frameLength,
                                      std::int32_t position, std::int32_t* offset,
                                      CmpHeader& header, const std::uint8_t*& payload) {
    header.channelId = readBe32(frame + position);
    header.timestamp = readBe64(frame + position + 4);
    header.dataLength = readBe16(frame + position + 12);
    header.dataFlags = readBe16(frame + position + 14);
    return takePayload(frame, frameLength, position + messageHeaderSize, offset, header, payload);
}

std::int32_t parseTecmp(const std::uint8_t* frame, std::int32_t frameLength, std::int32_t* offset,
                        CmpHeader& header, const std::uint8_t*& payload) {
    const std::int32_t position = startOf(offset, tecmpFirstMessage);
    if (frameLength < position + messageHeaderSize) {
        return DecodeResult::noData;
    }
    header.cmId = readBe16(frame + 14);
    header.counter = readBe16(frame + 16);
    header.version = frame[18];
    header.messageType = frame[19];
    header.dataType = readBe16(frame + 20);
    header.reserved = readBe16(frame + 22);
    header.deviceFlags = readBe16(frame + 24);
    const std::int32_t result =
        parseTecmpMessage(frame, frameLength, position, offset, header, payload);
    if (result == DecodeResult::ok) {
        header.isAsam = false;
    }
    return result;
}

/// The 12 bytes with which both TECMP status payloads begin.
template <class Status>
void readStatusHead(const std::uint8_t* payload, Status& status) {
    status.vendorId = payload[0];
    status.cmVersion = payload[1];
    status.cmType = payload[2];
    status.reserved = payload[3];
    status.vendorDataLength = readBe16(payload + 4);
    status.cmId = readBe16(payload + 6);
    status.serialNumber = readBe32(payload + 8);
}

}  // namespace

std::int32_t parseFrame(const std::uint8_t* frame, std::int32_t frameLength, std::int32_t* offset,
                        CmpHeader& header, const std::uint8_t*& payload) {
    while (frameLength >= shortestFrame) {
        const std::uint16_t etherType = readBe16(frame + 12);
        if (isCapture(etherType)) {
            // One test distinguishes the framings: the protocol version of ASAM CMP is never zero,
            // and the upper byte of a TECMP device ID is.
            return frame[14] != 0 ? parseAsam(frame, frameLength, offset, header, payload)
                                  : parseTecmp(frame, frameLength, offset, header, payload);
        }
        if (!isVlanTag(etherType)) {
            return DecodeResult::invalid;
        }
        frame += tagSize;
        frameLength -= tagSize;
    }
    return DecodeResult::noData;
}

std::int32_t parseNextMessage(const std::uint8_t* frame, std::int32_t frameLength,
                              std::int32_t& offset, CmpHeader& header,
                              const std::uint8_t*& payload) {
    if (header.isAsam) {
        return parseAsam(frame, frameLength, &offset, header, payload);
    }
    if (frameLength < offset + messageHeaderSize) {
        return DecodeResult::noData;
    }
    return parseTecmpMessage(frame, frameLength, offset, &offset, header, payload);
}

void normalizeHeader(CmpHeader& header) {
    fromBigEndian(header.cmId);
    fromBigEndian(header.counter);
    fromBigEndian(header.dataType);
    fromBigEndian(header.reserved);
    fromBigEndian(header.deviceFlags);
    fromBigEndian(header.channelId);
    fromBigEndian(header.timestamp);
    fromBigEndian(header.dataLength);
    fromBigEndian(header.dataFlags);
}

DeviceTime splitTimestamp(std::uint64_t timestamp) {
    constexpr std::uint64_t nanosecondsPerSecond = 1000000000;
    const std::uint64_t time = timestamp & ~(std::uint64_t{1} << 63);
    return {time / nanosecondsPerSecond, static_cast<std::int32_t>(time % nanosecondsPerSecond)};
}

std::int32_t decodeCmStatus(const CmpHeader& header, const std::uint8_t* payload,
                            CmStatus& status) {
    if (header.dataLength < CmStatus::wireSize) {
        return DecodeResult::invalid;
    }
    readStatusHead(payload, status);
    std::memcpy(status.vendorData12, payload + 12, sizeof status.vendorData12);
    status.vendorData20 = readBe32(payload + 20);
    status.vendorData24 = readBe64(payload + 24);
    std::memcpy(status.vendorData32, payload + 32, sizeof status.vendorData32);
    std::memcpy(status.serialText, payload + 35, sizeof status.serialText);
    std::end(status.serialText)[-1] = '\0';
    return DecodeResult::ok;
}

std::int32_t decodeBusStatus(const CmpHeader& header, const std::uint8_t* payload,
                             std::int32_t* offset, BusStatus& status) {
    constexpr std::int32_t headSize = 12;
    constexpr std::int32_t longestRecord = 16;
    constexpr std::uint16_t longestVendorData = 4;
    if (header.dataLength < headSize + longestRecord) {
        return DecodeResult::invalid;
    }
    status = BusStatus{};
    readStatusHead(payload, status);
    const std::int32_t position = startOf(offset, headSize);
    const std::int32_t size = status.vendorDataLength < longestVendorData
                                  ? status.vendorDataLength + headSize
                                  : longestRecord;
    if (header.dataLength < position + size) {
        return DecodeResult::noData;
    }
    std::uint8_t record[longestRecord] = {};
    std::memcpy(record, payload + position, static_cast<std::size_t>(size));
    status.interfaceId = readBe32(record);
    status.messageCount = readBe32(record + 4);
    status.errorCount = readBe32(record + 8);
    std::memcpy(status.vendorData24, record + 12, sizeof status.vendorData24);
    status.vendorData26 = readBe16(record + 14);
    if (offset != nullptr) {
        *offset = position + size;
    }
    return DecodeResult::ok;
}

std::int32_t decodeAsamCmStatus(const std::uint8_t* payload, std::uint32_t length,
                                CmStatus& status) {
    constexpr std::uint32_t descriptionLengthAt = 26;
    constexpr std::uint32_t lengthSize = 2;
    std::uint32_t position = descriptionLengthAt;
    if (length < position + lengthSize) {
        return DecodeResult::invalid;
    }
    position += lengthSize + readBe16(payload + position);
    if (length < position + lengthSize) {
        return DecodeResult::invalid;
    }
    const std::uint32_t textLength = readBe16(payload + position);
    position += lengthSize;
    if (length < position + textLength) {
        return DecodeResult::invalid;
    }
    const std::size_t kept = std::min<std::size_t>(textLength, sizeof status.serialText - 1);
    std::fill(std::begin(status.serialText), std::end(status.serialText), '\0');
    const auto* text = reinterpret_cast<const char*>(payload + position);
    std::copy_n(text, strnlen(text, kept), status.serialText);
    return DecodeResult::ok;
}

void rebuildAsamData(const CmpHeader& header, const std::uint8_t* payload, std::uint32_t length,
                     RebuiltPayload& rebuilt) {
    constexpr std::uint32_t identifierAt = 4;
    constexpr std::uint32_t checksumAt = 8;
    constexpr std::uint32_t lengthByteAt = 14;
    constexpr std::uint32_t dataAt = 16;
    rebuilt.length = 0;
    if (header.dataType != asamDataType || length <= lengthByteAt) {
        return;
    }
    const std::uint8_t count = payload[lengthByteAt];
    if (count == 0 || length < dataAt + count) {
        return;
    }
    std::memcpy(rebuilt.bytes, payload + identifierAt, 4);
    rebuilt.bytes[4] = count;
    std::memcpy(rebuilt.bytes + 5, payload + dataAt, count);
    std::memcpy(rebuilt.bytes + 5 + count, payload + checksumAt, 2);
    rebuilt.length = count + 7U;
}
