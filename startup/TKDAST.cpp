#include "startup/TKDAST.h"

#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "Include/Product.h"
#include "Include/Pause.h"
#include "Include/TKLogging.h"
#include "Include/UtilFile.h"
#include "Include/UtilRegistry.h"
#include "Include/UtilScreenSaver.h"
#include "Include/UtilVersion.h"
#include "Include/UtilWTS.h"
#include "channel/TrayMessages.h"
#include "startup/CommandLine.h"
#include "startup/OneShotRuns.h"
#include "tray/TKDASTWindow.h"

#include <commctrl.h>

#include <cwchar>
#include <memory>
#include <new>
#include <optional>
#include <string>

HINSTANCE g_hInstance = nullptr;
std::atomic<HMODULE> g_hResourceModule = nullptr;
CKernelHandle g_hQuitEvent;
std::atomic<int> g_nExitCode = EXIT_AGENT_ENDED;
DWORD g_dwSessionId = 0;
std::atomic<DWORD> g_dwDesktopState = 0;
wchar_t g_szDesktopName[MAX_DESKTOP_NAME] = {};
wchar_t g_szUserName[MAX_USER_NAME] = {};
CKernelHandle g_hInstanceMapping;
DWORD g_bOneTimeSession = 0;
std::atomic<DWORD> g_bOtiInvitation = 0;
wchar_t g_szOtiInvitation[MAX_INVITATION_TEXT] = {};

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDAST");

constexpr wchar_t LOGGING_CONFIGURATION[] = L"TKDAST.Logging.xml";
constexpr wchar_t ONE_TIME_SWITCH[] = L"-onetimesession";
constexpr wchar_t INSTANCE_NAME[] = L"Tessaran Site Toolbox Kestrel Desk Assist Tray Icon";
constexpr wchar_t DESKTOP_INSTANCE_NAME[] =
    L" Tessaran Kestrel Desk Assist Tray Icon"; // behind the desktop's own name

constexpr DWORD OWN_DESKTOP_NAME_BYTES = 260; // half of g_szDesktopName: a longer name counts as unreadable
constexpr size_t MAX_INSTANCE_NAME = 260;     // characters
constexpr DWORD INSTANCE_MAPPING_SIZE = 4;
constexpr DWORD TEAR_DOWN_PAUSE = 500;    // milliseconds
constexpr DWORD MAX_OWN_USER_NAME = 240;  // characters
constexpr DWORD SCREEN_SAVER_PAUSE = 500; // milliseconds

// Where the name of another application's input desktop is kept, in the root of the current drive.
constexpr wchar_t DESKTOP_DATA_FILE[] = L"\\tkdas\\TKDAST.data";
constexpr wchar_t DESKTOP_DATA_ENTRY[] = L"Desktop"; // section and key

// For the runs that act on the desktop with the user's input: taken at start-up, before it can change, and
// open to the end of the process, as a thread may have moved there.
CDesktop g_hInputDesktop;

void ReadLoggingConfiguration()
{
    // Without its folder the bare name would find whatever lies in the current directory.
    wchar_t szPath[MAX_PATH] = {};
    ConfigureLogging(GetPathBesideProgram(szPath, LOGGING_CONFIGURATION) ? szPath : L"");
}

void ReadOwnDesktopName()
{
    const CDesktop hDesktop(GetThreadDesktop(GetCurrentThreadId()));
    if (hDesktop)
    {
        ReadDesktopName(hDesktop.get(), g_szDesktopName, OWN_DESKTOP_NAME_BYTES);
    }
}

void ReadUserName()
{
    DWORD cchUserName = static_cast<DWORD>(std::size(g_szUserName));
    GetUserNameW(g_szUserName, &cchUserName);
    SetLastError(ERROR_SUCCESS);
}

// The port of a one-time agent, which comes from the command line alone. 0: there is none.
unsigned int ReadOneTimePort(std::wstring_view line)
{
    const std::optional<std::wstring_view> parameter = FindFirstParameter(line);
    if (!parameter)
    {
        TK_LOG_ERROR(g_pLogger, L"-onetimesession needs to followed by port parameter.");
        return 0;
    }
    const unsigned int uiPort = ParseOneTimePort(*parameter);
    if (uiPort == 0)
    {
        TK_LOG_ERROR(g_pLogger, L"Error converting one-time TKDAST port parameter.");
        return 0;
    }
    TK_LOG_INFO(g_pLogger, L"Starting one-time TKDASt on port: " << uiPort);
    return uiPort;
}

