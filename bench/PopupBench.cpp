#include "bench/AgentWindow.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/Stopwatch.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "resources/resource.h"
#include "tests/support/AgentFolder.h"

#include <functional>
#include <optional>

namespace
{
constexpr int ROUNDS = 8;
constexpr double MILLISECONDS = 1000.0;
constexpr double NOTICE_DELAY = 2000.0; // milliseconds from the connect record to its notice
constexpr double MOST_OF_BARE_DIALOG = 1.5;
constexpr double LONGEST_WAIT = 20000.0; // milliseconds

/// What a program does that only shows the dialog after the same delay.
struct BARE_PROGRAM
{
    HMODULE hResources = nullptr;
    HWND hDialog = nullptr;
};
BARE_PROGRAM g_bare;

INT_PTR CALLBACK BareDialogProc(HWND hDialog, UINT uMessage, WPARAM, LPARAM)
{
    if (uMessage == WM_INITDIALOG)
    {
        SetWindowPos(hDialog, HWND_TOPMOST, 0, 0, 0, 0,
                     SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE | SWP_SHOWWINDOW);
    }
    return FALSE;
}

void CALLBACK ShowBareDialog(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    KillTimer(nullptr, uTimer);
    g_bare.hDialog =
        CreateDialogParamW(g_bare.hResources, MAKEINTRESOURCEW(IDD_NOTIFY), nullptr, BareDialogProc, 0);
}

/// Milliseconds from the start to the painted window, without the delay that both have. Handles messages
/// until then; empty when the window doesn't come.
std::optional<double> TimeToWindow(const std::function<bool()>& start,
                                   const std::function<HWND()>& findWindow)
{
    const Stopwatch stopwatch;
    if (!start())
    {
        return std::nullopt;
    }
    while (stopwatch.Seconds() * MILLISECONDS < LONGEST_WAIT && AgentWindow::DispatchNext())
    {
        const HWND hWnd = findWindow();
        if (hWnd != nullptr && IsWindowVisible(hWnd))
        {
            UpdateWindow(hWnd);
            return stopwatch.Seconds() * MILLISECONDS - NOTICE_DELAY;
        }
    }
    return std::nullopt;
}

std::optional<double> TimePopup(AgentWindow& agent)
{
    MSG_TRAYICON_CONNECT connection = {};
    connection.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
    connection.dwConnectCount = 1;
    connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    CopyText(connection.szClientName, L"Alice");
    const auto time =
        TimeToWindow([&] { return agent.Connection().SendAll(&connection, sizeof(connection)); },
                     [&] { return agent.Window().m_hNotifyDlg; });
    SendMessageW(agent.Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 0);
    return time;
}

std::optional<double> TimeBareDialog()
{
    const auto time = TimeToWindow(
        [] { return SetTimer(nullptr, 0, static_cast<UINT>(NOTICE_DELAY), ShowBareDialog) != 0; },
        [] { return g_bare.hDialog; });
    DestroyWindow(std::exchange(g_bare.hDialog, nullptr));
    return time;
}

/// Under which a connection is told in a quiet popup, and nothing else happens.
bool SendSettings(AgentWindow& agent)
{
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = MSG_TYPE_TRAYICON_SETTINGS;
    settings.dwTrayIcon = TRAY_ICON_HIDDEN;
    settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    settings.bNotifyConnect = 1;
    settings.bQuietNotify = 1;
    MSG_TRAYICON_DESKTOP_USER_INFORMATION answer = {};
    return agent.Connection().SendAll(&settings, sizeof(settings)) &&
           agent.Connection().ReceiveExactly(&answer, sizeof(answer), BENCH_WAIT_MS);
}
} // namespace

void MeasurePopup(Report& report)
{
    const bool bLogging = ConfigureLogging((StageFolder() / L"TKDAST.Logging.xml").c_str());
    const CModule hResources(LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                            LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    if (!bLogging || !hResources)
    {
        report.Fail("popup: the staged log configuration or the dialogs can't be read");
        return;
    }
    g_bare.hResources = hResources.get();
    LoopbackListener listener;
    AgentWindow agent(listener, hResources.get());
    if (!agent.IsConnected() || !agent.ShakeHands() || !SendSettings(agent))
    {
        report.Fail("popup: no connection");
        return;
    }
    std::vector<double> agentTimes;
    std::vector<double> bareTimes;
    for (int nRound = 0; nRound <= ROUNDS; ++nRound)
    {
        const std::optional<double> bare = TimeBareDialog();
        const std::optional<double> popup = TimePopup(agent);
        if (!bare || !popup)
        {
            report.Fail("popup: no window");
            return;
        }
        if (nRound > 0) // the first one loads what windows need
        {
            bareTimes.push_back(*bare);
            agentTimes.push_back(*popup);
        }
    }
    const Comparison comparison = Compare(agentTimes, bareTimes);
    report.Add({"connect record to popup / bare dialog", "ms", comparison.dMeasured, comparison.dReference,
                comparison.dRatio, Bound::RatioAtMost, MOST_OF_BARE_DIALOG});
}
