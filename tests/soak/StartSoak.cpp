#include "bench/AgentStarts.h"
#include "tests/soak/FlatSeries.h"
#include "tests/soak/Soaks.h"
#include "tests/soak/StagedAgent.h"
#include "tests/soak/SystemSeries.h"
#include "tests/support/ShellTrayCatcher.h"

#include <algorithm>
#include <shellapi.h>

namespace
{
constexpr DWORD EXIT_CODE_ENDED = 0;
constexpr DWORD EXIT_CODE_ASKED_TO_END = 0xFFFFFFC8; // -56
constexpr unsigned int LOST_SERVICES = 10;           // one agent in so many ends since the service goes

/// Agents that are started, visited and ended.
class Starts
{
  public:
    Starts(const AgentFolder& folder, CStandInService& service, unsigned int uSeed)
        : m_folder(folder), m_service(service), m_uSeed(uSeed)
    {
    }

    /// One agent. False when something went wrong; Failure says what.
    bool Play();
    const std::string& Failure() const { return m_failure; }
    /// Icons that were brought to the shell and never taken away.
    size_t IconsLeft() const { return m_nIconsLeft; }

  private:
    const AgentFolder& m_folder;
    CStandInService& m_service;
    unsigned int m_uSeed;
    unsigned int m_uStarts = 0;
    ShellTrayCatcher m_catcher;
    size_t m_nIconsLeft = 0;
    std::string m_failure;

    bool End(const StagedAgent& agent);
    void CountIcons();
};

bool Starts::Play()
{
    const StagedAgent agent(m_folder, m_service);
    ++m_uStarts;
    if (!agent.Visited())
    {
        m_failure = "agent " + std::to_string(m_uStarts) + " didn't answer";
        return false;
    }
    {
        ViewerVisits visits(m_service, *agent.Visited(), m_uSeed + m_uStarts);
        if (!visits.PlayNext())
        {
            m_failure = "agent " + std::to_string(m_uStarts) + ": " + visits.Failure();
            return false;
        }
    }
    const bool bEnded = End(agent);
    CountIcons();
    return bEnded;
}

// There is no second connection: an agent whose service goes ends, and another one is started.
bool Starts::End(const StagedAgent& agent)
{
    const unsigned int uAgent = agent.Visited()->uAgent;
    const bool bAsked = m_uStarts % LOST_SERVICES != 0;
    if (bAsked)
    {
        MSG_TRAYICON_EXIT leave = {};
        leave.dwType = MSG_TYPE_TRAYICON_EXIT;
        m_service.Send(uAgent, {reinterpret_cast<const BYTE*>(&leave), sizeof(leave)});
    }
    else
    {
        m_service.CloseAgent(uAgent);
    }
    const std::optional<DWORD> exitCode = agent.Process().WaitForExit(PATIENCE_MS);
    if (exitCode != (bAsked ? EXIT_CODE_ASKED_TO_END : EXIT_CODE_ENDED))
    {
        m_failure = "agent " + std::to_string(m_uStarts) + " ended with " +
                    (exitCode ? std::to_string(static_cast<int>(*exitCode)) : "nothing at all");
        return false;
    }
    return true;
}

void Starts::CountIcons()
{
    const std::vector<TrayCall> calls = m_catcher.Calls();
    const auto countOf = [&calls](DWORD dwMessage) {
        return static_cast<size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [dwMessage](const TrayCall& call) { return call.dwMessage == dwMessage; }));
    };
    m_nIconsLeft += countOf(NIM_ADD) - std::min(countOf(NIM_ADD), countOf(NIM_DELETE));
    m_catcher.Forget();
}
} // namespace

void SoakStarts(Report& report, const SOAK_RUN& run)
{
    const std::unique_ptr<AgentKind> pKind = AgentKind::Product();
    CStandInService service;
    if (pKind == nullptr || !PrepareService(service))
    {
        report.Fail("starts: no folder for the agent, or no port for the service");
        return;
    }
    Starts starts(pKind->Folder(), service, run.uSeed);
    SystemSeries series;
    FlatSeries icons("starts: icons left at the shell", "icons", Bound::NoMoreThanReference, 0);
    const auto play = [&] { return starts.Play(); };
    const auto sample = [&] {
        series.Sample();
        icons.Add(starts.IconsLeft());
    };
    if (!WarmUp(run.uStarts, play) || !RepeatAndSample("starts", run.uStarts, play, sample))
    {
        report.Fail("starts: " + starts.Failure());
        return;
    }
    series.Tell(report);
    icons.Tell(report);
}
