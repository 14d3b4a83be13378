#ifndef EMSUTIL_TIMER_H
#define EMSUTIL_TIMER_H

/// Timers: a function of the caller's, run once, shortly afterwards, by a task manager.
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
/// Thread safety: any thread may schedule at any time, from a handler, a timer's function or a
/// buffer's destructor too. The functions run as the table below says.
/// Ownership: the record is copied. The caller's data stays the caller's; what pfnCopyParam makes
/// of it belongs to the timer and goes through pfnFreeParam.
/// Errors: the caller is not told; a failure shows as a line at level 1 of the debug interface, and
/// a timer that the task manager has no memory for ends without being run. What pfnCopyParam or the
/// task manager throws meanwhile passes to the caller, and nothing is run; what pfnTimeout throws
/// is the task manager's to deal with. pfnFreeParam must not throw, and is not cancelled.

#include "emsutil/export.h"

namespace NSQN_EMSUTIL_AGENT {

/// The functions of a timer. One that is null is not called: without pfnCopyParam the timer has
/// null for its data.
///
/// | function | gets | called | on |
/// |---|---|---|---|
/// | pfnCopyParam | the caller's data, if not null | once, at once | the caller's thread |
/// | pfnTimeout | the copy, or null | once, when the time has come | where the manager delivers |
/// | pfnFreeParam | the copy, if not null | once, at the timer's end | where the manager destroys |
struct EmsUtilTimerInterface
{
    void (*pfnTimeout)(void*);    ///< what is to happen
    void* (*pfnCopyParam)(void*); ///< makes the timer's own data
    void (*pfnFreeParam)(void*);  ///< frees that
};

/// Has the task manager with this id (0 to 255) run `timer.pfnTimeout` once, when one of the
/// manager's units of time has passed. There is no way to cancel it; a manager that is stopped
/// destroys its timers without running them. May block for as long as the task manager takes to arm
/// a timer.
///
/// Without such a manager, or an application manager, writes "Find TaskMgrID %d failed\n"; when
/// memory runs out, "new EmsUtilAgentTimerTask task failed bytes %u\n".
EMSUTIL_API void ScheduleEmsUtilTimer(unsigned char taskMgrId, EmsUtilTimerInterface& timer,
                                      void* param);

} // namespace NSQN_EMSUTIL_AGENT

#endif
