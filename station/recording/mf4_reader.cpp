#include "station/recording/mf4_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "station/recording/mf4_format.h"

namespace station {

namespace {

constexpr std::size_t mostDataGroups = 100;  // with bus messages; each has a window on the file

std::int64_t sumWithin(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        return a < 0 ? std::numeric_limits<std::int64_t>::min()
                     : std::numeric_limits<std::int64_t>::max();
    }
    return sum;
}

}  // namespace

/// A data group whose messages are read.
struct Mf4Reader::Stream {
    Stream(const std::string& path, mf4::Budget& budget, std::uint64_t block, bool isOpenEnd)
        : data(path, budget, block, isOpenEnd) {}

    mf4::DataBytes data;
    std::size_t idSize = 0;  ///< 0: all records are of the one group
    std::unordered_map<std::uint64_t, mf4::Group> groups;
    RecordedMessage head;  ///< the next one, if there is any
    bool hasHead = false;
};

Mf4Reader::Mf4Reader(const std::string& path)
    : filePath(path), fileSize(InputFile(path).getSize()), budget(fileSize) {
    mf4::Input input(path, budget);
    const std::span<const std::uint8_t> identification = input.view(0, mf4::identificationSize);
    mf4::Block header;
    if (identification.size() < mf4::identificationSize) {
        note("it ends within its header");
        return;
    }
    const std::string version(identification.begin() + 8, identification.begin() + 12);
    if (version[0] != '4') {
        note(fmt::format("it is an MDF of version {}, those of version 4 are read", version));
        return;
    }
    const auto flags = mf4::load<std::uint16_t>(identification.data() + mf4::unfinalizedFlagsAt);
    const bool isUnfinalized = std::memcmp(identification.data(), mf4::unfinalizedFile, 8) == 0 &&
                               (flags & mf4::lastDataLengthMissing) != 0;
    if (!input.read(mf4::headerBlock, "HD", 6, 8, header)) {
        note("it ends within its header, or it is damaged");
        return;
    }
    start = mf4::load<std::uint64_t>(header.fields.data());
    std::vector<mf4::Block> dataGroups;
    for (std::uint64_t next = header.links[0]; next != 0;) {
        mf4::Block dataGroup;
        if (!input.read(next, "DG", 4, 8, dataGroup)) {
            note(budget.blocks == 0 ? "its blocks are too many" : "a data group isn't whole");
            break;
        }
        next = dataGroup.links[0];
        dataGroups.push_back(std::move(dataGroup));
    }
    std::uint64_t last = 0;
    for (const mf4::Block& dataGroup : dataGroups) {
        last = std::max(last, dataGroup.links[2]);
    }
    for (const mf4::Block& dataGroup : dataGroups) {
        openStream(input, dataGroup, isUnfinalized && dataGroup.links[2] == last);
    }
    if (streams.empty() && !dataGroups.empty()) {
        note("it has measured values and no bus messages");
    }
    for (const auto& stream : streams) {
        advance(*stream);
    }
}

Mf4Reader::~Mf4Reader() = default;

void Mf4Reader::openStream(mf4::Input& input, const mf4::Block& dataGroup, bool isOpenEnd) {
    auto stream = std::make_unique<Stream>(filePath, budget, dataGroup.links[2], isOpenEnd);
    stream->idSize = dataGroup.fields[0];
    bool isOfBus = false;
    std::size_t groupCount = 0;
    for (std::uint64_t next = dataGroup.links[1]; next != 0;) {
        mf4::Group group;
        next = readGroup(input, next, group);
        ++groupCount;
        if (group.isUnreadable) {
            note("the data of some frames aren't in their records, which isn't read");
        }
        isOfBus = isOfBus || group.isRead() || group.kind == mf4::Group::Kind::Skipped;
        stream->groups.emplace(stream->idSize == 0 ? 0 : group.recordId, group);
    }
    if (budget.blocks == 0) {
        note("its blocks are too many");
    }
    if (!isOfBus) {
        return;
    }
    const bool isAmbiguous = stream->idSize > 8 || (stream->idSize == 0 && groupCount > 1);
    if (isAmbiguous || streams.size() == mostDataGroups) {
        note(isAmbiguous ? "a data group has records that can't be assigned to its groups"
                         : "it has too many data groups");
        return;
    }
    streams.push_back(std::move(stream));
}

