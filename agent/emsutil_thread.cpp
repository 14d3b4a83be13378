#include "agent/emsutil_thread.h"

#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <pthread.h>
#include <sys/time.h>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include "base/never_destroyed.h"
#include "base/process_wide.h"
#include "base/qn_check.h"
#include "emsutil/diagnostics.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr int STATUS_OUTSIDE = 0;
constexpr int STATUS_INSIDE = 1;

constexpr const char* REPORT_NAME = "Report";

constexpr int MODE_UNREAD = -1;
constexpr int DEFAULT_MODE = 1;

constinit std::atomic<int> g_nMsgHandleMode = MODE_UNREAD;

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;

ACE_Time_Value Now()
{
    timeval now{};
    return gettimeofday(&now, nullptr) == 0 ? ACE_Time_Value(now) : ACE_Time_Value::zero;
}

/// Applies an event to the record of a thread. The values are merged first, because merging may run
/// out of memory. No exit follows such an entry, so the entry must not change the status. Values
/// that were already merged stay.
void UpdateRecord(EmsThreadInfo& record, const EmsThreadInfo& event, const EmsThreadInfoMap* pInfo)
{
    const bool isEntry = event.m_nStatus == STATUS_INSIDE;
    if (isEntry) {
        MergeInfoMap(record, pInfo);
    }
    record.m_nStatus = event.m_nStatus;
    ++record.m_llRecvs;
    if (!isEntry) {
        record.m_StartTime = event.m_StartTime;
        return;
    }
    if (record.m_StartTime < event.m_StartTime) {
        record.m_Duration = event.m_StartTime - record.m_StartTime;
    }
    if (record.m_Duration > record.m_MaxDuration) {
        record.m_MaxDuration = record.m_Duration;
    }
}

/// Applies an entry or an exit of a thread at the current time.
void ReportEvent(unsigned long threadId, int status, const EmsThreadInfoMap* pInfo)
{
    EmsThreadInfo event;
    event.m_ulThreadId = threadId;
    event.m_nStatus = status;
    event.m_StartTime = Now();
    if (EmsThreadInfoMgr* mgr = EmsThreadInfoMgr::Instance()) {
        mgr->UpdateThreadInfo(event, pInfo);
    }
}

/// Returns whether a thread is inside its monitored work and its elapsed time has reached the
/// threshold.
bool IsOverdue(const EmsThreadInfo& record, const ACE_Time_Value& now,
               const ACE_Time_Value& threshold)
{
    return record.m_nStatus == STATUS_INSIDE && now - record.m_StartTime >= threshold;
}

template <class Number>
void AppendLine(std::string& text, std::string_view label, Number number, int base = 10)
{
    char digits[24]; // 64 bits in decimal take 20 with the sign
    const auto end = std::to_chars(digits, digits + sizeof digits, number, base).ptr;
    text.append(label).append(digits, end).append("\n");
}

std::int64_t Milliseconds(const ACE_Time_Value& time)
{
    return std::int64_t{time.sec()} * 1000 + time.usec() / 1000;
}

/// Appends the lines of one record as printf would write them: a text up to its first NUL, and the
/// low 32 bits of the thread id.
void AppendRecord(std::string& text, const EmsThreadInfo& record)
{
    AppendLine(text, " thread id           ", static_cast<std::uint32_t>(record.m_ulThreadId), 16);
    AppendLine(text, " thread status       ", record.m_nStatus);
    AppendLine(text, " thread start        ", Milliseconds(record.m_StartTime));
    AppendLine(text, " thread duration     ", Milliseconds(record.m_Duration));
    AppendLine(text, " thread max duration ", Milliseconds(record.m_MaxDuration));
    AppendLine(text, " thread recvs        ", record.m_llRecvs);
    for (const auto& [name, value] : record.m_InfoMap) {
        const auto& [valueText, type] = value;
        switch (type) {
        case THREADINFO_TYPE_STRING:
            text.append(" ").append(name.c_str()).append(" ");
            text.append(valueText.c_str()).append("\n");
            break;
        case THREADINFO_TYPE_INT:
            text.append(" ").append(name.c_str());
            AppendLine(text, " ", static_cast<int>(std::strtoll(valueText.c_str(), nullptr, 10)));
            break;
        default:
            AppendLine(text, " Impossible type ", type);
            break;
        }
    }
}

