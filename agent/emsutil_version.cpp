#include "emsutil/version.h"

#include <string_view>

// CMake defines EMSUTIL_PROJECT_VERSION and EMSUTIL_PROJECT_VERSION_NUMBER from project().
static_assert(EMSUTIL_VERSION == std::string_view(EMSUTIL_PROJECT_VERSION) &&
                  EMSUTIL_VERSION_NUMBER == EMSUTIL_PROJECT_VERSION_NUMBER,
              "include/emsutil/version.h does not have the version of project() in CMakeLists.txt");

namespace NSQN_EMSUTIL_AGENT {

const char* EmsUtilVersion()
{
    return EMSUTIL_VERSION;
}

} // namespace NSQN_EMSUTIL_AGENT
