#ifndef TESTS_LIBRARY_LIFETIME_SUPPORT_H
#define TESTS_LIBRARY_LIFETIME_SUPPORT_H

#include <string>

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
