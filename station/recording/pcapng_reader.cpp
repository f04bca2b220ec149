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

}  // namespace

bool PcapngReader::stop(const std::string& reason) {
    errorText = fmt::format("{} can't be read to its end: {}; {} bytes of it were left",
                            file.getPath(), reason, file.getSize() - position);
    return false;
}

/// The block at `position`, and on to the next. False at the end, and where it can't be read.
bool PcapngReader::readBlock(Block& block) {
    constexpr std::size_t least = 12;
    if (position == file.getSize() && position != 0 && file.getErrorText().empty()) {
        return false;
    }
    const auto head = file.view(position, least);
    if (head.size() < least) {
        return stop(file.getErrorText().empty() ? "it ends within a block" : file.getErrorText());
    }
    block.type = numbers.get32(head.data());
    if (block.type == sectionHeader) {  // the same in both byte orders
        if (!numbers.beginSection(head.data())) {
            return stop("a section begins without its byte order");
        }
    } else if (position == 0) {
        return stop("it doesn't begin with a section");
    }
    block.size = numbers.get32(&head[4]);
    block.start = position;
    if (block.size < least || block.size % 4 != 0) {
        return stop(fmt::format("the block at {} has no possible length", position));
    }
    const std::uint64_t tailAt = position + block.size - blockTailSize;
    const bool isShort = block.size <= longestBlock;
    const auto whole = isShort ? file.view(position, block.size) : file.view(tailAt, blockTailSize);
    if (whole.size() < (isShort ? block.size : blockTailSize)) {
        return stop(file.getErrorText().empty() ? "it ends within a block" : file.getErrorText());
    }
    if (numbers.get32(&whole[whole.size() - blockTailSize]) != block.size) {
        return stop(fmt::format("the block at {} has another length at its end", position));
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
    interface.linkType = numbers.get16(block.body.data());
    std::string name;
    numbers.forEachOption(block.body.subspan(fixed), [&](std::uint16_t code, auto value) {
        interface.times.take(numbers, code, value);
        if (code == interfaceName) {
            value = value.first(std::min(value.size(), ChannelIndex::longestName));
            name.assign(value.begin(), value.end());
        }
    });
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

bool PcapngReader::readPacket(const Block& block, RecordedMessage& message) {
    constexpr std::size_t fixed = 20;
    if (block.body.size() < fixed) {
        return false;
    }
    const std::uint32_t number = numbers.get32(block.body.data());
    const std::uint32_t captured = numbers.get32(&block.body[12]);
    if (number >= interfaces.size() || captured > block.body.size() - fixed ||
        captured < packetHeadSize) {
        return false;
    }
    const Interface& interface = interfaces[number];
    message.channel = interface.channel;
    message.utcNanoseconds = interface.times.readTime(numbers, &block.body[4]);
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
            const std::uint16_t linkType = reader.numbers.get16(block.body.data());
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
