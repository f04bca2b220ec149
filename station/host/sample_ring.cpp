#include "station/host/sample_ring.h"

#include <algorithm>
#include <cstring>

namespace station {
namespace {

/// What a sample takes of the storage: one without bytes has a place too.
std::size_t roomOf(std::size_t bytes) {
    return std::max<std::size_t>(bytes, 1);
}

}  // namespace

void SampleRing::allocate(std::size_t samples, std::size_t sampleBytes, bool timed) {
    release();
    capacity = std::max<std::size_t>(samples, 1);
    bytes = sampleBytes;
    data.resize(capacity * bytes);
    times.resize(timed ? capacity : 0);
}

void SampleRing::release() {
    overruns += written - read;
    read = written;
    data = {};
    times = {};
    capacity = 0;
    writePosition = 0;
    readPosition = 0;
}

void SampleRing::clear() {
    writePosition = 0;
    readPosition = 0;
    written = 0;
    read = 0;
    overruns = 0;
}

std::uint64_t SampleRing::getOverruns() const {
    const std::uint64_t unread = written - read;
    return overruns + (unread > capacity ? unread - capacity : 0);
}

void SampleRing::advance(std::size_t samples) {
    if (capacity == 0) {
        return;
    }
    written += samples;
    writePosition = (writePosition + samples) % capacity;
}

void SampleRing::countLapped() {
    const std::uint64_t unread = written - read;
    if (unread > capacity) {
        overruns += unread - capacity;
        read = written - capacity;
        readPosition = writePosition;
    }
}

void SampleRing::takeNew(ChannelSink& sink, double offset, double rate) {
    countLapped();
    while (read != written) {
        const double time =
            times.empty() ? (static_cast<double>(read) + offset) / rate : times[readPosition];
        sink.onSample({data.data() + readPosition * bytes, bytes, time});
        ++read;
        readPosition = readPosition + 1 == capacity ? 0 : readPosition + 1;
    }
}

void VariantRing::allocate(std::size_t samples, std::size_t storageBytes) {
    release();
    entries.resize(std::max<std::size_t>(samples, 1));
    storage.resize(storageBytes);
}

void VariantRing::release() {
    overruns += unread;
    unread = 0;
    writeEntry = 0;
    oldestEntry = 0;
    writeOffset = 0;
    entries = {};
    storage = {};
}

void VariantRing::clear() {
    writeEntry = 0;
    oldestEntry = 0;
    unread = 0;
    writeOffset = 0;
    written = 0;
    overruns = 0;
}

std::size_t VariantRing::placeFor(std::size_t bytes) const {
    return writeOffset + bytes <= storage.size() ? writeOffset : 0;
}

/// The samples lie in the storage in the order of writing, as far as its end and then from its
/// start. So what is in the way is always the oldest: what lies between the last sample and the
/// end, if the new one goes to the start, and what the new one would cover.
bool VariantRing::isInTheWay(const Entry& entry, std::size_t place, std::size_t bytes) const {
    const bool skipped = place != writeOffset && entry.offset >= writeOffset;
    const bool covered = entry.offset < place + bytes && place < entry.offset + roomOf(entry.size);
    return skipped || covered;
}

bool VariantRing::isFullFor(std::size_t bytes) const {
    const std::size_t room = roomOf(bytes);
    return unread != 0 &&
           (unread == entries.size() || isInTheWay(entries[oldestEntry], placeFor(room), room));
}

void VariantRing::dropOldest() {
    oldestEntry = oldestEntry + 1 == entries.size() ? 0 : oldestEntry + 1;
    --unread;
}

bool VariantRing::add(const std::uint8_t* bytes, std::size_t count, double time) {
    if (roomOf(count) > storage.size()) {
        return false;
    }
    while (isFullFor(count)) {
        dropOldest();
        ++overruns;
    }
    const std::size_t place = placeFor(roomOf(count));
    if (count != 0) {
        std::memcpy(storage.data() + place, bytes, count);
    }
    entries[writeEntry] = {place, count, time};
    writeEntry = writeEntry + 1 == entries.size() ? 0 : writeEntry + 1;
    writeOffset = place + roomOf(count);
    ++unread;
    ++written;
    return true;
}

void VariantRing::takeNew(ChannelSink& sink) {
    while (unread != 0) {
        const Entry& entry = entries[oldestEntry];
        sink.onSample({storage.data() + entry.offset, entry.size, entry.time});
        dropOldest();
    }
}

}  // namespace station
