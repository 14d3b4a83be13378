#include <climits>
#include <cstdarg>
#include <cstring>
#include <string>

#include <printf.h>
#include <pthread.h>

#include <gtest/gtest.h>

#include <emsplatform/platform.h>

namespace {

int Format(char* dest, std::size_t destMax, std::size_t count, const char* format, ...)
{
    va_list args;
    va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int result = vsnprintf_s(dest, destMax, count, format, args);
#pragma GCC diagnostic pop
    va_end(args);
    return result;
}

} // namespace

TEST(Formatter, StaysWithinItsBoundsAndLeavesTheEmptyTextForARejectedFormat)
{
    const std::string text = "text" + std::string(9000, 'x');
    const std::tuple<std::size_t, std::size_t, const char*, int, std::string> cases[] = {
        {8, 7, "%.4s", 4, "text"},
        {5, 4, "%.4s", 4, "text"},
        {8, 3, "%.4s", -1, "tex"},
        {8, 0, "%.4s", -1, ""},
        {3, 7, "%.4s", -1, "te"},
        {3, SIZE_MAX, "%.4s", -1, "te"},
        {1, 0, "", 0, ""},
        {9005, 9004, "%s", 9004, text},
        {9005, 9003, "%s", -1, text.substr(0, 9003)},
        {3073, 3072, "%s", -1, text.substr(0, 3072)},
        {3072, 3071, "%s", -1, text.substr(0, 3071)},
        {3072, 3071, "%.3071s", 3071, text.substr(0, 3071)},
        {8, 7, "abc%", -1, ""},
        {8, 7, nullptr, -1, ""},
        {8, 7, "ab%99999999999d", -1, ""},
        {8, 7, "%2147483648d", -1, ""},
        {8, 7, "%s%ls", -1, ""},
        {5000, 4999, "%s%ls", -1, ""},
    };
    for (const auto& [destMax, count, format, result, left] : cases) {
        std::string buffer(destMax + 8, '#');
        EXPECT_EQ(Format(buffer.data(), destMax, count, format, text.c_str(), L"a\u20ac"), result);
        EXPECT_EQ(std::string(buffer.c_str()), left);
        EXPECT_EQ(buffer.substr(destMax), "########");
    }
    char buffer[] = "####";
    EXPECT_LT(Format(buffer, 4, 3, "%c%600d", 0, 1), 0);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0  \0", 4)); // the closing NUL is the last byte
    std::memset(buffer, '#', 4);
    EXPECT_LT(Format(buffer, 4, 3, "%c%600d%", 0, 1), 0);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0###", 4));
    EXPECT_LT(Format(buffer + 1, 0, 0, "%s", "text"), 0);
    EXPECT_EQ(buffer[1], '#');
    EXPECT_LT(Format(nullptr, 8, 7, "%s", "text"), 0);
}

TEST(Formatter, ARegisteredConversionMayFormat)
{
    register_printf_specifier(
        'Y',
        [](FILE* stream, const printf_info*, const void* const*) {
            char inner[16];
            Format(inner, sizeof inner, sizeof inner - 1, "<%d>", 5);
            return std::fprintf(stream, "%s", inner);
        },
        [](const printf_info*, std::size_t, int*, int*) { return 0; });
    char buffer[32];
    EXPECT_EQ(Format(buffer, sizeof buffer, sizeof buffer - 1, "before %d%Y%s", 4, "after"), 16);
    EXPECT_STREQ(buffer, "before 4<5>after");
}

TEST(Formatter, AThreadWithTheSmallestStackMayFormat)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need a larger stack";
#endif
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(PTHREAD_STACK_MIN)),
              0);
    char text[16] = "";
    pthread_t thread{};
    const auto format = [](void* dest) -> void* {
        volatile char local[4096];
        local[0] = 'x';
        Format(static_cast<char*>(dest), 16, 15, "%c %d", local[0], 4711);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, format, text), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_STREQ(text, "x 4711");
}
