#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <emsplatform/platform.h>

#include "fuzz/expect.h"

namespace {

constexpr const char* KEY = "MsgHandleMode";

/// A file in memory, with a path.
class MemoryFile
{
public:
    MemoryFile()
        : m_nFile(memfd_create("config", MFD_CLOEXEC)),
          m_strPath("/proc/self/fd/" + std::to_string(m_nFile))
    {
        Expect(m_nFile != -1, "there is a file in memory");
    }

    void Fill(const std::string& text)
    {
        Expect(ftruncate(m_nFile, 0) == 0 && pwrite(m_nFile, text.data(), text.size(), 0) ==
                                                 static_cast<ssize_t>(text.size()),
               "the file takes the input");
    }

    const char* Path() const { return m_strPath.c_str(); }

private:
    const int m_nFile;
    const std::string m_strPath;
};

struct Answer
{
    int m_nFound;
    int m_nValue;

    bool operator==(const Answer&) const = default;
};

/// Reads the key from a file with this text into a variable that holds `value`.
Answer Read(const std::string& text, int value)
{
    static MemoryFile& file = *new MemoryFile;
    file.Fill(text);
    const int found = eKorGetRegInt(KEY, value, file.Path());
    Expect(found == 0 || found == 1, "the result is 0 or 1");
    return {found, value};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string key = KEY;

    const Answer answer = Read(text, -2);
    if (answer.m_nFound == 0) {
        Expect(answer.m_nValue == -2 && Read(text, 3) == Answer{0, 3},
               "without a result the value is left alone");
    } else {
        Expect(Read(text, answer.m_nValue == 3 ? 4 : 3) == answer,
               "the result does not depend on what was there");
    }
    Expect(Read("# a comment\nother = 5\n" + text + "\n# " + key + " = 6", -2) == answer,
           "other keys and comments change nothing");
    Expect(Read(text + '\n' + key + "=-7", -2) == Answer{1, -7}, "the last line of a key counts");
    Expect(Read(text + '\n' + key + "=x", -2) == Answer{0, -2},
           "the last line of a key counts, even if it has no integer");
    return 0;
}
