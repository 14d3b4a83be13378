#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

/// Faults in the calls that the library makes: the test program defines these calls itself.

#include <atomic>
#include <cerrno>

namespace faults {

enum Call {
    ALLOCATION, // by operator new
    MUTEX_LOCK,
    READ_LOCK,
    WRITE_LOCK,
    WRITE,
    CLOCK,        // gettimeofday()
    TIME_TEXT,    // ctime_r()
    COLLABORATOR, // see Collaborate()
    CALLS
};

/// The `error` of a WRITE that writes half of the bytes.
constexpr int SHORT_WRITE = 0;

/// What ctime_r() returns.
constexpr char TIME_LINE[] = "Thu Jan  1 00:16:40 1970\n";

/// While it exists, the n-th call of a kind on this thread fails, and every later one too if
/// `persistently`. The next call is number 1; no call is number 0. A call fails with `error`,
/// except an allocation, which fails as its operator new does. An inner object suspends the outer
/// one.
class FailNth
{
public:
    explicit FailNth(Call call, int n = 1, int error = EINVAL, bool persistently = false);
    ~FailNth();
    FailNth(const FailNth&) = delete;
    FailNth& operator=(const FailNth&) = delete;

    /// Returns whether the n-th call has been made and has failed.
    bool Happened() const { return m_nNth > 0 && m_nCalls >= m_nNth; }

    /// Counts a call. Returns whether it fails, and then sets errno.
    bool Fails(Call call);

private:
    FailNth* const m_pOuter;
    const Call m_Call;
    const int m_nNth;
    const int m_nError;
    const bool m_bPersistently;
    int m_nCalls = 0;
};

struct Thrown
{};

/// Throws Thrown if COLLABORATOR fails. Tests call it in code of a host that the library calls and
/// that may throw.
void Collaborate();

/// Returns how many allocations of all threads by operator new are not yet deleted.
long LiveAllocations();

/// The time that gettimeofday() returns, in microseconds since the epoch, or one of these two.
constexpr long long REAL_CLOCK = -1;
constexpr long long FAILING_CLOCK = -2;
extern std::atomic<long long> g_llClock;

/// Called, unless null, by each thread that is about to wait for a condition. May throw.
extern void (*g_pOnConditionWait)();

} // namespace faults

#endif
