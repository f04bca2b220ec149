#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "capture/packed_samples.h"
#include "core/mutex.h"

/// The samples of one channel on their way from the capture thread to the host's thread.
///
/// There are three parts. The capture thread appends to `taken`, which is its own, and puts what it
/// has into `incoming`. The host's thread takes `incoming` over into `outgoing`, which is its own,
/// in one short lock, and works through that. So no host call ever runs under the lock, and the
/// capture thread never waits for the host. Order is kept: what is taken over was appended behind
/// all that was taken over before.
///
/// `hasIncoming` says whose `incoming` is. While it is true, it is touched under `queueLock` alone.
/// While it is false, there is nothing for the host's thread in it, which then leaves it alone, and
/// the capture thread needs no lock to put something there.
///
/// There is no limit: nothing is lost while the host is late. Each part keeps room for a steady
/// flow, which so allocates nothing, and gives back what it has grown to beyond that as soon as it
/// is empty.
template <class Frame>
class SampleQueue {
  public:
    /// Capture thread: takes a message, which `holdsFrame`.
    void append(const DeviceTime& time, const std::uint8_t* payload) {
        taken.append(time, payload);
        ++appended;
    }

    /// Capture thread: what was appended can be taken over from now on.
    void handOver() CMP_EXCLUDES(queueLock) {
        if (hasIncoming.load(std::memory_order_acquire)) {
            const LockGuard guard(queueLock);
            incoming.append(taken);
            hasIncoming.store(true, std::memory_order_release);
        } else {
            putIncoming();
        }
        taken.clear();
        handedOver.store(appended, std::memory_order_relaxed);
    }

    /// Host's thread: makes what was handed over up to now part of what `hasNext` looks at.
    void takeOver() CMP_EXCLUDES(queueLock) {
        if (!hasIncoming.load(std::memory_order_acquire)) {
            return;
        }
        {
            const LockGuard guard(queueLock);
            std::swap(incoming, arrived);
            hasIncoming.store(false, std::memory_order_release);
        }
        if (outgoing.isEmpty()) {
            std::swap(outgoing, arrived);
        } else {
            outgoing.append(arrived);
        }
        arrived.clear();
    }
    /// Host's thread: whether there is a sample among those taken over, which then is the front of
    /// `front()`.
    bool hasNext() const { return !outgoing.isEmpty(); }
    const PackedSamples<Frame>& front() const { return outgoing; }
    void drop() {
        outgoing.drop();
        if (outgoing.isEmpty()) {
            outgoing.clear();
        }
    }

    /// How many samples were appended and handed over since `beginCounting`. Any thread.
    std::uint64_t getHandedOver() const { return handedOver.load(std::memory_order_relaxed); }
    /// Host's thread, with the capture thread stopped.
    void beginCounting() {
        appended = 0;
        handedOver.store(0, std::memory_order_relaxed);
    }

    /// Host's thread, with the capture thread stopped. May come amid a flush, see `getClears`.
    void clear() CMP_EXCLUDES(queueLock) {
        taken.clear();
        outgoing.clear();
        ++clears;
        const LockGuard guard(queueLock);
        incoming.clear();
        hasIncoming.store(false, std::memory_order_release);
    }
    /// How often it was cleared: whether the front is still the one that it was.
    std::uint32_t getClears() const { return clears; }

  private:
    /// Capture thread, where `hasIncoming` is false.
    void putIncoming() CMP_NO_THREAD_SAFETY_ANALYSIS {
        std::swap(incoming, taken);
        hasIncoming.store(true, std::memory_order_release);
    }

    mutable Mutex queueLock;
    std::atomic<bool> hasIncoming{false};
    std::atomic<std::uint64_t> handedOver{0};
    // The capture thread's own.
    PackedSamples<Frame> taken;
    std::uint64_t appended = 0;
    PackedSamples<Frame> incoming CMP_GUARDED_BY(queueLock);
    // The host's thread's own.
    PackedSamples<Frame> arrived;  ///< empty but while they are taken over
    PackedSamples<Frame> outgoing;
    std::uint32_t clears = 0;
};