// False: the command line asks for a one-time agent without a usable port.
bool ResolvePort(const wchar_t* pszCommandLine, unsigned int* puiPort)
{
    if (wcsstr(pszCommandLine, ONE_TIME_SWITCH) != nullptr)
    {
        g_bOneTimeSession = 1;
        *puiPort = ReadOneTimePort(pszCommandLine);
        return *puiPort != 0;
    }
    const DWORD dwFallback =
        pszCommandLine[0] == L'\0' ? NO_FALLBACK_PORT : static_cast<DWORD>(_wtoi(pszCommandLine));
    *puiPort = GetServicePort(dwFallback);
    return true;
}

// The waiting window; other modeless ones see to their keys themselves.
void PumpMessages(const CTaskBarWindow& window)
{
    MSG message = {};
    for (BOOL nResult = GetMessageW(&message, nullptr, 0, 0); nResult != 0;
         nResult = GetMessageW(&message, nullptr, 0, 0))
    {
        if (nResult != -1 && !IsDialogMessageW(window.m_hJoinWaitDlg, &message))
        {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
}

void TearDown(std::unique_ptr<CTaskBarWindow> pWindow)
{
    if (g_hQuitEvent)
    {
        SetEvent(g_hQuitEvent.get());
    }
    // Nobody joins the threads: the pause lets them see the event before the object they use goes.
    PauseThread(TEAR_DOWN_PAUSE);
    pWindow.reset();
    g_hInstanceMapping.reset();
    g_hQuitEvent.reset();
}

enum class INPUT_DESKTOP
{
    OutOfReach, // the system's own, or one that can't be looked at
    ScreenSaver,
    Own, // where the agent started
    Foreign,
};

// szName gets the name where there is one.
INPUT_DESKTOP JudgeInputDesktop(wchar_t (&szName)[MAX_DESKTOP_NAME])
{
    if (!ReadInputDesktopName(szName) || lstrcmpiW(szName, SECURE_DESKTOP_NAME) == 0)
    {
        return INPUT_DESKTOP::OutOfReach;
    }
    if (lstrcmpiW(szName, SCREEN_SAVER_DESKTOP_NAME) == 0)
    {
        return INPUT_DESKTOP::ScreenSaver;
    }
    return lstrcmpiW(szName, g_szDesktopName) == 0 ? INPUT_DESKTOP::Own : INPUT_DESKTOP::Foreign;
}

bool IsPersonReachable()
{
    wchar_t szName[MAX_DESKTOP_NAME] = {};
    const INPUT_DESKTOP desktop = JudgeInputDesktop(szName);
    if (desktop == INPUT_DESKTOP::OutOfReach || desktop == INPUT_DESKTOP::ScreenSaver)
    {
        return desktop == INPUT_DESKTOP::ScreenSaver;
    }
    return IsSessionActive() && desktop == INPUT_DESKTOP::Own;
}

// False when a screen saver runs on.
bool EndScreenSaver()
{
    if (!IsScreenSaverRunning())
    {
        return true;
    }
    KillScreenSaver();
    PauseThread(SCREEN_SAVER_PAUSE);
    return !IsScreenSaverRunning();
}

// Only Windows 10 and later can tell of a lock behind an unlocked desktop.
bool IsSessionReachable()
{
    return IsWindows10OrGreater() ? !IsSessionLockedWindows10() : IsSessionActive();
}

bool IsPersonReachableFromInputDesktop()
{
    wchar_t szName[MAX_DESKTOP_NAME] = {};
    const INPUT_DESKTOP desktop = JudgeInputDesktop(szName);
    if (desktop == INPUT_DESKTOP::OutOfReach || desktop == INPUT_DESKTOP::ScreenSaver)
    {
        return desktop == INPUT_DESKTOP::ScreenSaver;
    }
    if (desktop == INPUT_DESKTOP::Foreign)
    {
        g_dwDesktopState = DESKTOP_STATE_LOCKED;
        WritePrivateProfileStringW(DESKTOP_DATA_ENTRY, DESKTOP_DATA_ENTRY, szName, DESKTOP_DATA_FILE);
    }
    return IsSessionReachable();
}

int RunNormally(unsigned int uiPort)
{
    if (lstrcmpiW(g_szUserName, SYSTEM_ACCOUNT) == 0)
    {
        return EXIT_SYSTEM_ACCOUNT;
    }
    if (g_bOneTimeSession == 0 && CheckInstance() == 0)
    {
        return EXIT_ALREADY_RUNNING;
    }
    g_hQuitEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::unique_ptr<CTaskBarWindow> pWindow(new (std::nothrow) CTaskBarWindow(uiPort));
    if (pWindow == nullptr)
    {
        return EXIT_NO_WINDOW;
    }
    PumpMessages(*pWindow);
    TearDown(std::move(pWindow));
    return g_nExitCode;
}
} // namespace

bool IsSystemAccount()
{
    wchar_t szUserName[MAX_OWN_USER_NAME] = {};
    DWORD cchUserName = MAX_OWN_USER_NAME;
    GetUserNameW(szUserName, &cchUserName);
    return lstrcmpiW(szUserName, SYSTEM_ACCOUNT) == 0;
}

int RunTrayAgent(HINSTANCE hInstance, const wchar_t* pszCommandLine)
{
    g_hInstance = hInstance;
    ReadLoggingConfiguration();
    SetMainThreadLogName();
    const TKLogBlock block(L"wWinMain", g_pLogger);
    TK_LOG_INFO(g_pLogger, L"lpCmdLine=" << pszCommandLine);
    const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_WIN95_CLASSES | ICC_LINK_CLASS};
    InitCommonControlsEx(&controls);
    g_hInputDesktop.reset(OpenInputDesktop(0, FALSE, DESKTOP_READOBJECTS));
    ReadOwnDesktopName();
    ReadUserName();
    g_hResourceModule = LoadLanguageModule(LANGUAGE_MODULE);
    unsigned int uiPort = 0;
    if (!ResolvePort(pszCommandLine, &uiPort))
    {
        return EXIT_BAD_PARAMETER;
    }
    if (g_hResourceModule == nullptr)
    {
        g_hResourceModule = g_hInstance;
    }
    g_dwSessionId = GetSessionID();
    TK_LOG_INFO(g_pLogger, L"SessionID is " << g_dwSessionId);
    if (const ONE_SHOT_RUN* const pRun = FindOneShotRun(pszCommandLine))
    {
        return pRun->pfnRun(ONE_SHOT_CONTEXT{pszCommandLine, g_hInputDesktop});
    }
    return RunNormally(uiPort);
}