int ReadMode()
{
    std::string path;
    NSQN_util::GetEmsCfgFile(path);
    int mode = 0;
    if (eKorGetRegInt("MsgHandleMode", mode, path.c_str()) == 1 && (mode == 0 || mode == 1)) {
        return mode;
    }
    return DEFAULT_MODE;
}

} // namespace

constinit EmsThreadInfoMgr* EmsThreadInfoMgr::m_pInstance = nullptr;

void MergeInfoMap(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo)
{
    if (pInfo == nullptr) {
        return;
    }
    for (const auto& [name, value] : *pInfo) {
        info.m_InfoMap.insert_or_assign(name, value);
    }
}

EmsThreadInfoMgr* EmsThreadInfoMgr::Instance()
{
    return CreateOnce(m_pInstance, [] {
        QN_CHECK_AT("emsutil_thread", 106)
        QN_ASSERT(NULL != m_pInstance);
    });
}

void EmsThreadInfoMgr::UpdateThreadInfo(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo)
{
    const WriteGuard guard(m_ThreadInfoLock);
    if (!guard.locked()) {
        return;
    }
    const auto found = m_ThreadInfoMap.find(info.m_ulThreadId);
    if (found != m_ThreadInfoMap.end()) {
        UpdateRecord(found->second, info, pInfo);
    } else if (info.m_nStatus == STATUS_INSIDE) {
        AddRecord(info, pInfo);
    }
}

void EmsThreadInfoMgr::AddRecord(EmsThreadInfo& info, const EmsThreadInfoMap* pInfo)
{
    info.m_Duration = ACE_Time_Value::zero;
    info.m_MaxDuration = ACE_Time_Value::zero;
    info.m_llRecvs = 1;
    MergeInfoMap(info, pInfo);
    const auto record = m_ThreadInfoMap.emplace(info.m_ulThreadId, info).first;
    if (pInfo == nullptr || !pInfo->contains(REPORT_NAME)) {
        return;
    }
    const WriteGuard guard(m_ReportThreadLock);
    if (!guard.locked()) {
        return;
    }
    try {
        m_ReportThreadSet.insert(info.m_ulThreadId);
    } catch (...) {
        m_ThreadInfoMap.erase(record); // the entry has not happened
        throw;
    }
}

bool EmsThreadInfoMgr::IsTimeout(long seconds)
{
    const ACE_Time_Value threshold(seconds, 0);
    const ACE_Time_Value now = Now();
    const ReadGuard guard(m_ThreadInfoLock);
    if (!guard.locked()) {
        return false;
    }
    for (const auto& [id, record] : m_ThreadInfoMap) {
        if (IsOverdue(record, now, threshold)) {
            return true;
        }
    }
    return false;
}

bool EmsThreadInfoMgr::IsReport(unsigned long threadId)
{
    const ReadGuard guard(m_ReportThreadLock);
    return guard.locked() && m_ReportThreadSet.contains(threadId);
}

bool EmsThreadInfoMgr::AppendStatistics(std::string& text)
{
    const ReadGuard guard(m_ThreadInfoLock);
    if (!guard.locked()) {
        return false;
    }
    for (const auto& [id, record] : m_ThreadInfoMap) {
        AppendRecord(text, record);
    }
    return true;
}

// Both queries first collect the copies in a list of their own, so that the caller receives all or
// none.

void EmsThreadInfoMgr::GetAll(std::list<EmsThreadInfo>& infos)
{
    std::list<EmsThreadInfo> copies;
    const ReadGuard guard(m_ThreadInfoLock);
    if (!guard.locked()) {
        return;
    }
    for (const auto& [id, record] : m_ThreadInfoMap) {
        copies.push_back(record);
    }
    infos.splice(infos.end(), copies);
}

