#include "bench/AgentStarts.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/StandIn.h"
#include "bench/Stopwatch.h"
#include "bench/UnixProcess.h"

#include "tests/support/HandleCount.h"
#include "tests/support/LogonSession.h"
#include "tests/support/ShellTrayCatcher.h"

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>

namespace
{
constexpr size_t SIZES[] = {10, 50, 100};
constexpr size_t MOST_AGENTS = 100;
constexpr DWORD FIRST_SESSION = 1001;
constexpr int STARTS_ALONE = 9;
constexpr double MILLISECONDS = 1000; // in a second

constexpr double MOST_TIME = 1.0;
constexpr double MOST_MEMORY = 1.1;
constexpr double MOST_HANDLES = 1.1;

constexpr DWORD PLAY_MS = 120000;
constexpr DWORD SETTLING_MS = 7000; // settings have a timer of five seconds started
constexpr DWORD OBSERVED_MS = 5000;
constexpr DWORD LEAVE_MS = 20000;
constexpr DWORD LOOK_AGAIN_MS = 20;
constexpr DWORD EXIT_CODE_ASKED_TO_END = 0xFFFFFFC8; // -56

enum CROWD_FIGURE
{
    FIGURE_SERVED,
    FIGURE_START,
    FIGURE_MEMORY,
    FIGURE_THREADS,
    FIGURE_HANDLES,
    FIGURE_SWITCHES,
    FIGURES,
};

constexpr const char* s_apszFigures[FIGURES] = {
    "agents served to the end / started", "start to handshake, each / alone",
    "private memory, each / alone",       "threads, each / alone",
    "handles but keys, each / alone",     "wake-ups in 5 s, each / alone",
};

std::string FigureName(size_t nAgents, CROWD_FIGURE figure)
{
    return "crowd of " + std::to_string(nAgents) + ", " + s_apszFigures[figure];
}

/// What is measured of one crowd, all but the first for each agent.
struct CrowdFigures
{
    size_t nServed = 0;
    double dSeconds = 0; // from before the first start until the service has the last answer
    double dPrivateKiB = 0;
    double dThreads = 0;
    double dHandles = 0;
    double dSwitches = 0;
};

using Sessions = std::vector<std::unique_ptr<LogonSession>>;

Sessions MakeSessions()
{
    Sessions sessions;
    for (DWORD dwSession = FIRST_SESSION; dwSession < FIRST_SESSION + MOST_AGENTS; ++dwSession)
    {
        sessions.push_back(std::make_unique<LogonSession>(dwSession));
    }
    return sessions;
}

/// So many agents, each in a session of its own, at one stand-in service.
class Crowd
{
  public:
    Crowd(const AgentKind& kind, const Sessions& sessions, size_t nAgents)
        : m_kind(kind), m_sessions(sessions), m_nAgents(nAgents), m_nPort(UnusedPort())
    {
    }

    /// Starts all and shakes hands with all; false when that fails.
    bool Gather();
    /// Waits until they have come to rest and looks at them.
    bool Observe();
    /// A viewer comes to all and leaves all of them.
    bool Visit();
    /// The service ends all.
    bool Dismiss();

    CrowdFigures Figures() const;
    std::string WhatFailed() const;

  private:
    const AgentKind& m_kind;
    const Sessions& m_sessions;
    size_t m_nAgents;
    unsigned short m_nPort;
    ShellTrayCatcher m_shell;
    StandIn m_service;
    std::vector<std::unique_ptr<AgentProcess>> m_agents;
    std::vector<bool> m_unserved = std::vector<bool>(m_nAgents);
    CrowdFigures m_figures;
    std::string m_failure;

