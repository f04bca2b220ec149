#include "simulator/frame_encoder.h"

#include <algorithm>
#include <array>
#include <string>

namespace sim {

namespace {

constexpr std::size_t numberBytes = 4;
constexpr std::size_t stampBytes = 8;
constexpr std::uint32_t linSignalIdentifiers = 60;

void littleEndian(std::uint8_t* data, std::uint64_t value, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i)
        data[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

std::uint32_t canIdentifier(std::uint16_t interfaceId, std::uint32_t number) {
    const std::uint32_t turn = number % 4;
    if (turn == 3)
        return extendedIdentifier | (0x18DA00F1U + 0x100U * interfaceId);
    return 0x100U + 4U * interfaceId + turn;
}

std::uint8_t linIdentifier(std::uint16_t interfaceId, std::uint32_t number) {
    return static_cast<std::uint8_t>((std::uint64_t{interfaceId} + number) % linSignalIdentifiers);
}

std::uint8_t protectedLinIdentifier(std::uint8_t identifier) {
    const auto bit = [identifier](unsigned n) { return (identifier >> n) & 1U; };
    const unsigned even = bit(0) ^ bit(1) ^ bit(2) ^ bit(4);
    const unsigned odd = 1U ^ bit(1) ^ bit(3) ^ bit(4) ^ bit(5);
    return static_cast<std::uint8_t>((identifier & 0x3FU) | even << 6 | odd << 7);
}

std::uint8_t linChecksum(std::uint8_t protectedIdentifier, std::span<const std::uint8_t> data) {
    unsigned sum = protectedIdentifier;
    for (const std::uint8_t byte : data) {
        sum += byte;
        if (sum > 0xFF)
            sum -= 0xFF;
    }
    return static_cast<std::uint8_t>(~sum);
}

void writeData(std::uint8_t* data, const DataMessage& message) {
    const std::size_t length = message.length;
    if (length < numberBytes)
        return littleEndian(data, message.number, length);
    littleEndian(data, message.number, numberBytes);
    std::size_t at = numberBytes;
    if (message.hostTime != 0 && length >= numberBytes + stampBytes) {
        littleEndian(data + at, message.hostTime, stampBytes);
        at += stampBytes;
    }
    const auto filler = static_cast<std::uint8_t>(message.number + message.interfaceId);
    for (; at < length; ++at)
        data[at] = static_cast<std::uint8_t>(filler + at);
}

namespace {

constexpr std::size_t tecmpHeader = 12;
constexpr std::size_t messageHeader = 16;
constexpr std::size_t asamHeaders = 24;

constexpr std::size_t canOverhead = 7;    // identifier, length byte, two bytes of CRC
constexpr std::size_t linOverhead = 3;    // identifier, length byte, checksum
constexpr std::size_t asamOverhead = 16;  // flags, identifier, CRC, error position, lengths

enum class TecmpMessage : std::uint8_t { CmStatus = 1, BusStatus = 2, Data = 3 };
enum class AsamMessage : std::uint8_t { Data = 1, Status = 3 };
constexpr std::uint8_t tecmpVersion = 3;
constexpr std::uint8_t asamVersion = 1;

constexpr std::uint16_t noData = 0;
constexpr std::uint16_t canData = 2;
constexpr std::uint16_t canFdData = 3;
constexpr std::uint16_t linData = 4;

constexpr std::uint8_t asamCan = 1;
constexpr std::uint8_t asamCanFd = 2;
constexpr std::uint8_t asamCmStatus = 1;

// Device flags: the frame begins and ends a segment, and holds several messages.
constexpr std::uint16_t wholeSegment = 0x0003;
constexpr std::uint16_t severalMessages = 0x0008;
// Data flags of CAN messages.
constexpr std::uint16_t acknowledged = 0x0001;
constexpr std::uint16_t extendedFlag = 0x0004;
constexpr std::uint16_t bitRateSwitched = 0x0010;

// The lengths that CAN FD has beyond 8 bytes, in the order of their codes, which go on from 9.
constexpr std::array<std::uint8_t, 7> longLengths = {12, 16, 20, 24, 32, 48, 64};

constexpr std::uint64_t timeBits = 0x7FFFFFFFFFFFFFFF;

std::uint16_t dataType(const Sender& sender) {
    if (sender.bus == Bus::Lin)
        return linData;
    return sender.canFd ? canFdData : canData;
}

std::size_t payloadOverhead(const Sender& sender) {
    if (sender.framing == Framing::AsamCmp)
        return asamOverhead;
    return sender.bus == Bus::Lin ? linOverhead : canOverhead;
}

void writeEthernet(WireWriter& out, std::uint16_t cmId, std::uint16_t etherType) {
    out.u16(0x0100);  // to the multicast group 01:00:5e:00:00:00
    out.u32(0x5E000000);
    out.u32(0x02000000);  // from a local address that ends in the CM ID
    out.u16(cmId);
    out.u16(etherType);
}

void writeTecmp(WireWriter& out, const Sender& sender, std::uint16_t counter, TecmpMessage type,
                std::uint16_t typeOfData, std::size_t messages) {
    out.u16(sender.cmId);
    out.u16(counter);
    out.u8(tecmpVersion);
    out.u8(static_cast<std::uint8_t>(type));
    out.u16(typeOfData);
    out.u16(0);
    out.u16(messages > 1 ? wholeSegment | severalMessages : wholeSegment);
}

void writeMessageHeader(WireWriter& out, std::uint32_t interfaceId, std::uint64_t timestamp,
                        std::size_t payloadLength, std::uint16_t dataFlags) {
    out.u32(interfaceId);
    out.u64(timestamp & timeBits);
    out.u16(static_cast<std::uint16_t>(payloadLength));
    out.u16(dataFlags);
}

void writeAsam(WireWriter& out, const Sender& sender, std::uint16_t counter, AsamMessage type,
               std::uint8_t payloadType, std::uint16_t interfaceId, std::uint64_t timestamp,
               std::size_t payloadLength) {
    out.u8(asamVersion);
    out.u8(0);
    out.u16(sender.cmId);
    out.u8(static_cast<std::uint8_t>(type));
    out.u8(0);  // stream
    out.u16(counter);
    out.u64(timestamp & timeBits);
    out.u32(interfaceId);
    out.u8(0);  // flags
    out.u8(payloadType);
    out.u16(static_cast<std::uint16_t>(payloadLength));
}

void writeCan(WireWriter& out, const Sender& sender, const DataMessage& message) {
    const std::uint32_t identifier = canIdentifier(message.interfaceId, message.number);
    std::uint16_t flags = acknowledged;
    if ((identifier & extendedIdentifier) != 0)
        flags |= extendedFlag;
    if (sender.canFd)
        flags |= bitRateSwitched;
    writeMessageHeader(out, message.interfaceId, message.timestamp, message.length + canOverhead,
                       flags);
    out.u32(identifier);
    out.u8(message.length);
    writeData(out.take(message.length), message);
    out.u16(0);
}

void writeLin(WireWriter& out, const DataMessage& message) {
    const std::uint8_t identifier =
        protectedLinIdentifier(linIdentifier(message.interfaceId, message.number));
    writeMessageHeader(out, message.interfaceId, message.timestamp, message.length + linOverhead,
                       0);
    out.u8(identifier);
    out.u8(message.length);
    std::uint8_t* const data = out.take(message.length);
    writeData(data, message);
    out.u8(linChecksum(identifier, {data, message.length}));
}

/// The data length code for the length on the bus.
std::uint8_t lengthCode(std::uint8_t length) {
    if (length <= 8)
        return length;
    const auto* const found = std::lower_bound(longLengths.begin(), longLengths.end(), length);
    return static_cast<std::uint8_t>(9 + (found - longLengths.begin()));
}

void writeAsamCan(WireWriter& out, const DataMessage& message) {
    out.u32(0);  // flags, reserved
    out.u32(canIdentifier(message.interfaceId, message.number));
    out.u32(0);  // CRC
    out.u16(0);  // error position
    out.u8(lengthCode(message.length));
    out.u8(message.length);
    writeData(out.take(message.length), message);
}

/// A counted text with its terminating zero, of even length.
void writeText(WireWriter& out, std::string_view text) {
    const std::size_t length = (text.size() + 2) / 2 * 2;
    out.u16(static_cast<std::uint16_t>(length));
    std::copy(text.begin(), text.end(), out.take(text.size()));
    out.fill(0, length - text.size());
}

/// The 12 bytes that both TECMP status payloads begin with.
void writeStatusHead(WireWriter& out, const Sender& sender, std::uint16_t vendorDataLength) {
    out.u8(0);  // vendor: none
    out.u8(1);  // version
    out.u8(sender.deviceType);
    out.u8(0);
    out.u16(vendorDataLength);
    out.u16(sender.cmId);
    out.u32(sender.serial);
}

std::size_t fillUp(WireWriter& out) {
    if (out.size() < leastFrame)
        out.fill(0, leastFrame - out.size());
    return out.size();
}

std::size_t encodeAsamCmStatus(WireWriter& out, const Sender& sender, std::uint16_t counter,
                               std::uint64_t timestamp) {
    constexpr std::size_t fixedPart = 26;
    const std::string serial = std::to_string(sender.serial);
    const auto textSize = [](std::string_view text) { return 2 + (text.size() + 2) / 2 * 2; };
    constexpr std::string_view version = "1.0";
    const std::size_t payload = fixedPart + textSize(sender.description) + textSize(serial) +
                                2 * textSize(version) + sizeof(std::uint16_t);
    writeEthernet(out, sender.cmId, captureEtherType);
    writeAsam(out, sender, counter, AsamMessage::Status, asamCmStatus, 0, timestamp, payload);
    out.fill(0, fixedPart);  // uptime, grandmaster, time source and domain
    writeText(out, sender.description);
    writeText(out, serial);
    writeText(out, version);  // hardware
    writeText(out, version);  // software
    out.u16(0);               // no vendor data
    return fillUp(out);
}

}  // namespace

std::size_t dataFrameSize(const Sender& sender, std::size_t messages, std::size_t dataBytes) {
    const std::size_t payload = payloadOverhead(sender) + dataBytes;
    if (sender.framing == Framing::AsamCmp)
        return ethernetHeader + asamHeaders + payload;
    return ethernetHeader + tecmpHeader + messages * (messageHeader + payload);
}

std::size_t encodeData(std::span<std::uint8_t> frame, const Sender& sender, std::uint16_t counter,
                       std::span<const DataMessage> messages) {
    WireWriter out(frame);
    writeEthernet(out, sender.cmId, captureEtherType);
    if (sender.framing == Framing::AsamCmp) {
        const DataMessage& message = messages.front();
        writeAsam(out, sender, counter, AsamMessage::Data, sender.canFd ? asamCanFd : asamCan,
                  message.interfaceId, message.timestamp, asamOverhead + message.length);
        writeAsamCan(out, message);
        return fillUp(out);
    }
    writeTecmp(out, sender, counter, TecmpMessage::Data, dataType(sender), messages.size());
    for (const DataMessage& message : messages) {
        if (sender.bus == Bus::Lin)
            writeLin(out, message);
        else
            writeCan(out, sender, message);
    }
    return fillUp(out);
}

std::size_t encodeCmStatus(std::span<std::uint8_t> frame, const Sender& sender,
                           std::uint16_t counter, std::uint64_t timestamp) {
    WireWriter out(frame);
    if (sender.framing == Framing::AsamCmp)
        return encodeAsamCmStatus(out, sender, counter, timestamp);
    constexpr std::size_t head = 12;
    // The bytes up to here are all zero: a text at 35 would be shown in place of the serial number.
    constexpr std::uint16_t vendorData = 85 - head;
    writeEthernet(out, sender.cmId, captureEtherType);
    writeTecmp(out, sender, counter, TecmpMessage::CmStatus, noData, 1);
    writeMessageHeader(out, 0, timestamp, head + vendorData, 0);
    writeStatusHead(out, sender, vendorData);
    out.fill(0, vendorData);
    return fillUp(out);
}

std::size_t encodeBusStatus(std::span<std::uint8_t> frame, const Sender& sender,
                            std::uint16_t counter, std::uint64_t timestamp,
                            std::span<const InterfaceCount> interfaces) {
    constexpr std::size_t head = 12;
    constexpr std::uint16_t vendorData = 4;  // behind each record
    constexpr std::size_t record = 12 + vendorData;
    WireWriter out(frame);
    writeEthernet(out, sender.cmId, captureEtherType);
    writeTecmp(out, sender, counter, TecmpMessage::BusStatus, noData, 1);
    writeMessageHeader(out, 0, timestamp, head + record * interfaces.size(), 0);
    writeStatusHead(out, sender, vendorData);
    for (const InterfaceCount& count : interfaces) {
        out.u32(count.interfaceId);
        out.u32(count.messages);
        out.u32(0);  // errors
        out.fill(0, vendorData);
    }
    return fillUp(out);
}

void writeDataHeaders(WireWriter& out, const Sender& sender, std::uint16_t etherType,
                      std::uint16_t counter, std::uint16_t interfaceId, std::uint64_t timestamp,
                      std::uint16_t payloadLength) {
    writeEthernet(out, sender.cmId, etherType);
    if (sender.framing == Framing::AsamCmp) {
        writeAsam(out, sender, counter, AsamMessage::Data, asamCan, interfaceId, timestamp,
                  payloadLength);
        return;
    }
    writeTecmp(out, sender, counter, TecmpMessage::Data, dataType(sender), 1);
    writeMessageHeader(out, interfaceId, timestamp, payloadLength, acknowledged);
}

}  // namespace sim
