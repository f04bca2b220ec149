#include "station/stream/batch_header.h"

#include <fmt/format.h>

#include <cstring>
#include <string_view>

#include "core/parse_number.h"
#include "station/nats/stream_names.h"
#include "station/recording/pcapng_blocks.h"

namespace station {
namespace {

constexpr std::size_t optionsAt = 24;
constexpr std::uint64_t longestSection = std::uint64_t{1} << 30U;
constexpr std::uint16_t commentOption = 1;

template <class Number>
Number numberAt(std::span<const std::uint8_t> bytes, std::size_t at) {
    Number number = 0;
    for (std::size_t i = sizeof number; i-- > 0;) {
        number = static_cast<Number>(static_cast<Number>(number << 8U) | bytes[at + i]);
    }
    return number;
}

/// What is behind " NAME=" up to the next blank; empty if it isn't there.
std::string_view valueOf(std::string_view text, std::string_view name) {
    const std::size_t at = text.find(name);
    if (at == text.npos) {
        return {};
    }
    const std::string_view rest = text.substr(at + name.size());
    return rest.substr(0, rest.find(' '));
}

template <class Number>
bool read(std::string_view text, std::string_view name, Number& number) {
    const auto parsed = parseNumber<Number>(valueOf(text, name));
    number = parsed.value_or(0);
    return parsed.has_value();
}

}  // namespace

std::vector<std::uint8_t> makeBatchHeader(const Batch& batch, std::size_t length) {
    return makeSectionHeader(
        fmt::format("batch={} session={} subject={} messages={} first={} last={} end={}",
                    batch.number, batch.session, batch.subject, batch.messages, batch.firstTime,
                    batch.lastTime, batch.isEnd ? 1 : 0),
        length);
}

std::optional<BatchExtent> readBatchHeader(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < optionsAt + 4 || numberAt<std::uint32_t>(bytes, 0) != 0x0A0D0D0A ||
        numberAt<std::uint32_t>(bytes, 8) != 0x1A2B3C4D ||
        numberAt<std::uint16_t>(bytes, optionsAt) != commentOption) {
        return std::nullopt;
    }
    const std::size_t total = numberAt<std::uint32_t>(bytes, 4);
    const auto length = numberAt<std::uint64_t>(bytes, 16);
    const std::size_t commentSize = numberAt<std::uint16_t>(bytes, optionsAt + 2);
    if (total > bytes.size() || total < optionsAt + 4 + commentSize + 4 ||
        length > longestSection || numberAt<std::uint32_t>(bytes, total - 4) != total) {
        return std::nullopt;
    }
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()) + optionsAt + 4,
                                commentSize);
    BatchExtent found{{}, total + length};
    Batch& batch = found.batch;
    batch.session = valueOf(text, " session=");
    batch.subject = valueOf(text, " subject=");
    int end = 0;
    if (!read(text, "batch=", batch.number) || !read(text, " messages=", batch.messages) ||
        !read(text, " first=", batch.firstTime) || !read(text, " last=", batch.lastTime) ||
        !read(text, " end=", end) || batch.session.empty() ||
        !batch.subject.starts_with(subjectPrefix)) {
        return std::nullopt;
    }
    batch.isEnd = end != 0;
    return found;
}

}  // namespace station
