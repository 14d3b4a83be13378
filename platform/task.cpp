#include "emsplatform/task.h"

#include <atomic>
#include <memory>
#include <new>

#include "platform/task_store.h"

namespace {

constexpr int STATE_FINISHED = 3;

} // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the record is created in the memory
eKorTask::eKorTask(eKorTaskMgr* taskMgr, const char* name)
    : m_pState(new (m_StateMemory) State(*this, *taskMgr, name))
{
    static_assert(sizeof(State) <= sizeof m_StateMemory && alignof(State) <= alignof(long long));
}

eKorTask::~eKorTask()
{
    if (m_pState->m_bKnown) { // not destroyed by the manager
        m_pState->m_Store.Forget(*m_pState);
    }
    std::destroy_at(m_pState);
}

void eKorTask::InitTaskCmdReqProcess(CmdMSG*) {}

void eKorTask::eKorTaskTimeInterval(long) {}

long eKorTask::SetTaskTimeInterval(unsigned int interval)
{
    return m_pState->m_Store.Arm(*m_pState, interval);
}

void eKorTask::DelTaskTimeInterval(long id)
{
    m_pState->m_Store.Disarm(*m_pState, id);
}

void eKorTask::eKorSetTaskState(int state)
{
    if (state == STATE_FINISHED) {
        m_pState->m_Store.Finish(*m_pState);
    }
}

void eKorGnlTask::eKorTaskCmdRecv(CmdMSG*) {}

void eKorGnlTask::eKorTaskCmdResp(eKorErrorCode, CmdMSG*) {}

void eKorGnlTask::HandleNoAsn1Msg(QNCmdMsg*) {}

PSyncHelp::~PSyncHelp() = default;

unsigned long eKorTaskMgr::AllocReqID(eKorTask*)
{
    static std::atomic<unsigned long> last = 0;
    return ++last;
}

int eKorTaskMgr::TMInitInsertTask(eKorTask* task)
{
    eKorTask::State& state = eKorTask::State::Of(*task);
    state.m_Store.Insert(state);
    return 0;
}
