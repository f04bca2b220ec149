#include "simulator/payload.h"

#include <algorithm>

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

}  // namespace sim
