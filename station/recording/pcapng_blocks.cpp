#include "station/recording/pcapng_blocks.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "station/recording/bounded_name.h"
#include "station/recording/bus_record.h"
#include "station/recording/pcapng_format.h"

namespace station {

namespace {

using namespace pcapng;

constexpr std::size_t sectionFixed = 24;  // bytes of a section's block in front of its options
constexpr std::size_t longestFrame = 65536;
constexpr std::size_t packetHeader = 8;  // bytes in front of the data, the same for both link types
constexpr std::size_t packetBlockHeader = 28;
constexpr std::size_t blockEnd = 4;
constexpr std::size_t longestOption = 1024;

/// Writes integers and bytes one behind the other; the caller has made room.
class Cursor {
  public:
    explicit Cursor(std::uint8_t* start) : at(start) {}

    void put8(std::uint64_t value) { put(static_cast<std::uint8_t>(value)); }
    void put16(std::uint64_t value) { put(static_cast<std::uint16_t>(value)); }
    void put32(std::uint64_t value) { put(static_cast<std::uint32_t>(value)); }
    void putBigEndian32(std::uint32_t value) { put32(__builtin_bswap32(value)); }
    void putZeros(std::size_t count) {
        std::memset(at, 0, count);
        at += count;
    }
    void putOption(std::size_t code, const std::string& value) {
        put16(code);
        put16(value.size());
        putBytes(value.data(), value.size());
        putZeros(padded(value.size()) - value.size());
    }
    void putBytes(const void* bytes, std::size_t size) {
        std::memcpy(at, bytes, size);
        at += size;
    }
    /// Zeros up to the next multiple of 4 behind `start`.
    void pad(const std::uint8_t* start) {
        const auto rest = static_cast<std::size_t>(at - start) % 4;
        if (rest != 0) {
            putZeros(4 - rest);
        }
    }
    std::uint8_t* getPosition() const { return at; }

  private:
    template <typename T>
    void put(T value) {
        static_assert(std::endian::native == std::endian::little);
        putBytes(&value, sizeof value);
    }

