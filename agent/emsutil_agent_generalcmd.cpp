#include "agent/emsutil_agent_generalcmd.h"

#include <cerrno>
#include <thread>

#include "base/process_wide.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr std::size_t WATER_MARK_BYTES = 16384;

/// The number of attempts that an add to a full queue makes before it waits. They take some
/// microseconds. More of them would take processor time when the drain is slow, or when a real-time
/// producer keeps it from running.
constexpr int ATTEMPTS = 8;

/// The errno of an attempt that finds no room. ACE sets EWOULDBLOCK when a queue is full, but a
/// lock may fail with EWOULDBLOCK too. No lock fails with ENOSPC.
constexpr int QUEUE_IS_FULL = ENOSPC;

constinit EmsGeneralCmdMgr* g_pGeneralCmdMgr = nullptr;

/// The number of drains that this thread is inside: a handler may drain again.
constinit thread_local int g_nDrainDepth = 0;

class DrainScope
{
public:
    DrainScope() { ++g_nDrainDepth; }
    ~DrainScope() { --g_nDrainDepth; }
    DrainScope(const DrainScope&) = delete;
    DrainScope& operator=(const DrainScope&) = delete;
};

/// The queue of pending commands.
class BoundedCmdQueue final : public ACE_Message_Queue<ACE_MT_SYNCH>
{
public:
    BoundedCmdQueue() : ACE_Message_Queue(WATER_MARK_BYTES, WATER_MARK_BYTES, nullptr) {}

    /// A producer that finds the queue full yields to the draining thread and tries again, a few
    /// times, before it waits. Each command that is drained wakes one waiting producer, and two
    /// switches of threads per command would take longer than the command.
    int enqueue(ACE_Message_Block* block, ACE_Time_Value* timeout) override
    {
        ACE_Time_Value noTime;
        for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
            const int count = ACE_Message_Queue::enqueue(block, &noTime);
            if (count != -1 || errno != QUEUE_IS_FULL) {
                return count;
            }
            std::this_thread::yield();
        }
        return ACE_Message_Queue::enqueue(block, timeout);
    }

protected:
    /// A draining thread does not wait for room, because no other thread would make any. An
    /// attempt, which has a timeout, does not wait either.
    int wait_not_full_cond(ACE_Time_Value* timeout) override
    {
        if (g_nDrainDepth > 0 || !is_full_i()) {
            return 0;
        }
        if (timeout == nullptr) {
            return ACE_Message_Queue::wait_not_full_cond(nullptr);
        }
        errno = QUEUE_IS_FULL;
        return -1;
    }

    /// A drain does not wait for a command. It finds the queue empty when another drain has removed
    /// the last command, or when a lock failed in is_empty().
    int wait_not_empty_cond(ACE_Time_Value*) override { return is_empty_i() ? -1 : 0; }

    /// No thread waits for a command, so there is none to wake. ACE would report a failed wake-up
    /// as a failed add, though the command is in the queue.
    int signal_dequeue_waiters() override { return 0; }
};

/// A command and the block that refers to it. The command is freed first, then the block.
class CmdBlock
{
public:
    /// Copies `cmd` into a new block. The block has no data when ACE could not get its memory.
    explicit CmdBlock(const EmsGeneralCmd& cmd) : m_pCmd(std::make_unique<EmsGeneralCmd>())
    {
        *m_pCmd = cmd;
        m_pBlock = std::make_unique<ACE_Message_Block>(reinterpret_cast<const char*>(m_pCmd.get()),
                                                       sizeof(EmsGeneralCmd), 0);
    }

    /// Removes the next block from the queue, if there is one.
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

    /// Moves both into the queue. If the queue refuses them they stay here, and are freed with this
    /// object.
    void EnqueueTo(ACE_Message_Queue<ACE_MT_SYNCH>& queue)
    {
        // ACE's constructor of a block hides an allocation failure and leaves the block without
        // data.
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
        // The remaining commands are lost. The handlers and their lock are nevertheless destroyed.
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
