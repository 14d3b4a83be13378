#include <map>
#include <memory>
#include <random>
#include <string>

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#ifdef BENCH_HAS_BOOST
#include <boost/signals2.hpp>
#endif
#ifdef BENCH_HAS_POCO
#include <Poco/Notification.h>
#include <Poco/NotificationCenter.h>
#include <Poco/Observer.h>
#endif

#include "bench/compare.h"
#include "emsutil/general_command.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

int g_nHandled = 0;

int Handle(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    benchmark::DoNotOptimize(cmd);
    return ++g_nHandled;
}

std::string Name(int number)
{
    return "Command" + std::to_string(number);
}

std::map<std::string, EmsGeneralCmdHandler> g_Handlers;
ACE_Thread_Mutex g_HandlerLock;

EmsGeneralCmdHandler Find(const std::string& name)
{
    const auto found = g_Handlers.find(name);
    return found != g_Handlers.end() ? found->second : nullptr;
}

EmsGeneralCmdHandler FindLocked(const std::string& name)
{
    const ACE_Guard<ACE_Thread_Mutex> guard(g_HandlerLock);
    return Find(name);
}

#ifdef BENCH_HAS_BOOST
using Signal = boost::signals2::signal<int(EmsGeneralCmd*, EmsGeneralCmd*)>;

std::map<std::string, Signal> g_Signals;
#endif

#ifdef BENCH_HAS_POCO
struct CmdNotification : Poco::Notification
{
    explicit CmdNotification(EmsGeneralCmd& command) : cmd(command) {}

    EmsGeneralCmd& cmd;
};

/// Takes the commands of one name out of all.
struct Listener
{
    explicit Listener(std::string name) : m_Name(std::move(name)) {}

    void Notify(CmdNotification* notification)
    {
        const Poco::AutoPtr<CmdNotification> held(notification);
        if (notification->cmd.name == m_Name) {
            Handle(&notification->cmd, nullptr);
        }
    }

    std::string m_Name;
};

Poco::NotificationCenter g_Center;
std::vector<std::unique_ptr<Listener>> g_Listeners;
#endif

/// Registers the handlers up to this many with all; it cannot be undone.
void RegisterUpTo(int handlers)
{
    for (int number = static_cast<int>(g_Handlers.size()); number < handlers; ++number) {
        std::string name = Name(number);
        const RegEmsUtilCmd registration(name, Handle);
        g_Handlers.emplace(name, Handle);
#ifdef BENCH_HAS_BOOST
        g_Signals[name].connect(Handle);
#endif
#ifdef BENCH_HAS_POCO
        g_Listeners.push_back(std::make_unique<Listener>(name));
        g_Center.addObserver(
            Poco::Observer<Listener, CmdNotification>(*g_Listeners.back(), &Listener::Notify));
#endif
    }
}

/// Runs commands in an order that the processor cannot learn by heart.
template <class Run>
Body Repeat(std::vector<EmsGeneralCmd>& commands, Run run)
{
    return [&commands, run](benchmark::State& state) {
        std::mt19937 random(20);
        std::vector<EmsGeneralCmd*> order(65536);
        for (EmsGeneralCmd*& cmd : order) {
            cmd = &commands[random() % commands.size()];
        }
        std::size_t next = 0;
        for (auto _ : state) {
            run(*order[next++ % order.size()]);
        }
    };
}

} // namespace

void MeasureCommandHandlers()
{
    for (const auto& [handlers, text] :
         {std::pair(10, "10"), std::pair(100, "100"), std::pair(1000, "1,000")}) {
        RegisterUpTo(handlers);
        std::vector<EmsGeneralCmd> commands(static_cast<std::size_t>(handlers));
        for (int number = 0; number < handlers; ++number) {
            commands[static_cast<std::size_t>(number)].name = Name(number);
        }
        std::vector<Row> rows = {
            Ours(Repeat(commands, [](EmsGeneralCmd& cmd) { runGeneralCmd(cmd); })),
            Floor(
                Repeat(commands, [](EmsGeneralCmd& cmd) { FindLocked(cmd.name)(&cmd, nullptr); })),
            Peer("no lock",
                 Repeat(commands, [](EmsGeneralCmd& cmd) { Find(cmd.name)(&cmd, nullptr); })),
        };
#ifdef BENCH_HAS_BOOST
        rows.push_back(Rival("Boost.Signals2 a name", Repeat(commands, [](EmsGeneralCmd& cmd) {
                                 g_Signals.find(cmd.name)->second(&cmd, nullptr);
                             })));
#endif
#ifdef BENCH_HAS_POCO
        rows.push_back(Rival("Poco::NotificationCenter", Repeat(commands, [](EmsGeneralCmd& cmd) {
                                 g_Center.postNotification(new CmdNotification(cmd));
                             })));
#endif
        Compare({std::string("runGeneralCmd(cmd), ") + text + " handlers", 1.1}, rows);
    }
}

} // namespace bench
