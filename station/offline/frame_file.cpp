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
    if (mark.size() == 4 && numbers.get32(mark.data()) == sectionHeader) {
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
    std::uint32_t mark = head.size() < headSize ? 0 : numbers.get32(head.data());
    numbers.isSwapped = mark == __builtin_bswap32(micro) || mark == __builtin_bswap32(nano);
    mark = numbers.isSwapped ? __builtin_bswap32(mark) : mark;
    if (mark != micro && mark != nano) {
        throw noFrames(file.getPath(), !file.getErrorText().empty() ? file.getErrorText()
                                       : file.view(0, 1).empty()
                                           ? "it is empty"
                                           : "it is neither a .pcap nor a .pcapng file");
    }
    fraction = mark == micro ? 1000 : 1;
    if (const std::uint32_t link = numbers.get32(&head[linkTypeAt]) & linkTypeMask;
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
    return file.isStream() ? 0.0 : file.getShare(position);
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
    frame.length = numbers.get32(&record[8]);
    frame.wholeLength = numbers.get32(&record[12]);
    frame.time = std::int64_t{numbers.get32(&record[0])} * 1'000'000'000 +
                 std::int64_t{numbers.get32(&record[4])} * fraction;
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
    type = numbers.get32(head.data());
    if (type == sectionHeader) {  // the same in both byte orders
        if (!numbers.beginSection(head.data())) {
            return stop("a section begins without its byte order");
        }
        interfaces.clear();
    }
    const std::uint32_t size = numbers.get32(&head[4]);
    if (size < leastBlock || size % 4 != 0 || size > longestBlock) {
        return stop(fmt::format("the block at {} has no possible length", position));
    }
    const Bytes block = file.view(position, size);
    if (block.size() < size) {
        return stop("it ends within a block");
    }
    if (numbers.get32(&block[size - blockTailSize]) != size) {
        return stop(fmt::format("the block at {} has another length at its end", position));
    }
    body = block.subspan(blockHeadSize, size - leastBlock);
    position += size;
    return true;
}

/// False if it isn't Ethernet.
bool FrameFile::addInterface(Bytes body) {
    constexpr std::size_t fixed = 8;
    const std::uint32_t linkType = body.size() < fixed ? 0 : numbers.get16(body.data());
    if (linkType != linkTypeEthernet) {
        otherLinkType = linkType;
        return false;
    }
    TimeScale& times = interfaces.emplace_back();
    numbers.forEachOption(body.subspan(fixed), [&](std::uint16_t code, Bytes value) {
        times.take(numbers, code, value);
    });
    return true;
}

bool FrameFile::takePacket(std::uint32_t type, Bytes body, Frame& frame) {
    const bool isSimple = type == simplePacket;  // without a time
    const std::size_t fixed = isSimple ? 4 : 20;
    if (body.size() < fixed) {
        return stop("a packet is shorter than its head");
    }
    const std::size_t number = isSimple            ? 0
                               : type == oldPacket ? numbers.get16(body.data())
                                                   : numbers.get32(body.data());
    if (number >= interfaces.size()) {
        return stop("a packet is of an interface that isn't there");
    }
    frame.wholeLength = numbers.get32(&body[fixed - 4]);
    frame.length = isSimple ? frame.wholeLength : numbers.get32(&body[fixed - 8]);
    const auto room = static_cast<std::uint32_t>(body.size() - fixed);
    if (isSimple) {
        frame.length = std::min(frame.length, room);
    } else if (frame.length > room) {
        return stop("a packet is longer than its block");
    }
    frame.time = isSimple ? 0 : interfaces[number].readTime(numbers, &body[4]);
    frame.data = body.data() + fixed;
    frame.length = std::min(frame.length, frame.wholeLength);
    return true;
}

}  // namespace station
