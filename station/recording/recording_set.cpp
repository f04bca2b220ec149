#include "station/recording/recording_set.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace station {

std::string lateText(std::uint64_t messages) {
    return std::to_string(messages) +
           " records came in after later ones had been recorded: the recordings aren't in the "
           "order of time there";
}

RecordingSet::~RecordingSet() {
    for (const auto& recording : recordings) {
        if (!closed) {
            recording->cancel();
        }
    }
}

void RecordingSet::addChannel(const ChannelDescription& channel) {
    for (const auto& recording : recordings) {
        handles.push_back(recording->accepts(channel.bus) ? recording->addChannel(channel)
                                                          : notHeld);
    }
    leftOut.push_back(0);
    if (filter != nullptr) {
        filter->addChannel(channel);
    }
}

void RecordingSet::setOnProgress(const std::function<void()>& call) {
    for (const auto& recording : recordings) {
        recording->setOnProgress(call);
    }
}

void RecordingSet::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    ++count;
    if (filter != nullptr && !filter->passes(channel, utcNanoseconds, record, size)) {
        ++leftOut[channel];
        return;
    }
    const std::size_t first = channel * recordings.size();
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        if (handles[first + i] != notHeld) {
            recordings[i]->write(handles[first + i], utcNanoseconds, record, size);
        }
    }
}

void RecordingSet::setAccount(const RecordingAccount& account) {
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        RecordingAccount own{account.run, {}};
        for (std::size_t channel = 0; channel < account.channels.size(); ++channel) {
            if (handles.at(channel * recordings.size() + i) != notHeld) {
                own.channels.push_back(account.channels[channel]);
            }
        }
        recordings[i]->setAccount(std::move(own));
    }
}

std::vector<std::string> RecordingSet::flush() {
    const auto now = RecordingSeries::Clock::now();
    for (const auto& recording : recordings) {
        recording->flush(now);
    }
    return takeTexts();
}

void RecordingSet::endParts() {
    for (const auto& recording : recordings) {
        recording->endPart();
    }
}

std::vector<std::string> RecordingSet::close() {
    closed = true;
    // All of it is written before one disk is waited for.
    const auto now = RecordingSeries::Clock::now();
    for (const auto& recording : recordings) {
        recording->flush(now);
    }
    for (const auto& recording : recordings) {
        recording->close();
    }
    return takeTexts();
}

std::vector<std::string> RecordingSet::takeTexts() {
    std::vector<std::string> texts;
    for (const auto& recording : recordings) {
        std::ranges::move(recording->takeTexts(), std::back_inserter(texts));
    }
    return texts;
}

bool RecordingSet::hasFailed() const {
    return std::any_of(recordings.begin(), recordings.end(),
                       [](const auto& recording) { return recording->hasFailed(); });
}

bool RecordingSet::haveAllFailed() const {
    return std::all_of(recordings.begin(), recordings.end(),
                       [](const auto& recording) { return recording->hasFailed(); });
}

std::vector<RecordingSummary> RecordingSet::summarize() const {
    std::vector<RecordingSummary> summaries;
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        const RecordingSeries& recording = *recordings[i];
        const auto channelCounts = recording.getChannelCounts();
        RecordingSummary summary{.path = recording.getPath(),
                                 .partPath = recording.getPartPath(),
                                 .parts = recording.getPartCount(),
                                 .format = recording.getFormatName(),
                                 .records = recording.getRecordsWritten(),
                                 .bytes = recording.getBytesWritten(),
                                 .lost = recording.getRecordsLost(),
                                 .error = recording.getErrorText()};
        for (std::size_t at = i; at < handles.size(); at += recordings.size()) {
            if (handles[at] == notHeld) {
                summary.channels.push_back({});
            } else {
                const auto& counts = channelCounts[handles[at]];
                summary.channels.push_back(
                    {true, counts.written, counts.lost, leftOut[summary.channels.size()]});
            }
        }
        summaries.push_back(std::move(summary));
    }
    return summaries;
}

std::vector<std::string> RecordingSet::thatRefuse(BusType bus) const {
    std::vector<std::string> paths;
    for (const auto& recording : recordings) {
        if (!recording->accepts(bus)) {
            paths.push_back(recording->getPath());
        }
    }
    return paths;
}

}  // namespace station
