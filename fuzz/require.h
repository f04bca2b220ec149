#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program, so that the fuzzer keeps the input, unless what must hold holds.
inline void require(bool condition, const char* fault) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", fault);
        std::abort();
    }
}
