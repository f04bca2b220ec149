#include "station/recording/pcapng_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "station/recording/message_record.h"
#include "station/recording/pcapng_format.h"

namespace station {

namespace {

using namespace pcapng;

constexpr std::size_t packetHeadSize = 8;
constexpr std::size_t longestBlock = 64 * 1024;

std::size_t withPadding(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

}  // namespace

PcapngReader::PcapngReader(const std::string& path) : file(path), index(channels) {}

double PcapngReader::getProgress() const {
    return file.getSize() == 0
               ? 1.0
               : static_cast<double>(position) / static_cast<double>(file.getSize());
}

std::uint16_t PcapngReader::get16(std::span<const std::uint8_t> bytes, std::size_t at) const {
    const std::size_t high = isBigEndian ? at : at + 1;
    const std::size_t low = isBigEndian ? at + 1 : at;
    return static_cast<std::uint16_t>(bytes[high] << 8U | bytes[low]);
}

std::uint32_t PcapngReader::get32(std::span<const std::uint8_t> bytes, std::size_t at) const {
    const std::uint32_t first = get16(bytes, at);
    const std::uint32_t second = get16(bytes, at + 2);
    return isBigEndian ? first << 16U | second : second << 16U | first;
}

void PcapngReader::stop(const std::string& reason) {
    errorText = fmt::format("{} can't be read to its end: {}; {} bytes of it were left",
                            file.getPath(), reason, file.getSize() - position);
}

/// The block at `position`, and on to the next. False at the end, and where it can't be read.
bool PcapngReader::readBlock(Block& block) {
    constexpr std::size_t least = 12;
    if (position == file.getSize() && position != 0 && file.getErrorText().empty()) {
        return false;
    }
    const auto head = file.view(position, least);
    if (head.size() < least) {
        stop(file.getErrorText().empty() ? "it ends within a block" : file.getErrorText());
        return false;
    }
    if (get32(head, 0) == sectionHeader) {  // the same in both byte orders
        constexpr std::uint8_t magic = 0x1A;
        isBigEndian = head[blockHeadSize] == magic;
        if (get32(head, blockHeadSize) != byteOrderMagic) {
            stop("a section begins without its byte order");
            return false;
        }
    } else if (position == 0) {
        stop("it doesn't begin with a section");
        return false;
    }
    block.type = get32(head, 0);
    block.size = get32(head, 4);
    block.start = position;
    if (block.size < least || block.size % 4 != 0) {
        stop(fmt::format("the block at {} has no possible length", position));
        return false;
    }
    const std::uint64_t tailAt = position + block.size - blockTailSize;
    const bool isShort = block.size <= longestBlock;
    const auto whole = isShort ? file.view(position, block.size) : file.view(tailAt, blockTailSize);
    if (whole.size() < (isShort ? block.size : blockTailSize)) {
        stop(file.getErrorText().empty() ? "it ends within a block" : file.getErrorText());
        return false;
    }
    if (get32(whole, whole.size() - blockTailSize) != block.size) {
        stop(fmt::format("the block at {} has another length at its end", position));
        return false;
    }
    block.body = isShort ? whole.subspan(blockHeadSize, block.size - blockHeadSize - blockTailSize)
                         : block.body.first(0);
    position += block.size;
    return true;
}

bool PcapngReader::next(RecordedMessage& message) {
    Block block;
    while (errorText.empty() && readBlock(block)) {
        if (block.type == sectionHeader) {
            interfaces.clear();
            names = std::make_unique<UniqueNames>();
        } else if (block.type == interfaceDescription) {
            if (!addInterface(block)) {
                position = block.start;
                stop(fmt::format("the interface at {} is beyond the {} that can be read, or cut",
                                 position, ChannelIndex::mostChannels));
            }
        } else if (block.type == enhancedPacket && readPacket(block, message)) {
            return true;
        } else if (block.type == enhancedPacket || block.type == simplePacket ||
                   block.type == oldPacket) {
            ++skipped;
        }
    }
    return false;
}

bool PcapngReader::addInterface(const Block& block) {
    constexpr std::size_t fixed = 8;
    if (block.body.size() < fixed || interfaces.size() >= ChannelIndex::mostChannels) {
        return false;
    }
    Interface interface;
    interface.linkType = get16(block.body, 0);
    std::string name;
    readOptions(block.body.subspan(fixed), interface, name);
    if (interface.linkType == linkTypeCan || interface.linkType == linkTypeLin) {
        const bool isCan = interface.linkType == linkTypeCan;
        name = names->add(name.empty() ? (isCan ? "CAN" : "LIN") : name);
        const std::string key = (isCan ? "C" : "L") + name;
        interface.channel = index.find(key);
        if (interface.channel == ChannelIndex::none) {
            if (!index.add(key, name, isCan ? BusType::Can : BusType::Lin)) {
                return false;
            }
            interface.channel = channels.size() - 1;
        }
    }
    interfaces.push_back(interface);
    return true;
}

void PcapngReader::readOptions(std::span<const std::uint8_t> options, Interface& interface,
                               std::string& name) const {
    constexpr std::size_t head = 4;
    enum Code : std::uint16_t { End = 0, Name = 2, Resolution = 9, Offset = 14 };
    while (options.size() >= head) {
        const std::uint16_t code = get16(options, 0);
        const std::size_t size = get16(options, 2);
        if (code == End || size > options.size() - head) {
            return;
        }
        const auto value = options.subspan(head, size);
        if (code == Name) {
            const std::size_t kept = std::min(size, ChannelIndex::longestName);
            name.assign(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(kept));
        } else if (code == Resolution && size == 1) {
            interface.resolution = value[0];
        } else if (code == Offset && size == 8) {
            const std::uint64_t high = get32(value, isBigEndian ? 0 : 4);
            interface.offset =
                static_cast<std::int64_t>(high << 32U | get32(value, isBigEndian ? 4 : 0));
        }
        options = options.subspan(std::min(options.size(), head + withPadding(size)));
    }
}

bool PcapngReader::readPacket(const Block& block, RecordedMessage& message) {
    constexpr std::size_t fixed = 20;
    if (block.body.size() < fixed) {
        return false;
    }
    const std::uint32_t number = get32(block.body, 0);
    const std::uint32_t captured = get32(block.body, 12);
    if (number >= interfaces.size() || captured > block.body.size() - fixed ||
        captured < packetHeadSize) {
        return false;
    }
    const Interface& interface = interfaces[number];
    const std::uint64_t time = std::uint64_t{get32(block.body, 4)} << 32U | get32(block.body, 8);
    message.channel = interface.channel;
    message.utcNanoseconds = pcapngNanoseconds(time, interface.resolution, interface.offset);
    const auto packet = block.body.subspan(fixed, captured);
    return (interface.linkType == linkTypeCan && readCan(packet, message)) ||
           (interface.linkType == linkTypeLin && readLin(packet, message));
}

bool PcapngReader::readCan(std::span<const std::uint8_t> packet, RecordedMessage& message) const {
    constexpr std::uint32_t extended = 0x80000000;
    constexpr std::uint32_t remoteOrError = 0x60000000;
    std::uint32_t word = 0;  // big-endian in every section
    for (std::size_t i = 0; i < 4; ++i) {
        word = word << 8U | packet[i];
    }
    const std::size_t length = packet[4];
    if ((word & remoteOrError) != 0 || length > CanFrame::mostData ||
        length > packet.size() - packetHeadSize) {
        return false;
    }
    setCanRecord(message, word, (word & extended) != 0, packet.subspan(packetHeadSize, length));
    return true;
}

bool PcapngReader::readLin(std::span<const std::uint8_t> packet, RecordedMessage& message) const {
    constexpr std::uint8_t revision = 1;
    const std::size_t length = packet[4] >> 4U;
    const bool isFrame = (packet[4] >> 2U & 3U) == 0;
    const bool hasErrors = packet[7] != 0;
    if (packet[0] != revision || !isFrame || hasErrors || length > LinFrame::mostData ||
        length > packet.size() - packetHeadSize) {
        return false;
    }
    setLinRecord(message, packet[5], packet[6], packet.subspan(packetHeadSize, length));
    return true;
}

bool PcapngReader::isForOtherPackets(const std::string& path) {
    PcapngReader reader(path);
    Block block;
    while (reader.readBlock(block)) {
        if (block.type == interfaceDescription && block.body.size() >= 2) {
            const std::uint16_t linkType = reader.get16(block.body, 0);
            return linkType != linkTypeCan && linkType != linkTypeLin;
        }
        if (block.type == enhancedPacket) {
            return false;
        }
    }
    return false;
}

std::unique_ptr<MessageReader> openPcapng(const std::string& path) {
    return PcapngReader::isForOtherPackets(path) ? nullptr : std::make_unique<PcapngReader>(path);
}

}  // namespace station
