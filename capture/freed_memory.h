#pragma once

#include <atomic>
#include <cstddef>

/// What queues have freed after a jam: the C library keeps it for the process, as a block that is
/// in use lies behind it, until it is asked to give it back to the system.
class FreedMemory {
  public:
    /// `bytes` were freed, by a queue on the host's thread.
    static void note(std::size_t bytes) { freed.fetch_add(bytes, std::memory_order_relaxed); }
    /// After a flush. Does nothing while it is a little.
    static void giveBack();

  private:
    static inline std::atomic<std::size_t> freed{0};
};
