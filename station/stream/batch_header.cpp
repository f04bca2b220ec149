#include "station/stream/batch_header.h"

#include <fmt/format.h>

#include <string_view>

#include "core/parse_number.h"
#include "station/nats/stream_names.h"
#include "station/recording/pcapng_blocks.h"

namespace station {
namespace {

constexpr std::uint64_t longestSection = std::uint64_t{1} << 30U;

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

std::vector<std::uint8_t> makeBatchHeader(const Batch& batch, std::size_t length,
                                          std::uint64_t partBefore) {
    return makeSectionHeader(
        fmt::format("batch={} session={} subject={} messages={} first={} last={} end={} after={}",
                    batch.number, batch.session, batch.subject, batch.messages, batch.firstTime,
                    batch.lastTime, batch.isEnd ? 1 : 0, partBefore),
        length);
}

std::optional<BatchExtent> readBatchHeader(std::span<const std::uint8_t> bytes) {
    const auto section = readCommentedSection(bytes);
    if (!section || section->length > longestSection) {
        return std::nullopt;
    }
    const std::string_view text = section->comment;
    BatchExtent found{{}, section->size + section->length, 0};
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
    read(text, " after=", found.partBefore);
    return found;
}

}  // namespace station
