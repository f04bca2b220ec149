#include "station/recording/recording_series.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>

namespace station {
namespace {

using namespace std::chrono_literals;

constexpr auto retryPeriod = 1s;
/// What a disk must have more than the user wants left before a part is begun after a failure: else
/// one part after the other would begin and end. A small disk never has as much as a large one.
std::uint64_t roomToGoOn(const std::filesystem::space_info& disk) {
    constexpr std::uint64_t most = std::uint64_t{16} << 20U;
    return std::min<std::uint64_t>(most, disk.capacity / 8);
}

/// The disk of a recording's folder; nothing if it can't be asked.
std::optional<std::filesystem::space_info> diskOf(const std::string& path) {
    std::error_code failure;
    const auto folder = std::filesystem::path(path).parent_path();
    const auto space = std::filesystem::space(folder.empty() ? "." : folder, failure);
    return failure ? std::nullopt : std::optional(space);
}

/// A stream has no other file to go on in.
PartRules rulesFor(const std::string& path, const PartRules& rules) {
    return AppendFile::isStreamPath(path) ? PartRules{.session = rules.session} : rules;
}

std::string partPathOf(const std::string& path, const std::string& session, std::size_t number) {
    const std::filesystem::path whole(path);
    return whole.parent_path() / fmt::format("{}-{}-{:04}{}", whole.stem().string(), session,
                                             number, whole.extension().string());
}

}  // namespace

std::string newSession(const std::vector<std::string>& paths, const PartRules& rules) {
    constexpr int most = 1000;
    const std::string second = fmt::format("{:%Y%m%dT%H%M%SZ}", fmt::gmtime(std::time(nullptr)));
    std::string session = second;
    const auto isTaken = [&](const std::string& path) {
        return rulesFor(path, rules).isRotating() &&
               std::filesystem::exists(partPathOf(path, session, 1));
    };
    for (int n = 2; std::ranges::any_of(paths, isTaken) && n < most; ++n) {
        session = fmt::format("{}-{}", second, n);
    }
    return session;
}

RecordingSeries::RecordingSeries(std::string path, bool overwrite, const PartRules& partRules,
                                 Open openNext)
    : wantedPath(std::move(path)),
      rules(rulesFor(wantedPath, partRules)),
      open(std::move(openNext)),
      session(rules.session.empty() ? newSession({wantedPath}, rules) : rules.session) {
    if (rules.compressor) {
        PartCompressor::removeLeftovers(wantedPath);
    }
    openPart(overwrite);
    noteFormat();
}

RecordingSeries::RecordingSeries(std::unique_ptr<Recording> recording)
    : wantedPath(recording->getPath()),
      part(std::move(recording)),
      partPath(wantedPath),
      partNumber(1) {
    noteFormat();
}

void RecordingSeries::noteFormat() {
    format = part->getFormatName();
    for (const BusType bus : {BusType::Can, BusType::Lin, BusType::Ethernet}) {
        acceptsBus[static_cast<std::size_t>(bus)] = part->accepts(bus);
    }
}

void RecordingSeries::openPart(bool overwrite) {
    const bool isAlone = partNumber == 0 && !rules.isRotating();
    const std::string next = isAlone ? wantedPath : partPathOf(wantedPath, session, partNumber + 1);
    std::unique_ptr<Recording> opened = open(
        next, overwrite,
        rules.session.empty() ? "" : fmt::format("session {}, part {}", session, partNumber + 1));
    opened->setOnProgress(onProgress);
    for (const ChannelDescription& channel : channels) {
        opened->addChannel(channel);
    }
    part = std::move(opened);
    partPath = next;
    ++partNumber;
    partRecords = 0;
    isPartToEnd = false;
}

std::size_t RecordingSeries::addChannel(const ChannelDescription& channel) {
    channels.push_back(channel);
    countsBefore.emplace_back();
    return part->addChannel(channel);
}

void RecordingSeries::setOnProgress(std::function<void()> call) {
    onProgress = std::move(call);
    if (part) {
        part->setOnProgress(onProgress);
    }
}

void RecordingSeries::cancel() {
    if (part && partNumber == 1) {
        part->cancel();
    }
}

void RecordingSeries::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                            std::size_t size) {
    if ((isPartToEnd || rules.isRotating()) && part && partRecords != 0 &&
        isPartFull(utcNanoseconds)) {
        goOnInNextPart();
    }
    if (!part) {
        ++(channel < countsBefore.size() ? countsBefore[channel].lost : lostOfNoChannel);
        return;
    }
    if (partRecords++ == 0) {
        partStart = utcNanoseconds;
    }
    part->write(channel, utcNanoseconds, record, size);
}

void RecordingSeries::goOnInNextPart() {
    leavePart();
    try {
        openPart(false);
    } catch (const std::runtime_error& failure) {
        error = failure.what();
        noteFailure();
    }
}

bool RecordingSeries::isPartFull(std::int64_t utcNanoseconds) const {
    return isPartToEnd || (rules.records != 0 && partRecords >= rules.records) ||
           (rules.bytes != 0 && part->getBytesWritten() >= rules.bytes) ||
           (rules.nanoseconds != 0 && utcNanoseconds - partStart >= rules.nanoseconds);
}

