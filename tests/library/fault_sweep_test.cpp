#include <algorithm>
#include <fstream>
#include <future>
#include <set>
#include <string>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ace/Log_Category.h>
#include <ace/Log_Msg.h>

#include "tests/library/fault_sweep.h"
#include "tests/support/test_platform.h"

using namespace std::chrono_literals;

/// Writes the coverage of a process, which _Exit() does not write. It is null in builds without
/// coverage.
extern "C" [[gnu::weak]] void __gcov_dump(); // NOLINT(bugprone-reserved-identifier): gcc's name

namespace {

struct Outcome
{
    long result = 0;
    std::string thrown = {}; // the exception instead of a result
    State state = {};
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    const State& state = outcome.state;
    out << "result " << outcome.result << ", thrown " << outcome.thrown << ", called "
        << state.called << ", queued " << state.queued << ", registered " << state.registered
        << ", lines " << testing::PrintToString(state.lines) << ", reported " << state.reported;
    for (const auto& [inside, events, report] : state.threads) {
        out << ", thread: inside " << inside << ", events " << events << ", report " << report;
    }
    for (const auto& [references, extra, buffers] : state.logs) {
        out << ", log: references " << references << ", extra " << extra << ", buffers " << buffers;
    }
    return out << ", lock errors " << testing::PrintToString(state.lockErrors);
}

struct Fault
{
    faults::Call m_Call;
    int m_nNth; // 0: no fault
    int m_nError;
    bool m_bPersistently;
};

/// Runs the operation. The outcome has no state yet.
Outcome Run(const Operation& operation)
{
    try {
        return {.result = operation.run.m_Call()};
    } catch (const std::bad_alloc&) {
        return {.thrown = "bad_alloc"};
    } catch (const std::system_error&) {
        return {.thrown = "system_error"};
    } catch (const faults::Thrown&) {
        return {.thrown = "thrown"};
    }
}

Outcome PrepareAndRun(const Operation& operation)
{
    operation.prepare();
    Outcome outcome = Run(operation);
    outcome.state = TakeState();
    return outcome;
}

/// Returns whether the operation may have this outcome when a call of this kind fails.
bool Allows(const Operation& operation, faults::Call call, const Outcome& outcome,
            const Outcome& usual, const Outcome& refused)
{
    const Outcome failed = call == faults::ALLOCATION     ? Outcome{0, "bad_alloc", refused.state}
                           : call == faults::COLLABORATOR ? Outcome{0, "thrown", refused.state}
                                                          : refused;
    const bool tolerated = std::ranges::count(operation.tolerates, call) != 0;
    return outcome == failed || (tolerated && outcome == usual) ||
           std::ranges::any_of(operation.otherwise, [&](const Operation::Otherwise& other) {
               const long result = other.throws.empty() ? usual.result : 0;
               return other.fault == call && outcome == Outcome{result, other.throws, other.leaves};
           });
}

int LowestFreeDescriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

/// Ends a child process.
[[noreturn]] void Exit(int status)
{
    std::fflush(stdout);
    if (__gcov_dump != nullptr) {
        __gcov_dump();
    }
    std::_Exit(status);
}

/// Runs the operation with the fault, and then without it on this thread and on another one. Both
/// must find everything as it was. Returns whether the fault happened.
bool Survives(const Operation& operation, const Fault& fault)
{
    SCOPED_TRACE(testing::Message()
                 << operation.covers.front() << " " << operation.when << ", call " << fault.m_Call
                 << ", nth " << fault.m_nNth << ", error " << fault.m_nError
                 << (fault.m_bPersistently ? ", persistently" : ""));
    const int descriptor = LowestFreeDescriptor();
    operation.prepare();
    Outcome outcome;
    bool happened = false;
    int error = 0;
    {
        const faults::FailNth injected(fault.m_Call, fault.m_nNth, fault.m_nError,
                                       fault.m_bPersistently);
        outcome = Run(operation);
        error = errno;
        happened = injected.Happened();
    }
    outcome.state = TakeState();

    operation.prepare();
    const Outcome refused = {.result = operation.refused, .state = TakeState()};
    const Outcome usual = {.result = operation.returns,
                           .state = operation.leaves.value_or(refused.state)};
    if (happened) {
        EXPECT_TRUE(Allows(operation, fault.m_Call, outcome, usual, refused)) << outcome;
        const bool isLock =
            fault.m_Call >= faults::MUTEX_LOCK && fault.m_Call <= faults::WRITE_LOCK;
        if (isLock && outcome == refused) {
            EXPECT_EQ(error, fault.m_nError);
        }
    } else {
        EXPECT_EQ(outcome, usual);
    }
    EXPECT_EQ(PrepareAndRun(operation), usual);
    auto other = std::async(std::launch::async, PrepareAndRun, std::cref(operation));
    if (other.wait_for(1s) != std::future_status::ready) {
        ADD_FAILURE() << "another thread hangs";
        Exit(2);
    }
    EXPECT_EQ(other.get(), usual);
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
    return happened;
}

/// Survives() in a child process. `allocations` is how many it leaves; the run without a fault
/// writes it. Failures show on the child's standard output.
bool SurvivesInChild(const Operation& operation, const Fault& fault, long& allocations)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const long before = faults::LiveAllocations();
        const bool happened = Survives(operation, fault);
        const long left = faults::LiveAllocations() - before;
        if (fault.m_nNth == 0) {
            allocations = left;
        }
        EXPECT_EQ(left, allocations) << "leaks";
        Exit(testing::Test::HasFailure() ? 2 : happened);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << operation.covers.front() << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

/// Fails the first call of each kind, then the second and so on, until `survives` returns false:
/// the operation got through. Returns how many faults happened.
int Sweep(const Operation& operation, const std::function<bool(const Fault&)>& survives)
{
    static const std::pair<faults::Call, std::vector<int>> errors[] = {
        {faults::ALLOCATION, {ENOMEM}},
        {faults::MUTEX_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::READ_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::WRITE_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::OPEN, {ENOENT, EACCES, EMFILE, EINTR, ENOSPC}},
        {faults::WRITE, {ENOSPC, EIO, EINTR, faults::SHORT_WRITE}},
        {faults::CLOCK, {EINVAL}},
        {faults::TIME_TEXT, {EINVAL}},
        {faults::COLLABORATOR, {0}},
    };
    survives({}); // the run to compare with
    int faults = 0;
    for (const auto& [call, ofCall] : errors) {
        for (const int error : ofCall) {
            for (const bool persistently : {false, true}) {
                if (persistently && call == faults::MUTEX_LOCK && operation.repeatsFailedMutexes) {
                    continue;
                }
                int nth = 1;
                while (!testing::Test::HasFailure() && // one is enough
                       survives({call, nth, error, persistently})) {
                    ++nth;
                }
                faults += nth - 1;
            }
        }
    }
    return faults;
}

/// Returns a symbol without namespaces and template arguments, such as
/// "AddEmsThreadInfo(map&, char const*, int)".
std::string ShortName(std::string symbol)
{
    symbol.resize(std::min(symbol.find('@'), symbol.size()));
    while (symbol.find('>') != std::string::npos) { // the innermost arguments first
        const std::size_t end = symbol.find('>');
        const std::size_t begin = symbol.rfind('<', end);
        symbol.erase(begin, end - begin + 1);
    }
    for (const std::string dropped :
         {"NSQN_EMSUTIL_AGENT::", "NSQN_util::", "std::", "__cxx11::", "basic_", "[abi:cxx11]"}) {
        while (symbol.find(dropped) != std::string::npos) {
            symbol.erase(symbol.find(dropped), dropped.size());
        }
    }
    return symbol;
}

} // namespace

