#include "emsplatform/debug_interface.h"
#include "emsstandin/setup.h"

#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <utility>

namespace {

using emsstandin::DebugCallback;
using emsstandin::DebugOperation;

/// The destination of lines: a stream, or a callback if there is no stream.
struct Target
{
    std::shared_ptr<std::FILE> m_pStream;
    DebugCallback m_Callback;
};

/// Writes the line by one fwrite, which locks the stream, so that lines stay whole.
void WriteLine(std::FILE* stream, const std::string& text)
{
    const std::string line = text.ends_with('\n') ? text : text + '\n';
    std::fwrite(line.data(), 1, line.size(), stream);
}

std::shared_ptr<std::FILE> Borrow(std::FILE* stream)
{
    return {stream, [](std::FILE*) {}};
}

std::string Format(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string Format(const char* format, va_list args)
{
    va_list measured;
    va_copy(measured, args);
    char shortText[512];
    const int length = std::vsnprintf(shortText, sizeof shortText, format, measured);
    va_end(measured);
    if (length < 0) {
        return "debug line: malformed format";
    }
    if (static_cast<std::size_t>(length) < sizeof shortText) {
        return {shortText, static_cast<std::size_t>(length)};
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

class DefaultDebugInterface final : public NSQN_util::DebugInterface
{
public:
    bool IsLevelShown(int level) override
    {
        return level >= m_nLowestLevel.load(std::memory_order_relaxed);
    }

    void Flush() override
    {
        if (const std::shared_ptr<std::FILE> stream = Current()->m_pStream) {
            std::fflush(stream.get());
        }
    }

    void DebugPrint(int level, const char* format, ...) override
        __attribute__((format(printf, 3, 4)))
    {
        if (!IsLevelShown(level)) {
            return;
        }
        va_list args;
        va_start(args, format);
        const std::string text = Format(format, args);
        va_end(args);
        Write(DebugOperation::DebugPrint, level, text);
    }

    void AssertPrint(const char* format, ...) override __attribute__((format(printf, 2, 3)))
    {
        va_list args;
        va_start(args, format);
        const std::string text = Format(format, args);
        va_end(args);
        Write(DebugOperation::AssertPrint, 0, text);
    }

    void SetLowestLevel(int level) { m_nLowestLevel.store(level, std::memory_order_relaxed); }

    void SetTarget(Target target)
    {
        auto next = std::make_shared<const Target>(std::move(target));
        const std::lock_guard guard(m_TargetLock);
        m_pTarget.swap(next); // the old target is destroyed after the lock is released
    }

private:
    std::shared_ptr<const Target> Current()
    {
        const std::lock_guard guard(m_TargetLock);
        return m_pTarget;
    }

    void Write(DebugOperation operation, int level, const std::string& text)
    {
        const std::shared_ptr<const Target> target = Current();
        if (target->m_pStream != nullptr) {
            WriteLine(target->m_pStream.get(), text);
        } else if (target->m_Callback) {
            target->m_Callback(operation, level, text);
        }
    }

    std::atomic<int> m_nLowestLevel = 0;
    std::mutex m_TargetLock;
    std::shared_ptr<const Target> m_pTarget =
        std::make_shared<const Target>(Target{Borrow(stderr), {}}); // guarded by m_TargetLock
};

// Never destroyed, as threads may print until the process ends.
DefaultDebugInterface& TheDebugInterface()
{
    static DefaultDebugInterface& debug = *new DefaultDebugInterface;
    return debug;
}

} // namespace

namespace NSQN_util {

DebugInterface* GetDefaultDebugInterface()
{
    return &TheDebugInterface();
}

} // namespace NSQN_util

namespace emsstandin {

void SetDebugStream(std::FILE* stream)
{
    TheDebugInterface().SetTarget({stream != nullptr ? Borrow(stream) : nullptr, {}});
}

void SetDebugCallback(DebugCallback callback)
{
    TheDebugInterface().SetTarget({nullptr, std::move(callback)});
}

bool SetDebugFile(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "ae");
    if (file == nullptr) {
        return false;
    }
    std::setvbuf(file, nullptr, _IOLBF, BUFSIZ);
    TheDebugInterface().SetTarget({{file, [](std::FILE* closed) { std::fclose(closed); }}, {}});
    return true;
}

void SetLowestDebugLevel(int level)
{
    TheDebugInterface().SetLowestLevel(level);
}

} // namespace emsstandin
