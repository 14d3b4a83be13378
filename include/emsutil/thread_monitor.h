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
///         RegEmsThreadInfo inside(&values); // covers the wait too: each pass restarts the time
///         if (AwaitJob(std::chrono::milliseconds(200)))
///             DoJob(jobs++);
///     }
///
///     while (!IsEmsThreadTimeout(1)) // the watchdog: a second is too long
///         std::this_thread::sleep_for(std::chrono::milliseconds(100));
///     StatEmsThreadInfo();
///
/// The process keeps one record per thread id until the process ends. A new thread that gets the id
/// of a finished thread continues the record of that thread.
///
/// A thread is inside after an entry and outside after an exit. The measured time of a thread
/// counts from its latest exit, not from its latest entry: the time that the thread spends outside
/// counts too. If the thread has never left, its measured time counts from the first entry. A
/// thread is overdue when it is inside and its measured time has reached the threshold, which is
/// the `seconds` of the query. A thread that was outside for the threshold or longer is therefore
/// overdue as soon as it enters again. A worker that waits for jobs should wait inside its
/// monitored work, and should leave and enter again before the threshold has passed.
///
/// All times are wall-clock times as gettimeofday() reads them, to the microsecond. If the clock
/// cannot be read, its time is taken as 0.
///
/// Thread safety: any thread may call any function at any time. A map of named values has no lock:
/// two threads must not use the same map at the same time. The queries that read the records are
/// IsEmsThreadTimeout(), StatEmsThreadInfo() and GetEmsThreadInfo(). Entries and exits wait for
/// these queries, and these queries wait for entries and exits. The fourth query,
/// IsEmsThreadReport(), has a lock of its own: see there. The reader-writer locks of glibc prefer
/// readers: queries that overlap without a gap can delay entries and exits without limit. Therefore
/// only one thread should call these three queries, and it should pause between its calls.
/// Ownership: a map of named values belongs to the caller, and the library does not keep it.
/// Records are returned as copies.
/// Errors: a call that cannot take its lock does nothing, and leaves the code of the lock call in
/// errno. If the call returns a bool, it then returns false. There is one exception: a report
/// thread (see EmsThreadInfoMap) needs a second lock at its first entry. If this second lock cannot
/// be taken, the entry is recorded, but the thread does not become a report thread. std::bad_alloc
/// passes to the caller, with no lock held. An entry that throws does not count: status and times
/// do not change, but some of the entry's named values may be in the record.

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

/// The named values of a thread: a map from each name to a text and its type. If the first
/// RegEmsThreadInfo object under a thread id receives a map with the name "Report", the id is that
/// of a report thread: IsEmsThreadReport() returns true for it until the process ends. The text and
/// type of that value do not matter. The library treats report threads like all other threads.
typedef std::map<std::string, std::pair<std::string, int>> EmsThreadInfoMap;

/// The record of one thread.
struct EmsThreadInfo
{
    unsigned long m_ulThreadId = 0; ///< as pthread_self() returned it
    int m_nStatus = 0;              ///< 1 inside the monitored work, 0 outside
    ACE_Time_Value m_StartTime;     ///< the time of the first entry, or of the latest exit if there
                                    ///< is one
    ACE_Time_Value m_Duration;      ///< 0 at first. Each later entry sets it to the time since
                                    ///< m_StartTime, if the clock shows a later time than
                                    ///< m_StartTime. GetEmsThreadInfo() may set it at any time.
    ACE_Time_Value m_MaxDuration;   ///< the largest m_Duration that the record had directly after
                                    ///< an entry
    long long m_llRecvs = 0;        ///< the number of entries and exits
    EmsThreadInfoMap m_InfoMap;     ///< the named values of all entries, merged: the latest
                                    ///< value of each name
};

