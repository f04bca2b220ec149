#include "station/recording/recording_set.h"

#include <algorithm>
#include <utility>

namespace station {

std::string lateText(std::uint64_t messages) {
    return std::to_string(messages) +
           " messages came in after later ones had been recorded: the recordings aren't in the "
           "order of time there";
}

RecordingSet::~RecordingSet() {
    for (const auto& recording : recordings) {
        if (!closed) {
            recording->cancel();
        }
    }
}

void RecordingSet::add(std::unique_ptr<Recording> recording) {
    recordings.push_back(std::move(recording));
    reported.push_back(false);
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

std::vector<std::string> RecordingSet::flush() {
    for (const auto& recording : recordings) {
        recording->flush();
    }
    return newFailures();
}

std::vector<std::string> RecordingSet::close() {
    closed = true;
    // All of it is written before one disk is waited for.
    for (const auto& recording : recordings) {
        recording->flush();
    }
    for (const auto& recording : recordings) {
        recording->close();
    }
    return newFailures();
}

std::vector<std::string> RecordingSet::newFailures() {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        if (recordings[i]->failed() && !reported[i]) {
            reported[i] = true;
            texts.push_back(recordings[i]->errorText());
        }
    }
    return texts;
}

bool RecordingSet::hasFailed() const {
    return std::any_of(recordings.begin(), recordings.end(),
                       [](const auto& recording) { return recording->failed(); });
}

bool RecordingSet::haveAllFailed() const {
    return std::all_of(recordings.begin(), recordings.end(),
                       [](const auto& recording) { return recording->failed(); });
}

std::vector<RecordingSummary> RecordingSet::summarize() const {
    std::vector<RecordingSummary> summaries;
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        const Recording& recording = *recordings[i];
        RecordingSummary summary{recording.path(),           recording.formatName(),
                                 recording.recordsWritten(), recording.bytesWritten(),
                                 recording.recordsLost(),    recording.errorText()};
        for (std::size_t at = i; at < handles.size(); at += recordings.size()) {
            if (handles[at] == notHeld) {
                summary.channels.push_back({});
            } else {
                const auto& counts = recording.channelCounts()[handles[at]];
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
            paths.push_back(recording->path());
        }
    }
    return paths;
}

}  // namespace station
