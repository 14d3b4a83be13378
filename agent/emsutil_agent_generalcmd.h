#ifndef AGENT_EMSUTIL_AGENT_GENERALCMD_H
#define AGENT_EMSUTIL_AGENT_GENERALCMD_H

#include <map>
#include <memory>
#include <string>

#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not declare the thread-safe queue.
#include <ace/Message_Queue.h>

#include "emsutil/general_command.h"

namespace NSQN_EMSUTIL_AGENT {

/// The process's command registry: the handlers by name, and the queue of pending commands.
///
/// The instance exists until the process ends. Commands that are queued then are neither run nor
/// freed. The queue has its own locks, which are taken with no other lock held.
class EmsGeneralCmdMgr
{
public:
    /// Returns the instance, and creates it on first use. Returns null when ACE's lock for static
    /// objects fails.
    static EmsGeneralCmdMgr* Instance();

    EmsGeneralCmdMgr();
    /// Frees the commands still queued without running them.
    ~EmsGeneralCmdMgr();
    EmsGeneralCmdMgr(const EmsGeneralCmdMgr&) = delete;
    EmsGeneralCmdMgr& operator=(const EmsGeneralCmdMgr&) = delete;

    void Register(const std::string& name, EmsGeneralCmdHandler handler);
    void Add(const EmsGeneralCmd& cmd);
    void Run(EmsGeneralCmd& cmd);
    void Drain();

private:
    /// Returns the handler of `name`, or null, also when the lock cannot be taken.
    EmsGeneralCmdHandler FindHandler(const std::string& name);

    std::unique_ptr<ACE_Message_Queue<ACE_MT_SYNCH>> m_pCmdQueue; // constant after construction
    std::map<std::string, EmsGeneralCmdHandler> m_CmdHandlerMap;  // guarded by m_CmdHandlerLock
    ACE_Thread_Mutex m_CmdHandlerLock;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
