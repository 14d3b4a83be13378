#ifndef BASE_PROCESS_WIDE_H
#define BASE_PROCESS_WIDE_H

#include <atomic>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

namespace NSQN_EMSUTIL_AGENT {

template <class T, class Check>
T* CreateUnderLock(T*& instance, Check check);

/// The process-wide T that `instance` points to, made on the first call; null when ACE's lock for
/// static objects cannot be taken. Once it exists a call is one read. What T's constructor throws
/// passes to the caller, and the next call tries again.
///
/// `instance` is a plain pointer, constant-initialised, published with release and read with
/// acquire. `check` is called under the lock, where the object has just been made.
template <class T, class Check>
T* CreateOnce(T*& instance, Check check)
{
    T* const existing = std::atomic_ref<T*>(instance).load(std::memory_order_acquire);
    return existing != nullptr ? existing : CreateUnderLock(instance, check);
}

/// Apart, so that the usual case of CreateOnce() is compiled in where it is called.
template <class T, class Check>
[[gnu::noinline]] T* CreateUnderLock(T*& instance, Check check)
{
    ACE_Recursive_Thread_Mutex* lock = ACE_Static_Object_Lock::instance();
    if (lock == nullptr) {
        return nullptr; // not covered: ACE has the lock until ACE itself is gone
    }
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*lock);
    if (!guard.locked()) {
        return nullptr;
    }
    if (instance == nullptr) {
        std::atomic_ref<T*>(instance).store(new T, std::memory_order_release);
        check();
    }
    return instance;
}

template <class T>
T* CreateOnce(T*& instance)
{
    return CreateOnce(instance, [] {});
}

} // namespace NSQN_EMSUTIL_AGENT

#endif
