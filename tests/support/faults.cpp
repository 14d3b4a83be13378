#include "tests/support/faults.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constinit thread_local faults::FailNth* g_pFault = nullptr;
constinit std::atomic<long> g_lLiveAllocations = 0; // relaxed: it orders no threads

bool Fails(faults::Call call)
{
    return g_pFault != nullptr && g_pFault->Fails(call);
}

template <class Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void* Allocate(std::size_t size)
{
    void* const memory = Fails(faults::ALLOCATION) ? nullptr : std::malloc(size);
    g_lLiveAllocations.fetch_add(memory != nullptr, std::memory_order_relaxed);
    return memory;
}

void Free(void* memory)
{
    g_lLiveAllocations.fetch_sub(memory != nullptr, std::memory_order_relaxed);
    std::free(memory);
}

} // namespace

namespace faults {

std::atomic<long long> g_llClock = REAL_CLOCK;
void (*g_pOnConditionWait)() = nullptr;

FailNth::FailNth(Call call, int n, int error, bool persistently)
    : m_pOuter(std::exchange(g_pFault, this)), m_Call(call), m_nNth(n), m_nError(error),
      m_bPersistently(persistently)
{}

FailNth::~FailNth()
{
    g_pFault = m_pOuter;
}

bool FailNth::Fails(Call call)
{
    if (call != m_Call) {
        return false;
    }
    ++m_nCalls;
    const bool fails = m_bPersistently ? m_nCalls >= m_nNth : m_nCalls == m_nNth;
    if (fails) {
        errno = m_nError;
    }
    return fails;
}

void Collaborate()
{
    if (Fails(COLLABORATOR)) {
        throw Thrown();
    }
}

long LiveAllocations()
{
    return g_lLiveAllocations;
}

} // namespace faults

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_mutex_t*)>("pthread_mutex_lock");
    return Fails(faults::MUTEX_LOCK) ? errno : next(lock);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    return Fails(faults::READ_LOCK) ? errno : next(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    static auto* const next = Next<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    return Fails(faults::WRITE_LOCK) ? errno : next(lock);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* lock)
{
    static auto* const next = Next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    if (faults::g_pOnConditionWait != nullptr) {
        faults::g_pOnConditionWait();
    }
    return next(condition, lock);
}

char* ctime_r(const time_t*, char* buffer) noexcept
{
    if (Fails(faults::TIME_TEXT)) {
        return nullptr;
    }
    std::memcpy(buffer, faults::TIME_LINE, sizeof faults::TIME_LINE);
    return buffer;
}

ssize_t write(int file, const void* bytes, std::size_t size)
{
    static auto* const next = Next<ssize_t(int, const void*, std::size_t)>("write");
    if (!Fails(faults::WRITE)) {
        return next(file, bytes, size);
    }
    return errno == faults::SHORT_WRITE ? next(file, bytes, size / 2) : -1;
}

int gettimeofday(timeval* now, void* zone) noexcept
{
    static auto* const next = Next<int(timeval*, void*)>("gettimeofday");
    const long long clock = Fails(faults::CLOCK) ? faults::FAILING_CLOCK : faults::g_llClock.load();
    if (clock == faults::REAL_CLOCK) {
        return next(now, zone);
    }
    if (clock == faults::FAILING_CLOCK) {
        *now = {-7, -7}; // the library must not use it
        return -1;
    }
    *now = {clock / 1000000, clock % 1000000};
    return 0;
}

} // extern "C"

// All of them, because a sanitizer defines those that are missing. The operators for arrays call
// these, or remain the sanitizer's.

void* operator new(std::size_t size)
{
    if (void* memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    Free(memory);
}
