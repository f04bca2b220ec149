#include "station/recording/mf4_recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <initializer_list>
#include <span>

#include "station/errors.h"
#include "station/recording/bounded_name.h"
#include "station/recording/bus_record.h"
#include "station/recording/mf4_blocks.h"

namespace station {
namespace mf4 {
namespace {

constexpr std::size_t mostChannels = 255;

// Places of fields behind a block's start.
constexpr std::size_t cyclesAt = blockHeaderSize + 6 * linkSize + 8;

enum GroupIndex : std::size_t { classicCan, flexibleCan, linFrames, channelNames };

constexpr std::array<Member, 10> canMembersWith(std::uint32_t dataBits) {
    return {{{"BusChannel", 8, 8},
             {"ID", 9, 29},
             {"IDE", 13, 1},
             {"DLC", 14, 4},
             {"DataLength", 15, 8},
             {"Dir", 16, 1},
             {"EDL", 17, 1},
             {"BRS", 18, 1},
             {"ESI", 19, 1},
             {"DataBytes", 20, dataBits, byteArray}}};
}
constexpr auto canMembers = canMembersWith(64);
constexpr auto fdMembers = canMembersWith(512);
constexpr Member linMembers[] = {{"BusChannel", 8, 8},
                                 {"ID", 9, 6},
                                 {"Dir", 10, 1},
                                 {"ReceivedDataByteCount", 11, 8},
                                 {"DataLength", 12, 8},
                                 {"Checksum", 13, 8},
                                 {"DataBytes", 14, 64, byteArray}};
constexpr Member nameMembers[] = {
    {"BusChannel", 0, 8}, {"BusType", 1, 8}, {"Name", 2, nameSize * 8, textUtf8}};

struct GroupLayout {
    const char* frame;        ///< name of the structure, and in front of its members'
    const char* acquisition;  ///< differs between groups of one frame
    std::uint8_t bus;         ///< 0: no bus event
    std::span<const Member> members;

    std::uint32_t recordSize() const { return members.back().at + members.back().bits / 8; }
};

constexpr std::array<GroupLayout, Mf4Recording::groupCount> groups = {{
    {"CAN_DataFrame", "CAN_DataFrame", canBus, canMembers},
    {"CAN_DataFrame", "CAN_DataFrame (FD)", canBus, fdMembers},
    {"LIN_Frame", "LIN_Frame", linBus, linMembers},
    {namesGroup, namesGroup, 0, nameMembers},
}};

std::uint8_t recordId(std::size_t group) {
    return static_cast<std::uint8_t>(group + 1);
}

std::uint64_t addGroup(Blocks& blocks, std::uint64_t next, std::size_t index) {
    const GroupLayout& group = groups[index];
    const bool isBusEvent = group.bus != 0;
    const std::uint32_t channelFlags = isBusEvent ? busEventChannel : 0;
    std::uint64_t first = 0;
    for (std::size_t i = group.members.size(); i-- > 0;) {
        const Member& member = group.members[i];
        first = addChannelBlock(blocks, first, 0, std::string(group.frame) + '.' + member.name,
                                fixedLength, member, channelFlags);
    }
    std::uint64_t source = 0;
    if (isBusEvent) {
        const std::uint32_t bits = (group.recordSize() - timeSize) * 8;
        first = addChannelBlock(blocks, 0, first, group.frame, fixedLength,
                                {"", timeSize, bits, byteArray}, channelFlags);
        first = addMaster(blocks, first);
        source = addSource(blocks, group.bus == canBus ? "CAN" : "LIN", group.bus);
    }
    const std::uint64_t acquisition = blocks.addText("TX", group.acquisition);
    return blocks.add("CG", {next, first, acquisition, source, 0, 0},
                      Fields()
                          .put<std::uint64_t>(recordId(index))
                          .put<std::uint64_t>(0)  // cycle count
                          .put<std::uint16_t>(isBusEvent ? busEvent | plainBusEvent : 0)
                          .put<std::uint16_t>('.')
                          .zeros(4)
                          .put(group.recordSize())
                          .zeros(4));  // no invalidation bytes
}

}  // namespace
}  // namespace mf4

Mf4Recording::Mf4Recording(const std::string& path, bool overwrite, const std::string& originText)
    : Recording(path, overwrite),
      origin(originText.empty() ? "" : " From " + mf4::escaped(originText) + ".") {
    using namespace mf4;
    appendPieces(file, identification(false));
    Blocks blocks(headerBlock);
    historyBlock = addHeader(blocks, "Recorded." + origin);
    std::uint64_t next = 0;
    for (std::size_t i = groupCount; i-- > 0;) {
        next = groupBlocks[i] = addGroup(blocks, next, i);
    }
    dataBlock = addData(blocks, next, 1).data;
    appendPieces(file, blocks.bytes);
    writeHead();
}

std::size_t Mf4Recording::addChannel(const ChannelDescription& channel) {
    using namespace mf4;
    if (channels.size() == mostChannels) {
        throw FileError(
            fmt::format("Cannot record channel \"{}\" to \"{}\": .mf4 holds {} "
                        "channels. Record to a .pcapng file too.",
                        channel.name, getPath(), mostChannels));
    }
    channels.push_back(channel);
    file.addChannel();
    Fields record;
    record.put(recordId(channelNames)).put(static_cast<std::uint8_t>(channels.size()));
    record.put<std::uint8_t>(channel.bus == BusType::Can ? canBus : linBus).zeros(nameSize);
    const std::string name = boundedName(channel.name, nameSize);
    std::memcpy(record.bytes.data() + 3, name.data(), name.size());
    appendPieces(file, record.bytes);
    ++cycles[channelNames];
    return channels.size() - 1;
}

void Mf4Recording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    using namespace mf4;
    const bool isKnown = channel < channels.size();
    if (isKnown && channels[channel].bus == BusType::Can && size == CanRecord::size) {
        const CanRecord can(record);
        const std::size_t room = can.isFd() ? CanRecord::mostData : CanRecord::mostClassicData;
        std::uint8_t* at = begin(can.isFd() ? flexibleCan : classicCan, channel, utcNanoseconds);
        if (at == nullptr) {
            return;
        }
        store(at + 9, can.id);
        at[13] = can.extended ? 1 : 0;
        at[14] = can.getLengthCode();
        at[15] = static_cast<std::uint8_t>(can.length);
        at[16] = 0;  // received
        at[17] = can.isFd() ? 1 : 0;
        at[18] = 0;  // bit rate switch and error state aren't in the record
        at[19] = 0;
        std::memcpy(at + 20, can.data, can.length);
        std::memset(at + 20 + can.length, 0, room - can.length);
        file.endRecord(at + 20 + room);
    } else if (isKnown && channels[channel].bus == BusType::Lin && size == LinRecord::size) {
        const LinRecord frame(record);
        std::uint8_t* at = begin(linFrames, channel, utcNanoseconds);
        if (at == nullptr) {
            return;
        }
        at[9] = static_cast<std::uint8_t>(frame.id);
        at[10] = 0;  // received
        at[11] = static_cast<std::uint8_t>(frame.length);
        at[12] = static_cast<std::uint8_t>(frame.length);
        at[13] = frame.checksum;
        std::memcpy(at + 14, frame.data, frame.length);
        std::memset(at + 14 + frame.length, 0, LinRecord::mostData - frame.length);
        file.endRecord(at + 14 + LinRecord::mostData);
    } else {
        file.dropRecords(channel, 1);
    }
}

