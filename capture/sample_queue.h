#pragma once

#include <atomic>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "core/mutex.h"

/// The samples of one channel on their way from the capture thread to the host's thread.
///
/// There are two halves. The capture thread appends to `incoming` under `queueLock`; the host's
/// thread works through `outgoing`, which is its own, and exchanges the two in one short lock once
/// its half is empty. So no host call ever runs under the lock, and the capture thread never waits
/// for the host. Order is kept: what is exchanged in was appended behind all that was taken before.
///
/// There is no limit: nothing is lost while the host is late. Each half keeps the room it has grown
/// to, up to `keptCapacity` samples, so that a steady flow allocates nothing. A half that was
/// worked through goes back at once, also if nothing came in: the capture thread writes where the
/// caches are warm, and two halves cost little more of them than one.
template <class Sample>
class SampleQueue {
  public:
    static constexpr std::size_t keptCapacity = 16384;

    /// Capture thread: has `fill` append to the vector of waiting samples. So they are made in
    /// place, as many as there are under one lock; `fill` must be short.
    template <class Fill>
    void append(Fill fill) CMP_EXCLUDES(queueLock) {
        const LockGuard guard(queueLock);
        fill(incoming);
        hasIncoming.store(true, std::memory_order_release);
    }

    /// Host's thread, without a lock.
    bool isEmpty() const {
        return next == outgoing.size() && !hasIncoming.load(std::memory_order_acquire);
    }

    /// Host's thread: the oldest samples in order, empty if there are none. More may wait behind
    /// them. They stay valid until the next `front` after they were dropped, or `clear`.
    std::span<const Sample> front() CMP_EXCLUDES(queueLock) {
        if (next == outgoing.size()) {
            exchange();
        }
        return std::span<const Sample>(outgoing).subspan(next);
    }

    /// Host's thread: removes the `count` oldest of what `front` showed.
    void drop(std::size_t count) { next += count; }

    /// Host's thread.
    void clear() CMP_EXCLUDES(queueLock) {
        empty(outgoing);
        next = 0;
        const LockGuard guard(queueLock);
        empty(incoming);
    }

  private:
    void exchange() CMP_EXCLUDES(queueLock) {
        const bool wasUsed = !outgoing.empty();
        empty(outgoing);
        next = 0;
        if (!wasUsed && !hasIncoming.load(std::memory_order_acquire)) {
            return;
        }
        const LockGuard guard(queueLock);
        hasIncoming.store(false, std::memory_order_relaxed);
        std::swap(incoming, outgoing);
    }

    static void empty(std::vector<Sample>& half) {
        half.clear();
        if (half.capacity() > keptCapacity) {
            std::vector<Sample> smaller;
            smaller.reserve(keptCapacity);
            half.swap(smaller);
        }
    }

    Mutex queueLock;
    std::atomic<bool> hasIncoming{false};  ///< spares the host's thread the lock of an idle channel
    std::vector<Sample> incoming CMP_GUARDED_BY(queueLock);
    std::vector<Sample> outgoing;
    std::size_t next = 0;  ///< position in `outgoing` of the oldest sample
};
