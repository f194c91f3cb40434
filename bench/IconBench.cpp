#include "bench/AgentWindow.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/Stopwatch.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "resources/resource.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ShellTrayCatcher.h"

#include <functional>
#include <optional>

namespace
{
constexpr char NAME[] = "icon, settings record to shell / bare call";
constexpr int ROUNDS = 60;
constexpr double MILLISECONDS = 1000.0;
constexpr double MOST_OF_BARE_CALL = 3.0;
constexpr UINT BARE_ICON_ID = 1;

/// Milliseconds until the shell has the call that the action leads to. Empty when it doesn't come.
std::optional<double> TimeOf(ShellTrayCatcher& catcher, const std::function<bool()>& action)
{
    catcher.Forget();
    const Stopwatch stopwatch;
    if (!action() || !catcher.WaitForCalls(1, BENCH_WAIT_MS))
    {
        return std::nullopt;
    }
    return stopwatch.Seconds() * MILLISECONDS;
}

/// An icon of this program's own: what telling the shell costs by itself.
NOTIFYICONDATAW BareIcon(HWND hWnd, HMODULE hResources)
{
    NOTIFYICONDATAW icon = {};
    icon.cbSize = sizeof(icon);
    icon.hWnd = hWnd;
    icon.uID = BARE_ICON_ID;
    icon.uFlags = NIF_ICON | NIF_TIP | NIF_MESSAGE;
    icon.hIcon = LoadIconW(hResources, MAKEINTRESOURCEW(IDI_TRAY_IDLE));
    CopyText(icon.szTip, L"Kestrel");
    return icon;
}

MSG_TRAYICON_SETTINGS UpdateRecord()
{
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = MSG_TYPE_TRAYICON_SETTINGS_UPDATE;
    settings.dwTrayIcon = TRAY_ICON_SHOWN;
    settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    CopyText(settings.szTrayTip, L"Kestrel");
    return settings;
}
} // namespace

std::vector<std::string> IconFigureNames()
{
    return {NAME};
}

void MeasureIcon(Report& report)
{
    const bool bLogging = ConfigureLogging((StageFolder() / L"TKDAST.Logging.xml").c_str());
    const CModule hResources(LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                            LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    if (!bLogging || !hResources)
    {
        report.Fail("icon: the staged log configuration or the icons can't be read");
        return;
    }
    ShellTrayCatcher catcher;
    LoopbackListener listener;
    AgentWindow agent(listener, hResources.get());
    const CWindow bareWindow(
        CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr));
    if (!agent.IsConnected() || !agent.ShakeHands())
    {
        report.Fail("icon: no connection");
        return;
    }
    NOTIFYICONDATAW bareIcon = BareIcon(bareWindow.get(), hResources.get());
    Shell_NotifyIconW(NIM_ADD, &bareIcon);
    MSG_TRAYICON_SETTINGS settings = UpdateRecord();
    std::vector<double> agentTimes;
    std::vector<double> bareTimes;
    for (int nRound = 0; nRound <= ROUNDS; ++nRound)
    {
        settings.bPermissionRequired = static_cast<DWORD>(nRound % 2);
        const auto bare = TimeOf(catcher, [&] { return Shell_NotifyIconW(NIM_MODIFY, &bareIcon) != FALSE; });
        const auto changed =
            TimeOf(catcher, [&] { return agent.Connection().SendAll(&settings, sizeof(settings)); });
        if (!bare || !changed)
        {
            report.Fail("icon: the shell was not told");
            return;
        }
        if (nRound > 0) // the first one adds the icon
        {
            bareTimes.push_back(*bare);
            agentTimes.push_back(*changed);
        }
    }
    const Comparison comparison = Compare(agentTimes, bareTimes);
    report.Add({NAME, "ms", comparison.dMeasured, comparison.dReference, comparison.dRatio,
                Bound::RatioAtMost, MOST_OF_BARE_CALL});
}
