#include "station/recording/mf4_input.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "station/recording/mf4_format.h"

namespace station::mf4 {
namespace {

constexpr std::uint64_t windowBytes = 1U << 20U;  // that InputFile reads at once
// A description of channels is written in one place, mostly, but links back and forth in it.
constexpr std::uint64_t backwards = windowBytes / 4;
constexpr std::size_t longestText = 256;
constexpr std::uint64_t mostBlocks = 200'000;
constexpr std::uint64_t packedHeaderSize = 48;  // of a DZ block, without links
constexpr std::uint64_t mostPacked = 64U << 20U;
constexpr std::uint64_t mostExpansion = 1032;  // of a byte by zlib

}  // namespace

Budget::Budget(std::uint64_t fileSize)
    : blocks(std::min(fileSize / blockHeaderSize, mostBlocks)),
      data(fileSize),
      refills(1000 + 32 * (fileSize / windowBytes)) {}

std::span<const std::uint8_t> Input::view(std::uint64_t offset, std::size_t size) {
    if (offset >= file.getSize()) {
        return {};
    }
    size = static_cast<std::size_t>(std::min<std::uint64_t>(size, file.getSize() - offset));
    if (offset < windowStart || offset + size > windowEnd) {
        if (budget.refills == 0) {
            return {};
        }
        --budget.refills;
        windowStart = offset;
        windowEnd = std::min(offset + std::max<std::uint64_t>(size, windowBytes), file.getSize());
    }
    return file.view(offset, size);
}

bool Input::read(std::uint64_t offset, const char* kind, std::size_t links, std::size_t fields,
                 Block& block) {
    block.links.assign(links, 0);
    block.fields.assign(fields, 0);
    if (offset == 0 || offset >= file.getSize() || budget.blocks == 0) {
        return false;
    }
    --budget.blocks;
    if (offset < windowStart) {
        view(offset - std::min(offset, backwards), 1);
    }
    const std::span<const std::uint8_t> header = view(offset, blockHeaderSize);
    if (header.size() < blockHeaderSize || std::memcmp(header.data(), "##", 2) != 0 ||
        std::memcmp(header.data() + 2, kind, 2) != 0) {
        return false;
    }
    const auto length = load<std::uint64_t>(header.data() + 8);
    const auto linkCount = load<std::uint64_t>(header.data() + 16);
    if (length > file.getSize() - offset || length < blockHeaderSize ||
        linkCount > (length - blockHeaderSize) / linkSize) {
        return false;
    }
    const std::size_t known = std::min<std::uint64_t>(links, linkCount);
    const std::span<const std::uint8_t> stored = view(offset + blockHeaderSize, known * linkSize);
    for (std::size_t i = 0; (i + 1) * linkSize <= stored.size(); ++i) {
        block.links[i] = load<std::uint64_t>(stored.data() + i * linkSize);
    }
    const std::uint64_t fieldsAt = blockHeaderSize + linkCount * linkSize;
    const std::span<const std::uint8_t> content =
        view(offset + fieldsAt, std::min<std::uint64_t>(fields, length - fieldsAt));
    std::copy(content.begin(), content.end(), block.fields.begin());
    return true;
}

std::string Input::readText(std::uint64_t offset) {
    Block block;
    if (!read(offset, "TX", 0, longestText, block)) {
        read(offset, "MD", 0, longestText, block);
    }
    const auto end = std::find(block.fields.begin(), block.fields.end(), 0);
    return {block.fields.begin(), end};
}

DataBytes::DataBytes(const std::string& path, Budget& budget, std::uint64_t block, bool isOpenEnd)
    : input(path, budget), openEndBlock(isOpenEnd ? block : 0), next(block) {}

std::span<const std::uint8_t> DataBytes::takeAcross(std::size_t size) {
    joined.clear();
    for (;;) {
        const std::size_t wanted = std::min<std::uint64_t>(size - joined.size(), end - position);
        const std::span<const std::uint8_t> bytes = view(position, wanted);
        joined.insert(joined.end(), bytes.begin(), bytes.end());
        position += bytes.size();
        if (joined.size() == size) {
            return joined;
        }
        if (bytes.size() < wanted || !openNext()) {
            left += joined.size();
            if (bytes.size() < wanted) {
                errorText = "it can't be read on";
            }
            return {};
        }
    }
}

bool DataBytes::skip(std::uint64_t size) {
    while (size > end - position) {
        const std::uint64_t rest = end - position;
        position = end;
        size -= rest;
        if (!openNext()) {
            left += rest;
            return false;
        }
    }
    position += size;
    return true;
}

/// Goes on to the next block that has any bytes.
bool DataBytes::openNext() {
    while (errorText.empty()) {
        if (link == links.size() && linksLeft > 0) {
            const std::size_t count = std::min<std::uint64_t>(linksLeft, linksAtOnce);
            const std::span<const std::uint8_t> stored = input.view(linksOffset, count * linkSize);
            links.clear();
            link = 0;
            for (std::size_t i = 0; (i + 1) * linkSize <= stored.size(); ++i) {
                links.push_back(load<std::uint64_t>(stored.data() + i * linkSize));
            }
            linksOffset += count * linkSize;
            linksLeft = links.size() == count ? linksLeft - count : 0;
        }
        const bool isInList = link < links.size();
        const std::uint64_t block = isInList ? links[link++] : std::exchange(next, 0);
        if (block == 0 && !isInList) {
            return false;
        }
        if (block != 0 && open(block) && position < end) {
            return true;
        }
    }
    return false;
}

bool DataBytes::open(std::uint64_t block) {
    Budget& budget = input.getBudget();
    const std::span<const std::uint8_t> header = input.view(block, blockHeaderSize);
    if (header.size() < blockHeaderSize || std::memcmp(header.data(), "##", 2) != 0) {
        errorText = "a data block isn't where its link says";
        return false;
    }
    const std::string kind(header.begin() + 2, header.begin() + 4);
    std::uint64_t length =
        std::max<std::uint64_t>(load<std::uint64_t>(header.data() + 8), blockHeaderSize);
    const auto linkCount = load<std::uint64_t>(header.data() + 16);
    const std::uint64_t available = input.getSize() - block;
    if (kind == "DT") {
        length = block == openEndBlock ? available : length;
        missing = length > available ? length - available : 0;
        length = std::min(length, available);
    }
    if (length > available || length > budget.data) {
        errorText = length > available ? "a block is longer than the file"
                                       : "data blocks lie over each other";
        return false;
    }
    budget.data -= length;
    isUnpacked = kind == "DZ";
    if (isUnpacked) {
        return unpack(block, length);
    }
    if (kind == "DT") {
        position = block + blockHeaderSize;
        end = block + length;
        return true;
    }
    const bool hasLinks = linkCount > 0 && linkCount <= (length - blockHeaderSize) / linkSize;
    const std::span<const std::uint8_t> first = input.view(block + blockHeaderSize, linkSize);
    if ((kind == "DL" || kind == "HL") && hasLinks && first.size() == linkSize) {
        next = load<std::uint64_t>(first.data());  // in both the next list
        linksOffset = block + blockHeaderSize + linkSize;
        linksLeft = kind == "DL" ? linkCount - 1 : 0;
        return false;
    }
    errorText = "a data block is of a kind that isn't read (" + kind + ")";
    return false;
}

/// The data of a DZ block into `unpacked`.
bool DataBytes::unpack(std::uint64_t block, std::uint64_t length) {
    errorText = "a compressed data block is damaged";
    position = end = 0;
    const std::span<const std::uint8_t> bytes = input.view(block, std::min(length, mostPacked));
    if (bytes.size() < packedHeaderSize || std::memcmp(&bytes[24], "DT", 2) != 0) {
        return false;
    }
    const bool isTransposed = bytes[26] == 1;
    const std::uint64_t columns = load<std::uint32_t>(&bytes[28]);
    const auto size = load<std::uint64_t>(&bytes[32]);
    const auto packedSize = load<std::uint64_t>(&bytes[40]);
    if (bytes[26] > 1 || packedSize > bytes.size() - packedHeaderSize || size > mostPacked ||
        size > packedSize * mostExpansion || (isTransposed && columns == 0)) {
        return false;
    }
    std::vector<std::uint8_t> plain(size);
    uLongf plainSize = plain.size();
    const auto* packed = bytes.data() + packedHeaderSize;
    if (uncompress(plain.data(), &plainSize, packed, packedSize) != Z_OK || plainSize != size) {
        return false;
    }
    errorText.clear();
    end = size;
    unpacked = plain;
    const std::uint64_t rows = isTransposed ? size / columns : 0;
    for (std::uint64_t i = 0; i < rows * columns; ++i) {
        unpacked[i % rows * columns + i / rows] = plain[i];
    }
    return true;
}

}  // namespace station::mf4
