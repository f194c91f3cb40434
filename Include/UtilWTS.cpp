#include "Include/UtilWTS.h"

#include "Include/BoundedText.h"
#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "startup/TKDAST.h"

#include <wtsapi32.h>

#include <cstring>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilWTS");

constexpr wchar_t WTS_MODULE[] = L"wtsapi32.dll";
constexpr wchar_t KERNEL_MODULE[] = L"Kernel32.dll";

constexpr DWORD NO_SESSION = 0xFFFFFFFF;
constexpr DWORD CONSOLE_SETTLING_TIME = 1000;    // milliseconds
constexpr UINT STATED_SYSTEM_DIRECTORY = 520;    // characters, terminator included
constexpr DWORD ENUMERATION_VERSION = 1;         // the only one there is
constexpr DWORD READABLE_SESSION_INFO_LEVEL = 1; // of TK_WTSINFOEXW

// Headers of older systems lack the class and its structure.
constexpr auto TK_WTSSessionInfoEx = static_cast<WTS_INFO_CLASS>(25);

struct TK_WTSINFOEXW
{
    DWORD Level;
    DWORD Reserved;
    DWORD SessionId;
    DWORD SessionState;
    LONG SessionFlags; // zero: locked
    BYTE Rest[212];
};
static_assert(sizeof(TK_WTSINFOEXW) == 232);
static_assert(offsetof(TK_WTSINFOEXW, SessionFlags) == 16);

using EnumerateSessionsFunction = decltype(&WTSEnumerateSessionsW);
using QuerySessionFunction = decltype(&WTSQuerySessionInformationW);
using FreeMemoryFunction = decltype(&WTSFreeMemory);
using RegisterNotificationFunction = decltype(&WTSRegisterSessionNotification);
using UnRegisterNotificationFunction = decltype(&WTSUnRegisterSessionNotification);
using ActiveConsoleFunction = DWORD(WINAPI*)();
using ProcessToSessionFunction = BOOL(WINAPI*)(DWORD, DWORD*);

// A missing module must give an answer, never a box that waits for a click. The mode stays for good.
void SilenceSystemBoxes()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
}

bool IsOnConsole(DWORD dwSessionId)
{
    unsigned long dwConsoleId = NO_SESSION;
    return GetActiveConsoleID(&dwConsoleId) && dwConsoleId == dwSessionId;
}

bool IsActiveState(const wchar_t* pAnswer, DWORD cbAnswer)
{
    return cbAnswer != 0 && static_cast<WORD>(pAnswer[0]) == WTSActive;
}

bool SaysLocked(const wchar_t* pAnswer)
{
    TK_WTSINFOEXW info = {};
    std::memcpy(&info, pAnswer, sizeof(info));
    return info.Level != READABLE_SESSION_INFO_LEVEL || info.SessionFlags == 0;
}

// By full path, so that no module of that name beside the executable can take the notifications' place. The
// directory may be asked for with more room than a path keeps.
CModule LoadNotificationModule(UINT cchStated)
{
    wchar_t szSystem[STATED_SYSTEM_DIRECTORY] = {};
    GetSystemDirectoryW(szSystem, cchStated);
    wchar_t szPath[MAX_PATH] = {};
    CopyText(szPath, std::wstring(szSystem) + L'\\' + WTS_MODULE);
    return CModule(TKLoadSystemLibrary(szPath, nullptr, 0));
}
} // namespace

bool GetActiveConsoleID(unsigned long* pdwId)
{
    const TKLogBlock block(L"GetActiveConsoleID", g_pLogger);
    SilenceSystemBoxes();
    bool bResult = false;
    if (const CSystemCall<ActiveConsoleFunction> getConsoleId(KERNEL_MODULE, "WTSGetActiveConsoleSessionId");
        getConsoleId)
    {
        // During a session switch the first answer may be that of a moment ago.
        getConsoleId();
        Sleep(0);
        Sleep(CONSOLE_SETTLING_TIME);
        const DWORD dwConsoleId = getConsoleId();
        bResult = dwConsoleId < NO_SESSION;
        if (bResult)
        {
            *pdwId = dwConsoleId;
        }
    }
    SetLastError(ERROR_SUCCESS);
    return bResult;
}

bool GetActiveSessionID(unsigned long* pdwId)
{
    const TKLogBlock block(L"GetActiveSessionID", g_pLogger);
    SilenceSystemBoxes();
    bool bResult = false;
    const CSystemModule wts(WTS_MODULE);
    const auto pfnEnumerate = wts.Find<EnumerateSessionsFunction>("WTSEnumerateSessionsW");
    const auto pfnFree = wts.Find<FreeMemoryFunction>("WTSFreeMemory");
    WTS_SESSION_INFOW* pSessions = nullptr;
    DWORD nSessions = 0;
    if (pfnEnumerate != nullptr &&
        pfnEnumerate(WTS_CURRENT_SERVER_HANDLE, 0, ENUMERATION_VERSION, &pSessions, &nSessions))
    {
        for (DWORD nSession = 0; nSession < nSessions && !bResult; ++nSession)
        {
            bResult = pSessions[nSession].State == WTSActive;
            if (bResult)
            {
                *pdwId = pSessions[nSession].SessionId;
            }
        }
        if (pfnFree != nullptr)
        {
            pfnFree(pSessions);
        }
    }
    SetLastError(ERROR_SUCCESS);
    return bResult;
}

