#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace station {

/// One sample as it is in a channel's buffer.
struct ChannelSample {
    const std::uint8_t* data = nullptr;  ///< there until the call that it is given to returns
    std::size_t size = 0;                ///< bytes
    double time = 0.0;                   ///< seconds since the start of the measurement
};

/// Takes samples out of a channel.
class ChannelSink {
  public:
    virtual ~ChannelSink() = default;
    virtual void onSample(const ChannelSample& sample) = 0;
};

/// The buffers of a channel whose samples have one size: a writer that knows nothing of a reader
/// puts a sample at the write position and advances it, and one reader goes behind it.
///
/// A writer that laps the reader overwrites the oldest samples that weren't read. They are counted
/// as overruns. Each sample is read at most once and in the order of writing.
class SampleRing {
  public:
    /// Room for at least one sample of `sampleBytes`, with a time for each if `timed`. What wasn't
    /// read counts as overrun.
    void allocate(std::size_t samples, std::size_t sampleBytes, bool timed);
    /// Back to no room; what wasn't read counts as overrun.
    void release();
    /// Empty, position and counts at 0, the room kept.
    void clear();

    std::uint8_t* getData() { return data.data(); }
    /// Null if not timed.
    double* getTimes() { return times.empty() ? nullptr : times.data(); }
    std::size_t getSize() const { return capacity; }  ///< samples
    std::size_t getWritePosition() const { return writePosition; }
    std::uint64_t getWritten() const { return written; }
    bool isFull() const { return capacity != 0 && written - read >= capacity; }
    std::uint64_t getOverruns() const;

    /// Commits samples.
    void advance(std::size_t samples);
    /// Gives the sink what was committed since the last call, oldest first. In a ring without times
    /// a sample's time is that of its number and `offset` at `rate` samples a second.
    void takeNew(ChannelSink& sink, double offset, double rate);

  private:
    void countLapped();

    std::vector<std::uint8_t> data;
    std::vector<double> times;
    std::size_t capacity = 0;
    std::size_t bytes = 0;  ///< of a sample
    std::size_t writePosition = 0;
    std::size_t readPosition = 0;
    std::uint64_t written = 0;
    std::uint64_t read = 0;  ///< or lapped
    std::uint64_t overruns = 0;
};

/// The same for samples of any size: their bytes are copied into a bounded storage, which is
/// allocated once. Where it is full the oldest samples that weren't read make room.
class VariantRing {
  public:
    void allocate(std::size_t samples, std::size_t storageBytes);
    void release();
    void clear();

    std::size_t getSize() const { return entries.size(); }  ///< samples
    std::size_t getWritePosition() const { return writeEntry; }
    std::uint64_t getWritten() const { return written; }
    /// Whether a sample of that size would make older ones go.
    bool isFullFor(std::size_t bytes) const;
    std::uint64_t getOverruns() const { return overruns; }

    /// False, and nothing changed, for a sample larger than the whole storage.
    bool add(const std::uint8_t* bytes, std::size_t count, double time);
    void takeNew(ChannelSink& sink);

  private:
    struct Entry {
        std::size_t offset = 0;
        std::size_t size = 0;
        double time = 0.0;
    };

    /// Where a sample of that size goes: behind the last one, or at the start where the rest of the
    /// storage is too small.
    std::size_t placeFor(std::size_t bytes) const;
    bool isInTheWay(const Entry& entry, std::size_t place, std::size_t bytes) const;
    void dropOldest();

    std::vector<Entry> entries;
    std::vector<std::uint8_t> storage;
    std::size_t writeEntry = 0;
    std::size_t oldestEntry = 0;
    std::size_t unread = 0;
    std::size_t writeOffset = 0;
    std::uint64_t written = 0;
    std::uint64_t overruns = 0;
};

}  // namespace station