    std::uint8_t* at;
};

struct Link {
    std::uint16_t type;
    std::size_t longestPacket;
};

Link linkOf(BusType bus) {
    switch (bus) {
        case BusType::Lin:
            return {linkTypeLin, packetHeader + LinRecord::mostData};
        case BusType::Ethernet:
            return {linkTypeEthernet, longestFrame};
        default:
            return {linkTypeCan, packetHeader + CanRecord::mostData};
    }
}

/// Each line as a comment of its own: readers cut long ones.
std::vector<std::uint8_t> commentOptions(const std::string& lines) {
    std::vector<std::uint8_t> options;
    for (std::size_t from = 0; from < lines.size();) {
        const std::string line = lines.substr(from, lines.find('\n', from) - from);
        from += line.size() + 1;
        const std::size_t at = options.size();
        options.resize(at + 4 + padded(line.size()));
        Cursor(options.data() + at).putOption(1, line);
    }
    return options;
}

void putCan(Cursor& cursor, const CanRecord& can) {
    cursor.putBigEndian32(can.id | (can.extended ? 0x80000000U : 0U));
    cursor.put8(can.length);
    cursor.put8(can.isFd() ? 0x04 : 0);
    cursor.put16(0);
    if (can.length == CanRecord::mostClassicData) {  // most have so many: without a call
        cursor.putBytes(can.data, CanRecord::mostClassicData);
    } else {
        cursor.putBytes(can.data, can.length);
    }
}

void putLin(Cursor& cursor, const LinRecord& lin) {
    const std::uint32_t pid = lin.getProtectedId();
    cursor.put32(1);  // revision and three reserved bytes
    cursor.put8(lin.length << 4 | static_cast<unsigned>(lin.getChecksumModel()));
    cursor.put8(pid);
    cursor.put8(lin.checksum);
    cursor.put8(0);
    cursor.putBytes(lin.data, lin.length);
}

}  // namespace

std::vector<std::uint8_t> makeSectionHeader(const std::string& comment, std::uint64_t length) {
    const std::string application = "cmp-station";
    const std::size_t commentOption = comment.empty() ? 0 : 4 + padded(comment.size());
    const std::size_t total =
        sectionFixed + commentOption + 4 + padded(application.size()) + 4 + blockEnd;
    std::vector<std::uint8_t> block(total);
    Cursor cursor(block.data());
    cursor.put32(sectionHeader);
    cursor.put32(total);
    cursor.put32(byteOrderMagic);
    cursor.put16(1);  // version 1.0
    cursor.put16(0);
    cursor.put32(length);
    cursor.put32(length >> 32);
    if (!comment.empty()) {
        cursor.putOption(1, comment);
    }
    cursor.putOption(4, application);
    cursor.put32(0);  // end of options
    cursor.put32(total);
    return block;
}

std::optional<CommentedSection> readCommentedSection(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t textAt = sectionFixed + 4;
    constexpr std::uint16_t commentOption = 1;
    const Numbers numbers;
    if (bytes.size() < textAt || numbers.get32(bytes.data()) != sectionHeader ||
        numbers.get32(&bytes[8]) != byteOrderMagic ||
        numbers.get16(&bytes[sectionFixed]) != commentOption) {
        return std::nullopt;
    }
    const std::size_t total = numbers.get32(&bytes[4]);
    const std::size_t size = numbers.get16(&bytes[sectionFixed + 2]);
    if (total > bytes.size() || total < textAt + size + blockEnd ||
        numbers.get32(&bytes[total - blockEnd]) != total) {
        return std::nullopt;
    }
    return CommentedSection{
        total, numbers.get64(&bytes[16]),
        std::string_view(reinterpret_cast<const char*>(bytes.data()) + textAt, size)};
}

std::vector<std::uint8_t> makeInterfaceDescription(const ChannelDescription& channel) {
    const auto [linkType, longestPacket] = linkOf(channel.bus);
    const std::string name = boundedName(channel.name, longestOption);
    const std::size_t total = 16 + 4 + padded(name.size()) + 8 + 4 + blockEnd;
    std::vector<std::uint8_t> block(total);
    Cursor cursor(block.data());
    cursor.put32(1);
    cursor.put32(total);
    cursor.put16(linkType);
    cursor.put16(0);
    cursor.put32(longestPacket);
    cursor.putOption(2, name);
    cursor.putOption(9, "\x09");  // times in 10^-9 s
    cursor.put32(0);              // end of options
    cursor.put32(total);
    return block;
}

std::vector<std::uint8_t> makeInterfaceStatistics(std::size_t interface, std::uint64_t time,
                                                  const AppendFile::Counts& counts,
                                                  const std::string& lines) {
    const std::vector<std::uint8_t> comments = commentOptions(lines);
    const std::size_t total = 20 + comments.size() + 2 * 12 + 4 + blockEnd;
    std::vector<std::uint8_t> block(total);
    Cursor cursor(block.data());
    cursor.put32(5);
    cursor.put32(total);
    cursor.put32(interface);
    cursor.put32(time >> 32);
    cursor.put32(time);
    if (!comments.empty()) {
        cursor.putBytes(comments.data(), comments.size());
    }
    for (const auto& [option, count] :
         {std::pair(4, counts.written + counts.lost), std::pair(5, counts.lost)}) {
        cursor.put16(static_cast<std::uint64_t>(option));
        cursor.put16(sizeof count);
        cursor.put32(count);
        cursor.put32(count >> 32);
    }
    cursor.put32(0);  // end of options
    cursor.put32(total);
    return block;
}

std::size_t longestPacketBlock(BusType bus, std::size_t recordSize) {
    const bool fits = bus == BusType::Can   ? recordSize == CanRecord::size
                      : bus == BusType::Lin ? recordSize == LinRecord::size
                                            : recordSize <= longestFrame;
    const std::size_t longest = bus == BusType::Ethernet ? recordSize : linkOf(bus).longestPacket;
    return fits ? packetBlockHeader + padded(longest) + blockEnd : 0;
}

std::uint8_t* putPacketBlock(std::uint8_t* room, BusType bus, std::size_t interface,
                             std::int64_t utcNanoseconds, const void* record, std::size_t size) {
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(utcNanoseconds, 0));
    std::uint8_t* const start = room + packetBlockHeader;
    Cursor data(start);
    if (bus == BusType::Can) {
        putCan(data, CanRecord(record));
    } else if (bus == BusType::Lin) {
        putLin(data, LinRecord(record));
    } else {
        data.putBytes(record, size);
    }
    const auto captured = static_cast<std::size_t>(data.getPosition() - start);
    data.pad(start);
    const auto total =
        packetBlockHeader + static_cast<std::size_t>(data.getPosition() - start) + blockEnd;
    Cursor cursor(room);
    cursor.put32(6);
    cursor.put32(total);
    cursor.put32(interface);
    cursor.put32(time >> 32);
    cursor.put32(time);
    cursor.put32(captured);
    cursor.put32(captured);
    data.put32(total);
    return data.getPosition();
}

}  // namespace station
