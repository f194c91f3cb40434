#include "Include/UtilScreenSaver.h"

#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "Include/UtilDesktop.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("DesktopOptions");

BOOL CALLBACK KillScreenSaverFunc(HWND hWnd, LPARAM)
{
    TK_LOG_INFO(g_pLogger, L"KillScreenSaverFunc");
    if (IsWindowVisible(hWnd))
    {
        PostMessageW(hWnd, WM_CLOSE, 0, 0);
    }
    return TRUE;
}
} // namespace

void KillScreenSaver()
{
    const CDesktop hDesktop(
        OpenDesktopW(SCREEN_SAVER_DESKTOP_NAME, 0, FALSE, DESKTOP_READOBJECTS | DESKTOP_WRITEOBJECTS));
    if (hDesktop)
    {
        EnumDesktopWindows(hDesktop.get(), &KillScreenSaverFunc, 0);
    }
}