    bool Play(const std::string& lines);
    void StartAgents();
    void CheckSessions();
    void AwaitIcons(const std::function<bool(HWND hWnd, const TrayCall& call)>& isAsWanted);
    void CheckExitCodes();
    bool AreAllGone() const;
    bool Fail(const std::string& what);
};

bool Crowd::Fail(const std::string& what)
{
    m_failure = what;
    return false;
}

bool Crowd::Play(const std::string& lines)
{
    return m_service.Play(lines, PLAY_MS) || Fail("the service says:\n" + m_service.Said());
}

void Crowd::StartAgents()
{
    for (size_t nAgent = 0; nAgent < m_nAgents; ++nAgent)
    {
        AgentStart start;
        start.commandLine = std::to_wstring(m_nPort);
        start.pSession = m_sessions[nAgent].get();
        m_agents.push_back(std::make_unique<AgentProcess>(m_kind.Folder(), start));
    }
}

/// The service has listed the agents, in the order of their arrival.
void Crowd::CheckSessions()
{
    const std::string list = m_service.Said();
    for (size_t nAgent = 0; nAgent < m_nAgents; ++nAgent)
    {
        const std::string told = "is connected, session " + std::to_string(m_sessions[nAgent]->Id()) + "\n";
        m_unserved[nAgent] = m_unserved[nAgent] || list.find(told) == std::string::npos;
    }
}

bool Crowd::Gather()
{
    if (!Play("listen " + std::to_string(m_nPort) + "\n"))
    {
        return false;
    }
    const Stopwatch stopwatch;
    StartAgents();
    if (!Play("agent wait " + std::to_string(m_nAgents) + " within=60000\n"))
    {
        return false;
    }
    m_figures.dSeconds = stopwatch.Seconds();
    if (!Play("agent all\nagents\n"))
    {
        return false;
    }
    CheckSessions();
    return Play("settings dwTrayIcon=1 dwDefaultConnectionType=1 szTrayTip=Kestrel within=30000\n"
                "echo within=30000\n");
}

bool Crowd::Observe()
{
    Sleep(SETTLING_MS);
    const std::vector<UnixProcess> processes = UnixProcess::FindAll(m_kind.Folder().Program());
    if (processes.size() != m_nAgents)
    {
        return Fail(std::to_string(processes.size()) + " processes are there");
    }
    const auto countSwitches = [](unsigned long long nSum, const UnixProcess& process) {
        return nSum + process.Activity().nSwitches;
    };
    const auto sum = [&processes](const auto& add) {
        return std::accumulate(processes.begin(), processes.end(), 0ULL, add);
    };
    const unsigned long long nBefore = sum(countSwitches);
    Sleep(OBSERVED_MS);
    const unsigned long long nAfter = sum(countSwitches);
    if (nBefore == 0)
    {
        return Fail("the system doesn't tell what the threads do");
    }
    const auto each = [this](unsigned long long nOfAll) {
        return static_cast<double>(nOfAll) / static_cast<double>(m_nAgents);
    };
    m_figures.dSwitches = each(nAfter - nBefore);
    m_figures.dPrivateKiB = each(
        sum([](unsigned long long nSum, const UnixProcess& process) { return nSum + process.PrivateKiB(); }));
    m_figures.dThreads = each(sum([](unsigned long long nSum, const UnixProcess& process) {
        return nSum + process.Activity().nThreads;
    }));
    std::set<DWORD> processIds;
    for (const auto& pAgent : m_agents)
    {
        processIds.insert(pAgent->Id());
    }
    // The test system leaves a few keys open in every program with a window whenever another such one starts.
    m_figures.dHandles = each(CountHandlesButKeys(processIds));
    return true;
}

/// Waits until the icon of every agent is as it is wanted, and notes those whose icon isn't.
void Crowd::AwaitIcons(const std::function<bool(HWND hWnd, const TrayCall& call)>& isAsWanted)
{
    std::map<HWND, bool> state;
    size_t nSeen = 0;
    do
    {
        const std::vector<TrayCall> calls = m_shell.Calls();
        for (; nSeen < calls.size(); ++nSeen)
        {
            const TrayCall& call = calls[nSeen];
            state[call.hWnd] = isAsWanted(call.hWnd, call);
        }
    } while (static_cast<size_t>(std::count_if(state.begin(), state.end(),
                                               [](const auto& entry) { return entry.second; })) < m_nAgents &&
             m_shell.WaitForCalls(nSeen + 1, LEAVE_MS));
    for (size_t nAgent = 0; nAgent < m_nAgents; ++nAgent)
    {
        const auto found = state.find(m_agents[nAgent]->FindTrayWindow());
        m_unserved[nAgent] = m_unserved[nAgent] || found == state.end() || !found->second;
    }
}

bool Crowd::Visit()
{
    std::map<HWND, std::vector<BYTE>> idle;
    AwaitIcons([&idle](HWND hWnd, const TrayCall& call) {
        idle[hWnd] = call.iconBits;
        return true;
    });
    m_shell.Forget();
    if (!Play("connect Alice\necho within=30000\n"))
    {
        return false;
    }
    AwaitIcons([&idle](HWND hWnd, const TrayCall& call) { return call.iconBits != idle[hWnd]; });
    m_shell.Forget();
    if (!Play("disconnect Alice\necho within=30000\n"))
    {
        return false;
    }
    AwaitIcons([&idle](HWND hWnd, const TrayCall& call) { return call.iconBits == idle[hWnd]; });
    return true;
}

void Crowd::CheckExitCodes()
{
    for (size_t nAgent = 0; nAgent < m_nAgents; ++nAgent)
    {
        m_unserved[nAgent] =
            m_unserved[nAgent] || m_agents[nAgent]->WaitForExit(LEAVE_MS) != EXIT_CODE_ASKED_TO_END;
    }
}

/// The system below may still clear away what has ended.
bool Crowd::AreAllGone() const
{
    const Stopwatch stopwatch;
    while (!UnixProcess::FindAll(m_kind.Folder().Program()).empty())
    {
        if (stopwatch.Seconds() * MILLISECONDS > LEAVE_MS)
        {
            return false;
        }
        Sleep(LOOK_AGAIN_MS);
    }
    return true;
}

bool Crowd::Dismiss()
{
    if (!Play("exit within=60000\n"))
    {
        return false;
    }
    CheckExitCodes();
    return AreAllGone() || Fail("a process is left behind");
}

CrowdFigures Crowd::Figures() const
{
    CrowdFigures figures = m_figures;
    figures.nServed = static_cast<size_t>(std::count(m_unserved.begin(), m_unserved.end(), false));
    return figures;
}

std::string Crowd::WhatFailed() const
{
    return "crowd of " + std::to_string(m_nAgents) + ": " + m_failure;
}

/// Everything that is asked of a crowd; empty when it couldn't be done.
std::optional<CrowdFigures> Serve(Report& report, const AgentKind& kind, const Sessions& sessions,
                                  size_t nAgents)
{
    Crowd crowd(kind, sessions, nAgents);
    if (!crowd.Gather() || !crowd.Observe() || !crowd.Visit() || !crowd.Dismiss())
    {
        report.Fail(crowd.WhatFailed());
        return std::nullopt;
    }
    return crowd.Figures();
}

/// The median of some starts of a single agent, in seconds.
std::optional<double> StartAlone(Report& report, const AgentKind& kind, const Sessions& sessions)
{
    std::vector<double> times;
    for (int nStart = 0; nStart <= STARTS_ALONE; ++nStart)
    {
        Crowd alone(kind, sessions, 1);
        if (!alone.Gather() || !alone.Dismiss())
        {
            report.Fail(alone.WhatFailed());
            return std::nullopt;
        }
        if (nStart > 0) // the first one warms the machine up
        {
            times.push_back(alone.Figures().dSeconds);
        }
    }
    return Median(times);
}

void AddServed(Report& report, size_t nAgents, const CrowdFigures& figures)
{
    const auto dServed = static_cast<double>(figures.nServed);
    const auto dStarted = static_cast<double>(nAgents);
    report.Add({FigureName(nAgents, FIGURE_SERVED), "agents", dServed, dStarted, dServed / dStarted,
                Bound::RatioAtLeast, 1});
}

void AddShares(Report& report, size_t nAgents, const CrowdFigures& crowd, const CrowdFigures& alone)
{
    const auto add = [&](CROWD_FIGURE figure, const char* pszUnit, double dEach, double dAlone, Bound bound,
                         double dLimit) {
        const double dRatio = dAlone > 0 ? dEach / dAlone : 0;
        report.Add({FigureName(nAgents, figure), pszUnit, dEach, dAlone, dRatio, bound, dLimit});
    };
    add(FIGURE_START, "ms", crowd.dSeconds * MILLISECONDS / static_cast<double>(nAgents),
        alone.dSeconds * MILLISECONDS, Bound::RatioAtMost, MOST_TIME);
    add(FIGURE_MEMORY, "KiB", crowd.dPrivateKiB, alone.dPrivateKiB, Bound::RatioAtMost, MOST_MEMORY);
    add(FIGURE_THREADS, "threads", crowd.dThreads, alone.dThreads, Bound::NoMoreThanReference, 0);
    add(FIGURE_HANDLES, "handles", crowd.dHandles, alone.dHandles, Bound::RatioAtMost, MOST_HANDLES);
    add(FIGURE_SWITCHES, "switches", crowd.dSwitches, alone.dSwitches, Bound::NoMoreThanReference, 0);
}
} // namespace