TEST(FaultSweep, CoversEveryExportedOperation)
{
    std::set<std::string> covered;
    for (const Operation& operation : AllOperations()) {
        covered.insert(operation.covers.begin(), operation.covers.end());
    }
    std::ifstream symbols(EXPORTED_SYMBOLS);
    for (std::string symbol; std::getline(symbols, symbol);) {
        if (symbol.find('(') != std::string::npos) { // others are data
            EXPECT_EQ(covered.erase(ShortName(symbol)), 1U) << ShortName(symbol) << " has no row";
        }
    }
    for (const std::string& operation : covered) {
        ADD_FAILURE() << operation << " is not exported";
    }
}

TEST(FaultSweep, EveryOperationSurvivesEveryFault)
{
    // ACE writes a message when memory runs out, and would then create objects for it: create them
    // now, and switch the message off.
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    ACE_Log_Category::ace_lib().per_thr_obj();
    const ReportDirectory directory;
    SetUpServices();
    auto* const allocations = static_cast<long*>( // shared with the children
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int faults = 0;
    const std::vector<Operation> operations = AllOperations();
    for (const Operation& operation : operations) { // each child is the first to use a service
        faults += Sweep(operation, [&](const Fault& fault) {
            return SurvivesInChild(operation, fault, *allocations);
        });
    }
    for (const Operation& operation : operations) { // all process-wide objects exist
        Survives(operation, {});
        faults += Sweep(operation, [&](const Fault& fault) {
            const long before = faults::LiveAllocations();
            const bool happened = Survives(operation, fault);
            EXPECT_EQ(faults::LiveAllocations(), before) << operation.covers.front();
            return happened;
        });
    }
    munmap(allocations, sizeof(long));
    std::printf("%d faults\n", faults);
    EXPECT_GE(faults, 2000);
}
