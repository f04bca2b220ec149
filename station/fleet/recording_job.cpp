#include "station/fleet/recording_job.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <system_error>
#include <tuple>
#include <utility>

#include "core/descriptor.h"
#include "station/errors.h"
#include "station/fleet/collect_folder.h"
#include "station/fleet/joined_reader.h"
#include "station/recording/pcapng_reader.h"

namespace station {
namespace {

namespace fs = std::filesystem;

/// Within the system where its file system can.
void copyBytes(int from, std::uint64_t offset, std::uint64_t size, int to) {
    auto at = static_cast<off_t>(offset);
    while (size != 0) {
        const ssize_t count =
            ::copy_file_range(from, &at, to, nullptr, static_cast<std::size_t>(size), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            throw FileError(fmt::format("batches can't be sorted: {}; make room on the disk",
                                        reasonOf(count == 0 ? EIO : errno)));
        }
        size -= static_cast<std::uint64_t>(count);
    }
}

Descriptor create(const fs::path& file) {
    Descriptor made(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!made.isOpen()) {
        throw FileError(fmt::format("{} can't be written: {}", file.string(), reasonOf(errno)));
    }
    return made;
}

}  // namespace

RecordingJob::RecordingJob(std::string journalPath, const fs::path& scratchFolder,
                           std::string sessionName, Wanted what, std::string accountText)
    : journal(std::move(journalPath)),
      scratch(scratchFolder / "session"),
      session(std::move(sessionName)),
      wanted(std::move(what)),
      account(std::move(accountText)) {
    std::error_code error;
    fs::remove_all(scratch, error);
    fs::create_directories(scratch, error);
    if (error) {
        throw FileError(fmt::format("{} can't be made: {}", scratch.string(), error.message()));
    }
    begin(openJournal());
}

void RecordingJob::begin(std::unique_ptr<MessageReader> source) {
    copy.reset();
    reader = std::move(source);
    recordings = std::make_unique<RecordingSet>();
    if (wanted.from) {
        MessageFilter::Options filter;
        filter.from = MessageFilter::Moment{*wanted.from, false};
        recordings->setFilter(std::make_shared<MessageFilter>(filter));
    }
    const PartRules rules{.session = session};
    for (const std::string& ending : wanted.endings) {
        recordings->open(pathOf(ending).string(), true, rules);
    }
    recordings->setAccount({account, {}});
    copy = std::make_unique<MessageCopy>(*reader, *recordings);
}

RecordingJob::~RecordingJob() {
    copy.reset();
    reader.reset();
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
}

fs::path RecordingJob::pathOf(const std::string& ending) const {
    return scratch / ("recording" + ending);
}

std::unique_ptr<MessageReader> RecordingJob::openJournal() {
    bool isInOrder = true;
    std::string subject;
    std::uint64_t number = 0;
    BatchJournal::read(journal, [&](const BatchJournal::Entry& entry) {
        isInOrder &= (subject.empty() || entry.subject == subject) && entry.number > number;
        subject = entry.subject;
        number = entry.number;
        announced += entry.messages;
    });
    if (isInOrder) {
        return std::make_unique<PcapngReader>(journal);
    }
    BatchJournal::read(journal,
                       [&](const BatchJournal::Entry& entry) { entries.push_back(entry); });
    return sortJournal();
}

std::unique_ptr<MessageReader> RecordingJob::sortJournal() {
    std::ranges::sort(entries, [](const auto& a, const auto& b) {
        return std::tie(a.subject, a.number) < std::tie(b.subject, b.number);
    });
    const Descriptor from(::open(journal.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<std::unique_ptr<MessageReader>> readers;
    std::vector<fs::path> files;
    Descriptor to;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i == 0 || entries[i].subject != entries[i - 1].subject) {
            files.push_back(scratch / fmt::format("{}.sorted", files.size()));
            to = create(files.back());
        }
        copyBytes(from.get(), entries[i].offset, entries[i].bytes, to.get());
    }
    readers.reserve(files.size());
    for (const fs::path& file : files) {
        readers.push_back(std::make_unique<PcapngReader>(file.string()));
    }
    return std::make_unique<JoinedReader>(std::move(readers));
}

void RecordingJob::beginCheck() {
    entries.clear();
    BatchJournal::read(journal,
                       [&](const BatchJournal::Entry& entry) { entries.push_back(entry); });
    checked = 0;
}

/// False when all are read, and those that can't be aren't among them any more.
bool RecordingJob::checkNext() {
    if (*checked == entries.size()) {
        return false;
    }
    const BatchJournal::Entry& entry = entries[*checked];
    const fs::path single = scratch / "single";
    const Descriptor from(::open(journal.c_str(), O_RDONLY | O_CLOEXEC));
    copyBytes(from.get(), entry.offset, entry.bytes, create(single).get());
    PcapngReader batch(single.string());
    for (RecordedMessage message; batch.next(message);) {
    }
    if (batch.getErrorText().empty()) {
        ++*checked;
        return true;
    }
    leftOut.push_back(
        fmt::format("batch {} of {} ends where it can't be read, and is left out with its {} "
                    "messages: {}",
                    entry.number, entry.subject, entry.messages, batch.getErrorText()));
    leftOutMessages += entry.messages;
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(*checked));
    return true;
}