std::vector<std::string> CrowdFigureNames()
{
    std::vector<std::string> names = {FigureName(1, FIGURE_SERVED)};
    for (const size_t nAgents : SIZES)
    {
        for (int nFigure = FIGURE_SERVED; nFigure < FIGURES; ++nFigure)
        {
            names.push_back(FigureName(nAgents, static_cast<CROWD_FIGURE>(nFigure)));
        }
    }
    return names;
}

void MeasureCrowd(Report& report)
{
    const std::unique_ptr<AgentKind> pKind = AgentKind::Product();
    const Sessions sessions = MakeSessions();
    if (pKind == nullptr || !std::all_of(sessions.begin(), sessions.end(),
                                         [](const auto& pSession) { return pSession->IsThere(); }))
    {
        report.Fail("crowd: the agents' folder or sessions can't be made");
        return;
    }
    const std::optional<double> startAlone = StartAlone(report, *pKind, sessions);
    std::optional<CrowdFigures> alone = startAlone ? Serve(report, *pKind, sessions, 1) : std::nullopt;
    if (!alone)
    {
        return;
    }
    alone->dSeconds = *startAlone;
    AddServed(report, 1, *alone);
    for (const size_t nAgents : SIZES)
    {
        const std::optional<CrowdFigures> crowd = Serve(report, *pKind, sessions, nAgents);
        if (!crowd)
        {
            return;
        }
        AddServed(report, nAgents, *crowd);
        AddShares(report, nAgents, *crowd, *alone);
    }
}
