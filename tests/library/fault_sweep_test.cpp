#include <algorithm>
#include <future>
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

struct Fault
{
    faults::Call m_Call;
    int m_nNth; // 0: no fault
    int m_nError;
    bool m_bPersistently;
};

/// Runs the operation and notes its exception. Returns the errno that it leaves.
int Run(const Operation& operation)
{
    try {
        operation.run();
    } catch (const std::bad_alloc&) {
        Note("bad_alloc ");
    } catch (const std::system_error&) {
        Note("system_error ");
    } catch (const faults::Thrown&) {
        Note("thrown ");
    }
    return errno;
}

std::string PrepareAndRun(const Operation& operation)
{
    operation.prepare();
    Run(operation);
    return TakeState();
}

/// Returns whether the operation may have this outcome when a call of this kind fails.
bool Allows(const Operation& operation, faults::Call call, const std::string& outcome,
            const std::string& unchanged)
{
    const std::string failed = call == faults::ALLOCATION     ? "bad_alloc "
                               : call == faults::COLLABORATOR ? "thrown "
                                                              : "";
    const bool tolerated = std::ranges::count(operation.tolerates, call) != 0;
    return outcome == failed + unchanged || (tolerated && outcome == operation.does) ||
           std::ranges::count(operation.otherwise, std::pair(call, outcome)) != 0;
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
    SCOPED_TRACE(testing::Message() << operation.name << ", call " << fault.m_Call << ", nth "
                                    << fault.m_nNth << ", error " << fault.m_nError
                                    << (fault.m_bPersistently ? ", persistently" : ""));
    const int descriptor = LowestFreeDescriptor();
    operation.prepare();
    bool happened = false;
    int error = 0;
    {
        const faults::FailNth injected(fault.m_Call, fault.m_nNth, fault.m_nError,
                                       fault.m_bPersistently);
        error = Run(operation);
        happened = injected.Happened();
    }
    const std::string outcome = TakeState();
    operation.prepare();
    const std::string unchanged = TakeState();

    if (happened) {
        EXPECT_TRUE(Allows(operation, fault.m_Call, outcome, unchanged)) << outcome;
        const bool isLock =
            fault.m_Call >= faults::MUTEX_LOCK && fault.m_Call <= faults::WRITE_LOCK;
        if (isLock && outcome == unchanged) {
            EXPECT_EQ(error, fault.m_nError);
        }
    } else {
        EXPECT_EQ(outcome, operation.does);
    }
    EXPECT_EQ(PrepareAndRun(operation), operation.does);
    auto other = std::async(std::launch::async, PrepareAndRun, std::cref(operation));
    if (other.wait_for(1s) != std::future_status::ready) {
        ADD_FAILURE() << "another thread hangs";
        Exit(2);
    }
    EXPECT_EQ(other.get(), operation.does);
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
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << operation.name << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

/// Fails the first call of each kind, then the second and so on, until the operation gets through.
/// Returns how many faults happened.
int Sweep(const Operation& operation, long& allocations)
{
    static const std::pair<faults::Call, std::vector<int>> errors[] = {
        {faults::ALLOCATION, {ENOMEM}},
        {faults::MUTEX_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::READ_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::WRITE_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::WRITE, {ENOSPC, EIO, EINTR, faults::SHORT_WRITE}},
        {faults::CLOCK, {EINVAL}},
        {faults::TIME_TEXT, {EINVAL}},
        {faults::COLLABORATOR, {0}},
    };
    SurvivesInChild(operation, {}, allocations); // the run to compare with
    int faults = 0;
    for (const auto& [call, ofCall] : errors) {
        for (const int error : ofCall) {
            for (const bool persistently : {false, true}) {
                if (persistently && call == faults::MUTEX_LOCK && operation.repeatsFailedMutexes) {
                    continue;
                }
                int nth = 1;
                while (!testing::Test::HasFailure() && // one is enough
                       SurvivesInChild(operation, {call, nth, error, persistently}, allocations)) {
                    ++nth;
                }
                faults += nth - 1;
            }
        }
    }
    return faults;
}

} // namespace

TEST(FaultSweep, EveryOperationSurvivesEveryFault)
{
    // ACE writes a message when memory runs out, and would then create objects for it: create them
    // now, and switch the message off.
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    ACE_Log_Category::ace_lib().per_thr_obj();
    const ReportDirectory directory;
    auto* const allocations = static_cast<long*>( // shared with the children
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int faults = 0;
    for (const Operation& operation : AllOperations()) { // each child is the first to use a service
        faults += Sweep(operation, *allocations);
    }
    munmap(allocations, sizeof(long));
    std::printf("%d faults\n", faults);
    EXPECT_GE(faults, 800);
}