void EmsThreadInfoMgr::GetOverdue(std::list<EmsThreadInfo>& infos, long seconds)
{
    std::list<EmsThreadInfo> copies;
    const ACE_Time_Value threshold(seconds, 0);
    const ACE_Time_Value now = Now();
    const WriteGuard guard(m_ThreadInfoLock); // it stores durations
    if (!guard.locked()) {
        return;
    }
    for (const auto& [id, record] : m_ThreadInfoMap) {
        if (IsOverdue(record, now, threshold)) {
            copies.push_back(record);
            copies.back().m_Duration = now - record.m_StartTime;
        }
    }
    // Stored last: a query that runs out of memory changes no record.
    for (const EmsThreadInfo& copy : copies) {
        m_ThreadInfoMap.at(copy.m_ulThreadId).m_Duration = copy.m_Duration;
    }
    infos.splice(infos.end(), copies);
}

RegEmsThreadInfo::RegEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>* pInfo)
    : m_ulThreadId(pthread_self())
{
    ReportEvent(m_ulThreadId, STATUS_INSIDE, pInfo);
}

RegEmsThreadInfo::~RegEmsThreadInfo()
{
    // No call in here is a cancellation point, so cancellation can stay on.
    try {
        ReportEvent(m_ulThreadId, STATUS_OUTSIDE, nullptr);
    } catch (...) {
        // A destructor must not throw.
    }
}

void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap, const char* name,
                      const char* value)
{
    if (name != nullptr && value != nullptr) {
        // The text is copied before the map changes: it may be in the map.
        std::pair<std::string, int> entry(value, THREADINFO_TYPE_STRING);
        infoMap[name] = std::move(entry);
    }
}

void AddEmsThreadInfo(std::map<std::string, std::pair<std::string, int>>& infoMap, const char* name,
                      int value)
{
    if (name != nullptr) {
        std::pair<std::string, int> entry(string_format("%d", value), THREADINFO_TYPE_INT);
        infoMap[name] = std::move(entry);
    }
}

bool IsEmsThreadTimeout(long seconds)
{
    if (seconds == 0) {
        return false;
    }
    EmsThreadInfoMgr* mgr = EmsThreadInfoMgr::Instance();
    return mgr != nullptr && mgr->IsTimeout(seconds);
}

bool IsEmsThreadReport(unsigned long threadId)
{
    EmsThreadInfoMgr* mgr = EmsThreadInfoMgr::Instance();
    return mgr != nullptr && mgr->IsReport(threadId);
}

void StatEmsThreadInfo()
{
    std::string text = "Ems Thread Information\n";
    EmsThreadInfoMgr* mgr = EmsThreadInfoMgr::Instance();
    if (mgr == nullptr || !mgr->AppendStatistics(text)) {
        return;
    }
    if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface()) {
        debug->DebugPrint(1, "%s", text.c_str());
    }
}

void GetEmsThreadInfo(std::list<EmsThreadInfo>& infos, long seconds)
{
    EmsThreadInfoMgr* mgr = EmsThreadInfoMgr::Instance();
    if (mgr == nullptr) {
        return;
    }
    if (seconds == 0) {
        mgr->GetAll(infos);
    } else {
        mgr->GetOverdue(infos, seconds);
    }
}

int ReadMsgHandleModeSwitcher()
{
    int mode = g_nMsgHandleMode.load(std::memory_order_acquire);
    if (mode != MODE_UNREAD) {
        return mode;
    }
    // Recursive: the platform may call this function while it reads the configuration.
    static NeverDestroyed<ACE_Recursive_Thread_Mutex> lock;
    static bool isReading = false; // guarded by the lock
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(lock.m_Object);
    if (!guard.locked() || isReading) {
        return DEFAULT_MODE;
    }
    mode = g_nMsgHandleMode.load(std::memory_order_relaxed);
    if (mode == MODE_UNREAD) {
        isReading = true;
        try {
            mode = ReadMode();
        } catch (...) {
            isReading = false;
            throw;
        }
        isReading = false;
        g_nMsgHandleMode.store(mode, std::memory_order_release);
    }
    return mode;
}

} // namespace NSQN_EMSUTIL_AGENT
