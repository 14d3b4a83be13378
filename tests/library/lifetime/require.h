#ifndef TESTS_LIBRARY_LIFETIME_REQUIRE_H
#define TESTS_LIBRARY_LIFETIME_REQUIRE_H

#include <cstdio>
#include <cstdlib>

/// Ends the process with a message if the condition does not hold. It works before main() and after
/// its end, where no test framework does.
#define REQUIRE(cond)                                                                              \
    ((cond) ? void()                                                                               \
            : (std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #cond),       \
               std::_Exit(1)))

#endif
