#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
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
/// to, up to `keptCapacity` samples, so that a steady flow allocates nothing.
///
/// At the end of a flush `keepLast` takes the lock once more, for the value that the user sees. On
/// that occasion a half that was worked through goes back, if nothing came in meanwhile: the
/// capture thread then writes where the caches are warm, and two halves take little more of them
/// than one.
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
        hasIncoming.store(!incoming.empty(), std::memory_order_release);
    }

    /// Host's thread, without a lock.
    bool isEmpty() const {
        return next == outgoing.size() && !hasIncoming.load(std::memory_order_acquire);
    }

    /// Host's thread: the oldest samples in order, empty if there are none. More may wait behind
    /// them. They stay valid, also when they were dropped, until a later `front` shows others, or
    /// `keepLast`, or `clear`.
    std::span<const Sample> front() CMP_EXCLUDES(queueLock) {
        if (next == outgoing.size() && hasIncoming.load(std::memory_order_acquire)) {
            startOver();
            const LockGuard guard(queueLock);
            exchange();
        }
        return std::span<const Sample>(outgoing).subspan(next);
    }

    /// Host's thread: removes the `count` oldest of what `front` showed.
    void drop(std::size_t count) { next += count; }

    /// Host's thread: keeps a copy of `sample`, which may be one that `front` showed, for
    /// `getLast`.
    void keepLast(const Sample& sample) CMP_EXCLUDES(queueLock) {
        const Sample copy = sample;
        const bool isDone = next == outgoing.size();
        if (isDone) {
            startOver();
        }
        const LockGuard guard(queueLock);
        last = copy;
        if (isDone && incoming.empty()) {
            exchange();
        }
    }

    /// Any thread: what `keepLast` kept, nothing since `clear`.
    std::optional<Sample> getLast() const CMP_EXCLUDES(queueLock) {
        const LockGuard guard(queueLock);
        return last;
    }

    /// Host's thread.
    void clear() CMP_EXCLUDES(queueLock) {
        startOver();
        const LockGuard guard(queueLock);
        empty(incoming);
        hasIncoming.store(false, std::memory_order_relaxed);
        last.reset();
    }

  private:
    void exchange() CMP_REQUIRES(queueLock) {
        std::swap(incoming, outgoing);
        hasIncoming.store(false, std::memory_order_relaxed);
    }

    void startOver() {
        empty(outgoing);
        next = 0;
    }

    static void empty(std::vector<Sample>& half) {
        half.clear();
        if (half.capacity() > keptCapacity) {
            std::vector<Sample> smaller;
            smaller.reserve(keptCapacity);
            half.swap(smaller);
        }
    }

    mutable Mutex queueLock;
    std::atomic<bool> hasIncoming{false};  ///< spares the host's thread the lock of an idle channel
    std::vector<Sample> incoming CMP_GUARDED_BY(queueLock);
    std::vector<Sample> outgoing;
    std::size_t next = 0;  ///< position in `outgoing` of the oldest sample
    std::optional<Sample> last CMP_GUARDED_BY(queueLock);
};
