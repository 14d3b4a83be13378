#include "host/soak/load.h"

#include <array>
#include <barrier>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "host/temporary_install.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Threads write reports and traces in turn. After each burst they meet, and while all stand still
/// one of them looks at the file line by line and removes it.
class ReportLoad final : public SoakLoad
{
public:
    explicit ReportLoad(std::function<void()> atRest) : m_AtRest(std::move(atRest)) {}

    std::vector<Work> Works() override
    {
        std::vector<Work> works(m_Writers.size());
        for (std::size_t i = 0; i < works.size(); ++i) {
            works[i] = [this, i](const Stop& stop) { Write(i, stop); };
        }
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"report lines", m_nWritten, m_nLines}, {"report lines whole", m_nLines, m_nWhole}};
    }

private:
    static constexpr std::size_t STAMP = 24; // characters in front of a report

    struct Writer
    {
        std::uint64_t m_nNumber = 0; // of the writer
        std::uint64_t m_nNext = 0;   // at the meeting
    };

    static std::string Entry(std::size_t writer, std::uint64_t number)
    {
        return "writer " + std::to_string(writer) + " entry " + std::to_string(number);
    }

    static bool IsReport(std::uint64_t number) { return number % 2 == 0; }

    void Write(std::size_t index, const Stop& stop)
    {
        while (!stop) {
            for (int i = 0; i < SOAK_BURST; ++i) {
                const std::uint64_t number = m_Writers[index].m_nNumber++;
                const std::string entry = Entry(index, number);
                (IsReport(number) ? EmsUtilReport : EmsUtilTraced)("%s\n", entry.c_str());
                ++m_nWritten;
            }
            m_Meeting.arrive_and_wait();
            Pause();
        }
        m_Meeting.arrive_and_drop();
    }

    void CheckFile()
    {
        const std::string path = m_Install.ReportFolder() + '/' + NSQN_util::g_ProcName + ".rpt";
        {
            std::ifstream file(path);
            for (std::string line; std::getline(file, line);) {
                ++m_nLines;
                m_nWhole += !file.eof() && IsNextOfSomeone(line) ? 1 : 0;
            }
        }
        std::filesystem::remove(path);
        m_AtRest();
    }

    bool IsNextOfSomeone(std::string_view line)
    {
        for (std::size_t i = 0; i < m_Writers.size(); ++i) {
            std::uint64_t& next = m_Writers[i].m_nNext;
            const std::string entry = Entry(i, next);
            if (line.ends_with(entry) &&
                line.size() == entry.size() + (IsReport(next) ? STAMP : 0)) {
                ++next;
                return true;
            }
        }
        return false;
    }

    struct Check
    {
        ReportLoad* m_pLoad;
        void operator()() noexcept { m_pLoad->CheckFile(); }
    };

    const TemporaryInstall m_Install;
    const std::function<void()> m_AtRest;
    std::array<Writer, 2> m_Writers;
    Count m_nWritten = 0;
    std::uint64_t m_nLines = 0; // this and the next are of the meeting
    std::uint64_t m_nWhole = 0;
    std::barrier<Check> m_Meeting{static_cast<std::ptrdiff_t>(m_Writers.size()), Check{this}};
};

} // namespace

std::unique_ptr<SoakLoad> MakeReportLoad(std::function<void()> atRest)
{
    return std::make_unique<ReportLoad>(std::move(atRest));
}

} // namespace emshost
