#include "dialogs/DialogPlacement.h"

#include "Include/SystemCall.h"
#include "Include/TKLogging.h"

#include <shellapi.h>

#include <algorithm>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("NotifyDialog");

using AppBarMessageFunction = UINT_PTR(WINAPI*)(DWORD, APPBARDATA*);

constexpr LONG TASKBAR_GAP = 4;      // pixels between the window and the taskbar or the screen's edge
constexpr LONG SMALLEST_MARGIN = 30; // pixels kept free where the taskbar may be

constexpr UINT SHOW_TOPMOST_FLAGS =
    SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE | SWP_SHOWWINDOW | SWP_NOOWNERZORDER;
static_assert(SHOW_TOPMOST_FLAGS == 595);
static_assert(sizeof(APPBARDATA) == 48 && sizeof(MONITORINFO) == 40);

// Stays for good once found, and its module with it.
AppBarMessageFunction g_pfnAppBarMessage = nullptr;

SIZE SizeOf(const RECT& rect)
{
    return {rect.right - rect.left, rect.bottom - rect.top};
}

bool FindTaskbarCorner(SIZE window, POINT* pCorner)
{
    if (g_pfnAppBarMessage == nullptr)
    {
        return false;
    }
    APPBARDATA taskbar = {};
    taskbar.cbSize = sizeof(taskbar);
    RECT workArea = {};
    if (g_pfnAppBarMessage(ABM_GETTASKBARPOS, &taskbar) == 0 || !GetDisplayWorkArea(taskbar.rc, workArea))
    {
        return false;
    }
    *pCorner = PlaceByTaskbar(taskbar.rc, taskbar.uEdge, workArea, window);
    return true;
}

POINT FindScreenCorner(SIZE window)
{
    const SIZE screen = {GetSystemMetrics(SM_CXFULLSCREEN), GetSystemMetrics(SM_CYFULLSCREEN)};
    RECT workArea = {};
    return SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0) ? PlaceByWorkArea(screen, workArea, window)
                                                                   : PlaceByScreen(screen, window);
}
} // namespace

POINT PlaceByTaskbar(const RECT& taskbar, UINT uEdge, const RECT& workArea, SIZE window)
{
    const SIZE work = SizeOf(workArea);
    POINT corner = {work.cx - window.cx - TASKBAR_GAP, work.cy - window.cy - TASKBAR_GAP};
    if (uEdge == ABE_BOTTOM)
    {
        corner.y = taskbar.top - window.cy - TASKBAR_GAP;
    }
    else if (uEdge == ABE_RIGHT)
    {
        corner.x = taskbar.left - window.cx - TASKBAR_GAP;
    }
    return corner;
}

POINT PlaceByWorkArea(SIZE screen, const RECT& workArea, SIZE window)
{
    const LONG nMargin = std::max(screen.cy - workArea.bottom, SMALLEST_MARGIN);
    return {workArea.right - nMargin - window.cx, workArea.bottom - nMargin - window.cy};
}

POINT PlaceByScreen(SIZE screen, SIZE window)
{
    return {screen.cx - window.cx - SMALLEST_MARGIN, screen.cy - window.cy - SMALLEST_MARGIN};
}

void SetNotifyDialogLocation(HWND hWnd)
{
    TK_LOG_INFO(g_pLogger, L"SetNotifyDialogLocation");
    RECT rect = {};
    GetWindowRect(hWnd, &rect);
    const SIZE window = SizeOf(rect);
    POINT corner = {};
    if (!FindTaskbarCorner(window, &corner))
    {
        corner = FindScreenCorner(window);
    }
    MoveWindow(hWnd, corner.x, corner.y, window.cx, window.cy, TRUE);
    ShowTopmost(hWnd);
}

int GetDisplayWorkArea(const RECT& rect, RECT& workArea)
{
    TK_LOG_INFO(g_pLogger, L"GetDisplayWorkArea");
    const CSystemModule user(L"User32.DLL");
    const auto pfnMonitorFromRect = user.Find<decltype(&MonitorFromRect)>("MonitorFromRect");
    const auto pfnGetMonitorInfo = user.Find<decltype(&GetMonitorInfoW)>("GetMonitorInfoW");
    if (pfnMonitorFromRect == nullptr || pfnGetMonitorInfo == nullptr)
    {
        return 0;
    }
    const HMONITOR hMonitor = pfnMonitorFromRect(&rect, MONITOR_DEFAULTTONULL);
    MONITORINFO info = {};
    info.cbSize = sizeof(info);
    if (hMonitor == nullptr || !pfnGetMonitorInfo(hMonitor, &info))
    {
        return 0;
    }
    workArea = info.rcWork;
    return 1;
}

int LoadAppBarMessage()
{
    if (FindWindowW(L"Shell_TrayWnd", nullptr) == nullptr)
    {
        return 0;
    }
    if (g_pfnAppBarMessage == nullptr)
    {
        CModule hShell(TKLoadSystemLibrary(L"Shell32.dll", nullptr, 0));
        g_pfnAppBarMessage =
            hShell ? FindModuleEntry<AppBarMessageFunction>(hShell.get(), "SHAppBarMessage") : nullptr;
        if (g_pfnAppBarMessage != nullptr)
        {
            (void)hShell.release(); // the function is called until the process ends
        }
    }
    return g_pfnAppBarMessage != nullptr ? 1 : 0;
}

void ShowTopmost(HWND hWnd)
{
    SetWindowPos(hWnd, HWND_TOPMOST, 0, 0, 0, 0, SHOW_TOPMOST_FLAGS);
}
