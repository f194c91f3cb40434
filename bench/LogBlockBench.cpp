#include "bench/Benchmarks.h"
#include "bench/Report.h"

#include "Include/TKLogging.h"

#include <benchmark/benchmark.h>

#include <map>

namespace
{
constexpr char NAME[] = "log block with TRACE off / level test";
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("LogBlockBench");

constexpr double MOST_LEVEL_TESTS = 1.2;
constexpr char LEVEL_TEST[] = "LevelTest";
constexpr char LOG_BLOCK[] = "LogBlock";
constexpr double NANOSECONDS = 1e9;

// Many in one round, so that neither the loop around them nor the place it came to lie at decides.
constexpr int OPERATIONS_A_ROUND = 32;

template <typename Operation>
void Repeat(benchmark::State& state, Operation operation)
{
    for ([[maybe_unused]] auto round : state)
    {
        [&operation]<int... nIndex>(std::integer_sequence<int, nIndex...>)
        {
            ((static_cast<void>(nIndex), operation()), ...);
        }
        (std::make_integer_sequence<int, OPERATIONS_A_ROUND>());
    }
    state.SetItemsProcessed(state.iterations() * OPERATIONS_A_ROUND);
}

// The memory of the scope is taken as changed, so that the next test has to look at the level again.
void LevelTest(benchmark::State& state)
{
    Repeat(state, [&state] {
        if (log4cxx::Logger::isTraceEnabledFor(g_pLogger))
        {
            state.SkipWithError("TRACE is on");
        }
        benchmark::ClobberMemory();
    });
}

void LogBlock(benchmark::State& state)
{
    Repeat(state, [] {
        const TKLogBlock block(L"LogBlockBench", g_pLogger);
        benchmark::ClobberMemory();
    });
}

/// Keeps the time of each repetition instead of printing it.
class Collector : public benchmark::BenchmarkReporter
{
  public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
            {
                const double dOperations = static_cast<double>(run.iterations) * OPERATIONS_A_ROUND;
                m_times[run.run_name.function_name].push_back(run.real_accumulated_time / dOperations *
                                                              NANOSECONDS);
            }
        }
    }

    const std::vector<double>& Times(const char* pszName) { return m_times[pszName]; }

  private:
    std::map<std::string, std::vector<double>> m_times;
};
} // namespace

std::vector<std::string> LogBlockFigureNames()
{
    return {NAME};
}

void MeasureLogBlock(Report& report)
{
    g_pLogger->setLevel(log4cxx::Level::getInfo());
    benchmark::RegisterBenchmark(LEVEL_TEST, LevelTest);
    benchmark::RegisterBenchmark(LOG_BLOCK, LogBlock);

    // The library takes its settings as a command line.
    std::string arguments[] = {"benchmarks", "--benchmark_enable_random_interleaving=true",
                               "--benchmark_repetitions=25", "--benchmark_min_time=0.05"};
    std::vector<char*> argumentPointers;
    for (std::string& argument : arguments)
    {
        argumentPointers.push_back(argument.data());
    }
    int nArguments = static_cast<int>(argumentPointers.size());
    benchmark::Initialize(&nArguments, argumentPointers.data());
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    const std::vector<double>& blocks = collector.Times(LOG_BLOCK);
    const std::vector<double>& tests = collector.Times(LEVEL_TEST);
    if (blocks.empty() || blocks.size() != tests.size())
    {
        report.Fail("log block: TRACE was on");
        return;
    }
    const double dBlock = Median(blocks);
    const double dTest = Median(tests);
    report.Add({NAME, "ns", dBlock, dTest, dBlock / dTest, Bound::RatioAtMost, MOST_LEVEL_TESTS});
}
