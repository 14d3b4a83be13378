#ifndef BASE_CANCELLATION_OFF_H
#define BASE_CANCELLATION_OFF_H

#include <pthread.h>

namespace NSQN_EMSUTIL_AGENT {

/// While the object exists, the thread that created it cannot be cancelled. A cancelled thread
/// unwinds by an exception. The process is aborted if a catch (...) does not rethrow this
/// exception, or if this exception leaves a destructor.
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
