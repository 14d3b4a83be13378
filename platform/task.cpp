#include "emsplatform/task.h"

#include "emsstandin/task_manager.h"
#include "platform/task_store.h"

namespace {

constexpr int STATE_FINISHED = 3;

} // namespace

eKorTask::eKorTask(eKorTaskMgr* taskMgr, const char* name) : m_pTaskMgr(taskMgr), m_pName(name) {}

eKorTask::~eKorTask()
{
    // The manager has let go of what it destroys; this is for a task that its maker destroys.
    if (m_ppInserted != nullptr || m_bFinished || m_pIntervals != nullptr) {
        Store().Forget(*this);
    }
}

emsstandin::TaskStore& eKorTask::Store() const
{
    return static_cast<emsstandin::TaskManager*>(m_pTaskMgr)->Store();
}

void eKorTask::InitTaskCmdReqProcess(CmdMSG*) {}

void eKorTask::eKorTaskTimeInterval(long) {}

long eKorTask::SetTaskTimeInterval(unsigned int interval)
{
    return Store().Arm(*this, interval);
}

void eKorTask::DelTaskTimeInterval(long id)
{
    Store().Disarm(*this, id);
}

void eKorTask::eKorSetTaskState(int state)
{
    if (state == STATE_FINISHED) {
        Store().Finish(*this);
    }
}

void eKorGnlTask::eKorTaskCmdRecv(CmdMSG*) {}

void eKorGnlTask::eKorTaskCmdResp(eKorErrorCode, CmdMSG*) {}

void eKorGnlTask::HandleNoAsn1Msg(QNCmdMsg*) {}

PSyncHelp::~PSyncHelp() = default;

unsigned long eKorTaskMgr::AllocReqID(eKorTask* task)
{
    return static_cast<emsstandin::TaskManager*>(this)->Store().AllocReqID(*task);
}

int eKorTaskMgr::TMInitInsertTask(eKorTask* task)
{
    static_cast<emsstandin::TaskManager*>(this)->Store().Insert(*task);
    return 0;
}
