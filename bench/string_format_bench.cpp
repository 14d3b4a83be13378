#include <cstdarg>
#include <cstdio>

#ifdef BENCH_HAS_ABSL
#include <absl/strings/str_format.h>
#endif
#ifdef BENCH_HAS_BOOST
#include <boost/format.hpp>
#endif
#ifdef BENCH_HAS_FMT
#include <fmt/format.h>
#endif
#ifdef BENCH_HAS_GLIB
#include <glib.h>
#endif
#ifdef BENCH_HAS_POCO
#include <Poco/Format.h>
#endif

#include "bench/compare.h"
#include "emsutil/diagnostics.h"

using NSQN_EMSUTIL_AGENT::string_format;

namespace bench {

namespace {

std::string BareLoop(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string TwoPasses(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// A buffer that doubles from 512 bytes until the text fits, as string_format() has it, over the C
/// library's own formatter.
std::string BareLoop(const char* format, ...)
{
    std::string text;
    for (std::size_t size = 512;; size *= 2) {
        text.resize(size);
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(text.data(), size, format, args);
        va_end(args);
        if (length >= 0 && static_cast<std::size_t>(length) < size) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
    }
}

/// Measures first.
std::string TwoPasses(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(static_cast<std::size_t>(length), '\0');
    va_start(args, format);
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    return text;
}

template <class Format>
Body Repeat(Format format)
{
    return [format](benchmark::State& state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(format());
        }
    };
}

/// A text of this length in all. Of the peers we are to be ahead of some up to a length.
void MeasureLength(const std::string& name, std::size_t length, double goal)
{
    const auto ahead = [length](std::size_t upTo) { return length <= upTo ? Rival : Peer; };
    static constexpr char who[] = "alpha";
    static constexpr int port = 4711;
    const std::string filler(length - 20, 'x'); // 20 is the rest
    const char* const rest = filler.c_str();

    std::vector<Row> rows = {
        Ours(Repeat([=] { return string_format("%s on port %d: %s", who, port, rest); })),
        Floor(Repeat([=] { return BareLoop("%s on port %d: %s", who, port, rest); })),
        ahead(5000)("two-pass vsnprintf",
                    Repeat([=] { return TwoPasses("%s on port %d: %s", who, port, rest); })),
    };
#ifdef BENCH_HAS_BOOST
    rows.push_back(ahead(511)(
        "boost::format",
        Repeat([=] { return (boost::format("%s on port %d: %s") % who % port % rest).str(); })));
#endif
#ifdef BENCH_HAS_POCO
    rows.push_back(ahead(511)("Poco::format", Repeat([=] {
                                  return Poco::format("%s on port %d: %s", std::string(who), port,
                                                      std::string(rest));
                              })));
#endif
#ifdef BENCH_HAS_FMT
    rows.push_back(Peer("fmt::format",
                        Repeat([=] { return fmt::format("{} on port {}: {}", who, port, rest); })));
#endif
#ifdef BENCH_HAS_ABSL
    rows.push_back(Peer("absl::StrFormat", Repeat([=] {
                            return absl::StrFormat("%s on port %d: %s", who, port, rest);
                        })));
#endif
#ifdef BENCH_HAS_GLIB
    rows.push_back(Peer("g_strdup_printf", [=](benchmark::State& state) {
        for (auto _ : state) {
            g_free(g_strdup_printf("%s on port %d: %s", who, port, rest));
        }
    }));
#endif
    Compare({name, goal}, rows);
}

} // namespace

void MeasureStringFormat()
{
    Compare({"string_format, an integer", 1.05},
            {Ours(Repeat([] { return string_format("%d", 4711); })),
             Floor(Repeat([] { return BareLoop("%d", 4711); })),
             Rival("two-pass vsnprintf", Repeat([] { return TwoPasses("%d", 4711); }))});
    MeasureLength("string_format, 40 characters", 40, 1.05);
    MeasureLength("string_format, 400 characters", 400, 1.05);
    MeasureLength("string_format, 5,000 characters", 5000, 0.2);
    MeasureLength("string_format, 500,000 characters", 500000, 1.05);
}

} // namespace bench
