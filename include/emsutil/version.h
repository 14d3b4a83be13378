#ifndef EMSUTIL_VERSION_H
#define EMSUTIL_VERSION_H

/// The version of emsutil. EMSUTIL_VERSION is that of the headers, and EmsUtilVersion() returns
/// that of the library.
///
///     if (std::strcmp(EmsUtilVersion(), EMSUTIL_VERSION) != 0)
///         std::puts("compiled with the headers of another version");
///
/// Thread safety: any thread may call EmsUtilVersion() at any time; it never waits.
/// Ownership: the text belongs to the library and is valid until the process ends.
/// Errors: EmsUtilVersion() cannot fail.

#include "emsutil/export.h"

// The numbers of the version. CMake reads them from these lines.
#define EMSUTIL_VERSION_MAJOR 1 ///< the first number of these headers' version
#define EMSUTIL_VERSION_MINOR 0 ///< its second number
#define EMSUTIL_VERSION_PATCH 0 ///< its third number

/// The version of these headers as a text, such as "1.2.3".
#define EMSUTIL_VERSION                                                                            \
    EMSUTIL_VERSION_TEXT(EMSUTIL_VERSION_MAJOR, EMSUTIL_VERSION_MINOR, EMSUTIL_VERSION_PATCH)
/// For EMSUTIL_VERSION: a text such as "1.2.3" from the values of three macros.
#define EMSUTIL_VERSION_TEXT(major, minor, patch) EMSUTIL_VERSION_QUOTE(major, minor, patch)
/// For EMSUTIL_VERSION_TEXT: the same from three numbers. Does not replace macros by their values.
#define EMSUTIL_VERSION_QUOTE(major, minor, patch) #major "." #minor "." #patch

/// The version of these headers as one number for the preprocessor to compare: 10203 is 1.2.3.
#define EMSUTIL_VERSION_NUMBER                                                                     \
    (EMSUTIL_VERSION_MAJOR * 10000 + EMSUTIL_VERSION_MINOR * 100 + EMSUTIL_VERSION_PATCH)

namespace NSQN_EMSUTIL_AGENT {

/// Returns the version of the library that the process runs with, such as "1.2.3". It differs from
/// EMSUTIL_VERSION if the calling code was compiled with the headers of another version.
EMSUTIL_API const char* EmsUtilVersion();

} // namespace NSQN_EMSUTIL_AGENT

#endif
