#include "tests/faults.h"

#include <cstdlib>
#include <ctime>
#include <new>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>

namespace {

/// Calls to go until one fails; 0 when none is to fail.
constinit thread_local int g_nCountdown[faults::CALLS] = {};
constinit thread_local int g_nError = 0;

bool Fails(faults::Call call)
{
    return g_nCountdown[call] > 0 && --g_nCountdown[call] == 0;
}

template <class Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Lock>
int LockOrFail(faults::Call call, int (*next)(Lock*), Lock* lock)
{
    return Fails(call) ? g_nError : next(lock);
}

void* Allocate(std::size_t size)
{
    return Fails(faults::ALLOCATION) ? nullptr : std::malloc(size);
}

} // namespace

namespace faults {

std::atomic<long long> g_llClock = REAL_CLOCK;
char* (*g_pCtime)(char* buffer) = nullptr;
void (*g_pOnClock)() = nullptr;
void (*g_pOnConditionWait)() = nullptr;

FailNth::FailNth(Call call, int n, int error) : m_Call(call)
{
    g_nError = error;
    g_nCountdown[call] = n;
}

FailNth::~FailNth()
{
    g_nCountdown[m_Call] = 0;
}

bool FailNth::Happened() const
{
    return g_nCountdown[m_Call] == 0;
}

} // namespace faults

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_mutex_t*)>("pthread_mutex_lock");
    return LockOrFail(faults::MUTEX_LOCK, next, lock);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    return LockOrFail(faults::READ_LOCK, next, lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    return LockOrFail(faults::WRITE_LOCK, next, lock);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* lock)
{
    static auto* const next = Next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    if (faults::g_pOnConditionWait != nullptr) {
        faults::g_pOnConditionWait();
    }
    return next(condition, lock);
}

char* ctime_r(const time_t* time, char* buffer) noexcept
{
    static auto* const next = Next<char*(const time_t*, char*)>("ctime_r");
    return faults::g_pCtime != nullptr ? faults::g_pCtime(buffer) : next(time, buffer);
}

int gettimeofday(timeval* now, void* zone) noexcept
{
    static auto* const next = Next<int(timeval*, void*)>("gettimeofday");
    if (faults::g_pOnClock != nullptr) {
        faults::g_pOnClock();
    }
    const long long clock = faults::g_llClock;
    if (clock == faults::REAL_CLOCK) {
        return next(now, zone);
    }
    if (clock == faults::FAILING_CLOCK) {
        *now = {-7, -7}; // what a failed call leaves is not to be used
        return -1;
    }
    *now = {clock / 1000000, clock % 1000000};
    return 0;
}

} // extern "C"

// All of them, as a sanitizer has all of its own.

void* operator new(std::size_t size)
{
    if (void* memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
