#include "station/recording/blf_recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <utility>

#include "station/recording/bounded_name.h"
#include "station/recording/bus_record.h"

namespace station {

namespace {

constexpr std::size_t containerSize = 128 * 1024;
constexpr std::size_t longestChannelName = 1024;
constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::uint64_t nanosecondsPerMillisecond = 1'000'000;
constexpr std::uint64_t mostLate = 10 * nanosecondsPerSecond;

void putDate(std::uint8_t* at, std::uint64_t utcNanoseconds) {
    const auto seconds = static_cast<std::time_t>(utcNanoseconds / nanosecondsPerSecond);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    const std::array<int, 7> parts = {local.tm_year + 1900, local.tm_mon + 1, local.tm_wday,
                                      local.tm_mday,        local.tm_hour,    local.tm_min,
                                      local.tm_sec};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        blf::put16(at + 2 * i, static_cast<std::uint32_t>(parts[i]));
    }
    blf::put16(at + 14, static_cast<std::uint32_t>(utcNanoseconds % nanosecondsPerSecond /
                                                   nanosecondsPerMillisecond));
}

void putMark(std::uint8_t* at, const char* mark) {
    std::memcpy(at, mark, blf::markSize);
}

/// What other programs read: without what divides its parts, and what tshark 4.0 formats.
std::string plainName(const std::string& name) {
    std::string plain = name;
    std::replace_if(
        plain.begin(), plain.end(), [](char c) { return c == ';' || c == '%'; }, '_');
    return plain;
}

void fillCan(std::uint8_t* content, const CanRecord& can) {
    blf::put32(content + blf::can::id, can.id | (can.extended ? blf::can::extended : 0));
    content[blf::can::code] = can.getLengthCode();
    if (can.isFd()) {
        content[blf::can_fd::fdFlags] = blf::can_fd::isFd;
        content[blf::can_fd::length] = static_cast<std::uint8_t>(can.length);
        std::memcpy(content + blf::can_fd::data, can.data, can.length);
    } else {
        std::memcpy(content + blf::can::data, can.data, can.length);
    }
}

void fillLin(std::uint8_t* content, const LinRecord& lin) {
    content[blf::lin.id] = static_cast<std::uint8_t>(lin.id);
    content[blf::lin.length] = static_cast<std::uint8_t>(lin.length);
    std::memcpy(content + blf::lin.data, lin.data, lin.length);
    blf::put16(content + blf::lin.checksum, lin.checksum);
}

}  // namespace

BlfRecording::BlfRecording(const std::string& path, bool overwrite, const std::string& origin)
    : Recording(path, overwrite) {
    for (Container& each : containers) {
        each.objects.resize(containerSize);
        each.channelsOfRecords.reserve(containerSize /
                                       (blf::object::content + blf::can::contentSize));
    }
    uncompressedSize = blf::file_header::size;
    if (!origin.empty()) {
        putText(blf::text::comment, 0, blf::originComment + origin);
    }
    file.appendHeader(header());
    writeHead();
}

BlfRecording::~BlfRecording() {
    close();
}

std::size_t BlfRecording::addChannel(const ChannelDescription& channel) {
    channels.push_back(channel.bus);
    file.addChannel();
    const std::size_t number = channels.size();
    const std::string name = boundedName(channel.name, longestChannelName);
    const std::string plain = plainName(name);
    const bool isCan = channel.bus == BusType::Can;
    if (number <= blf::text::mostChannel) {
        const std::uint32_t bus = isCan ? blf::text::busCan : blf::text::busLin;
        putText(blf::text::ofChannel, bus << 16 | static_cast<std::uint32_t>(number) << 8,
                ";" + plain + ";");
    }
    if (number > blf::text::mostChannel || plain != name) {
        putText(
            blf::text::comment, 0,
            fmt::format("{}{} {} {}", blf::channelComment, number, isCan ? "CAN" : "LIN", name));
    }
    return number - 1;
}

void BlfRecording::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(utcNanoseconds, 0));
    const bool isKnown = channel < channels.size();
    const bool isCan = isKnown && channels[channel] == BusType::Can && size == CanRecord::size;
    const bool isLin = isKnown && channels[channel] == BusType::Lin && size == LinRecord::size;
    if ((!isCan && !isLin) || file.hasFailed() || (hasStart && time < start)) {
        file.dropRecords(channel, 1);
        return;
    }
    if (!hasStart) {
        begin(time);
    }
    last = time - start;
    std::uint8_t* content = nullptr;
    if (isCan) {
        const CanRecord can(record);
        content = can.isFd() ? putObject(blf::Type::CanFd, blf::can_fd::contentSize)
                             : putObject(blf::Type::Can, blf::can::contentSize);
        fillCan(content, can);
    } else {
        content = putObject(blf::Type::Lin, blf::linContentSize);
        fillLin(content, LinRecord(record));
    }
    blf::put16(content, static_cast<std::uint32_t>(channel + 1));  // the same place in all of them
    containers[current].channelsOfRecords.push_back(static_cast<std::uint32_t>(channel));
}

/// Of the first message.
void BlfRecording::begin(std::uint64_t utcNanoseconds) {
    hasStart = true;
    start = utcNanoseconds < mostLate
                ? 0
                : (utcNanoseconds - mostLate) / nanosecondsPerSecond * nanosecondsPerSecond;
    putText(blf::text::comment, 0,
            fmt::format("{}{} ms since 1970 UTC", blf::startComment,
                        start / nanosecondsPerMillisecond));
}

