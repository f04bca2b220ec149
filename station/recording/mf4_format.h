#pragma once

#include <cstddef>
#include <cstdint>

/// What the writer and the reader of MDF 4 files share: numbers of the format, and its byte order.
namespace station::mf4 {

/// The identification block: 64 bytes at the start of the file, in front of all others.
constexpr char finalizedFile[] = "MDF     ";
constexpr char unfinalizedFile[] = "UnFinMF ";
constexpr std::size_t identificationSize = 64;
constexpr std::size_t unfinalizedFlagsAt = 60;  ///< 16 bits
constexpr std::uint16_t cycleCountsMissing = 0x01;
constexpr std::uint16_t lastDataLengthMissing = 0x04;

/// Each block: "##" and two letters, 4 zero bytes, its length and its count of links in 64 bits
/// each; then the links, which are offsets in the file (0: none), then its own fields.
constexpr std::size_t blockHeaderSize = 24;
constexpr std::size_t linkSize = 8;

/// The header block follows the identification.
constexpr std::uint64_t headerBlock = identificationSize;

enum GroupFlag : std::uint16_t { busEvent = 0x2, plainBusEvent = 0x4 };
enum BusOfSource : std::uint8_t { canBus = 2, linBus = 3 };
enum ChannelType : std::uint8_t { fixedLength = 0, variableLength = 1, master = 2 };
constexpr std::uint32_t busEventChannel = 0x400;  ///< a flag of channels
constexpr std::uint32_t timeSize = 8;             ///< of a record, where it begins

enum DataType : std::uint8_t {
    unsignedLittle = 0,
    unsignedBig = 1,
    signedLittle = 2,
    signedBig = 3,
    floatLittle = 4,
    floatBig = 5,
    textUtf8 = 7,
    byteArray = 10,
};

/// The group of channel names in our own files, see `Mf4Recording`.
constexpr char namesGroup[] = "BusChannels";
constexpr std::size_t nameSize = 254;

template <typename T>
void store(std::uint8_t* at, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        at[i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
}

template <typename T>
T load(const std::uint8_t* at) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= std::uint64_t{at[i]} << (8 * i);
    }
    return static_cast<T>(value);
}

}  // namespace station::mf4
