#include "bench/AgentWindow.h"
#include "tests/soak/InProcessAgent.h"
#include "tests/soak/Soaks.h"
#include "tests/soak/StagedAgent.h"
#include "tests/support/StartedThreads.h"

namespace
{
/// The agent of this process; empty when it didn't answer the handshake.
std::optional<VISITED_AGENT> MeetOwnAgent(CStandInService& service, HWND hTrayWindow)
{
    constexpr unsigned int OWN_AGENT = 1;
    if (service.WaitForReadyAgents(OWN_AGENT, PATIENCE_MS) != WAIT_RESULT::Met)
    {
        return std::nullopt;
    }
    return VISITED_AGENT{OWN_AGENT, hTrayWindow, false};
}

/// Empty when all went well.
std::string VisitOften(CStandInService& service, InProcessAgent& process, HWND hTrayWindow,
                       const SOAK_RUN& run, ProcessSeries& series)
{
    const std::optional<VISITED_AGENT> agent = MeetOwnAgent(service, hTrayWindow);
    if (!agent)
    {
        return "the agent didn't answer";
    }
    ViewerVisits visits(service, *agent, run.uSeed);
    const auto play = [&] {
        process.ForgetIcons();
        return visits.PlayNext();
    };
    const bool bPlayed = visits.PlayEverything() && WarmUp(run.uCycles, play) &&
                         RepeatAndSample("window", run.uCycles, play, [&] { series.Sample(); });
    return bPlayed ? std::string() : visits.Failure();
}

template <typename Record>
bool Receive(LoopbackConnection& service, Record& record)
{
    return service.ReceiveExactly(&record, sizeof(record), PATIENCE_MS);
}

bool Send(LoopbackConnection& service, const MSG_TRAYICON_CONNECT& record)
{
    DWORD dwEcho = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
    return service.SendAll(&record, sizeof(record)) && service.SendAll(&dwEcho, sizeof(dwEcho)) &&
           Receive(service, dwEcho);
}

/// A handshake, settings, and a viewer who is told of and goes. Plain sockets play the service, since a lock
/// of this program's would leave its handle behind in every life.
bool VisitPlainly(AgentWindow& agent)
{
    LoopbackConnection& service = agent.Connection();
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = MSG_TYPE_TRAYICON_SETTINGS;
    settings.dwTrayIcon = TRAY_ICON_SHOWN;
    settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    settings.bNotifyConnect = 1;
    settings.bQuietNotify = 1;
    MSG_TRAYICON_DESKTOP_USER_INFORMATION user = {};
    if (!agent.ShakeHands() || !service.SendAll(&settings, sizeof(settings)) || !Receive(service, user))
    {
        return false;
    }
    MSG_TRAYICON_CONNECT connection = {};
    connection.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
    connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    connection.dwConnectCount = 1;
    if (!Send(service, connection))
    {
        return false;
    }
    const HWND hTrayWindow = agent.Window().m_hWnd;
    PostMessageW(hTrayWindow, WM_TIMER, TIMER_CONNECT_NOTICE, 0);
    const bool bTold = WaitUntil([hTrayWindow] { return FindShownBy(hTrayWindow) != nullptr; });
    connection.dwType = MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY;
    connection.dwConnectCount = 0;
    return bTold && Send(service, connection) && FindShownBy(hTrayWindow) == nullptr;
}

/// One life. Empty when all went well.
std::string LiveOnce(InProcessAgent& process, LoopbackListener& listener, StartedThreads& threads)
{
    process.ForgetIcons();
    AgentWindow agent(listener, process.Resources());
    if (!agent.IsConnected())
    {
        return "the agent didn't come";
    }
    bool bVisited = false;
    AgentWindow::HandleMessagesWhile([&] { bVisited = VisitPlainly(agent); });
    agent.End();
    // The agent joins none of its threads, and they use it to their end.
    if (!threads.JoinAll(PATIENCE_MS))
    {
        return "a thread of the agent goes on";
    }
    return bVisited ? std::string() : "the agent didn't tell of its viewer";
}
} // namespace

void SoakWindow(Report& report, const SOAK_RUN& run)
{
    InProcessAgent process(LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    CStandInService service;
    if (!process.IsReady() || !PrepareService(service))
    {
        report.Fail("window: the staged modules can't be read, or no port for the service");
        return;
    }
    ProcessSeries series("window", Bound::RatioAtMost);
    AgentWindow agent(service.GetPort(), process.Resources());
    std::string failure;
    AgentWindow::HandleMessagesWhile(
        [&] { failure = VisitOften(service, process, agent.Window().m_hWnd, run, series); });
    service.CloseAgent(1);
    agent.End();
    if (!failure.empty())
    {
        report.Fail("window: " + failure);
        return;
    }
    series.Tell(report);
}

void SoakLives(Report& report, const SOAK_RUN& run)
{
    // Not as data, as the agent loads it: from data the test system makes a new icon at each load, where
    // Windows gives the one that is there. The agent itself loads its icons once.
    InProcessAgent process(0);
    if (!process.IsReady())
    {
        report.Fail("lives: the staged modules can't be read");
        return;
    }
    // A process has one life: what its threads leave in the memory isn't left by an agent. It is shown all
    // the same.
    ProcessSeries series("lives", Bound::None);
    std::string failure;
    LoopbackListener listener;
    StartedThreads threads;
    const auto live = [&] {
        failure = LiveOnce(process, listener, threads);
        return failure.empty();
    };
    if (!live() || !WarmUp(run.uStarts, live) ||
        !RepeatAndSample("lives", run.uStarts, live, [&] { series.Sample(); }))
    {
        report.Fail("lives: " + failure);
        return;
    }
    series.Tell(report);
}
