#ifndef BASE_CANCELLATION_OFF_H
#define BASE_CANCELLATION_OFF_H

#include <pthread.h>

namespace NSQN_EMSUTIL_AGENT {

/// Prevents the cancellation of the calling thread while it exists. A cancelled thread unwinds by
/// an exception. If that ends in a catch (...) or leaves a destructor, the process is aborted.
class CancellationOff
{
public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nFormerState); }
    ~CancellationOff() { pthread_setcancelstate(m_nFormerState, nullptr); }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

private:
    int m_nFormerState = PTHREAD_CANCEL_ENABLE;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
