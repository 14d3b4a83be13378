#include "emsutil/version.h"

namespace NSQN_EMSUTIL_AGENT {

const char* EmsUtilVersion()
{
    return EMSUTIL_VERSION;
}

} // namespace NSQN_EMSUTIL_AGENT
