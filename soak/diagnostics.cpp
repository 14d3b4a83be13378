#include "emsutil/diagnostics.h"

#include <barrier>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>
#include <utility>

#include <emsplatform/platform.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Threads write reports and traces. They meet after each burst, where one of them checks the
/// report file line by line and removes it.
class ReportFile
{
public:
    ReportFile(int threads, std::function<void()> atRest)
        : m_AtRest(std::move(atRest)), m_Writers(static_cast<std::size_t>(threads)),
          m_Meeting(threads, Check{this})
    {}

    void Work(int thread, const Pace& pace)
    {
        pace.Repeat([this, thread] { Write(static_cast<std::size_t>(thread)); },
                    [this, &pace] {
                        m_Meeting.arrive_and_wait();
                        pace.Pause();
                    });
        m_Meeting.arrive_and_drop();
    }

    std::vector<Total> Finish() const { return {{"report entries whole", m_nWritten, m_nWhole}}; }

private:
    static constexpr std::size_t STAMP = 24; // characters in front of a report

    struct Writer
    {
        std::uint64_t number = 0; // of the writer
        std::uint64_t next = 0;   // of the meeting
    };

    struct Check
    {
        ReportFile* load;
        void operator()() noexcept { load->CheckFile(); }
    };

    static std::string Entry(std::size_t writer, std::uint64_t number)
    {
        return "writer " + std::to_string(writer) + " entry " + std::to_string(number);
    }

    static bool IsReport(std::uint64_t number) { return number % 2 == 0; }

    void Write(std::size_t writer)
    {
        const std::uint64_t number = m_Writers[writer].number++;
        const std::string entry = Entry(writer, number);
        (IsReport(number) ? EmsUtilReport : EmsUtilTraced)("%s\n", entry.c_str());
        ++m_nWritten;
    }

    void CheckFile()
    {
        const std::string path = NSQN_util::GetParentPath(NSQN_util::GetEKORPath()) +
                                 "../var/dump/" + NSQN_util::g_ProcName + ".rpt";
        {
            std::ifstream file(path);
            for (std::string line; std::getline(file, line);) {
                m_nWhole += !file.eof() && IsNextEntry(line) ? 1 : 0;
            }
        }
        std::error_code missing; // shows as entries that are missing
        std::filesystem::remove(path, missing);
        m_AtRest();
    }

    bool IsNextEntry(std::string_view line)
    {
        for (std::size_t i = 0; i < m_Writers.size(); ++i) {
            std::uint64_t& next = m_Writers[i].next;
            const std::string entry = Entry(i, next);
            if (line.ends_with(entry) &&
                line.size() == entry.size() + (IsReport(next) ? STAMP : 0)) {
                ++next;
                return true;
            }
        }
        return false;
    }

    const std::function<void()> m_AtRest;
    std::vector<Writer> m_Writers;
    Count m_nWritten = 0;
    std::uint64_t m_nWhole = 0; // of the meeting
    std::barrier<Check> m_Meeting;
};

} // namespace

Load ReportLoad(int threads, std::function<void()> atRest)
{
    const auto state = std::make_shared<ReportFile>(threads, std::move(atRest));
    return {threads, [state](int thread, const Pace& pace) { state->Work(thread, pace); },
            [state] { return state->Finish(); }};
}

/// Threads guard their time.
Load TimeGuardLoad(int threads)
{
    const auto guards = std::make_shared<Count>(0);
    const auto work = [guards](int thread, const Pace& pace) {
        pace.Repeat([&guards, thread] {
            const AgentTimeGuard guard("soak guard %d", thread);
            ++*guards;
        });
    };
    return {threads, work, [guards]() -> std::vector<Total> {
                return {{"time guards, their lines", 2 * *guards, g_DebugLines.guard}};
            }};
}

} // namespace soak
