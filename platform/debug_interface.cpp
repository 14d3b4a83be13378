#include "emsplatform/debug_interface.h"
#include "emsplatform/setup.h"

#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>

namespace {

using emsplatform::DebugCallback;
using emsplatform::DebugOperation;

/// Writes each text as one line. One fwrite a line: stdio locks the stream for its length.
class StreamWriter
{
public:
    explicit StreamWriter(std::shared_ptr<std::FILE> stream) : m_pStream(std::move(stream)) {}

    void operator()(DebugOperation, int, const std::string& text) const
    {
        if (text.ends_with('\n')) {
            std::fwrite(text.data(), 1, text.size(), m_pStream.get());
        } else {
            const std::string line = text + '\n';
            std::fwrite(line.data(), 1, line.size(), m_pStream.get());
        }
    }

private:
    std::shared_ptr<std::FILE> m_pStream;
};

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
        return "(a debug line with a malformed format)";
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

    void Flush() override { std::fflush(nullptr); }

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

    void SetCallback(DebugCallback callback)
    {
        auto next = std::make_shared<const DebugCallback>(std::move(callback));
        const std::lock_guard guard(m_CallbackLock);
        m_pCallback.swap(next); // the old one is destroyed after the lock is released
    }

private:
    void Write(DebugOperation operation, int level, const std::string& text)
    {
        std::shared_ptr<const DebugCallback> callback;
        {
            const std::lock_guard guard(m_CallbackLock);
            callback = m_pCallback;
        }
        if (*callback) {
            (*callback)(operation, level, text);
        }
    }

    std::atomic<int> m_nLowestLevel = 0;
    std::mutex m_CallbackLock;
    std::shared_ptr<const DebugCallback> m_pCallback =
        std::make_shared<const DebugCallback>(StreamWriter(Borrow(stderr))); // guarded by the lock
};

// Never destroyed: lines may come until the process is gone.
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

namespace emsplatform {

void SetDebugStream(std::FILE* stream)
{
    SetDebugCallback(StreamWriter(Borrow(stream)));
}

void SetDebugCallback(DebugCallback callback)
{
    TheDebugInterface().SetCallback(std::move(callback));
}

bool SetDebugFile(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "ae");
    if (file == nullptr) {
        return false;
    }
    std::setvbuf(file, nullptr, _IOLBF, BUFSIZ);
    SetDebugCallback(StreamWriter({file, [](std::FILE* closed) { std::fclose(closed); }}));
    return true;
}

void SetLowestDebugLevel(int level)
{
    TheDebugInterface().SetLowestLevel(level);
}

} // namespace emsplatform
