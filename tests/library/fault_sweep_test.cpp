#include <algorithm>
#include <future>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ace/Log_Category.h>
#include <ace/Log_Msg.h>

#include "tests/library/fault_sweep.h"
#include "tests/support/test_platform.h"

using namespace std::chrono_literals;

/// In a build that counts coverage, and null in others: writes what a process has counted, which
/// _Exit() does not.
extern "C" [[gnu::weak]] void __gcov_dump(); // NOLINT(bugprone-reserved-identifier): gcc's name

namespace {

struct Fault
{
    faults::Call m_Call;
    int m_nNth;
    int m_nError;
    bool m_bPersistently;
};

std::string Run(const Operation& operation)
{
    try {
        return operation.m_Run();
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const std::system_error&) {
        return "system_error";
    } catch (const faults::Thrown&) {
        return "thrown";
    }
}

std::string PrepareAndRun(const Operation& operation)
{
    operation.m_Prepare();
    std::string outcome = Run(operation);
    return outcome + "|" + TakeState();
}

bool Allows(const Operation& operation, faults::Call call, const std::string& outcome)
{
    const std::string nothing = operation.m_Refused.substr(operation.m_Refused.find('|'));
    return (call == faults::ALLOCATION     ? outcome == "bad_alloc" + nothing
            : call == faults::COLLABORATOR ? outcome == "thrown" + nothing
                                           : outcome == operation.m_Refused) ||
           std::count(operation.m_Others.begin(), operation.m_Others.end(),
                      std::pair(call, outcome)) != 0;
}

int LowestFreeDescriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

/// Ends this process, the test's or a child's; 2 tells of a failure in either.
[[noreturn]] void Exit(int status)
{
    std::fflush(stdout);
    if (__gcov_dump != nullptr) {
        __gcov_dump();
    }
    std::_Exit(status);
}

/// Runs the operation with the fault, then on this thread and on another without: both must find
/// everything as it was. Returns whether the fault came.
bool Survives(const Operation& operation, const Fault& fault)
{
    SCOPED_TRACE(testing::Message() << operation.m_pName << ", call " << fault.m_Call << ", nth "
                                    << fault.m_nNth << ", error " << fault.m_nError
                                    << (fault.m_bPersistently ? ", persistently" : ""));
    const int descriptor = LowestFreeDescriptor();
    operation.m_Prepare();
    std::string outcome;
    bool happened = false;
    int error = 0;
    {
        const faults::FailNth injected(fault.m_Call, fault.m_nNth, fault.m_nError,
                                       fault.m_bPersistently);
        outcome = Run(operation);
        error = errno;
        happened = injected.Happened();
    }
    outcome.append("|").append(TakeState());
    if (!happened) {
        EXPECT_EQ(outcome, operation.m_Usual);
        return false;
    }
    EXPECT_TRUE(Allows(operation, fault.m_Call, outcome)) << outcome;
    const bool isLock = fault.m_Call >= faults::MUTEX_LOCK && fault.m_Call <= faults::WRITE_LOCK;
    if (isLock && outcome == operation.m_Refused) {
        EXPECT_EQ(error, fault.m_nError);
    }
    EXPECT_EQ(PrepareAndRun(operation), operation.m_Usual);
    std::future<std::string> other =
        std::async(std::launch::async, PrepareAndRun, std::cref(operation));
    if (other.wait_for(1s) != std::future_status::ready) {
        ADD_FAILURE() << "another thread hangs";
        Exit(2);
    }
    EXPECT_EQ(other.get(), operation.m_Usual);
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
    return true;
}

/// Fails the first call of each kind, then the second and so on, until `survives` tells that the
/// operation got through. Returns how many faults came.
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
    int faults = 0;
    for (const auto& [call, ofCall] : errors) {
        for (const int error : ofCall) {
            for (const bool persistently : {false, true}) {
                if (persistently && call == faults::MUTEX_LOCK && !operation.m_bPersistently) {
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

/// The same in a child process, whose exit code it is. Failures show on its standard output.
bool SurvivesAtFirstUse(const Operation& operation, const Fault& fault, long* live)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const long before = faults::LiveAllocations();
        const bool happened = Survives(operation, fault);
        if (!happened) { // as often as with a fault
            PrepareAndRun(operation);
            std::async(std::launch::async, PrepareAndRun, std::cref(operation)).get();
        }
        if (fault.m_nNth == 0) {
            *live = faults::LiveAllocations() - before;
        }
        EXPECT_EQ(faults::LiveAllocations() - before, *live)
            << operation.m_pName << " leaks, call " << fault.m_Call << ", nth " << fault.m_nNth;
        Exit(testing::Test::HasFailure() ? 2 : happened);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << operation.m_pName << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

} // namespace

TEST(FaultSweep, EveryOperationSurvivesEveryFault)
{
    // ACE has a word on memory that fails, and makes an object for it then.
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    ACE_Log_Category::ace_lib().per_thr_obj();
    const ReportFolder folder;
    SetUpServices();
    const std::vector<Operation> operations = AllOperations();
    auto* const live = static_cast<long*>(
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int faults = 0;
    for (const Operation& operation : operations) {
        const auto inChild = [&](const Fault& fault) {
            return SurvivesAtFirstUse(operation, fault, live);
        };
        inChild({});
        faults += Sweep(operation, inChild);
    }
    for (const Operation& operation : operations) {
        Survives(operation, {}); // for what is made once
        faults += Sweep(operation, [&](const Fault& fault) {
            const long before = faults::LiveAllocations();
            const bool happened = Survives(operation, fault);
            EXPECT_EQ(faults::LiveAllocations(), before) << operation.m_pName;
            return happened;
        });
    }
    munmap(live, sizeof(long));
    std::printf("%d faults in %zu operations\n", faults, operations.size());
    EXPECT_GE(faults, 2000);
}
