#pragma once

#include <atomic>
#include <cstdint>

#include "capture/cmp_message.h"

/// The device time of the latest message and the moment on the performance counter, in nanoseconds,
/// at which it came. Written by the capture thread alone, for every frame; read by any thread.
///
/// A sequence lock: the writer never waits and a reader tries again when it met a write. The
/// counter is odd while a write is under way.
class LatestTime {
  public:
    struct Value {
        DeviceTime time;
        std::int64_t timeStamp = 0;
    };

    void store(const DeviceTime& time, std::int64_t timeStamp) {
        const std::uint32_t before = sequence.load(std::memory_order_relaxed);
        sequence.store(before + 1, std::memory_order_relaxed);
        // Release: who sees one of these values sees the odd counter too.
        seconds.store(time.seconds, std::memory_order_release);
        nanoseconds.store(time.nanoseconds, std::memory_order_release);
        stamp.store(timeStamp, std::memory_order_release);
        sequence.store(before + 2, std::memory_order_release);
    }

    Value load() const {
        Value value;
        std::uint32_t before = 0;
        std::uint32_t after = 0;
        do {
            before = sequence.load(std::memory_order_acquire);
            value.time.seconds = seconds.load(std::memory_order_acquire);
            value.time.nanoseconds = nanoseconds.load(std::memory_order_acquire);
            value.timeStamp = stamp.load(std::memory_order_acquire);
            after = sequence.load(std::memory_order_relaxed);
        } while (before != after || before % 2 != 0);
        return value;
    }

  private:
    std::atomic<std::uint32_t> sequence{0};
    std::atomic<std::uint64_t> seconds{0};
    std::atomic<std::int32_t> nanoseconds{0};
    std::atomic<std::int64_t> stamp{0};
};
