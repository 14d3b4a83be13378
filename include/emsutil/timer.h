#ifndef EMSUTIL_TIMER_H
#define EMSUTIL_TIMER_H

/// Timers: a task manager of the platform calls a function of the caller once, after one unit of
/// the manager's time. A task manager owns tasks and delivers their expiries. The platform decides
/// how its task managers are created, and how long the unit of each is. Each timer is one task of
/// its task manager.
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     void* Copy(void* text) { return new std::string(*static_cast<std::string*>(text)); }
///     void Show(void* text) { Display(*static_cast<std::string*>(text)); }
///     void Free(void* text) { delete static_cast<std::string*>(text); }
///
///     EmsUtilTimerInterface timer = {Show, Copy, Free};
///     std::string text = "a unit of time later";
///     ScheduleEmsUtilTimer(7, timer, &text);
///
/// Thread safety: any thread may schedule at any time, also from a command handler, a timer's
/// function or the destructor of a transaction log's buffer. The table below says which thread
/// calls each function.
/// Ownership: the EmsUtilTimerInterface is copied. The caller's data still belongs to the caller.
/// The copy that pfnCopyParam returns belongs to the timer, which passes it to pfnFreeParam.
/// Errors: no function reports an error. Some failures write a line at level 1 of the debug
/// interface. An exception of pfnCopyParam, or of the task manager during ScheduleEmsUtilTimer(),
/// passes to the caller, and the library arms no timer. An exception of pfnTimeout passes to the
/// task manager, and the timer is finished. pfnFreeParam must not throw. A thread cannot be
/// cancelled while pfnFreeParam runs.

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// The functions of a timer. A null function is not called. If pfnCopyParam is null, the timer has
/// no copy of the data, and pfnTimeout receives null. pfnCopyParam is not called if the caller's
/// data is null. pfnFreeParam is not called if the copy is null.
///
/// | function | receives | is called once | by the thread that |
/// |---|---|---|---|
/// | pfnCopyParam | the caller's data | during ScheduleEmsUtilTimer() | schedules it |
/// | pfnTimeout | the copy, which may be null | at the expiry | delivers the expiry |
/// | pfnFreeParam | the copy | when the task is destroyed | destroys the task |
struct EmsUtilTimerInterface
{
    void (*pfnTimeout)(void*);    ///< the caller's function
    void* (*pfnCopyParam)(void*); ///< returns the timer's own copy of the data
    void (*pfnFreeParam)(void*);  ///< destroys the copy
};

/// Schedules a timer: the task manager with this id (0 to 255) calls `timer.pfnTimeout` once, when
/// one unit of the manager's time has passed. `timer` and the data that `param` points to may be
/// destroyed once the call has returned.
///
/// A timer cannot be cancelled. A manager that is stopped destroys its timers without firing them.
/// The call may wait as long as the task manager takes to arm a timer. The platform may fire the
/// timer on the calling thread, before the call has returned.
///
/// Writes "Find TaskMgrID %d failed\n" if there is no task manager with this id, or if the
/// platform's eKorGetAppMgr() returns null.
/// Writes "new EmsUtilAgentTimerTask task failed bytes %u\n" if there is no memory for the timer.
/// Writes nothing if the timer's lock cannot be taken, or if the task manager does not arm the
/// timer.
///
/// After each of these failures the library has armed no timer. If the data had already been
/// copied, the timer's task owns the copy: it is passed to pfnFreeParam when the task is destroyed.
EMSUTIL_API void ScheduleEmsUtilTimer(unsigned char taskMgrId, EmsUtilTimerInterface& timer,
                                      void* param);

} // namespace NSQN_EMSUTIL_AGENT

#endif
