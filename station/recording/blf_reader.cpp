#include "station/recording/blf_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <limits>
#include <utility>

#include "station/recording/blf_format.h"
#include "station/recording/message_record.h"

namespace station {
namespace {

constexpr std::int64_t perMillisecond = 1'000'000;

/// False for none that there is.
bool readDate(const std::uint8_t* at, std::tm& date, std::int64_t& milliseconds) {
    date = {};
    date.tm_year = static_cast<int>(blf::get16(at)) - 1900;
    date.tm_mon = static_cast<int>(blf::get16(at + 2)) - 1;
    date.tm_mday = static_cast<int>(blf::get16(at + 6));
    date.tm_hour = static_cast<int>(blf::get16(at + 8));
    date.tm_min = static_cast<int>(blf::get16(at + 10));
    date.tm_sec = static_cast<int>(blf::get16(at + 12));
    date.tm_isdst = -1;
    milliseconds = blf::get16(at + 14);
    return date.tm_year >= 70 && date.tm_year < 2262 - 1900 && date.tm_mon >= 0 &&
           date.tm_mon < 12 && date.tm_mday >= 1 && date.tm_mday <= 31 && date.tm_hour < 24 &&
           date.tm_min < 60 && date.tm_sec < 62 && milliseconds < 1000;
}

/// Takes the number that `text` begins with off it.
template <typename Number>
bool takeNumber(std::string_view& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

bool takeWord(std::string_view& text, std::string_view word) {
    const bool isThere = text.substr(0, word.size()) == word;
    text.remove_prefix(isThere ? word.size() : 0);
    return isThere;
}

}  // namespace

BlfReader::BlfReader(std::unique_ptr<InputFile> inputFile) : objects(std::move(inputFile)) {
    const Bytes header = objects.getFileHeader();
    std::tm date{};
    std::int64_t milliseconds = 0;
    if (readDate(&header[blf::file_header::start], date, milliseconds)) {
        std::tm asUtc = date;
        startLocalMs = ::timegm(&asUtc) * 1000 + milliseconds;
        start = std::max<std::int64_t>(::mktime(&date) * 1000 + milliseconds, 0) * perMillisecond;
    }
}

bool BlfReader::next(RecordedMessage& message) {
    for (;;) {
        const Bytes object = objects.next();
        skipped = unusable + objects.getPassedOver();
        if (object.empty()) {
            errorText = objects.getErrorText();
            return false;
        }
        if (take(object, message)) {
            return true;
        }
    }
}

bool BlfReader::skip() {
    ++unusable;
    return false;
}

/// Whether it was a message.
bool BlfReader::take(Bytes object, RecordedMessage& message) {
    const auto type = static_cast<blf::Type>(blf::get32(&object[blf::object::type]));
    const std::size_t headerSize = blf::get16(&object[blf::object::headerSize]);
    if (headerSize < blf::object::content || headerSize > object.size()) {
        return skip();
    }
    const Bytes content = object.subspan(headerSize);
    if (type == blf::Type::Text) {
        takeText(content);
        return false;
    }
    const std::uint64_t time = blf::get64(&object[blf::object::time]);
    const std::uint64_t unit =
        blf::get32(&object[blf::object::timeUnit]) == blf::tenMicroseconds ? 10'000 : 1;
    if (time >
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - start) / unit) {
        return skip();
    }
    message.utcNanoseconds = start + static_cast<std::int64_t>(time * unit);
    switch (type) {
        case blf::Type::CanFd:
            return takeCanFd(content, message);
        case blf::Type::CanFd64:
            return takeCanFd64(content, message);
        case blf::Type::Lin:
            return takeLin(content, blf::lin, message);
        case blf::Type::Lin2:
            return takeLin(content, blf::lin2, message);
        default:
            return takeCan(content, message);
    }
}

bool BlfReader::takeCan(Bytes content, RecordedMessage& message) {
    if (content.size() < blf::can::contentSize ||
        (content[blf::can::flags] & blf::can::remote) != 0) {
        return skip();
    }
    return putCan(
        message, blf::get16(&content[blf::can::channel]), blf::get32(&content[blf::can::id]),
        std::min<std::size_t>(content[blf::can::code], 8), content.subspan(blf::can::data));
}

bool BlfReader::takeCanFd(Bytes content, RecordedMessage& message) {
    if (content.size() < blf::can_fd::data || (content[blf::can::flags] & blf::can::remote) != 0) {
        return skip();
    }
    return putCan(message, blf::get16(&content[blf::can::channel]),
                  blf::get32(&content[blf::can::id]), content[blf::can_fd::length],
                  content.subspan(blf::can_fd::data));
}

bool BlfReader::takeCanFd64(Bytes content, RecordedMessage& message) {
    if (content.size() < blf::can_fd64::data ||
        (blf::get32(&content[blf::can_fd64::flags]) & blf::can_fd64::remote) != 0) {
        return skip();
    }
    return putCan(message, content[blf::can_fd64::channel], blf::get32(&content[blf::can_fd64::id]),
                  content[blf::can_fd64::length], content.subspan(blf::can_fd64::data));
}

/// `data` goes on to the end of the object.
bool BlfReader::putCan(RecordedMessage& message, std::size_t channel, std::uint32_t id,
                       std::size_t length, Bytes data) {
    if (length > std::min(data.size(), CanFrame::mostData)) {
        return skip();
    }
    setCanRecord(message, id, (id & blf::can::extended) != 0, data.first(length));
    message.channel = placeOf(BusType::Can, channel);
    return true;
}

bool BlfReader::takeLin(Bytes content, const blf::LinPlaces& at, RecordedMessage& message) {
    if (content.size() < at.leastSize) {
        return skip();
    }
    const std::size_t length = std::min<std::size_t>(content[at.length], LinFrame::mostData);
    setLinRecord(message, content[at.id], content[at.checksum], content.subspan(at.data, length));
    message.channel = placeOf(BusType::Lin, blf::get16(&content[at.channel]));
    return true;
}

void BlfReader::takeText(Bytes content) {
    if (content.size() < blf::text::content) {
        return;
    }
    const Bytes bytes = content.subspan(blf::text::content);
    const std::size_t stated =
        std::min<std::size_t>(blf::get32(&content[blf::text::length]), bytes.size());
    std::string_view words(reinterpret_cast<const char*>(bytes.data()), stated);
    words = words.substr(0, words.find('\0'));
    const std::uint32_t source = blf::get32(&content[blf::text::source]);
    const std::uint32_t details = blf::get32(&content[blf::text::details]);
    if (source == blf::text::ofChannel) {
        const std::uint32_t bus = details >> 16 & 0xFFU;
        const std::size_t semicolon = words.find(';');
        if ((bus == blf::text::busCan || bus == blf::text::busLin) && semicolon != words.npos) {
            words.remove_prefix(semicolon + 1);
            name(bus == blf::text::busCan ? BusType::Can : BusType::Lin, details >> 8 & 0xFFU,
                 words.substr(0, words.find(';')));
        }
    } else if (source == blf::text::comment && takeWord(words, blf::startComment)) {
        takeStart(words);
    } else if (source == blf::text::comment && takeWord(words, blf::channelComment)) {
        takeChannel(words);
    }
}

/// It counts if it is the header's time but for a zone's offset: another program may have kept the
/// comment in a file with another start.
void BlfReader::takeStart(std::string_view words) {
    constexpr std::int64_t quarterMs = 15 * 60 * 1000;
    constexpr std::int64_t mostOffsetMs = 26 * 4 * quarterMs;
    std::int64_t ms = 0;
    if (!takeNumber(words, ms) || ms < 0 ||
        ms > std::numeric_limits<std::int64_t>::max() / perMillisecond) {
        return;
    }
    const std::int64_t offset = startLocalMs - ms;
    if (offset % quarterMs == 0 && offset >= -mostOffsetMs && offset <= mostOffsetMs) {
        start = ms * perMillisecond;
    }
}

void BlfReader::takeChannel(std::string_view words) {
    std::uint16_t number = 0;
    if (takeNumber(words, number)) {
        if (takeWord(words, " CAN ")) {
            name(BusType::Can, number, words);
        } else if (takeWord(words, " LIN ")) {
            name(BusType::Lin, number, words);
        }
    }
}

void BlfReader::name(BusType bus, std::size_t number, std::string_view channelName) {
    if (!channelName.empty()) {
        channels[placeOf(bus, number)].name = channelName;
    }
}

std::size_t BlfReader::placeOf(BusType bus, std::size_t number) {
    std::vector<std::size_t>& known = places[bus == BusType::Can ? 0 : 1];
    if (number >= known.size()) {
        known.resize(number + 1, unknown);
    }
    if (known[number] == unknown) {
        known[number] = channels.size();
        channels.push_back(
            {fmt::format("{} {}", bus == BusType::Can ? "CAN" : "LIN", number), bus});
    }
    return known[number];
}

std::unique_ptr<MessageReader> openBlf(const std::string& path) {
    auto file = std::make_unique<InputFile>(path);
    const auto mark = file->view(0, blf::markSize);
    if (mark.size() < blf::markSize || !blf::hasMark(mark.data(), blf::fileMark)) {
        return nullptr;
    }
    return std::make_unique<BlfReader>(std::move(file));
}

}  // namespace station
