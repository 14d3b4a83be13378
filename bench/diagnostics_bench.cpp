#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <ace/Guard_T.h>
#include <ace/OS_NS_fcntl.h>
#include <ace/Thread_Mutex.h>

#ifdef BENCH_HAS_GLOG
#include <glog/logging.h>
#endif
#ifdef BENCH_HAS_SPDLOG
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <spdlog/stopwatch.h>
#endif

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>
#include <emsstandin/setup.h>

#include "bench/compare.h"
#include "emsutil/diagnostics.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

constexpr int PORT = 4711;

/// An install path with the folder of the report file, for the life of the program.
class ReportFolder
{
public:
    ReportFolder()
    {
        std::string path =
            (std::filesystem::temp_directory_path() / "emsutil_bench.XXXXXX").string();
        m_Root = mkdtemp(path.data());
        std::filesystem::create_directories(m_Root / "parent");
        std::filesystem::create_directories(m_Root / "var/dump");
        emsstandin::SetInstallPath((m_Root / "parent/install").string());
    }
    ~ReportFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_Root, error);
    }
    ReportFolder(const ReportFolder&) = delete;
    ReportFolder& operator=(const ReportFolder&) = delete;

    std::string File(const char* name) const
    {
        return (m_Root / "parent/../var/dump" / name).string();
    }

private:
    std::filesystem::path m_Root;
};

ACE_Thread_Mutex g_ReportLock;

void BareReport(const std::string& path, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/// An entry of the report file, with nothing around it.
void BareReport(const std::string& path, const char* format, ...)
{
    char message[512] = {};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf_s(message, sizeof message, 511, format, arguments);
    va_end(arguments);

    const ACE_Guard<ACE_Thread_Mutex> guard(g_ReportLock);
    const ACE_HANDLE file = ACE_OS::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    const time_t now = time(nullptr);
    char stamp[26] = {};
    ctime_r(&now, stamp);
    if (write(file, stamp, 24) + write(file, message, static_cast<std::size_t>(length)) < 0) {
        std::perror("bench");
    }
    close(file);
}

void StdioReport(const std::string& path, const char* name)
{
    std::FILE* const file = std::fopen(path.c_str(), "a");
    const time_t now = time(nullptr);
    char stamp[26] = {};
    ctime_r(&now, stamp);
    std::fprintf(file, "%.24s%s on port %d\n", stamp, name, PORT);
    std::fclose(file);
}

void MeasureReport(const ReportFolder& folder)
{
    std::vector<Row> rows = {
        Ours([](benchmark::State& state) {
            for (auto _ : state) {
                EmsUtilReport("%s on port %d\n", "alpha", PORT);
            }
        }),
        Floor([path = folder.File("bare.rpt")](benchmark::State& state) {
            for (auto _ : state) {
                BareReport(path, "%s on port %d\n", "alpha", PORT);
            }
        }),
        Rival("fopen, fprintf, fclose",
              [path = folder.File("stdio.rpt")](benchmark::State& state) {
                  for (auto _ : state) {
                      StdioReport(path, "alpha");
                  }
              }),
    };
#ifdef BENCH_HAS_GLOG
    FLAGS_logtostderr = false;
    FLAGS_logbuflevel = -1; // flushes each entry
    google::SetLogSymlink(google::GLOG_INFO, "");
    google::SetLogDestination(google::GLOG_INFO, folder.File("glog").c_str());
    google::InitGoogleLogging("emsutil_bench");
    rows.push_back(Rival("glog, flushed", [](benchmark::State& state) {
        for (auto _ : state) {
            LOG(INFO) << "alpha on port " << PORT;
        }
    }));
#endif
    Compare({"EmsUtilReport", 1.05}, rows);
#ifdef BENCH_HAS_GLOG
    google::ShutdownGoogleLogging();
#endif
}

double Milliseconds()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    const long milliseconds = now.tv_sec * 1000 + now.tv_usec / 1000;
    return static_cast<double>(milliseconds);
}

std::string Describe(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string Describe(const char* format, ...)
{
    char info[512] = {};
    va_list arguments;
    va_start(arguments, format);
    vsnprintf_s(info, sizeof info, 511, format, arguments);
    va_end(arguments);
    return info;
}

void MeasureTimeGuard()
{
    std::vector<Row> rows = {
        Ours([](benchmark::State& state) {
            for (auto _ : state) {
                const AgentTimeGuard guard("loading %s on port %d", "alpha", PORT);
            }
        }),
        Floor([](benchmark::State& state) {
            for (auto _ : state) {
                const double begin = Milliseconds();
                const std::string info = Describe("loading %s on port %d", "alpha", PORT);
                const double end = Milliseconds();
                GetEmsUtilAgentDebugInterface()->DebugPrint(1, "%s\n", info.c_str());
                GetEmsUtilAgentDebugInterface()->DebugPrint(1, "used time(ms): %d\n",
                                                            static_cast<int>(end - begin));
            }
        }),
    };
#ifdef BENCH_HAS_SPDLOG
    rows.push_back(Rival("spdlog::stopwatch", [](benchmark::State& state) {
        spdlog::logger logger("null", std::make_shared<spdlog::sinks::null_sink_mt>());
        for (auto _ : state) {
            const spdlog::stopwatch watch;
            logger.info("loading {} on port {}", "alpha", PORT);
            logger.info("used time(ms): {}", watch);
        }
    }));
#endif
    Compare({"AgentTimeGuard", 1.05}, rows);
}

} // namespace

void MeasureDiagnostics()
{
    const ReportFolder folder;
    MeasureReport(folder);
    MeasureTimeGuard();
}

} // namespace bench
