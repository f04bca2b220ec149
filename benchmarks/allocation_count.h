#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

// Counts the allocations of a program. It replaces the global operators: for one file of a program.

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// Not inlined: a compiler that sees through both sides takes malloc and delete for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
