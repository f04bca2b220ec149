#include "station/recording/zstd_input.h"

#include <fmt/format.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

#include "station/errors.h"

namespace station {
namespace {

constexpr std::uint32_t frameMark = 0xFD2FB528;
constexpr std::uint32_t passedOverMark = 0x184D2A50;  // with any last digit
constexpr std::size_t longestHeader = 18;
constexpr std::size_t passedOverHeader = 8;
constexpr std::size_t blockHeader = 3;
constexpr std::uint64_t checksumSize = 4;
constexpr unsigned repeatedBlock = 1;  // of one byte

constexpr int mostWindowBits = 23;
constexpr std::uint64_t mostExpansion = 1032;  // that of zlib, which is more than messages have
constexpr std::size_t pieceSize = 64 * 1024;
constexpr std::uint64_t firstSpacing = 256 * 1024;
constexpr std::size_t mostPlaces = 64 * 1024;
/// How much may be decoded in all: the content so many times, and a gibibyte.
constexpr std::uint64_t mostPasses = 32;

std::uint64_t littleEndian(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        value = value << 8U | bytes[i - 1];
    }
    return value;
}

}  // namespace

struct ZstdInput::Frame {
    std::uint64_t packed = 0;  ///< its place in the file
    std::uint64_t packedSize = 0;
    bool isWhole = false;       ///< all of it is in the file
    bool isPassedOver = false;  ///< it has no content
    bool hasContentSize = false;
    std::uint64_t contentSize = 0;

    bool isTooMuch(std::uint64_t content) const { return content > packedSize * mostExpansion; }
};

void ZstdInput::Free::operator()(ZSTD_DCtx_s* owned) const {
    ZSTD_freeDCtx(owned);
}

bool ZstdInput::isMark(std::span<const std::uint8_t> firstBytes) {
    return firstBytes.size() >= markSize && littleEndian(firstBytes.first(markSize)) == frameMark;
}

ZstdInput::ZstdInput(int descriptor, std::uint64_t fileBytes)
    : fd(descriptor),
      fileSize(fileBytes),
      spacing(firstSpacing),
      unused(ZSTD_DStreamOutSize()),
      input(pieceSize),
      context(ZSTD_createDCtx()) {
    if (!context) {
        throw std::bad_alloc();
    }
    ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, mostWindowBits);
    findFrames();
    mayDecode = (std::uint64_t{1} << 30U) + mostPasses * size;
    begin({});
}

/// The bytes of the file there, fewer only at its end.
std::span<const std::uint8_t> ZstdInput::peek(std::uint64_t offset, std::size_t bytes) {
    if (offset < inputStart || offset + bytes > inputStart + inputSize) {
        inputStart = offset;
        inputSize = 0;
        while (inputSize < input.size()) {
            const ssize_t count =
                ::pread(fd, input.data() + inputSize, input.size() - inputSize,
                        static_cast<off_t>(std::min(offset, fileSize) + inputSize));
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count < 0) {
                errorText = reasonOf(errno);
            }
            if (count <= 0) {
                break;
            }
            inputSize += static_cast<std::size_t>(count);
        }
    }
    const std::size_t from = std::min<std::uint64_t>(offset - inputStart, inputSize);
    return {input.data() + from, std::min(bytes, inputSize - from)};
}

/// Follows the headers of a frame's blocks. False where none begins.
bool ZstdInput::describe(std::uint64_t at, Frame& frame) {
    frame = {.packed = at, .packedSize = fileSize - at};
    const std::span<const std::uint8_t> head = peek(at, longestHeader);
    if (head.size() < passedOverHeader) {
        return false;
    }
    const auto mark = static_cast<std::uint32_t>(littleEndian(head.first(markSize)));
    if ((mark & ~0xFU) == passedOverMark) {
        frame.isPassedOver = true;
        const std::uint64_t bytes = passedOverHeader + littleEndian(head.subspan(markSize, 4));
        frame.isWhole = bytes <= frame.packedSize;
        frame.packedSize = std::min(bytes, frame.packedSize);
        return true;
    }
    if (mark != frameMark) {
        return false;
    }
    const unsigned long long content = ZSTD_getFrameContentSize(head.data(), head.size());
    frame.hasContentSize = content != ZSTD_CONTENTSIZE_UNKNOWN && content != ZSTD_CONTENTSIZE_ERROR;
    frame.contentSize = frame.hasContentSize ? content : 0;
    const unsigned flags = head[markSize];
    const bool isSingle = (flags & 0x20U) != 0;
    constexpr std::array<std::uint64_t, 4> dictionarySizes = {0, 1, 2, 4};
    constexpr std::array<std::uint64_t, 4> contentSizes = {0, 2, 4, 8};
    const std::uint64_t ownContentSize = contentSizes[flags >> 6U];
    std::uint64_t end = at + markSize + 1 + (isSingle ? 0 : 1) + dictionarySizes[flags & 3U] +
                        (isSingle && ownContentSize == 0 ? 1 : ownContentSize);
    for (bool isLast = false; !isLast;) {
        const std::span<const std::uint8_t> block = peek(end, blockHeader);
        if (block.size() < blockHeader) {
            return true;
        }
        const std::uint64_t header = littleEndian(block);
        isLast = (header & 1U) != 0;
        end += blockHeader + ((header >> 1U & 3U) == repeatedBlock ? 1 : header >> 3U);
    }
    end += (flags & 4U) != 0 ? checksumSize : 0;
    frame.isWhole = end <= fileSize;
    frame.packedSize = std::min(end, fileSize) - at;
    return true;
}

