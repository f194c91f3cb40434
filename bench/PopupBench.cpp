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
constexpr char NAME[] = "connect record to popup / bare dialog";
constexpr int ROUNDS = 20;
constexpr double MILLISECONDS = 1000.0;
constexpr double NOTICE_DELAY = 2000.0; // milliseconds from the connect record to its notice
constexpr double MOST_OF_BARE_DIALOG = 1.5;
constexpr double LONGEST_WAIT = 20000.0; // milliseconds
constexpr DWORD LEAD_MS = 250;           // between the two starts of a round

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

/// One of the two that show a window after the delay.
struct Contestant
{
    std::function<bool()> start;
    std::function<HWND()> findWindow;
    std::function<void()> close;
    std::vector<double> times = {}; // milliseconds from the start to the painted window, without the delay
    Stopwatch stopwatch = {};
    bool bRunning = false;

    bool Start()
    {
        stopwatch = Stopwatch();
        bRunning = start();
        return bRunning;
    }
    void Look()
    {
        const HWND hWnd = bRunning ? findWindow() : nullptr;
        if (hWnd == nullptr || !IsWindowVisible(hWnd))
        {
            return;
        }
        UpdateWindow(hWnd);
        times.push_back(stopwatch.Seconds() * MILLISECONDS - NOTICE_DELAY);
        bRunning = false;
        close();
    }
};

/// Handles messages for a while.
void HandleMessages(DWORD dwMilliseconds)
{
    const ULONGLONG qwEnd = GetTickCount64() + dwMilliseconds;
    for (ULONGLONG qwNow = GetTickCount64(); qwNow < qwEnd; qwNow = GetTickCount64())
    {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(qwEnd - qwNow), QS_ALLINPUT);
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            DispatchMessageW(&message);
        }
    }
}

/// Both wait out their delay side by side, so that what the machine does besides meets both.
bool RunRound(Contestant& first, Contestant& second)
{
    if (!first.Start())
    {
        return false;
    }
    HandleMessages(LEAD_MS);
    const Stopwatch stopwatch;
    if (!second.Start())
    {
        return false;
    }
    while ((first.bRunning || second.bRunning) && stopwatch.Seconds() * MILLISECONDS < LONGEST_WAIT &&
           AgentWindow::DispatchNext())
    {
        first.Look();
        second.Look();
    }
    return !first.bRunning && !second.bRunning;
}

bool SendConnect(AgentWindow& agent)
{
    MSG_TRAYICON_CONNECT connection = {};
    connection.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
    connection.dwConnectCount = 1;
    connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    CopyText(connection.szClientName, L"Alice");
    return agent.Connection().SendAll(&connection, sizeof(connection));
}

Contestant Popup(AgentWindow& agent)
{
    return {[&agent] { return SendConnect(agent); }, [&agent] { return agent.Window().m_hNotifyDlg; },
            [&agent] { SendMessageW(agent.Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 0); }};
}

Contestant BareDialog()
{
    return {[] { return SetTimer(nullptr, 0, static_cast<UINT>(NOTICE_DELAY), ShowBareDialog) != 0; },
            [] { return g_bare.hDialog; }, [] { DestroyWindow(std::exchange(g_bare.hDialog, nullptr)); }};
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

std::vector<std::string> PopupFigureNames()
{
    return {NAME};
}

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
    Contestant popup = Popup(agent);
    Contestant bare = BareDialog();
    for (int nRound = 0; nRound <= ROUNDS; ++nRound)
    {
        // Each goes first as often as the other.
        const bool bPopupFirst = nRound % 2 == 0;
        if (!RunRound(bPopupFirst ? popup : bare, bPopupFirst ? bare : popup))
        {
            report.Fail("popup: no window");
            return;
        }
        if (nRound == 0) // it loads what windows need
        {
            popup.times.clear();
            bare.times.clear();
        }
    }
    const Comparison comparison = Compare(popup.times, bare.times);
    report.Add({NAME, "ms", comparison.dMeasured, comparison.dReference, comparison.dRatio,
                Bound::RatioAtMost, MOST_OF_BARE_DIALOG});
}