bool RecordingJob::step() {
    const bool isChecking = checked && *checked < entries.size();
    if (isChecking) {
        if (!checkNext() || *checked == entries.size()) {
            begin(sortJournal());
        }
        return true;
    }
    if (copy->poll() && !recordings->haveAllFailed()) {
        std::ranges::move(recordings->flush(), std::back_inserter(failures));
        return true;
    }
    copy->end();
    std::ranges::move(recordings->close(), std::back_inserter(failures));
    if (!reader->getErrorText().empty() && !checked) {
        beginCheck();
        return true;
    }
    return false;
}

void RecordingJob::commit(const std::vector<fs::path>& paths) {
    const auto summaries = recordings->summarize();
    const bool hasLost =
        std::ranges::any_of(summaries, [](const RecordingSummary& each) { return each.lost != 0; });
    if (recordings->hasFailed() || hasLost || !failures.empty()) {
        throw FileError(fmt::format("{}", fmt::join(failures, "; ")));
    }
    constexpr std::size_t mostNamed = 10;
    isComplete = leftOut.empty();
    texts.assign(leftOut.begin(), leftOut.begin() + static_cast<std::ptrdiff_t>(
                                                        std::min(leftOut.size(), mostNamed)));
    if (leftOut.size() > mostNamed) {
        texts.push_back(fmt::format("{} more batches are left out", leftOut.size() - mostNamed));
    }
    const std::uint64_t read = recordings->getCount() + reader->getSkipped() + leftOutMessages;
    if (!reader->getErrorText().empty() || read != announced) {
        isComplete = false;
        texts.push_back(fmt::format(
            "its batches say that they hold {} messages, and {} can be "
            "read{}{}",
            announced, read, reader->getErrorText().empty() ? "" : ": ", reader->getErrorText()));
    }
    if (copy->getLate() != 0) {
        texts.push_back(lateText(copy->getLate()));
    }
    const auto& channels = reader->getChannels();
    if (std::ranges::count(channels, BusType::Lin, &ChannelDescription::bus) != 0) {
        for (const std::string& path : recordings->thatRefuse(BusType::Lin)) {
            texts.push_back(fs::path(path).extension().string() +
                            " holds CAN only: its LIN messages are left out");
        }
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        std::error_code error;
        fs::rename(pathOf(wanted.endings[i]), paths[i], error);
        if (error) {
            throw FileError(
                fmt::format("{} can't be written: {}", paths[i].string(), error.message()));
        }
        syncFolderOf(paths[i]);
    }
}

}  // namespace station
