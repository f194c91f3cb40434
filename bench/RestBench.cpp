#include "bench/AgentStarts.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/UnixProcess.h"
#include "tests/support/HandleCount.h"

namespace
{
constexpr char SWITCHES[] = "wake-ups of all threads in 30 s";
constexpr char CPU_TIME[] = "CPU time in 30 s";
constexpr char THREADS[] = "threads at rest";
constexpr char MEMORY[] = "private memory at rest";
constexpr char HANDLES[] = "handles at rest";

constexpr DWORD SETTLING_MS = 3000;
constexpr DWORD OBSERVED_MS = 30000;

/// Two counts of the same kind, before or after the time of observation.
struct ActivityPair
{
    ProcessActivity product;
    ProcessActivity minimal;
};

void AddCount(Report& report, const char* pszName, const char* pszUnit, unsigned long long nMeasured,
              unsigned long long nReference, Bound bound)
{
    const double dMeasured = static_cast<double>(nMeasured);
    const double dReference = static_cast<double>(nReference);
    const double dRatio = nReference > 0 ? dMeasured / dReference : 0;
    report.Add({pszName, pszUnit, dMeasured, dReference, dRatio, bound, 0});
}

void AddActivity(Report& report, const ActivityPair& before, const ActivityPair& after)
{
    AddCount(report, SWITCHES, "switches", after.product.nSwitches - before.product.nSwitches,
             after.minimal.nSwitches - before.minimal.nSwitches, Bound::NoMoreThanReference);
    AddCount(report, CPU_TIME, "ticks", after.product.nCpuTicks - before.product.nCpuTicks,
             after.minimal.nCpuTicks - before.minimal.nCpuTicks, Bound::NoMoreThanReference);
    AddCount(report, THREADS, "threads", after.product.nThreads, after.minimal.nThreads, Bound::None);
}

void ObserveRest(Report& report, const AgentSession& product, const UnixProcess& productProcess,
                 const AgentSession& minimal, const UnixProcess& minimalProcess)
{
    Sleep(SETTLING_MS);
    const ActivityPair before = {productProcess.Activity(), minimalProcess.Activity()};
    Sleep(OBSERVED_MS);
    const ActivityPair after = {productProcess.Activity(), minimalProcess.Activity()};
    // A started program has gone to sleep at least once: a zero would be a question that nobody answers.
    if (before.product.nSwitches == 0 || before.minimal.nSwitches == 0 || !product.Process().IsRunning())
    {
        report.Fail("rest: the system doesn't tell what the threads do");
        return;
    }
    AddActivity(report, before, after);
    AddCount(report, MEMORY, "KiB", productProcess.PrivateKiB(), minimalProcess.PrivateKiB(), Bound::None);
    AddCount(report, HANDLES, "handles", CountHandles(product.Process().Id()),
             CountHandles(minimal.Process().Id()), Bound::None);
}
} // namespace

std::vector<std::string> RestFigureNames()
{
    return {SWITCHES, CPU_TIME, THREADS, MEMORY, HANDLES};
}

void MeasureRest(Report& report)
{
    const AgentKinds kinds;
    if (!kinds.AreReady())
    {
        report.Fail("rest: the agents' folders can't be made");
        return;
    }
    const AgentSession product(*kinds.pProduct);
    const AgentSession minimal(*kinds.pMinimal, WITH_HIDDEN_WINDOW);
    const std::optional<UnixProcess> productProcess = UnixProcess::Find(kinds.pProduct->Folder().Program());
    const std::optional<UnixProcess> minimalProcess = UnixProcess::Find(kinds.pMinimal->Folder().Program());
    if (!product.HasAnswered() || !minimal.HasAnswered() || !productProcess || !minimalProcess)
    {
        report.Fail("rest: an agent didn't answer");
        return;
    }
    ObserveRest(report, product, *productProcess, minimal, *minimalProcess);
}
