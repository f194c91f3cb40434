#include "channel/DesktopWatch.h"

#include "Include/TKLogging.h"
#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

#include <iterator>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectionInfo");

constexpr wchar_t DESKTOP_SWITCH_EVENT[] = L"WinSta0_DesktopSwitch";
constexpr DWORD SETTLING_TIME = 25;         // milliseconds
constexpr UINT UNLOCK_REFRESH_PERIOD = 250; // milliseconds: the shell may have been away
constexpr DWORD WATCHED_EVENT = WAIT_OBJECT_0 + 2;

void Settle()
{
    Sleep(0);
    Sleep(SETTLING_TIME);
}

// True when the event was set; false when the reader has ended, the agent goes, or nothing can be waited for.
bool WaitForEventOrEnd(const CTaskBarWindow& window, HANDLE hEvent)
{
    const HANDLE ahObjects[] = {window.m_hReaderThread.get(), g_hQuitEvent.get(), hEvent};
    return WaitForMultipleObjects(static_cast<DWORD>(std::size(ahObjects)), ahObjects, FALSE, INFINITE) ==
           WATCHED_EVENT;
}

void ReportDesktopState(CTaskBarWindow& window)
{
    if (window.m_hDesktopEvent)
    {
        ResetEvent(window.m_hDesktopEvent.get());
    }
    Sleep(0);
    CheckDesktopState();
    MSG_TRAYICON_DESKTOP_STATE report = {MSG_TYPE_TRAYICON_DESKTOP_STATE, g_dwDesktopState};
    // A failure shows itself to the reader.
    window.SendToService(reinterpret_cast<char*>(&report), sizeof(report));
    if (window.m_Connection.dwConnectCount != 0 && g_dwDesktopState == DESKTOP_STATE_UNLOCKED)
    {
        SetTimer(window.m_hWnd, TIMER_CONNECT_NOTICE, UNLOCK_REFRESH_PERIOD, nullptr);
        SetTimer(window.m_hWnd, TIMER_TRAY_RETRY, UNLOCK_REFRESH_PERIOD, nullptr);
    }
}
} // namespace

unsigned int __stdcall DesktopHaveChanged(void* pParameter)
{
    CTaskBarWindow& window = *static_cast<CTaskBarWindow*>(pParameter);
    SetThreadLogName(L"DesktopHaveChanged");
    const TKLogBlock block(L"DesktopHaveChangedThread", g_pLogger);
    Settle();
    if (!WaitForEventOrEnd(window, window.m_hDesktopEvent.get()))
    {
        return 0;
    }
    // The event stays set, so that the first report goes out right behind the handshake.
    Settle();
    while (window.m_hReaderThread && WaitForEventOrEnd(window, window.m_hDesktopEvent.get()))
    {
        ReportDesktopState(window);
    }
    return 0;
}

unsigned int __stdcall DesktopChange(void* pParameter)
{
    CTaskBarWindow& window = *static_cast<CTaskBarWindow*>(pParameter);
    SetThreadLogName(L"DesktopChange");
    const TKLogBlock block(L"DesktopChangeThread", g_pLogger);
    Settle();
    const HANDLE ahObjects[] = {g_hQuitEvent.get(), window.m_hDesktopEvent.get()};
    if (WaitForMultipleObjects(static_cast<DWORD>(std::size(ahObjects)), ahObjects, FALSE, INFINITE) !=
        WAIT_OBJECT_0 + 1)
    {
        return 0;
    }
    // Without the event desktop switches go unseen, and only the session's notices remain.
    const CKernelHandle hSwitch(OpenEventW(SYNCHRONIZE, FALSE, DESKTOP_SWITCH_EVENT));
    if (!hSwitch)
    {
        return 0;
    }
    Settle();
    while (window.m_hReaderThread && WaitForEventOrEnd(window, hSwitch.get()))
    {
        if (window.m_hDesktopEvent)
        {
            SetEvent(window.m_hDesktopEvent.get());
        }
    }
    return 0;
}
