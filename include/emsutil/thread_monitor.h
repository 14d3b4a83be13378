#ifndef EMSUTIL_THREAD_MONITOR_H
#define EMSUTIL_THREAD_MONITOR_H

/// Thread monitor: worker threads enter and leave their monitored work, and the process asks which
/// of them are overdue.
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     EmsThreadInfoMap values; // the worker's own
///     for (int jobs = 1; jobs <= JOBS;) {
///         AddEmsThreadInfo(values, "jobs", jobs);
///         RegEmsThreadInfo inside(&values); // also for the wait, so that idle time does not count
///         if (AwaitJob(std::chrono::milliseconds(200)))
///             DoJob(jobs++);
///     }
///
///     while (!IsEmsThreadTimeout(1)) // the watchdog: a second is too long
///         std::this_thread::sleep_for(std::chrono::milliseconds(100));
///     StatEmsThreadInfo();
///
/// The process keeps one record per thread id until it ends. A new thread that gets the id of an
/// ended one continues its record.
///
/// A thread is measured from its latest exit, or from its first entry if it never left. A thread
/// that was outside for the threshold or longer is therefore overdue as soon as it enters again. A
/// worker that waits for jobs should wait inside its monitored work, and should leave and enter
/// again before the threshold of the watchdog has passed.
///
/// All times are wall-clock times as gettimeofday() reads them, to the microsecond. A clock that
/// fails reads 0.
///
/// Thread safety: any thread may call any function at any time. A map of named values has no lock:
/// only one thread at a time may use it. Entries and exits wait for queries other than
/// IsEmsThreadReport(), and these queries wait for them. glibc prefers readers: queries that
/// overlap without a gap can delay entries and exits without limit. Therefore only one thread
/// should query, and it should pause between its queries.
/// Ownership: the caller's map belongs to the caller and is not kept. Records are returned as
/// copies.
/// Errors: a call that cannot take its lock does nothing, returns false if it returns a bool, and
/// leaves the code of the lock call in errno. If only the lock of the report threads fails, a first
/// entry is recorded, but its thread is not a report thread. std::bad_alloc passes to the caller,
/// with no lock held. If an entry throws, it does not count: status and times do not change, but
/// some of its named values may be in the record.

#include <list>
#include <map>
#include <string>
#include <utility>

#include <ace/Time_Value.h>

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// The types of a named value.
enum {
    THREADINFO_TYPE_STRING = 0, ///< plain text
    THREADINFO_TYPE_INT = 1     ///< an int as decimal text
};

/// A thread's named values: name to text and type. A value named "Report" at the thread's first
/// entry makes the thread a report thread. The text and type of that value do not matter.
typedef std::map<std::string, std::pair<std::string, int>> EmsThreadInfoMap;

/// The record of one thread.
struct EmsThreadInfo
{
    unsigned long m_ulThreadId = 0; ///< as pthread_self() returned it
    int m_nStatus = 0;              ///< 1 inside the monitored work, 0 outside
    ACE_Time_Value m_StartTime;     ///< the first entry, or the latest exit if there is one
    ACE_Time_Value m_Duration;      ///< set at an entry: the time from m_StartTime, as it
                                    ///< was at that entry, to the entry. 0 before the second
                                    ///< entry. GetEmsThreadInfo() may change it.
    ACE_Time_Value m_MaxDuration;   ///< the largest m_Duration that the record had at an entry
    long long m_llRecvs = 0;        ///< the number of entries and exits
    EmsThreadInfoMap m_InfoMap;     ///< the named values of all entries, merged
};

/// Monitored work: the thread enters it where the object is created, and leaves it where the object
/// is destroyed. Each of the two counts as one event. Objects may be nested or overlap in any
/// order, but the thread is outside after every exit, even if an outer object still exists.
///
/// Thread safety, ownership and errors: as at the top of this header.
class EMSUTIL_API RegEmsThreadInfo
{
public:
    /// Enters on the calling thread. Copies the named values of `pInfo`, which may be null, into
    /// the thread's record. Values of other names stay in the record. The map must not be changed
    /// until the constructor has returned. May wait for queries.
    EMSUTIL_SCOPE_OBJECT explicit RegEmsThreadInfo(
        std::map<std::string, std::pair<std::string, int>>* pInfo);

    /// Leaves the monitored work. The exit counts for the thread that entered, even if another
    /// thread destroys the object. Does not throw. A thread cannot be cancelled while this
    /// runs. May wait for queries.
    ~RegEmsThreadInfo();

    RegEmsThreadInfo(const RegEmsThreadInfo&) = delete;
    RegEmsThreadInfo& operator=(const RegEmsThreadInfo&) = delete;

private:
    unsigned long m_ulThreadId;
};

/// Sets a named value in the caller's map. The thread's next entry copies it into the record. The
/// last call for a name also decides its type. Changes nothing when the name or the text is null.
/// The text may point into the map. Does not wait.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, const char* value);

/// Sets a named value of the type int, which is stored as decimal text. Changes nothing when the
/// name is null. Does not wait.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, int value);

/// Returns true if a thread is inside and its measured time is `seconds` or more. Returns false for
/// 0. May run at the same time as other queries.
EMSUTIL_API bool IsEmsThreadTimeout(long seconds);

/// Returns whether the thread with this id is a report thread. Waits only for the first entry of a
/// report thread, and only such an entry waits for this call.
EMSUTIL_API bool IsEmsThreadReport(unsigned long threadId);

/// Writes all records, in the order of thread ids, as one text to the debug interface, at level 1:
/// "Ems Thread Information\n", and then for each thread
///
///      thread id           7f3c16c0       the low 32 bits
///      thread status       1
///      thread start        1790000000000  milliseconds since the epoch
///      thread duration     3000           milliseconds
///      thread max duration 3000           milliseconds
///      thread recvs        3
///      jobs 12                            one line per named value
///
/// May run at the same time as other queries. Writes after the lock has been released, and returns
/// when the debug interface has returned.
EMSUTIL_API void StatEmsThreadInfo();

/// Appends copies of records to `infos`, in the order of thread ids. If `seconds` is 0, appends all
/// records. Otherwise appends the record of each thread that is inside and whose measured time is
/// `seconds` or more. For each of these it sets m_Duration to the measured time, both in the copy
/// and in the process's record. There the value stays until the thread's next entry.
///
/// If memory runs out, appends nothing and changes no record. If `seconds` is not 0, this
/// call and all other queries except IsEmsThreadReport() wait for each other.
EMSUTIL_API void GetEmsThreadInfo(std::list<EmsThreadInfo>& infos, long seconds);

/// Returns the process's message-handling mode: the integer "MsgHandleMode" of the platform's
/// configuration file if that is 0 or 1, and otherwise 1.
///
/// The first call reads the file, and its result holds until the process ends. Threads that call
/// meanwhile wait for the first call, so the platform must not wait for such a thread while it
/// reads. Exceptions of the platform pass to the caller, and the next call reads again. Returns 1,
/// without reading, in two cases: the lock fails, or the platform calls this function while it
/// reads.
EMSUTIL_API int ReadMsgHandleModeSwitcher();

} // namespace NSQN_EMSUTIL_AGENT

#endif
