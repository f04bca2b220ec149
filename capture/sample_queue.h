#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

#include "capture/packed_samples.h"
#include "core/mutex.h"

/// The samples of one channel on their way from the capture thread to the host's thread.
///
/// There are three parts. The capture thread appends to `taken`, which is its own, and puts what it
/// has into `incoming`. The host's thread works through `outgoing`, which is its own, and exchanges
/// it with `incoming` in one short lock once it is empty. So no host call ever runs under the lock,
/// and the capture thread never waits for the host. Order is kept: what is exchanged in was
/// appended behind all that was taken before.
///
/// `hasIncoming` says whose `incoming` is. While it is true, it is touched under `queueLock` alone.
/// While it is false, there is nothing for the host's thread in it, which then leaves it alone, and
/// the capture thread needs no lock to put something there.
///
/// There is no limit: nothing is lost while the host is late. Each part keeps room that it has
/// grown to, so that a steady flow allocates nothing.
template <class Frame>
class SampleQueue {
  public:
    /// Capture thread: takes a message, which `holdsFrame`.
    void append(const DeviceTime& time, const std::uint8_t* payload) {
        taken.append(time, payload);
    }

    /// Capture thread: what was appended can be seen by the host's thread from now on.
    void handOver() CMP_EXCLUDES(queueLock) {
        if (hasIncoming.load(std::memory_order_acquire)) {
            const LockGuard guard(queueLock);
            incoming.append(taken);
            hasIncoming.store(true, std::memory_order_release);
        } else {
            putIncoming();
        }
        taken.clear();
    }

    /// Host's thread: whether there is a sample, which then is the front of `front()`.
    bool hasNext() CMP_EXCLUDES(queueLock) {
        if (outgoing.isEmpty() && hasIncoming.load(std::memory_order_acquire)) {
            outgoing.clear();
            const LockGuard guard(queueLock);
            std::swap(incoming, outgoing);
            hasIncoming.store(false, std::memory_order_release);
        }
        return !outgoing.isEmpty();
    }
    const PackedSamples<Frame>& front() const { return outgoing; }
    void drop() { outgoing.drop(); }

    /// Host's thread, with the capture thread stopped.
    void clear() CMP_EXCLUDES(queueLock) {
        taken.clear();
        outgoing.clear();
        const LockGuard guard(queueLock);
        incoming.clear();
        hasIncoming.store(false, std::memory_order_release);
    }

  private:
    /// Capture thread, where `hasIncoming` is false.
    void putIncoming() CMP_NO_THREAD_SAFETY_ANALYSIS {
        std::swap(incoming, taken);
        hasIncoming.store(true, std::memory_order_release);
    }

    mutable Mutex queueLock;
    std::atomic<bool> hasIncoming{false};
    PackedSamples<Frame> taken;
    PackedSamples<Frame> incoming CMP_GUARDED_BY(queueLock);
    PackedSamples<Frame> outgoing;
};
