#include "station/recording/mf4_groups.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "station/recording/bus_record.h"
#include "station/recording/message_record.h"
#include "station/recording/mf4_format.h"

namespace station::mf4 {
namespace {

constexpr std::uint64_t largestRecord = 64 * 1024;  // of a group that is read
constexpr std::uint16_t variableGroup = 0x1;
constexpr std::uint8_t linearConversion = 1;
/// In nanoseconds, or the nearest there is.
std::int64_t nanosecondsOf(long double seconds) {
    constexpr auto most = static_cast<long double>(std::numeric_limits<std::int64_t>::max());
    const long double nanoseconds = std::nearbyint(seconds * 1e9L);
    if (!(nanoseconds > -most)) {  // nor a number
        return std::numeric_limits<std::int64_t>::min();
    }
    return nanoseconds < most ? static_cast<std::int64_t>(nanoseconds)
                              : std::numeric_limits<std::int64_t>::max();
}

/// A CN block, as far as it is of interest here.
struct Channel {
    std::string name;
    std::uint64_t composition = 0;
    std::uint64_t conversion = 0;
    std::uint8_t type = 0;
    Field field;
};

/// Returns the place of the next channel.
std::uint64_t readChannel(Input& input, std::uint64_t offset, Channel& channel) {
    Block block;
    if (!input.read(offset, "CN", 8, 16, block)) {
        return 0;
    }
    channel.name = input.readText(block.links[2]);
    channel.composition = block.links[1];
    channel.conversion = block.links[4];
    channel.type = block.fields[0];
    channel.field.type = block.fields[2];
    channel.field.bit = block.fields[3];
    channel.field.at = load<std::uint32_t>(&block.fields[4]);
    channel.field.bits = load<std::uint32_t>(&block.fields[8]);
    return block.links[0];
}

/// Whether the field is of that sort and inside of a record of that size.
bool isInside(const Field& field, bool isNumber, std::uint64_t recordSize) {
    const std::uint64_t bits = std::uint64_t{field.bit} + field.bits;
    const bool fits = field.at + (bits + 7) / 8 <= recordSize && field.bits > 0;
    return fits && (isNumber ? field.bit < 8 && bits <= 64 && field.type <= floatBig
                             : field.bit == 0 && field.type > floatBig);
}

void readTime(Input& input, const Channel& channel, std::uint64_t recordSize, TimeField& time) {
    const Field& field = channel.field;
    const bool isFloat = field.type == floatLittle || field.type == floatBig;
    const bool isOfSize = !isFloat || (field.bit == 0 && (field.bits == 32 || field.bits == 64));
    if (!isInside(field, true, recordSize) || !isOfSize) {
        return;
    }
    time.field = field;
    Block conversion;
    if (input.read(channel.conversion, "CC", 0, 40, conversion) &&
        conversion.fields[0] == linearConversion) {
        time.offset = std::bit_cast<double>(load<std::uint64_t>(&conversion.fields[24]));
        time.factor = std::bit_cast<double>(load<std::uint64_t>(&conversion.fields[32]));
    }
}

Field Group::*memberNamed(const std::string& name) {
    static constexpr std::pair<const char*, Field Group::*> members[] = {
        {"BusChannel", &Group::busChannel},
        {"ID", &Group::id},
        {"IDE", &Group::extended},
        {"DLC", &Group::lengthCode},
        {"DataLength", &Group::length},
        {"DataBytes", &Group::data},
        {"Checksum", &Group::checksum},
        {"BusType", &Group::busType},
        {"Name", &Group::name}};
    for (const auto& [known, member] : members) {
        if (name == known) {
            return member;
        }
    }
    return nullptr;
}

Group::Kind kindOf(const std::string& frame) {
    if (frame == "CAN_DataFrame") {
        return Group::Kind::Can;
    }
    if (frame == "LIN_Frame") {
        return Group::Kind::Lin;
    }
    if (frame == namesGroup) {
        return Group::Kind::Names;
    }
    const bool isOtherEvent = frame.starts_with("CAN_") || frame.starts_with("LIN_");
    return isOtherEvent ? Group::Kind::Skipped : Group::Kind::Other;
}

/// Channels are named after the frame that they belong to, a point between.
void takeOver(const Channel& channel, std::string frame, Group& group) {
    const std::size_t point = channel.name.find('.');
    const std::string name =
        point == std::string::npos ? channel.name : channel.name.substr(point + 1);
    if (point != std::string::npos || frame.empty()) {
        frame = channel.name.substr(0, point);
    }
    const Group::Kind kind = kindOf(frame);
    if (kind != Group::Kind::Other && group.kind == Group::Kind::Other) {
        group.kind = kind;
    }
    Field Group::*const member = memberNamed(name);
    if (member == nullptr || kind != group.kind) {
        return;
    }
    const bool isNumber = member != &Group::data && member != &Group::name;
    if (channel.type != variableLength && isInside(channel.field, isNumber, group.recordSize)) {
        group.*member = channel.field;
    }
}

bool isComplete(const Group& group) {
    if (group.recordSize > largestRecord) {
        return false;
    }
    if (group.kind == Group::Kind::Names) {
        return group.busChannel.isThere() && group.busType.isThere() && group.name.isThere();
    }
    return group.id.isThere() && group.data.isThere() &&
           (group.length.isThere() || group.lengthCode.isThere());
}

}  // namespace

std::uint64_t Field::number(std::span<const std::uint8_t> record) const {
    const std::size_t count = (bit + bits + 7) / 8;
    const bool isBig = type == unsignedBig || type == signedBig || type == floatBig;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8 | record[at + (isBig ? i : count - 1 - i)];
    }
    value >>= bit;
    return bits == 64 ? value : value & ((std::uint64_t{1} << bits) - 1);
}

