#ifndef TESTS_FAULTS_H
#define TESTS_FAULTS_H

/// Faults in the calls that the library makes, put in by defining those calls in the test program.

#include <atomic>
#include <cerrno>

namespace faults {

enum Call { ALLOCATION, MUTEX_LOCK, READ_LOCK, WRITE_LOCK, CALLS };

/// Makes one call of this thread fail while it lives: the n-th of its kind, 1 being the next. A
/// lock call fails with `error`, an allocation as the kind of operator new has it.
class FailNth
{
public:
    explicit FailNth(Call call, int n = 1, int error = EINVAL);
    ~FailNth();
    FailNth(const FailNth&) = delete;
    FailNth& operator=(const FailNth&) = delete;

    /// Whether the call has come and failed.
    bool Happened() const;

private:
    Call m_Call;
};

/// What gettimeofday() answers, in microseconds since the epoch; or one of the two below.
constexpr long long REAL_CLOCK = -1;
constexpr long long FAILING_CLOCK = -2;
extern std::atomic<long long> g_llClock;

/// What ctime_r() does instead of its work; null for its work.
extern char* (*g_pCtime)(char* buffer);

/// Called by each gettimeofday(); null for nobody.
extern void (*g_pOnClock)();

/// Called by each thread that is about to wait for a condition; null for nobody.
extern void (*g_pOnConditionWait)();

} // namespace faults

#endif
