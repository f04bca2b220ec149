#include "station/recording/mf4_blocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace station::mf4 {

std::uint64_t Blocks::add(const char* id, std::initializer_list<std::uint64_t> links,
                          const Fields& fields) {
    const std::size_t at = bytes.size();
    const std::size_t linksEnd = at + blockHeaderSize + links.size() * linkSize;
    bytes.resize((linksEnd + fields.bytes.size() + 7) / 8 * 8);
    std::memcpy(&bytes[at], "##", 2);
    std::memcpy(&bytes[at + 2], id, 2);
    store<std::uint64_t>(&bytes[at + lengthAt], bytes.size() - at);
    store<std::uint64_t>(&bytes[at + 16], links.size());
    std::size_t link = at + blockHeaderSize;
    for (const std::uint64_t target : links) {
        store(&bytes[link], target);
        link += linkSize;
    }
    std::copy(fields.bytes.begin(), fields.bytes.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(linksEnd));
    return offset + at;
}

std::uint64_t Blocks::addText(const char* id, const std::string& text) {
    Fields fields;
    fields.bytes.assign(text.begin(), text.end());
    return add(id, {}, fields.zeros(1));
}

std::uint64_t addChannelBlock(Blocks& blocks, std::uint64_t next, std::uint64_t composition,
                              const std::string& name, ChannelType type, const Member& member,
                              std::uint32_t flags, std::uint64_t conversion, std::uint64_t unit,
                              std::uint64_t comment) {
    const std::uint64_t text = blocks.addText("TX", name);
    return blocks.add("CN", {next, composition, text, 0, conversion, 0, unit, comment},
                      Fields()
                          .put<std::uint8_t>(type)
                          .put<std::uint8_t>(type == master ? 1 : 0)  // of time
                          .put<std::uint8_t>(member.type)
                          .put<std::uint8_t>(0)  // bit in the byte
                          .put(member.at)
                          .put(member.bits)
                          .put(flags)
                          .zeros(8)     // invalidation bit; precision; attachments
                          .zeros(48));  // ranges
}

std::uint64_t addMaster(Blocks& blocks, std::uint64_t next) {
    const std::uint64_t unit = blocks.addText("TX", "s");
    const std::uint64_t conversion = blocks.add("CC", {0, unit, 0, 0},
                                                Fields()
                                                    .put<std::uint8_t>(1)  // linear
                                                    .zeros(3)              // precision, flags
                                                    .put<std::uint16_t>(0)
                                                    .put<std::uint16_t>(2)
                                                    .zeros(16)  // range
                                                    .put(std::bit_cast<std::uint64_t>(0.0))
                                                    .put(std::bit_cast<std::uint64_t>(1e-9)));
    return addChannelBlock(blocks, next, 0, "Timestamp", master, {"", 0, 64, signedLittle}, 0,
                           conversion, unit);
}

std::uint64_t addSource(Blocks& blocks, const std::string& name, std::uint8_t bus) {
    const std::uint64_t text = blocks.addText("TX", name);
    return blocks.add("SI", {text, text, 0}, Fields().put<std::uint8_t>(2).put(bus).zeros(6));
}

std::uint64_t addHeader(Blocks& blocks, const std::string& comment) {
    blocks.add("HD", {0, 0, 0, 0, 0, 0}, Fields().zeros(32));
    const std::uint64_t text = blocks.addText(
        "MD", fmt::format("<FHcomment xmlns=\"{}\"><TX>{}</TX><tool_id>cmp-station</tool_id>"
                          "<tool_vendor>Kestrova</tool_vendor><tool_version>0.1</tool_version>"
                          "</FHcomment>",
                          xmlNamespace, comment));
    const std::uint64_t history = blocks.add("FH", {0, text}, Fields().zeros(16));
    blocks.setLink(headerBlock + blockHeaderSize + linkSize, history);
    return history;
}

DataPlaces addData(Blocks& blocks, std::uint64_t firstGroup, std::uint8_t recordIdSize) {
    const std::uint64_t group =
        blocks.add("DG", {0, firstGroup, 0, 0}, Fields().put(recordIdSize).zeros(7));
    const std::uint64_t data = blocks.add("DT", {}, {});
    blocks.setLink(group + dataLinkAt, data);
    blocks.setLink(headerBlock + blockHeaderSize, group);
    return {group, data};
}

std::vector<std::uint8_t> identification(bool isFinalized) {
    const std::string text =
        std::string(isFinalized ? finalizedFile : unfinalizedFile) + "4.11    " + "cmp-stat";
    Fields fields;
    fields.bytes.assign(text.begin(), text.end());
    fields.zeros(4).put<std::uint16_t>(411).zeros(30);
    fields.put<std::uint16_t>(isFinalized ? 0 : cycleCountsMissing | lastDataLengthMissing);
    return fields.zeros(2).bytes;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '&':
                result += "&amp;";
                break;
            default:
                result += static_cast<unsigned char>(c) < 0x20U ? ' ' : c;
        }
    }
    return result;
}

void appendPieces(AppendFile& file, const std::vector<std::uint8_t>& bytes) {
    constexpr auto piece = static_cast<std::ptrdiff_t>(AppendFile::largestPiece);
    for (auto from = bytes.begin(); from != bytes.end();) {
        const auto to = from + std::min<std::ptrdiff_t>(piece, bytes.end() - from);
        file.appendHeader({from, to});
        from = to;
    }
}

void patchNumber(AppendFile& file, std::uint64_t offset, std::uint64_t value) {
    std::vector<std::uint8_t> bytes(sizeof value);
    store(bytes.data(), value);
    file.patch(offset, bytes);
}

std::int64_t patchStart(AppendFile& file, std::uint64_t history, std::int64_t utcNanoseconds) {
    const std::int64_t start = utcNanoseconds / nanosecondsPerSecond * nanosecondsPerSecond;
    patchNumber(file, headerBlock + headerStartAt, static_cast<std::uint64_t>(start));
    patchNumber(file, history + historyTimeAt, static_cast<std::uint64_t>(start));
    return start;
}

}  // namespace station::mf4