int CheckInstance()
{
    const TKLogBlock block(L"CheckInstance", g_pLogger);
    wchar_t szName[MAX_INSTANCE_NAME] = {};
    CopyText(szName, INSTANCE_NAME);
    const CDesktop hDesktop(GetThreadDesktop(GetCurrentThreadId()));
    wchar_t szDesktop[MAX_DESKTOP_NAME] = {};
    if (hDesktop && ReadDesktopName(hDesktop.get(), szDesktop, sizeof(szDesktop)))
    {
        CopyText(szName, std::wstring(szDesktop) + DESKTOP_INSTANCE_NAME);
    }
    SetLastError(ERROR_SUCCESS);
    g_hInstanceMapping.reset(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, INSTANCE_MAPPING_SIZE, szName));
    return g_hInstanceMapping && GetLastError() != ERROR_ALREADY_EXISTS ? 1 : 0;
}

int CheckDesktopState()
{
    const TKLogBlock block(L"CheckDesktopState", g_pLogger);
    const bool bReachable = IsPersonReachable();
    g_dwDesktopState = bReachable ? DESKTOP_STATE_UNLOCKED : DESKTOP_STATE_LOCKED;
    return bReachable ? DESKTOP_REACHABLE : DESKTOP_NOT_REACHABLE;
}

int CheckDesktopStateCommandLine()
{
    const TKLogBlock block(L"CheckDesktopStateCommandLine", g_pLogger);
    if (!EndScreenSaver())
    {
        return DESKTOP_SCREEN_SAVER_STAYS;
    }
    return IsPersonReachableFromInputDesktop() ? DESKTOP_REACHABLE : DESKTOP_NOT_REACHABLE;
}
