#include "agent/emsutil_agent_generalcmd.h"

#include "base/process_wide.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr std::size_t WATER_MARK_BYTES = 16384;

constinit EmsGeneralCmdMgr* g_pGeneralCmdMgr = nullptr;

/// How many drains this thread is in: a handler may drain again.
constinit thread_local int g_nDrainDepth = 0;

class DrainScope
{
public:
    DrainScope() { ++g_nDrainDepth; }
    ~DrainScope() { --g_nDrainDepth; }
    DrainScope(const DrainScope&) = delete;
    DrainScope& operator=(const DrainScope&) = delete;
};

/// Holds an add back while it is full, except on a thread that drains: nobody else would make room
/// for it. Nor does a drain wait for a command: the queue turns out to be empty when a lock has
/// failed in the test before, or another drain has taken the last one.
class BoundedCmdQueue final : public ACE_Message_Queue<ACE_MT_SYNCH>
{
public:
    BoundedCmdQueue() : ACE_Message_Queue(WATER_MARK_BYTES, WATER_MARK_BYTES, nullptr) {}

protected:
    int wait_not_full_cond(ACE_Time_Value* timeout) override
    {
        return g_nDrainDepth > 0 ? 0 : ACE_Message_Queue::wait_not_full_cond(timeout);
    }
    int wait_not_empty_cond(ACE_Time_Value* timeout) override
    {
        if (g_nDrainDepth > 0) {
            return is_empty_i() ? -1 : 0;
        }
        return ACE_Message_Queue::wait_not_empty_cond(timeout);
    }
};

/// A command and the block that refers to it. The command is freed first, then the block.
class CmdBlock
{
public:
    /// A copy of `cmd` in a new block. The block is of no use when ACE could not get its memory.
    explicit CmdBlock(const EmsGeneralCmd& cmd) : m_pCmd(std::make_unique<EmsGeneralCmd>())
    {
        *m_pCmd = cmd;
        m_pBlock = std::make_unique<ACE_Message_Block>(reinterpret_cast<const char*>(m_pCmd.get()),
                                                       sizeof(EmsGeneralCmd), 0);
    }

    /// The next block of a queue, or nothing when the queue gave none.
    explicit CmdBlock(ACE_Message_Queue<ACE_MT_SYNCH>& queue)
    {
        ACE_Message_Block* block = nullptr;
        queue.dequeue(block, nullptr);
        m_pBlock.reset(block);
        if (m_pBlock != nullptr) {
            m_pCmd.reset(reinterpret_cast<EmsGeneralCmd*>(m_pBlock->base()));
        }
    }

    EmsGeneralCmd* Cmd() const { return m_pCmd.get(); }

    /// Hands both over to the queue; frees them when it does not take them.
    void EnqueueTo(ACE_Message_Queue<ACE_MT_SYNCH>& queue)
    {
        // ACE's constructor of a block swallows an allocation failure and leaves it without data.
        if (m_pBlock->data_block() != nullptr && queue.enqueue(m_pBlock.get(), nullptr) != -1) {
            static_cast<void>(m_pCmd.release());
            static_cast<void>(m_pBlock.release());
        }
    }

private:
    std::unique_ptr<ACE_Message_Block> m_pBlock;
    std::unique_ptr<EmsGeneralCmd> m_pCmd;
};

} // namespace

EmsGeneralCmdMgr* EmsGeneralCmdMgr::Instance()
{
    return CreateOnce(g_pGeneralCmdMgr);
}

EmsGeneralCmdMgr::EmsGeneralCmdMgr()
{
    m_pCmdQueue = std::make_unique<BoundedCmdQueue>();
}

EmsGeneralCmdMgr::~EmsGeneralCmdMgr()
{
    try {
        while (!m_pCmdQueue->is_empty()) {
            const CmdBlock freed(*m_pCmdQueue);
        }
        m_pCmdQueue.reset();
    } catch (...) { // not covered: nothing above throws as long as ACE's queue does not
        // What could not be taken is lost; the handlers and their lock are still torn down.
    }
}

void EmsGeneralCmdMgr::Register(const std::string& name, EmsGeneralCmdHandler handler)
{
    const ACE_Guard<ACE_Thread_Mutex> guard(m_CmdHandlerLock);
    if (guard.locked() && handler != nullptr) {
        m_CmdHandlerMap.emplace(name, handler);
    }
}

void EmsGeneralCmdMgr::Add(const EmsGeneralCmd& cmd)
{
    CmdBlock(cmd).EnqueueTo(*m_pCmdQueue);
}

void EmsGeneralCmdMgr::Run(EmsGeneralCmd& cmd)
{
    if (EmsGeneralCmdHandler handler = FindHandler(cmd.name)) {
        handler(&cmd, nullptr);
    }
}

void EmsGeneralCmdMgr::Drain()
{
    const DrainScope draining;
    while (!m_pCmdQueue->is_empty()) {
        const CmdBlock next(*m_pCmdQueue);
        if (next.Cmd() != nullptr) {
            Run(*next.Cmd());
        }
    }
}

EmsGeneralCmdHandler EmsGeneralCmdMgr::FindHandler(const std::string& name)
{
    const ACE_Guard<ACE_Thread_Mutex> guard(m_CmdHandlerLock);
    if (!guard.locked()) {
        return nullptr;
    }
    const auto found = m_CmdHandlerMap.find(name);
    return found != m_CmdHandlerMap.end() ? found->second : nullptr;
}

RegEmsUtilCmd::RegEmsUtilCmd(std::string& name, EmsGeneralCmdHandler handler)
{
    if (EmsGeneralCmdMgr* mgr = EmsGeneralCmdMgr::Instance()) {
        mgr->Register(name, handler);
    }
}

void addGeneralCmd(EmsGeneralCmd& cmd)
{
    if (EmsGeneralCmdMgr* mgr = EmsGeneralCmdMgr::Instance()) {
        mgr->Add(cmd);
    }
}

void runGeneralCmd(EmsGeneralCmd& cmd)
{
    if (EmsGeneralCmdMgr* mgr = EmsGeneralCmdMgr::Instance()) {
        mgr->Run(cmd);
    }
}

void runGeneralCmd()
{
    if (EmsGeneralCmdMgr* mgr = EmsGeneralCmdMgr::Instance()) {
        mgr->Drain();
    }
}

} // namespace NSQN_EMSUTIL_AGENT