std::int64_t TimeField::nanoseconds(std::span<const std::uint8_t> record) const {
    if (!field.isThere()) {
        return 0;
    }
    const std::uint64_t bits = field.number(record);
    if (field.type == floatLittle || field.type == floatBig) {
        const double value = field.bits == 64
                                 ? std::bit_cast<double>(bits)
                                 : std::bit_cast<float>(static_cast<std::uint32_t>(bits));
        return nanosecondsOf(offset + static_cast<long double>(value) * factor);
    }
    const unsigned unused = 64 - field.bits;
    const bool isSigned = field.type == signedLittle || field.type == signedBig;
    const std::int64_t number = isSigned ? static_cast<std::int64_t>(bits << unused) >> unused
                                         : static_cast<std::int64_t>(bits);
    // The usual case, and exact: the factor is the nearest number there is to the decimal one.
    if (factor == 1e-9 && offset == 0.0) {
        return number;
    }
    return nanosecondsOf(offset + static_cast<long double>(number) * factor);
}

void Group::decode(std::span<const std::uint8_t> record, RecordedMessage& message) const {
    const bool isCan = kind == Kind::Can;
    const std::size_t most = isCan ? CanFrame::mostData : LinFrame::mostData;
    const std::size_t stored = length.isThere()
                                   ? static_cast<std::size_t>(length.number(record))
                                   : CanRecord::lengthOfCode[lengthCode.number(record) %
                                                             std::size(CanRecord::lengthOfCode)];
    const std::size_t count = std::min({stored, most, std::size_t{data.bits} / 8});
    const std::uint64_t identifier = id.number(record);
    const auto word = static_cast<std::uint32_t>(identifier);
    message.utcNanoseconds = time.nanoseconds(record);
    if (isCan) {
        const bool isMarked =
            extended.isThere() ? extended.number(record) != 0 : (identifier >> 31 & 1U) != 0;
        setCanRecord(message, word, isMarked || (word & CanFrame::identifierMask) > 0x7FF,
                     record.subspan(data.at, count));
    } else {
        const std::uint64_t sum = checksum.isThere() ? checksum.number(record) : 0;
        setLinRecord(message, word, static_cast<std::uint8_t>(sum), record.subspan(data.at, count));
    }
}

std::uint64_t readGroup(Input& input, std::uint64_t offset, Group& group) {
    Block block;
    if (!input.read(offset, "CG", 2, 32, block)) {
        return 0;
    }
    group.recordId = load<std::uint64_t>(&block.fields[0]);
    const auto flags = load<std::uint16_t>(&block.fields[16]);
    if ((flags & variableGroup) != 0) {
        group.kind = Group::Kind::Variable;
        return block.links[0];
    }
    const std::uint64_t dataSize = load<std::uint32_t>(&block.fields[24]);
    group.recordSize = dataSize;
    for (std::uint64_t next = block.links[1]; next != 0;) {
        Channel channel;
        next = readChannel(input, next, channel);
        if (channel.type == master) {
            readTime(input, channel, dataSize, group.time);
            continue;
        }
        takeOver(channel, "", group);
        for (std::uint64_t member = channel.composition; member != 0;) {
            Channel part;
            member = readChannel(input, member, part);
            takeOver(part, channel.name, group);
        }
    }
    if (group.isRead() && !isComplete(group)) {
        group.kind = Group::Kind::Skipped;
        group.isUnreadable = true;
    } else if (group.kind == Group::Kind::Other && (flags & busEvent) != 0) {
        group.kind = Group::Kind::Skipped;
    }
    group.recordSize += load<std::uint32_t>(&block.fields[28]);
    return block.links[0];
}

}  // namespace station::mf4
