#include "station/offline/frame_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "station/errors.h"
#include "station/recording/pcapng_format.h"

namespace station {
namespace {

using namespace pcapng;

constexpr std::uint32_t longestFrame = 256 * 1024;
constexpr std::size_t leastBlock = blockHeadSize + blockTailSize;

UserError noFrames(const std::string& path, const std::string& reason) {
    return UserError(ExitCode::Unreadable, fmt::format("can't read {}: {}", path, reason));
}

std::string linkText(const std::string& path, std::uint32_t linkType) {
    return fmt::format("{} holds no Ethernet frames; its link type is {}", path, linkType);
}

}  // namespace

FrameFile::FrameFile(const std::string& path) : file(path, InputFile::Kinds::RegularAndStreams) {
    const Bytes mark = file.view(0, 4);
    if (mark.size() == 4 && get32(mark.data()) == sectionHeader) {
        isPcapng = true;
        openPcapng();
    } else {
        openPcap();
    }
}

void FrameFile::openPcap() {
    constexpr std::size_t headSize = 24;
    constexpr std::size_t linkTypeAt = 20;
    constexpr std::uint32_t linkTypeMask = 0x03FFFFFF;  // above it: whether frames end with a FCS
    constexpr std::uint32_t micro = 0xA1B2C3D4;
    constexpr std::uint32_t nano = 0xA1B23C4D;
    const Bytes head = file.view(0, headSize);
    std::uint32_t mark = head.size() < headSize ? 0 : get32(head.data());
    isSwapped = mark == __builtin_bswap32(micro) || mark == __builtin_bswap32(nano);
    mark = isSwapped ? __builtin_bswap32(mark) : mark;
    if (mark != micro && mark != nano) {
        throw noFrames(file.getPath(), !file.getErrorText().empty() ? file.getErrorText()
                                       : file.view(0, 1).empty()
                                           ? "it is empty"
                                           : "it is neither a .pcap nor a .pcapng file");
    }
    fraction = mark == micro ? 1000 : 1;
    if (const std::uint32_t link = get32(&head[linkTypeAt]) & linkTypeMask;
        link != linkTypeEthernet) {
        throw UserError(ExitCode::Unreadable, linkText(file.getPath(), link));
    }
    position = headSize;
}

/// Up to the first interface.
void FrameFile::openPcapng() {
    std::uint32_t type = 0;
    Bytes body;
    while (interfaces.empty() && readBlock(type, body)) {
        if (type == interfaceDescription && !addInterface(body)) {
            throw UserError(ExitCode::Unreadable, linkText(file.getPath(), otherLinkType));
        }
    }
    if (!errorText.empty()) {
        throw UserError(ExitCode::Unreadable, errorText);
    }
}

double FrameFile::getProgress() const {
    return file.isStream() || file.getSize() == 0
               ? 0.0
               : static_cast<double>(position) / static_cast<double>(file.getSize());
}

std::uint16_t FrameFile::get16(const std::uint8_t* at) const {
    std::uint16_t value = 0;
    std::memcpy(&value, at, sizeof value);
    return isSwapped ? __builtin_bswap16(value) : value;
}

std::uint32_t FrameFile::get32(const std::uint8_t* at) const {
    std::uint32_t value = 0;
    std::memcpy(&value, at, sizeof value);
    return isSwapped ? __builtin_bswap32(value) : value;
}

bool FrameFile::stop(const std::string& reason) {
    isOver = true;
    const bool isDamaged = !file.getErrorText().empty();
    if (isDamaged && !file.isCompressed()) {
        errorText = file.getErrorText();
        return false;
    }
    errorText = fmt::format("{} can't be read to its end: {}", file.getPath(),
                            isDamaged ? "what is compressed in it is torn or damaged" : reason);
    if (!isDamaged && !file.isStream()) {
        errorText += fmt::format("; {} bytes are left", file.getSize() - start);
    }
    return false;
}

bool FrameFile::nextOfPcap(Frame& frame) {
    constexpr std::size_t headSize = 16;
    if (isOver) {
        return false;
    }
    start = position;
    Bytes record = file.view(position, headSize);
    if (record.size() < headSize) {
        isOver = record.empty() && file.getErrorText().empty();
        return isOver ? false : stop("it ends within a frame");
    }
    frame.length = get32(&record[8]);
    frame.wholeLength = get32(&record[12]);
    frame.time = std::int64_t{get32(&record[0])} * 1'000'000'000 +
                 std::int64_t{get32(&record[4])} * fraction;
    if (frame.length > longestFrame) {
        return stop(fmt::format("the frame at {} has no possible length", position));
    }
    record = file.view(position, headSize + frame.length);
    if (record.size() < headSize + frame.length) {
        return stop("it ends within a frame");
    }
    frame.data = record.data() + headSize;
    frame.length = std::min(frame.length, frame.wholeLength);
    position += record.size();
    return true;
}

bool FrameFile::nextOfPcapng(Frame& frame) {
    std::uint32_t type = 0;
    Bytes body;
    while (readBlock(type, body)) {
        if (type == interfaceDescription && !addInterface(body)) {
            return stop(fmt::format("an interface of link type {} begins", otherLinkType));
        }
        if (type == enhancedPacket || type == oldPacket || type == simplePacket) {
            return takePacket(type, body, frame);
        }
    }
    return false;
}

/// The block at `position`, and on to the next. Of a long one that is passed over there is no body.
bool FrameFile::readBlock(std::uint32_t& type, Bytes& body) {
    constexpr std::uint32_t longestBlock = longestFrame + 64 * 1024;  // with options
    if (isOver) {
        return false;
    }
    start = position;
    const Bytes head = file.view(position, leastBlock);
    if (head.size() < leastBlock) {
        isOver = head.empty() && file.getErrorText().empty();
        return isOver ? false : stop("it ends within a block");
    }
    type = get32(head.data());
    if (type == sectionHeader) {  // the same in both byte orders
        isSwapped ^= get32(&head[blockHeadSize]) == __builtin_bswap32(byteOrderMagic);
        if (get32(&head[blockHeadSize]) != byteOrderMagic) {
            return stop("a section begins without its byte order");
        }
        interfaces.clear();
    }
    const std::uint32_t size = get32(&head[4]);
    if (size < leastBlock || size % 4 != 0 || size > longestBlock) {
        return stop(fmt::format("the block at {} has no possible length", position));
    }
    const Bytes block = file.view(position, size);
    if (block.size() < size) {
        return stop("it ends within a block");
    }
    if (get32(&block[size - blockTailSize]) != size) {
        return stop(fmt::format("the block at {} has another length at its end", position));
    }
    body = block.subspan(blockHeadSize, size - leastBlock);
    position += size;
    return true;
}

/// False if it isn't Ethernet.
bool FrameFile::addInterface(Bytes body) {
    constexpr std::size_t fixed = 8;
    Interface interface;
    const std::uint32_t linkType = body.size() < fixed ? 0 : get16(body.data());
    if (linkType != linkTypeEthernet) {
        otherLinkType = linkType;
        return false;
    }
    readOptions(body.subspan(fixed), interface);
    interfaces.push_back(interface);
    return true;
}

void FrameFile::readOptions(Bytes options, Interface& interface) const {
    constexpr std::size_t head = 4;
    enum Code : std::uint16_t { End = 0, Resolution = 9, Offset = 14 };
    while (options.size() >= head) {
        const std::uint16_t code = get16(options.data());
        const std::size_t size = get16(&options[2]);
        if (code == End || size > options.size() - head) {
            return;
        }
        const Bytes value = options.subspan(head, size);
        if (code == Resolution && size == 1) {
            interface.resolution = value[0];
        } else if (code == Offset && size == 8) {
            const std::uint64_t first = get32(value.data());
            const std::uint64_t second = get32(&value[4]);
            interface.offset = static_cast<std::int64_t>(isSwapped ? first << 32U | second
                                                                   : second << 32U | first);
        }
        options = options.subspan(std::min(options.size(), head + (size + 3) / 4 * 4));
    }
}

bool FrameFile::takePacket(std::uint32_t type, Bytes body, Frame& frame) {
    constexpr std::uint8_t nanoseconds = 9;
    const bool isSimple = type == simplePacket;  // without a time
    const std::size_t fixed = isSimple ? 4 : 20;
    if (body.size() < fixed) {
        return stop("a packet is shorter than its head");
    }
    const std::size_t number = isSimple            ? 0
                               : type == oldPacket ? get16(body.data())
                                                   : get32(body.data());
    if (number >= interfaces.size()) {
        return stop("a packet is of an interface that isn't there");
    }
    frame.wholeLength = get32(&body[fixed - 4]);
    frame.length = isSimple ? frame.wholeLength : get32(&body[fixed - 8]);
    const auto room = static_cast<std::uint32_t>(body.size() - fixed);
    if (isSimple) {
        frame.length = std::min(frame.length, room);
    } else if (frame.length > room) {
        return stop("a packet is longer than its block");
    }
    frame.time = 0;
    if (!isSimple) {
        const std::uint64_t time = std::uint64_t{get32(&body[4])} << 32U | get32(&body[8]);
        const Interface& interface = interfaces[number];
        const bool isPlain =
            interface.resolution == nanoseconds && interface.offset == 0 && time >> 63U == 0;
        frame.time = isPlain ? static_cast<std::int64_t>(time)
                             : pcapngNanoseconds(time, interface.resolution, interface.offset);
    }
    frame.data = body.data() + fixed;
    frame.length = std::min(frame.length, frame.wholeLength);
    return true;
}

}  // namespace station
