#ifndef TESTS_LIBRARY_LIFETIME_SUPPORT_H
#define TESTS_LIBRARY_LIFETIME_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process with a message if the condition does not hold. It works before main() and after
/// its end, where no test framework does.
#define REQUIRE(cond)                                                                              \
    ((cond) ? void()                                                                               \
            : (std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #cond),       \
               std::_Exit(1)))

/// An installation in the current directory, with a report file and a configuration.
struct Installation
{
    Installation();
    ~Installation();
    /// Returns the text in the report file.
    std::string Report() const;

    const std::string m_Root;
};

/// Creates a log with one buffer and one extra reference, which keeps it. Returns its handle value.
unsigned long LeaveLog();

/// Releases the extra reference of such a log and checks that the log is destroyed.
void FinishLog(unsigned long handle);

#endif
