#ifndef FUZZ_EXPECT_H
#define FUZZ_EXPECT_H

#include <cstdio>
#include <cstdlib>

/// Aborts the process if `condition` does not hold. libFuzzer then keeps the input.
inline void Expect(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

#endif
