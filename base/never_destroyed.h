#ifndef BASE_NEVER_DESTROYED_H
#define BASE_NEVER_DESTROYED_H

namespace NSQN_EMSUTIL_AGENT {

/// Holds a T whose destructor never runs: other threads may use it until the process has ended.
template <class T>
union NeverDestroyed {
    NeverDestroyed() : m_Object() {}
    ~NeverDestroyed() {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T m_Object;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
