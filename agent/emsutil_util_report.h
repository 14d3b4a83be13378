#ifndef AGENT_EMSUTIL_UTIL_REPORT_H
#define AGENT_EMSUTIL_UTIL_REPORT_H

#include <cstdarg>
#include <string>

#include <ace/Thread_Mutex.h>

namespace NSQN_EMSUTIL_AGENT {

/// The writer of the process's report file. The instance exists until the process ends.
class EmsUtilReportFile
{
public:
    /// Returns the instance, and creates it on first use. Returns null when ACE's lock for static
    /// objects fails.
    static EmsUtilReportFile* Instance();

    EmsUtilReportFile();

    /// Appends one entry. The time precedes it if `withTime` is set.
    void Write(const char* format, va_list arguments, bool withTime)
        __attribute__((format(printf, 2, 0)));

private:
    ACE_Thread_Mutex m_Mutex;  // held for each entry, so that entries do not mix
    std::string m_strFilePath; // constant after construction
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