/// Reads on to the next message of that data group.
void Mf4Reader::advance(Stream& stream) {
    stream.hasHead = false;
    while (true) {
        std::uint64_t recordId = 0;
        if (stream.idSize != 0) {
            const std::span<const std::uint8_t> id = stream.data.take(stream.idSize);
            if (id.empty()) {
                return end(stream, 0);
            }
            for (std::size_t i = 0; i < id.size(); ++i) {
                recordId |= std::uint64_t{id[i]} << (8 * i);
            }
        }
        const auto found = stream.groups.find(recordId);
        if (found == stream.groups.end()) {
            return end(stream, stream.idSize, "it has a record of no known group");
        }
        const mf4::Group& group = found->second;
        bytesRead += stream.idSize + group.recordSize;
        if (group.recordSize + stream.idSize == 0) {
            return end(stream, 0, "its records have no size");
        }
        if (!group.isRead()) {
            std::uint64_t size = group.recordSize;
            std::uint64_t taken = stream.idSize;
            if (group.kind == mf4::Group::Kind::Variable) {
                const std::span<const std::uint8_t> length = stream.data.take(4);
                size = length.empty() ? 0 : mf4::load<std::uint32_t>(length.data());
                taken += length.size();
                bytesRead += length.size() + size;
                if (length.empty()) {
                    return end(stream, taken);
                }
            }
            if (!stream.data.skip(size)) {
                return end(stream, taken);
            }
            skipped += group.kind == mf4::Group::Kind::Skipped ? 1 : 0;
            continue;
        }
        const std::span<const std::uint8_t> record = stream.data.take(group.recordSize);
        if (record.size() < group.recordSize) {
            return end(stream, stream.idSize);
        }
        const std::uint64_t number =
            group.busChannel.isThere() ? group.busChannel.number(record) : 0;
        if (group.kind == mf4::Group::Kind::Names) {
            const std::span<const std::uint8_t> text =
                record.subspan(group.name.at, group.name.bits / 8);
            channelOf(group.busType.number(record) == mf4::linBus ? BusType::Lin : BusType::Can,
                      number, std::string(text.begin(), std::find(text.begin(), text.end(), 0)));
            continue;
        }
        group.decode(record, stream.head);
        stream.head.utcNanoseconds = std::max<std::int64_t>(
            sumWithin(static_cast<std::int64_t>(start), stream.head.utcNanoseconds), 0);
        stream.head.channel = channelOf(
            group.kind == mf4::Group::Kind::Can ? BusType::Can : BusType::Lin, number, {});
        stream.hasHead = true;
        return;
    }
}

/// There is no more to be read of that data group, in the midst of a record if `taken` bytes of it
/// were; `reason` unless it is the end of the data.
void Mf4Reader::end(Stream& stream, std::uint64_t taken, const char* reason) {
    const std::uint64_t left = stream.data.getLeft() + taken;
    const std::string& unread = stream.data.getErrorText();
    if (reason == nullptr && !unread.empty()) {
        reason = unread.c_str();
    }
    if (reason != nullptr || left > 0) {
        note(fmt::format("{}, {} bytes were left",
                         reason != nullptr ? reason : "it ends within a message", left));
    } else if (stream.data.getMissing() > 0) {
        note(fmt::format("it was cut off between two messages, {} bytes are missing",
                         stream.data.getMissing()));
    }
}

bool Mf4Reader::next(RecordedMessage& message) {
    Stream* first = nullptr;
    for (const auto& stream : streams) {
        if (stream->hasHead &&
            (first == nullptr || stream->head.utcNanoseconds < first->head.utcNanoseconds)) {
            first = stream.get();
        }
    }
    if (first == nullptr) {
        return false;
    }
    message = first->head;
    advance(*first);
    return true;
}

double Mf4Reader::getProgress() const {
    return std::min(1.0, static_cast<double>(bytesRead) / static_cast<double>(fileSize + 1));
}

std::size_t Mf4Reader::channelOf(BusType bus, std::uint64_t number, const std::string& name) {
    number &= 0xFFFFU;
    const bool isCan = bus == BusType::Can;
    const auto [entry, isNew] =
        channelByNumber.try_emplace(number << 1 | (isCan ? 0 : 1), channels.size());
    if (isNew) {
        channels.push_back(
            {name.empty() ? fmt::format("{} {}", isCan ? "CAN" : "LIN", number) : name, bus});
    }
    return entry->second;
}

/// The first reason is the one that is kept.
void Mf4Reader::note(const std::string& text) {
    if (errorText.empty()) {
        errorText = fmt::format("{}: {}", filePath, text);
    }
}

std::unique_ptr<MessageReader> openMf4(const std::string& path) {
    InputFile file(path);
    const std::span<const std::uint8_t> bytes = file.view(0, 8);
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!text.starts_with(mf4::finalizedFile) && !text.starts_with(mf4::unfinalizedFile)) {
        return nullptr;
    }
    return std::make_unique<Mf4Reader>(path);
}

}  // namespace station
