#include "bench/compare.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

constexpr int REPETITIONS = 7;
constexpr double SECONDS_A_REPETITION = 0.06;
constexpr double SECONDS_WHERE_THREADS_MEET = 0.2; // they fall into step and out of it

std::string g_Only;
std::map<std::string, double> g_Ours; // medians, by operation

/// Keeps the times of all repetitions, by the name of the row.
class Collector final : public benchmark::BenchmarkReporter
{
public:
    explicit Collector(Time time) : m_Time(time) {}

    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                m_Error = run.benchmark_name() + ": " + run.error_message;
            }
            if (run.run_type == Run::RT_Iteration) {
                m_Times[run.run_name.function_name].push_back(m_Time == Time::Processor
                                                                  ? run.GetAdjustedCPUTime()
                                                                  : run.GetAdjustedRealTime());
            }
        }
    }

    double Median(const std::string& who)
    {
        if (!m_Error.empty()) {
            throw std::runtime_error(m_Error);
        }
        std::vector<double>& times = m_Times.at(who);
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

private:
    std::map<std::string, std::vector<double>> m_Times;
    Time m_Time;
    std::string m_Error; // of a row that could not be measured
};

bool IsSkipped(const std::string& operation)
{
    return operation.find(g_Only) == std::string::npos;
}

} // namespace

Row Ours(Body body)
{
    return {"ours", "ours", std::move(body)};
}

Row Floor(Body body)
{
    return {"floor", "floor", std::move(body)};
}

Row Rival(std::string who, Body body)
{
    return {"rival", std::move(who), std::move(body)};
}

Row Peer(std::string who, Body body)
{
    return {"peer", std::move(who), std::move(body)};
}

void MeasureOnly(std::string text)
{
    g_Only = std::move(text);
}

void Compare(const Operation& operation, const std::vector<Row>& rows)
{
    if (IsSkipped(operation.m_Name)) {
        return;
    }
    for (const Row& row : rows) {
        auto* registered = benchmark::RegisterBenchmark(row.m_Who.c_str(), row.m_Body)
                               ->Repetitions(REPETITIONS)
                               ->Threads(operation.m_Threads)
                               ->Unit(benchmark::kNanosecond);
        if (operation.m_Time == Time::Own) {
            registered->Iterations(1)->UseManualTime();
        } else {
            registered->MinTime(operation.m_Time == Time::Wall ? SECONDS_WHERE_THREADS_MEET
                                                               : SECONDS_A_REPETITION);
        }
        if (operation.m_Time == Time::Wall) {
            registered->UseRealTime();
        }
    }
    Collector collector(operation.m_Time);
    benchmark::RunSpecifiedBenchmarks(&collector, ".");
    benchmark::ClearRegisteredBenchmarks();

    std::fprintf(stderr, "%s:", operation.m_Name.c_str());
    for (const Row& row : rows) {
        const double median = collector.Median(row.m_Who);
        std::printf("%s\t%s\t%s\t%.4g\t%.4g\n", operation.m_Name.c_str(), row.m_Kind.c_str(),
                    row.m_Who.c_str(), median, operation.m_Goal);
        std::fprintf(stderr, " %s %.4g;", row.m_Who.c_str(), median);
    }
    const double ours = collector.Median("ours");
    std::fprintf(stderr, " %.2f of the floor\n", ours / collector.Median("floor"));
    std::fflush(stdout);
    g_Ours[operation.m_Name] = ours;
}

void CompareGrowth(const std::string& few, const std::string& many, double goal)
{
    if (!IsSkipped(few) && !IsSkipped(many)) {
        std::printf("%s\tgrowth\t%s\t%.4g\t%.4g\n", many.c_str(), few.c_str(),
                    g_Ours.at(many) / g_Ours.at(few), goal);
    }
}

} // namespace bench
