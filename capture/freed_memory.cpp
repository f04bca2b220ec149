#include "capture/freed_memory.h"

#include <malloc.h>

void FreedMemory::giveBack() {
    constexpr std::size_t much = std::size_t{16} << 20U;
    if (freed.load(std::memory_order_relaxed) >= much) {
        freed.store(0, std::memory_order_relaxed);
        malloc_trim(0);
    }
}