void RecordingSeries::closePart() {
    part->setAccount(account);
    if (!part->close()) {
        error = part->getErrorText();
        noteFailure();
    } else if (rules.compressor) {
        rules.compressor->add(partPath);
    }
}

/// Closes it; its counts stay.
void RecordingSeries::leavePart() {
    closePart();
    for (std::size_t i = 0; i < countsBefore.size(); ++i) {
        const Counts& counts = part->getChannelCounts()[i];
        countsBefore[i].written += counts.written;
        countsBefore[i].lost += counts.lost;
    }
    bytesBefore += part->getBytesWritten();
    std::uint64_t ofChannels = 0;
    for (const Counts& counts : part->getChannelCounts()) {
        ofChannels += counts.lost;
    }
    lostOfNoChannel += part->getRecordsLost() - ofChannels;
    part.reset();
    kept.push_back(partPath);
    dropOldParts();
}

/// The one that is written next is among those kept.
void RecordingSeries::dropOldParts() {
    while (rules.keep != 0 && kept.size() >= rules.keep) {
        std::error_code failure;
        if (rules.compressor) {
            failure = rules.compressor->remove(kept.front());
        } else {
            std::filesystem::remove(kept.front(), failure);
        }
        if (failure) {
            texts.push_back(
                fmt::format("{} can't be removed: {}", kept.front(), failure.message()));
        }
        kept.pop_front();
    }
}

void RecordingSeries::noteFailure() {
    if (std::exchange(isFailureReported, true)) {
        return;
    }
    const auto disk = diskOf(wantedPath);
    if (!rules.goesOn && rules.leastFreeBytes == 0) {
        texts.push_back(error);
    } else if (disk && disk->available < getRoomToGoOn(*disk)) {
        texts.push_back(fmt::format("{} It goes on in another file as soon as {:.1f} MB are free.",
                                    error, static_cast<double>(getRoomToGoOn(*disk)) / 1e6));
    } else {
        texts.push_back(error + " It goes on in another file as soon as that is possible.");
    }
}

void RecordingSeries::flush(Clock::time_point now) {
    if (part && !part->flush()) {
        error = part->getErrorText();
        noteFailure();
        if (rules.goesOn) {
            leavePart();
            lastTry = now;
        }
    } else if (part && !hasRoomLeft()) {
        error = fmt::format(
            "Recording to \"{}\" paused: less is free on its disk than is to be left (--min-free).",
            partPath);
        noteFailure();
        leavePart();
        lastTry = now;
    }
    if (!part) {
        tryToGoOn(now);
    }
}

void RecordingSeries::tryToGoOn(Clock::time_point now) {
    if (!(rules.goesOn || rules.leastFreeBytes != 0) || now - lastTry < retryPeriod) {
        return;
    }
    lastTry = now;
    const auto disk = diskOf(wantedPath);
    if (disk && disk->available < getRoomToGoOn(*disk)) {
        return;
    }
    try {
        openPart(false);
    } catch (const std::runtime_error&) {
        return;  // its reason is the one that was reported, or follows from it
    }
    isFailureReported = false;
    texts.push_back(fmt::format("Recording goes on, in \"{}\".", partPath));
}

/// Whether as much is free as is to be left. A disk that can't be asked has room.
bool RecordingSeries::hasRoomLeft() const {
    if (rules.leastFreeBytes == 0) {
        return true;
    }
    const auto disk = diskOf(wantedPath);
    return !disk || disk->available >= rules.leastFreeBytes;
}

std::uint64_t RecordingSeries::getRoomToGoOn(const std::filesystem::space_info& disk) const {
    return rules.leastFreeBytes + roomToGoOn(disk);
}

void RecordingSeries::close() {
    if (part) {
        part->setLast();
        closePart();
    }
}

std::vector<std::string> RecordingSeries::takeTexts() {
    std::vector<std::string> all = std::exchange(texts, {});
    if (rules.compressor) {
        std::ranges::move(rules.compressor->takeTexts(), std::back_inserter(all));
    }
    return all;
}

std::uint64_t RecordingSeries::total(std::uint64_t Counts::*count) const {
    const std::vector<Counts> counts = getChannelCounts();
    return std::accumulate(
        counts.begin(), counts.end(), std::uint64_t{0},
        [count](std::uint64_t sum, const Counts& channel) { return sum + channel.*count; });
}

std::uint64_t RecordingSeries::getBytesWritten() const {
    return bytesBefore + (part ? part->getBytesWritten() : 0);
}

std::vector<RecordingSeries::Counts> RecordingSeries::getChannelCounts() const {
    std::vector<Counts> counts = countsBefore;
    for (std::size_t i = 0; part && i < counts.size(); ++i) {
        counts[i].written += part->getChannelCounts()[i].written;
        counts[i].lost += part->getChannelCounts()[i].lost;
    }
    return counts;
}

}  // namespace station
