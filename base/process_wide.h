#ifndef BASE_PROCESS_WIDE_H
#define BASE_PROCESS_WIDE_H

/// Process-wide objects that are created on first use.
///
/// The parameter `instance` of the functions below is a plain pointer, which must be
/// constant-initialised. It is published with release and read with acquire. ACE's lock for static
/// objects guards creation and destruction.

#include <atomic>
#include <memory>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

namespace NSQN_EMSUTIL_AGENT {

/// Calls `action` with ACE's lock for static objects held. Does nothing when the lock fails.
template <class Action>
void WithStaticObjectLock(Action action)
{
    ACE_Recursive_Thread_Mutex* const lock = ACE_Static_Object_Lock::instance();
    if (lock == nullptr) {
        return; // not covered: ACE has the lock until ACE itself is destroyed
    }
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*lock);
    if (guard.locked()) {
        action();
    }
}

/// Out of line, so that only the common case of CreateOnce() is inlined.
template <class T, class Check>
[[gnu::noinline]] T* CreateUnderLock(T*& instance, Check check)
{
    T* created = nullptr;
    WithStaticObjectLock([&] {
        if (instance == nullptr) {
            auto object = std::make_unique<T>();
            // Checked again, because T's constructor may call the platform, which may call the
            // library.
            if (instance == nullptr) {
                std::atomic_ref<T*>(instance).store(object.release(), std::memory_order_release);
                check();
            }
        }
        created = instance;
    });
    return created;
}

/// Returns the process-wide T that `instance` points to, and creates it on the first call. Once the
/// object exists, a call only reads a pointer, without a lock. Returns null if the lock cannot be
/// taken. An exception of T's constructor passes to the caller, and the next call tries again.
///
/// Calls `check` under the lock after the object has been created.
template <class T, class Check>
T* CreateOnce(T*& instance, Check check)
{
    T* const existing = std::atomic_ref<T*>(instance).load(std::memory_order_acquire);
    return existing != nullptr ? existing : CreateUnderLock(instance, check);
}

template <class T>
T* CreateOnce(T*& instance)
{
    return CreateOnce(instance, [] {});
}

/// Destroys the T that `instance` points to, if there is one, and sets `instance` to null. Does
/// nothing when the lock cannot be taken.
///
/// REQUIRES: no thread uses the object.
template <class T>
void DestroyOnce(T*& instance)
{
    const std::atomic_ref<T*> published(instance);
    if (published.load(std::memory_order_acquire) != nullptr) {
        WithStaticObjectLock(
            [&] { delete published.exchange(nullptr, std::memory_order_acq_rel); });
    }
}

} // namespace NSQN_EMSUTIL_AGENT

#endif
