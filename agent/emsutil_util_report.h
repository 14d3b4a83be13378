#ifndef AGENT_EMSUTIL_UTIL_REPORT_H
#define AGENT_EMSUTIL_UTIL_REPORT_H

#include <cstdarg>
#include <string>

#include <ace/Thread_Mutex.h>

namespace NSQN_EMSUTIL_AGENT {

/// The process's report file; lives until the process ends.
class EmsUtilReportFile
{
public:
    /// The one instance, made on first use; null when ACE's lock for static objects fails.
    static EmsUtilReportFile* Instance();

    EmsUtilReportFile();

    /// Appends one entry, with the time in front if `withTime`.
    void Write(const char* format, va_list arguments, bool withTime)
        __attribute__((format(printf, 2, 0)));

private:
    ACE_Thread_Mutex m_Mutex;  // held for each entry, so that none falls into another
    std::string m_strFilePath; // constant after construction
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
