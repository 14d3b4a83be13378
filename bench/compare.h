#ifndef BENCH_COMPARE_H
#define BENCH_COMPARE_H

/// Measures one operation in several ways, side by side.
///
/// What comes out are the medians of the repetitions, a line a row, tab-separated: operation, kind,
/// who, nanoseconds, goal. Only the ratios between the rows of one operation mean something.

#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Body = std::function<void(benchmark::State&)>;

/// One way to do the operation.
struct Row
{
    std::string m_Kind;
    std::string m_Who;
    Body m_Body;
};

/// The library's.
Row Ours(Body body);
/// What the operation is made of, with nothing around it.
Row Floor(Body body);
/// What a user could take instead; ours is meant to be ahead of a rival.
Row Rival(std::string who, Body body);
Row Peer(std::string who, Body body);

enum class Time {
    Processor, // of the one thread that there is: what others take of the machine does not count
    Wall,      // where threads meet
    Own        // the body runs once a repetition, and tells its time itself
};

struct Operation
{
    std::string m_Name;
    double m_Goal; // at most this many times the floor
    Time m_Time = Time::Processor;
    int m_Threads = 1;
};

/// Repetitions of all rows in a random order, so that whatever else the machine does meets all.
/// Throws std::runtime_error when a row says that it went wrong.
void Compare(const Operation& operation, const std::vector<Row>& rows);

/// What one object costs ours in an operation on many, compared with an operation on few. Both have
/// been measured before.
void CompareGrowth(const std::string& few, const std::string& many, double goal);

/// Compare() passes over operations whose name is without this text.
void MeasureOnly(std::string text);

// The services.
void MeasureStringFormat();
void MeasureDiagnostics();
void MeasureTextForms();
void MeasureCommandQueue();
void MeasureCommandHandlers();
void MeasureThreadMonitor();
void MeasureStatistics();
void MeasureTransactionLogs();
void MeasureTimers();
void MeasureTimerLateness();
void MeasureLockErrors();

} // namespace bench

#endif
