#include "agent/emsutil_util_report.h"

#include <cstring>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <ace/Guard_T.h>
#include <ace/OS_NS_fcntl.h>

#include <emsplatform/platform.h>

#include "base/cancellation_off.h"
#include "base/process_wide.h"
#include "emsutil/diagnostics.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr int LONGEST_MESSAGE = 511;
constexpr int REPORT_FILE_MODE = 0644;
constexpr std::size_t CTIME_SIZE = 26; // bytes that ctime_r needs

constinit EmsUtilReportFile* g_pReportFile = nullptr;

/// Writes only once: a text that does not fit on the disk is cut short.
void Append(ACE_HANDLE file, std::string_view text)
{
    [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
}

void AppendTime(ACE_HANDLE file)
{
    const time_t now = time(nullptr);
    char buffer[CTIME_SIZE] = {};
    if (const char* stamp = ctime_r(&now, buffer)) {
        std::string_view text = stamp;
        text.remove_suffix(text.empty() ? 0 : 1); // its newline
        Append(file, text);
    }
}

} // namespace

EmsUtilReportFile* EmsUtilReportFile::Instance()
{
    return CreateOnce(g_pReportFile);
}

EmsUtilReportFile::EmsUtilReportFile()
    : m_strFilePath(NSQN_util::GetParentPath(NSQN_util::GetEKORPath()) + "../var/dump/" +
                    NSQN_util::g_ProcName + ".rpt")
{}

void EmsUtilReportFile::Write(const char* format, va_list arguments, bool withTime)
{
    char message[LONGEST_MESSAGE + 1] = {};
    const int length = vsnprintf_s(message, sizeof message, LONGEST_MESSAGE, format, arguments);
    if (length < 1 || length > LONGEST_MESSAGE) {
        return;
    }
    const CancellationOff uncancelled; // a cancelled thread would leave the file open
    const ACE_Guard<ACE_Thread_Mutex> guard(m_Mutex);
    if (!guard.locked()) {
        return;
    }
    const ACE_HANDLE file =
        ACE_OS::open(m_strFilePath.c_str(), O_WRONLY | O_CREAT | O_APPEND, REPORT_FILE_MODE);
    if (file == ACE_INVALID_HANDLE) {
        return;
    }
    if (withTime) {
        AppendTime(file);
    }
    Append(file, {message, static_cast<std::size_t>(length)});
    close(file);
}

void EmsUtilTraced(const char* format, ...)
{
    EmsUtilReportFile* const file = format != nullptr ? EmsUtilReportFile::Instance() : nullptr;
    if (file != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        file->Write(format, arguments, false);
        va_end(arguments);
    }
}

void EmsUtilReport(const char* format, ...)
{
    EmsUtilReportFile* const file = format != nullptr ? EmsUtilReportFile::Instance() : nullptr;
    if (file != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        file->Write(format, arguments, true);
        va_end(arguments);
    }
}

} // namespace NSQN_EMSUTIL_AGENT