DWORD GetSessionID()
{
    const TKLogBlock block(L"GetSessionID", g_pLogger);
    SilenceSystemBoxes();
    DWORD dwSessionId = 0;
    const CSystemCall<ProcessToSessionFunction> processToSession(KERNEL_MODULE, "ProcessIdToSessionId");
    if (!processToSession || !processToSession(GetCurrentProcessId(), &dwSessionId))
    {
        return 0;
    }
    return dwSessionId;
}

bool IsSessionActive()
{
    const TKLogBlock block(L"IsSessionActive", g_pLogger);
    SilenceSystemBoxes();
    const CSystemModule wts(WTS_MODULE);
    const auto pfnQuery = wts.Find<QuerySessionFunction>("WTSQuerySessionInformationW");
    const auto pfnFree = wts.Find<FreeMemoryFunction>("WTSFreeMemory");
    wchar_t* pAnswer = nullptr;
    DWORD cbAnswer = 0;
    if (pfnQuery == nullptr || pfnFree == nullptr ||
        !pfnQuery(WTS_CURRENT_SERVER_HANDLE, g_dwSessionId, WTSConnectState, &pAnswer, &cbAnswer))
    {
        return IsOnConsole(g_dwSessionId);
    }
    const bool bActive = IsActiveState(pAnswer, cbAnswer);
    pfnFree(pAnswer);
    return bActive;
}

bool IsSessionLockedWindows10()
{
    const TKLogBlock block(L"IsSessionLockedWindows10", g_pLogger);
    const CSystemModule wts(WTS_MODULE);
    if (!wts)
    {
        TK_LOG_ERROR(g_pLogger, L"IsSessionLockedWindows10; Unable to load wtsapi32.dll.");
        return false;
    }
    const auto pfnQuery = wts.Find<QuerySessionFunction>("WTSQuerySessionInformationW");
    if (pfnQuery == nullptr)
    {
        TK_LOG_ERROR(g_pLogger,
                     L"IsSessionLockedWindows10; Unable to load query for WTSQuerySessionInformationW "
                     L"function in  wtsapi32.dll.");
        return false;
    }
    const auto pfnFree = wts.Find<FreeMemoryFunction>("WTSFreeMemory");
    if (pfnFree == nullptr)
    {
        TK_LOG_ERROR(
            g_pLogger,
            L"IsSessionLockedWindows10; Unable to load query for WTSFreeMemory function in  wtsapi32.dll.");
        return false;
    }

    // Only for its second: the lock flag, too, may lag behind a session switch.
    unsigned long dwConsoleId = NO_SESSION;
    GetActiveConsoleID(&dwConsoleId);

    wchar_t* pAnswer = nullptr;
    DWORD cbAnswer = 0;
    if (!pfnQuery(WTS_CURRENT_SERVER_HANDLE, WTS_CURRENT_SESSION, TK_WTSSessionInfoEx, &pAnswer, &cbAnswer))
    {
        return false;
    }
    if (cbAnswer != 0 && cbAnswer < sizeof(TK_WTSINFOEXW))
    {
        // An answer of an unknown shape isn't handed back: whoever made it may not know how it was allocated.
        TK_LOG_ERROR(g_pLogger,
                     L"IsSessionLockedWindows10; Returned data for TK_WTSSessionInfoEx query is less "
                     L"then size of TK_WTSINFOEXW structure.");
        return false;
    }
    const bool bLocked = cbAnswer != 0 && SaysLocked(pAnswer);
    pfnFree(pAnswer);
    return bLocked;
}

bool IsUserDesktopInitialized()
{
    const TKLogBlock block(L"IsUserDesktopInitialized", g_pLogger);
    return FindWindowW(L"Shell_TrayWnd", nullptr) != nullptr;
}

bool RegisterSessionNotification(HWND hWnd)
{
    const TKLogBlock block(L"RegisterSessionNotification", g_pLogger);
    SilenceSystemBoxes();
    const CModule hModule = LoadNotificationModule(MAX_PATH);
    if (!hModule)
    {
        return false;
    }
    const auto pfnRegister =
        FindModuleEntry<RegisterNotificationFunction>(hModule.get(), "WTSRegisterSessionNotification");
    if (pfnRegister == nullptr || !pfnRegister(hWnd, NOTIFY_FOR_THIS_SESSION))
    {
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return true;
}

void UnRegisterSessionNotification(HWND hWnd)
{
    const TKLogBlock block(L"UnRegisterSessionNotification", g_pLogger);
    SilenceSystemBoxes();
    const CModule hModule = LoadNotificationModule(STATED_SYSTEM_DIRECTORY);
    if (!hModule)
    {
        return;
    }
    const auto pfnUnRegister =
        FindModuleEntry<UnRegisterNotificationFunction>(hModule.get(), "WTSUnRegisterSessionNotification");
    if (pfnUnRegister != nullptr)
    {
        pfnUnRegister(hWnd);
    }
    SetLastError(ERROR_SUCCESS);
}
