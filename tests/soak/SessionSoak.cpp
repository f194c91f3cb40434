#include "bench/AgentStarts.h"
#include "bench/UnixProcess.h"
#include "tests/soak/FlatSeries.h"
#include "tests/soak/Soaks.h"
#include "tests/soak/StagedAgent.h"
#include "tests/support/HandleCount.h"
#include "tests/support/ShellTrayCatcher.h"

namespace
{
// Of ten thousand visits, in half of which Wine's labels and fields leave some 1,100 KiB. What is counted
// beside them, in this program, has the sharper limit.
constexpr double MOST_MEMORY = 1.10;
// A lock makes its handle when two threads first meet at it, which may be in any round, but once only.
constexpr double MOST_HANDLES = 1.05;
constexpr DWORD SETTLING_MS = 200;

class SessionSeries
{
  public:
    SessionSeries(DWORD dwProcessId, UnixProcess process)
        : m_dwProcessId(dwProcessId), m_process(std::move(process))
    {
    }

    void Sample()
    {
        Sleep(SETTLING_MS);
        m_memory.Add(m_process.PrivateKiB());
        m_handles.Add(CountHandles(m_dwProcessId));
        m_threads.Add(m_process.Activity().nThreads);
    }

    void Tell(Report& report)
    {
        m_memory.Tell(report);
        m_handles.Tell(report);
        m_threads.Tell(report);
    }

  private:
    DWORD m_dwProcessId;
    UnixProcess m_process;
    FlatSeries m_memory{"sessions: private memory of the agent", "KiB", Bound::RatioAtMost, MOST_MEMORY};
    FlatSeries m_handles{"sessions: handles of the agent", "handles", Bound::RatioAtMost, MOST_HANDLES};
    FlatSeries m_threads{"sessions: threads of the agent", "threads", Bound::NoMoreThanReference, 0};
};
} // namespace

void SoakSessions(Report& report, const SOAK_RUN& run)
{
    // The test system's own shell keeps a window for each icon that it has ever had, which everybody else
    // then has to look through.
    ShellTrayCatcher catcher;
    const std::unique_ptr<AgentKind> pKind = AgentKind::Product();
    CStandInService service;
    if (pKind == nullptr || !PrepareService(service))
    {
        report.Fail("sessions: no folder for the agent, or no port for the service");
        return;
    }
    const StagedAgent agent(pKind->Folder(), service);
    const std::optional<UnixProcess> process = UnixProcess::Find(pKind->Folder().Program());
    if (!agent.Visited() || !process)
    {
        report.Fail("sessions: the agent didn't answer");
        return;
    }
    ViewerVisits visits(service, *agent.Visited(), run.uSeed);
    SessionSeries series(agent.Process().Id(), *process);
    const auto play = [&] {
        catcher.Forget();
        return visits.PlayNext();
    };
    if (!visits.PlayEverything() || !WarmUp(run.uCycles, play) ||
        !RepeatAndSample("sessions", run.uCycles, play, [&] { series.Sample(); }))
    {
        report.Fail("sessions: " + visits.Failure());
        return;
    }
    series.Tell(report);
}
