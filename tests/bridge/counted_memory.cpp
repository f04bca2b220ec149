// A unit of its own, so that no compiler sees through the operators.
#include "tests/bridge/counted_memory.h"

#include <cstdlib>
#include <new>

std::atomic<std::uint64_t> countedAllocations = 0;

void* operator new(std::size_t size) {
    ++countedAllocations;
    if (void* const block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
