#ifndef BASE_QN_CHECK_H
#define BASE_QN_CHECK_H

/// Internal checks. A check that fails writes one line. Then the function continues or returns, as
/// the macro says.
///
///     QN_CHECK_AT("translog", 467)
///     QN_RETURN_IF_NOT_TRUE(NULL != pBuffer);
///
/// writes "file:translog:467,QN_RETURN_IF_NOT_TRUE: NULL != pBuffer" at level 1. People look for
/// the file, line and text in logs, so none of these must change when code moves. The text is the
/// condition as written, so conditions must not be rewritten: they keep their NULL. A check without
/// a QN_CHECK_AT does not compile.
///
/// Each condition is evaluated once. The macros may be used without braces in an if with an else.

namespace NSQN_EMSUTIL_AGENT {

struct CheckSite
{
    const char* m_pFile;
    int m_nLine;
};

/// Writes a check line through the platform's debug interface. Does nothing when there is none.
void ReportCheck(const CheckSite& site, const char* text);

/// Writes an assertion line through the cached debug interface. Does nothing when there is none.
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

// The text of an assertion shows its macros expanded, which needs a second macro.
#define QN_ASSERT(cond) QN_ASSERT_EXPANDED((cond))

#define QN_ASSERT_EXPANDED(cond)                                                                   \
    do {                                                                                           \
        if (!(cond))                                                                               \
            ::NSQN_EMSUTIL_AGENT::ReportAssertion(qnCheckSite, #cond);                             \
    } while (false)

#endif
