#pragma once

#include <atomic>
#include <cstdint>

/// How often a program that has counted_memory.cpp asked for memory.
extern std::atomic<std::uint64_t> countedAllocations;