void BlfRecording::putText(std::uint32_t source, std::uint32_t details, std::string_view content) {
    // tshark 4.0 reads up to a zero, wherever that is.
    const std::size_t padded = (content.size() + 4) / 4 * 4;
    std::uint8_t* at = putObject(blf::Type::Text, blf::text::content + padded);
    blf::put32(at + blf::text::source, source);
    blf::put32(at + blf::text::details, details);
    blf::put32(at + blf::text::length, static_cast<std::uint32_t>(padded));
    std::memcpy(at + blf::text::content, content.data(), content.size());
}

/// Its content, which is zero. All sizes are multiples of 4, so that there is no filling.
std::uint8_t* BlfRecording::putObject(blf::Type type, std::size_t contentSize) {
    const std::size_t size = blf::object::content + contentSize;
    if (containers[current].used + size > containerSize) {
        passOn();
    }
    Container& filled = containers[current];
    std::uint8_t* at = filled.objects.data() + filled.used;
    filled.used += size;
    ++filled.count;
    putMark(at, blf::objectMark);
    blf::put16(at + blf::object::headerSize, blf::object::content);
    blf::put16(at + blf::object::headerVersion, 1);
    blf::put32(at + blf::object::size, static_cast<std::uint32_t>(size));
    blf::put32(at + blf::object::type, static_cast<std::uint32_t>(type));
    blf::put32(at + blf::object::timeUnit, blf::nanoseconds);
    blf::put32(at + blf::object::timeUnit + 4, 0);
    blf::put64(at + blf::object::time, last);
    std::memset(at + blf::object::content, 0, contentSize);
    return at + blf::object::content;
}

/// Has the full container compressed, and goes on in the one that was passed on first.
void BlfRecording::passOn() {
    Container& full = containers[current];
    full.packed.assign(blf::container::content, 0);
    full.isPacking = true;
    full.compressor.begin({full.objects.data(), full.used}, full.packed);
    current = (current + 1) % containers.size();
    finish(containers[current]);
}

void BlfRecording::finish(Container& block) {
    if (std::exchange(block.isPacking, false)) {
        block.compressor.wait();
        append(block);
    }
}

/// Puts the compressed container into the file, and makes it empty.
void BlfRecording::append(Container& block) {
    if (hasStart && !std::exchange(isStartInFile, true)) {
        file.patch(0, header());
    }
    std::vector<std::uint8_t>& bytes = block.packed;
    const std::size_t size = bytes.size();
    putMark(bytes.data(), blf::objectMark);
    blf::put16(bytes.data() + blf::object::headerSize, blf::object::baseSize);
    blf::put16(bytes.data() + blf::object::headerVersion, 1);
    blf::put32(bytes.data() + blf::object::size, static_cast<std::uint32_t>(size));
    blf::put32(bytes.data() + blf::object::type, static_cast<std::uint32_t>(blf::Type::Container));
    blf::put16(bytes.data() + blf::container::method, blf::container::zlib);
    blf::put32(bytes.data() + blf::container::uncompressedSize,
               static_cast<std::uint32_t>(block.used));
    bytes.resize(size + size % 4);
    file.appendBlock(bytes, block.channelsOfRecords);
    if (!file.hasFailed()) {
        objectsInFile += block.count;
        uncompressedSize += blf::container::content + block.used;
    }
    block.used = 0;
    block.count = 0;
    block.channelsOfRecords.clear();
}

void BlfRecording::appendAll() {
    for (std::size_t i = 1; i < containers.size(); ++i) {
        finish(containers[(current + i) % containers.size()]);
    }
    Container& filled = containers[current];
    if (filled.count != 0) {
        filled.packed.assign(blf::container::content, 0);
        filled.compressor.compress({filled.objects.data(), filled.used}, filled.packed);
        append(filled);
    }
}

/// Names alone wait: a file that is to be overwritten stays until there is a message.
void BlfRecording::writePending() {
    if (std::any_of(containers.begin(), containers.end(),
                    [](const Container& block) { return !block.channelsOfRecords.empty(); })) {
        appendAll();
    }
}

void BlfRecording::complete() {
    appendAll();
    file.flush();  // only what is in the file is counted
    for (std::size_t i = 0; i < channels.size(); ++i) {
        putText(blf::text::comment, 0,
                fmt::format("{}{} {} {}", blf::countsComment, i + 1,
                            channels[i] == BusType::Can ? "CAN" : "LIN", describeCounts(i)));
    }
    if (!account.run.empty()) {
        putText(blf::text::comment, 0, blf::countsComment + account.run);
    }
    appendAll();
    file.patch(0, header());
}

std::vector<std::uint8_t> BlfRecording::header() const {
    std::vector<std::uint8_t> bytes(blf::file_header::size);
    putMark(bytes.data(), blf::fileMark);
    blf::put32(bytes.data() + blf::file_header::ownSize, blf::file_header::size);
    constexpr std::array<std::uint8_t, 4> version = {2, 6, 8, 1};
    std::copy(version.begin(), version.end(), bytes.begin() + blf::file_header::formatVersion);
    blf::put64(bytes.data() + blf::file_header::fileSize,
               std::max<std::uint64_t>(file.getBytesWritten(), blf::file_header::size));
    blf::put64(bytes.data() + blf::file_header::uncompressedSize, uncompressedSize);
    blf::put32(bytes.data() + blf::file_header::objects, objectsInFile);
    if (hasStart) {
        putDate(bytes.data() + blf::file_header::start, start);
        putDate(bytes.data() + blf::file_header::end, start + last);
    }
    return bytes;
}

}  // namespace station
