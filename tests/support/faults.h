#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

/// Faults in the calls that the library makes, put in by defining those calls in the test program.

#include <atomic>
#include <cerrno>

namespace faults {

enum Call {
    ALLOCATION, // by operator new
    MUTEX_LOCK,
    READ_LOCK,
    WRITE_LOCK,
    OPEN,
    WRITE,
    CLOCK,        // gettimeofday()
    TIME_TEXT,    // ctime_r()
    COLLABORATOR, // see Collaborate()
    CALLS
};

/// An `error` for WRITE: half of the bytes are written.
constexpr int SHORT_WRITE = 0;

/// Makes calls of this thread fail while it lives: the n-th of a kind, 1 being the next, and, if
/// `persistently`, all after it. A call fails with `error`; an allocation as the kind of operator
/// new has it.
class FailNth
{
public:
    explicit FailNth(Call call, int n = 1, int error = EINVAL, bool persistently = false);
    ~FailNth();
    FailNth(const FailNth&) = delete;
    FailNth& operator=(const FailNth&) = delete;

    /// Whether the n-th call has come and failed.
    bool Happened() const;

private:
    Call m_Call;
};

/// While it lives no call of this thread fails or counts: what a test does is not swept.
class Pause
{
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

struct Thrown
{};

/// Called where the library has called code of its host, which may throw: throws Thrown when
/// COLLABORATOR is to fail.
void Collaborate();

/// Of operator new, in all threads, not yet deleted.
long LiveAllocations();

/// What gettimeofday() answers, in microseconds since the epoch; or one of the two below.
constexpr long long REAL_CLOCK = -1;
constexpr long long FAILING_CLOCK = -2;
extern std::atomic<long long> g_llClock;

/// What ctime_r() does instead of its work; null for its work.
extern char* (*g_pCtime)(char* buffer);

/// Called, unless null, by each thread that is about to wait for a condition.
extern void (*g_pOnConditionWait)();

/// Called, unless null, by each thread that is about to lock a mutex.
extern void (*g_pOnMutexLock)();

} // namespace faults

#endif
