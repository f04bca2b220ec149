#include "station/fleet/joined_reader.h"

#include <utility>

namespace station {

JoinedReader::JoinedReader(std::vector<std::unique_ptr<MessageReader>> readers) {
    for (auto& reader : readers) {
        sources.push_back({std::move(reader), {}, {}});
        advance(sources.size() - 1);
    }
}

void JoinedReader::advance(std::size_t number) {
    Source& source = sources[number];
    const bool isThere = source.reader->next(source.head);
    const auto& there = source.reader->getChannels();
    while (source.channels.size() < there.size()) {
        source.channels.push_back(channels.size());
        channels.push_back(there[source.channels.size() - 1]);
    }
    skipped +=
        source.reader->getSkipped() - std::exchange(source.skipped, source.reader->getSkipped());
    if (isThere) {
        waiting.push({source.head.utcNanoseconds, number});
    } else if (errorText.empty()) {
        errorText = source.reader->getErrorText();
    }
}

bool JoinedReader::next(RecordedMessage& message) {
    if (waiting.empty()) {
        return false;
    }
    const std::size_t number = waiting.top().source;
    waiting.pop();
    const Source& source = sources[number];
    message = source.head;
    message.channel = source.channels[source.head.channel];
    advance(number);
    return true;
}

double JoinedReader::getProgress() const {
    double sum = 0.0;
    for (const Source& source : sources) {
        sum += source.reader->getProgress();
    }
    return sources.empty() ? 1.0 : sum / static_cast<double>(sources.size());
}

}  // namespace station
