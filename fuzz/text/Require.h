#pragma once

#include <cstdio>
#include <cstdlib>

namespace kestrel_fuzz {

/// Ends the run, so that the fuzzer keeps the input.
inline void require(bool same, const char* what) {
    if (same) return;
    std::fprintf(stderr, "fast and plain form differ: %s\n", what);
    std::abort();
}

} // namespace kestrel_fuzz
