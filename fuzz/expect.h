#ifndef FUZZ_EXPECT_H
#define FUZZ_EXPECT_H

#include <cstdio>
#include <cstdlib>

/// Ends the process, and with it keeps the input, where `condition` does not hold.
inline void Expect(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

#endif