/// The room behind the record's identifier, with time and BusChannel in it; null if it can't be
/// written.
std::uint8_t* Mf4Recording::begin(std::size_t group, std::size_t channel,
                                  std::int64_t utcNanoseconds) {
    using namespace mf4;
    const std::int64_t time = std::max<std::int64_t>(utcNanoseconds, 0);
    if (!start) {
        start = patchStart(file, historyBlock, time);
    }
    std::uint8_t* room = file.beginRecord(channel, 1 + groups[group].recordSize());
    if (room == nullptr) {
        return nullptr;
    }
    ++cycles[group];
    *room++ = recordId(group);
    store(room, time - *start);
    room[timeSize] = static_cast<std::uint8_t>(channel + 1);
    return room;
}

void Mf4Recording::complete() {
    using namespace mf4;
    if (!file.flush()) {
        return;
    }
    const std::uint64_t end = file.getBytesWritten();
    const std::uint64_t comment = appendComment(end);
    patchNumber(file, dataBlock + lengthAt, end - dataBlock);
    for (std::size_t i = 0; i < groupCount; ++i) {
        patchNumber(file, groupBlocks[i] + cyclesAt, cycles[i]);
    }
    patchNumber(file, headerBlock + headerCommentAt, comment);
    file.patch(0, identification(true));
}

/// Appends the HD comment behind the records, which end at `end`. Returns its offset.
std::uint64_t Mf4Recording::appendComment(std::uint64_t end) {
    using namespace mf4;
    std::string text = fmt::format(
        "<HDcomment xmlns=\"{}\"><TX>Recorded by cmp-station.{}</TX><common_properties>",
        xmlNamespace, origin);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const AppendFile::Counts& counts = file.getChannelCounts()[i];
        text += fmt::format(
            "<e name=\"BusChannel.{0}\">{1}</e>"
            "<e name=\"BusChannel.{0}.Recorded\" type=\"integer\">{2}</e>"
            "<e name=\"BusChannel.{0}.Lost\" type=\"integer\">{3}</e>",
            i + 1, escaped(channels[i].name), counts.written, counts.lost);
        if (i < account.channels.size()) {
            text += fmt::format("<e name=\"BusChannel.{}.Account\">{}</e>", i + 1,
                                escaped(account.channels[i]));
        }
    }
    if (!account.run.empty()) {
        text += fmt::format("<e name=\"Account\">{}</e>", escaped(account.run));
    }
    text += "</common_properties></HDcomment>";
    const std::uint64_t begin = (end + 7) / 8 * 8;
    appendPieces(file, std::vector<std::uint8_t>(begin - end));
    Blocks blocks(begin);
    const std::uint64_t comment = blocks.addText("MD", text);
    appendPieces(file, blocks.bytes);
    return comment;
}

}  // namespace station
