#include "host/console.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <system_error>
#include <utility>

namespace emshost {

namespace {

struct Stream
{
    std::FILE* file;
    const char* name;
    bool isLost = false;
};

std::mutex g_Mutex; // guards the following
Stream g_Output = {stdout, "standard output"};
Stream g_Error = {stderr, "standard error"};
Stream g_Debug = g_Error;
std::stop_source& g_Stop = *new std::stop_source(std::nostopstate); // never destroyed
bool g_bPrompt = false;

std::atomic<bool> g_bPromptLost = false;

// The following are called with the lock held.

void Write(Stream& stream, std::string_view line);

void Check(Stream& stream)
{
    if (std::ferror(stream.file) != 0 && !std::exchange(stream.isLost, true)) {
        const std::string reason = std::generic_category().message(errno);
        Write(g_Error, std::string("emshost: ") + stream.name + ": " + reason);
        if (stream.file == stdout) {
            g_Stop.request_stop();
        }
    }
}

void FlushOutput()
{
    std::fflush(stdout);
    Check(g_Output);
}

void Write(Stream& stream, std::string_view line)
{
    if (stream.file != stdout) {
        FlushOutput(); // so that earlier results come before this line, and no line is cut in two
    }
    if (stream.isLost) {
        return;
    }
    std::string whole = g_bPrompt ? "\r\033[K" : "";
    if (g_bPrompt) {
        LosePrompt();
    }
    whole += line;
    if (!line.ends_with('\n')) {
        whole += '\n';
    }
    std::fwrite(whole.data(), 1, whole.size(), stream.file);
    Check(stream);
}

} // namespace

void Print(std::string_view line)
{
    const std::lock_guard guard(g_Mutex);
    Write(g_Output, line);
}

void Flush()
{
    const std::lock_guard guard(g_Mutex);
    FlushOutput();
}

void StopWhenLost(std::stop_source stop)
{
    g_Stop = std::move(stop);
}

void Message(std::string_view line)
{
    const std::lock_guard guard(g_Mutex);
    Write(g_Error, line);
}

bool OpenDebugFile(const std::string& path)
{
    const std::lock_guard guard(g_Mutex);
    std::FILE* const file = std::fopen(path.c_str(), "ae");
    if (file == nullptr) {
        Write(g_Error, "emshost: " + path + ": " + std::generic_category().message(errno));
        return false;
    }
    std::setvbuf(file, nullptr, _IONBF, 0);
    g_Debug = {file, ::strdup(path.c_str())}; // both until the process has ended
    return true;
}

void DebugLine(std::string_view line)
{
    const std::lock_guard guard(g_Mutex);
    Write(g_Debug, line);
}

bool IsAnyLost()
{
    const std::lock_guard guard(g_Mutex);
    return g_Output.isLost || g_Error.isLost || g_Debug.isLost;
}

void SetPrompt(bool isShown)
{
    const std::lock_guard guard(g_Mutex);
    g_bPrompt = isShown;
}

void LosePrompt()
{
    g_bPromptLost = true;
}

bool IsPromptLost()
{
    return g_bPromptLost.exchange(false);
}

} // namespace emshost
