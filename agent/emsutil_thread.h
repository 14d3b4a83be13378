#ifndef AGENT_EMSUTIL_THREAD_H
#define AGENT_EMSUTIL_THREAD_H

#include <map>
#include <set>

#include <ace/RW_Thread_Mutex.h>

#include "emsutil/thread_monitor.h"

namespace NSQN_EMSUTIL_AGENT {

/// Copies the named values of `pInfo` into the record. A value replaces one of the same name.
void MergeInfoMap(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo);

/// The process's records of its monitored threads. The instance exists until the process ends.
///
/// Lock order: m_ThreadInfoLock before m_ReportThreadLock.
class EmsThreadInfoMgr
{
public:
    /// Returns the instance, and creates it on first use. Returns null when ACE's lock for static
    /// objects fails.
    static EmsThreadInfoMgr* Instance();

    /// Applies an entry (`info.m_nStatus` 1) or an exit (0) at `info.m_StartTime` to the record of
    /// its thread. The first entry copies `info` into a new record, and may change `info`.
    void UpdateThreadInfo(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo);

    bool IsTimeout(long seconds);
    bool IsReport(unsigned long threadId);
    /// Appends the lines of every record. Returns false, and appends nothing, if the lock cannot be
    /// taken.
    bool AppendStatistics(std::string& text);
    void GetAll(std::list<EmsThreadInfo>& infos);
    void GetOverdue(std::list<EmsThreadInfo>& infos, long seconds);

private:
    void AddRecord(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo);

    static EmsThreadInfoMgr* m_pInstance;

    std::map<unsigned long, EmsThreadInfo> m_ThreadInfoMap; // guarded by m_ThreadInfoLock
    ACE_RW_Thread_Mutex m_ThreadInfoLock;
    std::set<unsigned long> m_ReportThreadSet; // guarded by m_ReportThreadLock
    ACE_RW_Thread_Mutex m_ReportThreadLock;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