/// Monitored work: the thread enters it where the object is created, and leaves it where the object
/// is destroyed. EmsThreadInfo::m_llRecvs counts each entry and each exit. Objects may be nested or
/// overlap in any order, but the thread is outside after every exit, even if an outer object still
/// exists.
///
/// Thread safety, ownership and errors are described at the top of this header.
class EMSUTIL_API RegEmsThreadInfo
{
public:
    /// Enters on the calling thread. Copies the named values of `pInfo`, which may be null, into
    /// the thread's record. Values that the record has under other names stay there. The map must
    /// not be changed until the constructor has returned. May wait for queries.
    EMSUTIL_SCOPE_OBJECT explicit RegEmsThreadInfo(
        std::map<std::string, std::pair<std::string, int>>* pInfo);

    /// Leaves the monitored work. The exit counts for the thread that entered, even if another
    /// thread destroys the object. Does not throw. A thread cannot be cancelled while the
    /// destructor runs. May wait for queries.
    ~RegEmsThreadInfo();

    RegEmsThreadInfo(const RegEmsThreadInfo&) = delete;
    RegEmsThreadInfo& operator=(const RegEmsThreadInfo&) = delete;

private:
    unsigned long m_ulThreadId;
};

/// Sets a named value in the caller's map. The thread's next entry with this map copies the value
/// into the record. The last call for a name also decides the type of the value. Changes nothing if
/// the name or the text is null. The text is copied first, and may be a text of this map. Does not
/// wait.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, const char* value);

/// Sets a named value of the type THREADINFO_TYPE_INT, which is stored as decimal text. Changes
/// nothing if the name is null. Does not wait.
EMSUTIL_API void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap,
                                  const char* name, int value);

/// Returns true if a thread is overdue: it is inside, and its measured time is `seconds` or more.
/// Returns false if `seconds` is 0. Other queries may run at the same time, except
/// GetEmsThreadInfo() with `seconds` other than 0: that call and this one wait for each other.
EMSUTIL_API bool IsEmsThreadTimeout(long seconds);

/// Returns whether the thread with this id is a report thread (see EmsThreadInfoMap). Waits only
/// while another thread makes its first entry as a report thread. Such an entry may wait for this
/// call.
EMSUTIL_API bool IsEmsThreadReport(unsigned long threadId);

/// Writes all records, in the order of thread ids, as one text at level 1 of the debug interface.
/// The text is "Ems Thread Information\n", and then for each thread
///
///      thread id           7f3c16c0       the low 32 bits
///      thread status       1
///      thread start        1790000000000  milliseconds since the epoch
///      thread duration     3000           milliseconds
///      thread max duration 3000           milliseconds
///      thread recvs        3
///      jobs 12                            one line per named value
///
/// Other queries may run at the same time, except GetEmsThreadInfo() with `seconds` other than 0:
/// that call and this one wait for each other. The call writes after its lock has been released,
/// and returns when the debug interface has returned.
EMSUTIL_API void StatEmsThreadInfo();

/// Appends copies of records to `infos`, in the order of thread ids. If `seconds` is 0, appends all
/// records. Otherwise appends the record of each thread that is overdue: it is inside, and its
/// measured time is `seconds` or more. For each of these threads the call sets m_Duration to the
/// measured time, in the copy and in the process's record. The record keeps that value until
/// another such call or the thread's next entry changes it.
///
/// If memory runs out, appends nothing and changes no record. If `seconds` is not 0, this call and
/// all other queries except IsEmsThreadReport() wait for each other.
EMSUTIL_API void GetEmsThreadInfo(std::list<EmsThreadInfo>& infos, long seconds);

/// Returns the process's message-handling mode: the integer "MsgHandleMode" of the platform's
/// configuration file if that is 0 or 1. Returns 1 in all other cases. The library does not use the
/// mode itself.
///
/// The first call reads the file, and its result holds until the process ends. Threads that call
/// meanwhile wait for the first call. The platform must therefore not wait for such a thread while
/// it reads. An exception of the platform passes to the caller, and the next call reads again.
///
/// Returns 1 without reading in two cases: the lock cannot be taken, or the platform calls this
/// function while it reads.
EMSUTIL_API int ReadMsgHandleModeSwitcher();

} // namespace NSQN_EMSUTIL_AGENT

#endif
