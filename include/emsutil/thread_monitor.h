#ifndef EMSUTIL_THREAD_MONITOR_H
#define EMSUTIL_THREAD_MONITOR_H

/// Thread monitor: worker threads mark stretches of their work, and the process asks who is
/// overdue.
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     EmsThreadInfoMap values; // the worker's own
///     for (int jobs = 1; TakeJob(); ++jobs) {
///         AddEmsThreadInfo(values, "jobs", jobs);
///         RegEmsThreadInfo inside(&values);
///         DoJob();
///     }
///
///     while (!IsEmsThreadTimeout(1)) // the watchdog: a second is too long
///         std::this_thread::sleep_for(std::chrono::milliseconds(100));
///     StatEmsThreadInfo();
///
/// The process keeps one record a thread id, for its life. A system that gives the id of an ended
/// thread to a new one gives it the old record too.
///
/// All times are wall-clock times as gettimeofday() reads them, 0 when it fails, to the
/// microsecond. A thread is measured from its latest exit (from its first entry, if it never left):
/// that is how long it has been since it was last known to be done.
///
/// Thread safety: any thread may call any function at any time. A map of named values has no lock:
/// one thread at a time uses it. Entries and exits wait for queries and these for them, except
/// IsEmsThreadReport(). Under glibc readers go first: queries that run back to back on several
/// threads can hold entries and exits up without limit, so poll with pauses, from one thread.
/// Ownership: the caller's map stays the caller's and is not kept; records are handed out as
/// copies.
/// Errors: when a lock cannot be taken, a call does nothing and answers no, with errno set to the
/// lock call's code; when only that of the report threads fails, a first entry is recorded, but not
/// as a report thread's. std::bad_alloc passes to the caller, with no lock held; an entry that
/// throws has not taken place, but may have set some of its values.

#include <list>
#include <map>
#include <string>
#include <utility>

#include <ace/Time_Value.h>

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// How the text of a named value is to be read.
enum {
    THREADINFO_TYPE_STRING = 0, ///< plain text
    THREADINFO_TYPE_INT = 1     ///< an int as decimal text
};

/// A thread's named values: name to text and type. A value named "Report" that is there at the
/// thread's first entry makes the thread a report thread, whatever its text and type.
typedef std::map<std::string, std::pair<std::string, int>> EmsThreadInfoMap;

/// What the process knows of one thread.
struct EmsThreadInfo
{
    unsigned long m_ulThreadId = 0; ///< as pthread_self() gave it
    int m_nStatus = 0;              ///< 1 inside its stretch, 0 outside
    ACE_Time_Value m_StartTime;     ///< its first entry; its latest exit once it has left
    ACE_Time_Value m_Duration;      ///< from start to entry, or as GetEmsThreadInfo() set it
    ACE_Time_Value m_MaxDuration;   ///< the largest m_Duration that an entry has set
    long long m_llRecvs = 0;        ///< entries and exits so far
    EmsThreadInfoMap m_InfoMap;     ///< all named values that it has passed in
};

/// A stretch of monitored work: it is entered where the object is made and left where it is
/// destroyed, in any order with others. Both count as an event; an inner stretch that ends leaves
/// the thread outside, though an outer one goes on.
class EMSUTIL_API RegEmsThreadInfo
{
public:
    /// Enters on the calling thread. The named values of `pInfo`, which may be null, are copied
    /// into the thread's record; names that are only in the record stay. May block for queries.
    EMSUTIL_SCOPE_OBJECT explicit RegEmsThreadInfo(
        std::map<std::string, std::pair<std::string, int>>* pInfo);

    /// Leaves, for the thread that entered, on whichever thread it runs. Does not throw, and a
    /// thread cannot be cancelled in it. May block for queries.
    ~RegEmsThreadInfo();

    RegEmsThreadInfo(const RegEmsThreadInfo&) = delete;
    RegEmsThreadInfo& operator=(const RegEmsThreadInfo&) = delete;

private:
    unsigned long m_ulThreadId;
};

/// Sets a named value in the caller's map, to be seen from the thread's next entry on. The last
/// call for a name decides its type too. A null name or text changes nothing; the text may point
/// into the map. Does not block.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, const char* value);
/// The same for an int, kept as decimal text.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, int value);

/// Whether some thread inside its stretch has been there, counted from m_StartTime, for `seconds`
/// or more. Always false for 0. Shares the lock with other queries.
EMSUTIL_API bool IsEmsThreadTimeout(long seconds);

/// Whether the thread with this id is a report thread. Does not wait for entries and exits, but for
/// the first entry of a report thread.
EMSUTIL_API bool IsEmsThreadReport(unsigned long threadId);

/// Writes all records, in the order of thread ids, as one text to the debug interface at level 1:
/// "Ems Thread Information\n", then for each thread
///
///      thread id           7f3c16c0       the low 32 bits
///      thread status       1
///      thread start        1790000000000  milliseconds since the epoch
///      thread duration     3000           milliseconds
///      thread max duration 3000           milliseconds
///      thread recvs        3
///      jobs 12                            a line a named value
///
/// Shares the lock with other queries, and writes after it is released.
EMSUTIL_API void StatEmsThreadInfo();

/// Appends copies of records to `infos`, in the order of thread ids: of all for `seconds` 0, else
/// of those that have been inside for `seconds` or more, as IsEmsThreadTimeout() counts, each with
/// its elapsed time as m_Duration, in the process's record too until the thread's next entry.
/// Appends all, or nothing when memory runs out. With a threshold it keeps other queries out
/// meanwhile.
EMSUTIL_API void GetEmsThreadInfo(std::list<EmsThreadInfo>& infos, long seconds);

/// The process's message-handling mode: the integer "MsgHandleMode" of the platform's configuration
/// file when that is 0 or 1, else 1. The file is read at the first call, for the life of the
/// process; threads that call meanwhile wait. What the platform throws passes to the caller, and
/// the next call reads again.
EMSUTIL_API int ReadMsgHandleModeSwitcher();

} // namespace NSQN_EMSUTIL_AGENT

#endif
