#include "station/stream/spool_part.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>

#include "station/nats/stream_names.h"
#include "station/recording/pcapng_blocks.h"
#include "station/stream/batch_header.h"

namespace station {

std::string SpoolSession::subjectOf(const ChannelDescription& channel) const {
    return isByChannel ? fmt::format("{}{}.{}.{}", subjectPrefix, stationToken,
                                     toToken(channel.module), channel.interfaceId)
                       : subjectPrefix + stationToken;
}

SpoolPart::SpoolPart(const std::string& path, std::shared_ptr<Spool> target,
                     std::shared_ptr<SpoolSession> measurement)
    : Recording(path, false),
      spool(std::move(target)),
      session(std::move(measurement)),
      partBefore(session->lastPart) {
    // Parts are short: the thread would wait for the disk most of the time.
    file.dontWaitForDisk();
    spool->addPart(path);
}

/// Only now: what the other thread knows to be complete it may remove.
SpoolPart::~SpoolPart() {
    close();
    spool->closePart(getPath());
}

std::size_t SpoolPart::addChannel(const ChannelDescription& channel) {
    const std::string name = session->subjectOf(channel);
    const auto found = std::ranges::find(subjects, name, &Subject::name);
    channels.push_back({channel.bus, static_cast<std::size_t>(found - subjects.begin()),
                        makeInterfaceDescription(channel)});
    if (found == subjects.end()) {
        const std::size_t room = longestBatchHeader + name.size() + session->identifier.size();
        subjects.push_back({name, &session->subjects[name], room, {}});
    }
    file.addChannel();
    session->interfaces.resize(std::max(session->interfaces.size(), channels.size()));
    return channels.size() - 1;
}

void SpoolPart::write(std::size_t handle, std::int64_t utcNanoseconds, const void* record,
                      std::size_t size) {
    const std::size_t room =
        handle < channels.size() ? longestPacketBlock(channels[handle].bus, size) : 0;
    if (room == 0 || hasFailed()) {
        file.dropRecords(handle, 1);
        return;
    }
    const Channel& channel = channels[handle];
    Subject& subject = subjects[channel.subject];
    if (!subject.channels.empty() &&
        subject.used + channel.description.size() + room > subject.bytes.size()) {
        end(subject, false);
    }
    const std::int64_t time = std::max<std::int64_t>(utcNanoseconds, 0);
    if (subject.channels.empty()) {
        begin(subject, time);
    }
    std::uint8_t* at = subject.bytes.data() + subject.used;
    std::optional<std::uint32_t>& interface = session->interfaces[handle];
    if (!interface) {
        at = std::ranges::copy(channel.description, at).out;
        interface = subject.common->interfaceCount++;
        std::ranges::copy(channel.description, std::back_inserter(subject.common->interfaces));
    }
    at = putPacketBlock(at, channel.bus, *interface, time, record, size);
    subject.used = static_cast<std::size_t>(at - subject.bytes.data());
    subject.channels.push_back(static_cast<std::uint32_t>(handle));
    subject.lastTime = std::max(subject.lastTime, time);
    session->latestTime = std::max(session->latestTime, time);
}

void SpoolPart::begin(Subject& subject, std::int64_t time) {
    constexpr std::size_t longestMessage = 2048;  // with its channel's block
    const std::vector<std::uint8_t>& interfaces = subject.common->interfaces;
    const std::size_t start = subject.headerRoom + interfaces.size();
    subject.bytes.resize(std::max(session->batchBytes, start + longestMessage));
    std::ranges::copy(interfaces, subject.bytes.data() + subject.headerRoom);
    subject.used = start;
    subject.firstTime = time;
    subject.lastTime = time;
    subject.begun = std::chrono::steady_clock::now();
}

void SpoolPart::end(Subject& subject, bool isLastOfSession) {
    if (subject.channels.empty()) {  // only to say that it was the last one
        begin(subject, session->latestTime);
    }
    Batch batch{.subject = subject.name,
                .session = session->identifier,
                .number = ++subject.common->batches,
                .firstTime = subject.firstTime,
                .lastTime = subject.lastTime,
                .messages = subject.channels.size(),
                .isEnd = isLastOfSession,
                .payload = {}};
    const auto header = makeBatchHeader(batch, subject.used - subject.headerRoom, partBefore);
    const std::size_t from = subject.headerRoom - header.size();
    std::ranges::copy(header, subject.bytes.data() + from);
    const std::uint64_t before = file.getBytesWritten();
    file.appendBlock(std::span(subject.bytes).subspan(from, subject.used - from), subject.channels);
    if (!hasFailed()) {
        spool->grow(getPath(), file.getBytesWritten() - before, batch.messages);
        session->lastPart = spoolKeyOf(getPath()).value_or(SpoolKey()).part;
    }
    subject.channels.clear();
}

void SpoolPart::writePending() {
    const auto now = std::chrono::steady_clock::now();
    for (Subject& subject : subjects) {
        if (!subject.channels.empty() && now - subject.begun >= session->batchAge) {
            end(subject, false);
        }
    }
}

void SpoolPart::complete() {
    // A reader takes a session for complete when each subject that it knows has its end.
    for (Subject& subject : subjects) {
        if (isLast && subjects.size() > 1 && !subject.channels.empty() &&
            subject.common->batches == 0) {
            end(subject, false);
        }
    }
    for (Subject& subject : subjects) {
        if (!subject.channels.empty() || (isLast && subject.common->batches != 0)) {
            end(subject, isLast);
        }
    }
}

}  // namespace station