/// How much content it has, as far as it can be read. False if that isn't all of it.
bool ZstdInput::measure(const Frame& frame, std::uint64_t& content) {
    content = 0;
    begin({frame.packed, 0});
    std::size_t done = 1;
    bool isGood = true;
    while (isGood && !isFrameOver && done != 0) {
        isGood = decode(unused, done, true) && !frame.isTooMuch(content + done);
        content += done;
    }
    errorText.clear();
    return isGood && isFrameOver;
}

void ZstdInput::findFrames() {
    for (std::uint64_t at = 0; at < fileSize;) {
        Frame frame;
        if (!describe(at, frame)) {
            endText = fmt::format("its last {} bytes aren't compressed with zstd", fileSize - at);
            return;
        }
        if (frame.isTooMuch(frame.contentSize) && frame.isWhole) {
            endText = fmt::format("what it holds from byte {} on is no recording", at);
            return;
        }
        if (!frame.isPassedOver) {
            note({at, size});
        }
        if (frame.isPassedOver && frame.isWhole) {
            // nothing is in it
        } else if (frame.isWhole && frame.hasContentSize) {
            size += frame.contentSize;
        } else {
            std::uint64_t content = 0;
            const bool isAll = !frame.isPassedOver && measure(frame, content);
            size += content;
            if (!isAll) {
                endText = frame.isWhole
                              ? fmt::format("its compressed data from byte {} on are damaged", at)
                              : "its compressed data are cut off";
                return;
            }
        }
        at += frame.packedSize;
    }
}

/// So many are kept that what is in front of an offset in its frame is soon decoded, and no more.
void ZstdInput::note(const Place& place) {
    if (!places.empty() && place.content - places.back().content < spacing) {
        return;
    }
    places.push_back(place);
    if (places.size() == mostPlaces) {
        spacing *= 2;
        std::size_t kept = 0;
        for (std::size_t i = 0; i < places.size(); i += 2) {
            places[kept++] = places[i];
        }
        places.resize(kept);
    }
}

void ZstdInput::begin(const Place& place) {
    ZSTD_DCtx_reset(context.get(), ZSTD_reset_session_only);
    next = place;
    isFrameOver = false;
}

/// Fills `to` as far as the content goes, or that of the frame. False where it is damaged.
bool ZstdInput::decode(std::span<std::uint8_t> to, std::size_t& done, bool isOfOneFrame) {
    ZSTD_outBuffer output{to.data(), to.size(), 0};
    bool isGood = true;
    while (output.pos < output.size) {
        const std::span<const std::uint8_t> piece = peek(next.packed, 1);
        const std::size_t from = static_cast<std::size_t>(next.packed - inputStart);
        ZSTD_inBuffer compressed{input.data(), piece.empty() ? from : inputSize, from};
        const std::size_t before = output.pos;
        const std::size_t result = ZSTD_decompressStream(context.get(), &output, &compressed);
        const bool hasMoved = compressed.pos != from || output.pos != before;
        next.packed = inputStart + compressed.pos;
        if (ZSTD_isError(result) != 0) {
            errorText = fmt::format(
                "its compressed data are damaged ({}), and what was read of them may be wrong",
                ZSTD_getErrorName(result));
            isGood = false;
            break;
        }
        isFrameOver = result == 0;
        if (!hasMoved || (isFrameOver && isOfOneFrame)) {
            break;
        }
    }
    done = output.pos;
    next.content += done;
    return isGood;
}

std::size_t ZstdInput::read(std::uint64_t offset, std::span<std::uint8_t> to) {
    if (offset >= size || !errorText.empty()) {
        return 0;
    }
    to = to.first(static_cast<std::size_t>(std::min<std::uint64_t>(to.size(), size - offset)));
    const auto behind = std::ranges::upper_bound(places, offset, {}, &Place::content);
    if (const Place& place = *(behind - 1); offset < next.content || place.content > next.content) {
        begin(place);
    }
    const std::uint64_t work = offset - next.content + to.size();
    if (work > mayDecode) {
        errorText = "it would have to be decompressed too often; \"zstd -d\" does it once";
        return 0;
    }
    mayDecode -= work;
    std::size_t done = 0;
    while (next.content < offset) {
        const std::size_t bytes = std::min<std::uint64_t>(unused.size(), offset - next.content);
        if (!decode(std::span(unused).first(bytes), done, false) || done == 0) {
            return 0;
        }
    }
    decode(to, done, false);
    return done;
}

}  // namespace station
