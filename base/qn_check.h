#ifndef BASE_QN_CHECK_H
#define BASE_QN_CHECK_H

/// Internal checks: a check that fails writes one line and carries on, or returns.
///
///     QN_CHECK_AT("translog", 467)
///     QN_RETURN_IF_NOT_TRUE(NULL != pBuffer);
///
/// writes "file:translog:467,QN_RETURN_IF_NOT_TRUE: NULL != pBuffer" at level 1. File and line name
/// the check for whoever reads the logs; they stay what they are when code moves. So does the text:
/// it is the condition as written, which is why these conditions are never modernised. A check
/// without its QN_CHECK_AT does not compile.
///
/// Each condition is evaluated once. The macros may stand unbraced in an if with an else.

#include "emsutil/diagnostics.h"

namespace NSQN_EMSUTIL_AGENT {

struct CheckSite
{
    const char* m_pFile;
    int m_nLine;
};

/// Writes a check line through the platform's debug interface; without one it writes nothing.
void ReportCheck(const CheckSite& site, const char* text);

/// The same for an assertion line, through the cached interface.
void ReportAssertion(const CheckSite& site, const char* expression);

} // namespace NSQN_EMSUTIL_AGENT

#define QN_CHECK_AT(file, line)                                                                    \
    if (constexpr ::NSQN_EMSUTIL_AGENT::CheckSite qnCheckSite{file, line}; false) {                \
    } else

#define QN_LOG_IF_TRUE(cond)                                                                       \
    do {                                                                                           \
        if (cond)                                                                                  \
            ::NSQN_EMSUTIL_AGENT::ReportCheck(qnCheckSite, "QN_LOG_IF_TRUE: " #cond);              \
    } while (false)

#define QN_LOG_IF_NOT_TRUE(cond)                                                                   \
    do {                                                                                           \
        if (!(cond))                                                                               \
            ::NSQN_EMSUTIL_AGENT::ReportCheck(qnCheckSite, "QN_LOG_IF_NOT_TRUE: " #cond);          \
    } while (false)

#define QN_RETURN_IF_NOT_TRUE(cond)                                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            ::NSQN_EMSUTIL_AGENT::ReportCheck(qnCheckSite, "QN_RETURN_IF_NOT_TRUE: " #cond);       \
            return;                                                                                \
        }                                                                                          \
    } while (false)

#define QN_RETURN_ERRORCODE_IF_NOT_TRUE(cond, code)                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            ::NSQN_EMSUTIL_AGENT::ReportCheck(qnCheckSite,                                         \
                                              "QN_RETURN_ERRORCODE_IF_NOT_TRUE: " #cond);          \
            return code;                                                                           \
        }                                                                                          \
    } while (false)

// The text of an assertion shows its macros expanded, so it takes one more step to become a text.
#define QN_ASSERT(cond) QN_ASSERT_EXPANDED((cond))

#define QN_ASSERT_EXPANDED(cond)                                                                   \
    do {                                                                                           \
        if (!(cond))                                                                               \
            ::NSQN_EMSUTIL_AGENT::ReportAssertion(qnCheckSite, #cond);                             \
    } while (false)

#endif
