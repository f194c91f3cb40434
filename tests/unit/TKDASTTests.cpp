#include "startup/TKDAST.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"
#include "tray/TKDASTWindow.h"

#include <commctrl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{
constexpr DWORD TEST_SESSION_ID = 4711;
const HDESK FAKE_DESKTOP = reinterpret_cast<HDESK>(static_cast<ULONG_PTR>(0x1234));

// What the system shall say about desktops, session and user, and what it was asked.
struct SystemScript
{
    bool bInputDesktopOpens = true;
    bool bNameIsReadable = true;
    std::wstring inputDesktop = L"Default";
    int nConnectState = 0; // WTSActive
    std::wstring userName = L"somebody";
    int nDesktopsClosed = 0;
    DWORD dwSessionAsked = 0;
    std::wstring ownDesktop; // if set, what the thread's desktop is called
    std::vector<DWORD> nameBytes;
    std::wstring mappingName;
    DWORD dwErrorBeforeMapping = 0;
    bool bMappingFails = false;
    decltype(&GetUserObjectInformationW) pfnGetUserObjectInformation = nullptr;
    decltype(&CloseDesktop) pfnCloseDesktop = nullptr;
    decltype(&CreateFileMappingW) pfnCreateFileMapping = nullptr;
};
SystemScript g_script;

HDESK WINAPI FakeOpenInputDesktop(DWORD, BOOL, ACCESS_MASK)
{
    return g_script.bInputDesktopOpens ? FAKE_DESKTOP : nullptr;
}

BOOL WINAPI FakeCloseDesktop(HDESK hDesktop)
{
    if (hDesktop != FAKE_DESKTOP)
    {
        return g_script.pfnCloseDesktop(hDesktop);
    }
    ++g_script.nDesktopsClosed;
    return TRUE;
}

BOOL WINAPI FakeGetUserObjectInformation(HANDLE hObject, int nIndex, PVOID pvInfo, DWORD cbInfo,
                                         LPDWORD pcbNeeded)
{
    g_script.nameBytes.push_back(cbInfo);
    if (!g_script.bNameIsReadable)
    {
        return FALSE;
    }
    const std::wstring& name = hObject == FAKE_DESKTOP ? g_script.inputDesktop : g_script.ownDesktop;
    if (name.empty())
    {
        return g_script.pfnGetUserObjectInformation(hObject, nIndex, pvInfo, cbInfo, pcbNeeded);
    }
    CopyText(static_cast<wchar_t*>(pvInfo), cbInfo / sizeof(wchar_t), name);
    return TRUE;
}

BOOL WINAPI FakeQuerySessionInformation(HANDLE, DWORD dwSessionId, int, LPWSTR* ppBuffer, DWORD* pcbReturned)
{
    static int s_nState = 0;
    s_nState = g_script.nConnectState;
    g_script.dwSessionAsked = dwSessionId;
    *ppBuffer = reinterpret_cast<LPWSTR>(&s_nState);
    *pcbReturned = sizeof(s_nState);
    return TRUE;
}

void WINAPI KeepMemory(PVOID) {}

BOOL WINAPI FakeGetUserName(LPWSTR pszName, LPDWORD pcchName)
{
    CopyText(pszName, *pcchName, g_script.userName);
    return TRUE;
}

HANDLE WINAPI FakeCreateFileMapping(HANDLE hFile, LPSECURITY_ATTRIBUTES pAttributes, DWORD dwProtect,
                                    DWORD dwHigh, DWORD dwLow, LPCWSTR pszName)
{
    g_script.dwErrorBeforeMapping = GetLastError();
    g_script.mappingName = pszName;
    if (g_script.bMappingFails)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    EXPECT_EQ(hFile, INVALID_HANDLE_VALUE);
    EXPECT_EQ(dwProtect, static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(dwHigh, 0U);
    EXPECT_EQ(dwLow, 4U);
    return g_script.pfnCreateFileMapping(hFile, pAttributes, dwProtect, dwHigh, dwLow, pszName);
}

class DesktopStateTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_script = SystemScript();
        m_lateBinding.Set("WTSQuerySessionInformationW", &FakeQuerySessionInformation);
        m_lateBinding.Set("WTSFreeMemory", &KeepMemory);
        g_script.pfnGetUserObjectInformation = m_objectInformation.Original();
        g_script.pfnCloseDesktop = m_close.Original();
        CopyText(g_szDesktopName, L"Default");
        g_dwSessionId = TEST_SESSION_ID;
        g_dwDesktopState = 0;
    }

    static void ExpectState(int nAnswer, DWORD dwState)
    {
        EXPECT_EQ(CheckDesktopState(), nAnswer);
        EXPECT_EQ(g_dwDesktopState, dwState);
        EXPECT_EQ(g_script.nDesktopsClosed, g_script.bInputDesktopOpens ? 1 : 0);
    }

    ImportHook<decltype(OpenInputDesktop)> m_open{"user32.dll", "OpenInputDesktop", &FakeOpenInputDesktop};
    ImportHook<decltype(CloseDesktop)> m_close{"user32.dll", "CloseDesktop", &FakeCloseDesktop};
    ImportHook<decltype(GetUserObjectInformationW)> m_objectInformation{
        "user32.dll", "GetUserObjectInformationW", &FakeGetUserObjectInformation};
    LateBinding m_lateBinding;
};
} // namespace

TEST_F(DesktopStateTest, TheLockScreenCannotBeReachedWhateverItsCase)
{
    for (const wchar_t* const pszName : {L"Winlogon", L"WINLOGON", L"winlogon"})
    {
        g_script.inputDesktop = pszName;
        g_script.nDesktopsClosed = 0;
        ExpectState(-50, 7);
    }
}

TEST_F(DesktopStateTest, AScreenSaverOnItsOwnDesktopCanBeReachedEvenInAnInactiveSession)
{
    g_script.inputDesktop = L"SCREEN-saver";
    g_script.nConnectState = 4; // WTSDisconnected
    ExpectState(-44, 8);
}

TEST_F(DesktopStateTest, TheOwnDesktopOfAnActiveSessionCanBeReached)
{
    g_script.inputDesktop = L"DEFAULT";
    ExpectState(-44, 8);
    EXPECT_EQ(g_script.dwSessionAsked, TEST_SESSION_ID);
}

TEST_F(DesktopStateTest, ADisconnectedSessionCannotBeReachedEvenOnTheOwnDesktop)
{
    g_script.nConnectState = 4;
    ExpectState(-50, 7);
}

TEST_F(DesktopStateTest, AnotherApplicationsDesktopCannotBeReached)
{
    g_script.inputDesktop = L"Kiosk";
    ExpectState(-50, 7);
}

TEST_F(DesktopStateTest, WithoutAnInputDesktopNobodyCanBeReached)
{
    g_script.bInputDesktopOpens = false;
    ExpectState(-50, 7);
}

TEST_F(DesktopStateTest, AnInputDesktopWithoutANameCannotBeReached)
{
    g_script.bNameIsReadable = false;
    ExpectState(-50, 7);
    EXPECT_EQ(g_script.nameBytes, std::vector<DWORD>{520});
}

TEST_F(DesktopStateTest, ALookAtTheDesktopIsTraced)
{
    g_script.inputDesktop = L"Winlogon";
    const LogCapture capture("TKDAST");
    CheckDesktopState();
    EXPECT_THAT(capture.Texts(), testing::ElementsAre("TRACE CheckDesktopState entering.",
                                                      "TRACE CheckDesktopState exiting."));
}

namespace
{
class StartUpTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_script = SystemScript();
        g_script.pfnCreateFileMapping = m_mapping.Original();
        g_script.pfnGetUserObjectInformation = m_objectInformation.Original();
    }

    void TearDown() override { g_hInstanceMapping.reset(); }

    static int Run(const wchar_t* pszCommandLine)
    {
        return RunTrayAgent(GetModuleHandleW(nullptr), pszCommandLine);
    }

    ImportHook<decltype(CreateFileMappingW)> m_mapping{"kernel32.dll", "CreateFileMappingW",
                                                       &FakeCreateFileMapping};
    ImportHook<decltype(GetUserNameW)> m_userName{"advapi32.dll", "GetUserNameW", &FakeGetUserName};
    ImportHook<decltype(GetUserObjectInformationW)> m_objectInformation{
        "user32.dll", "GetUserObjectInformationW", &FakeGetUserObjectInformation};
};
} // namespace

TEST_F(StartUpTest, WithoutItsFolderTheAgentTakesNoLogConfigurationOutOfTheCurrentOne)
{
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "tkdast-foreign-logging";
    std::filesystem::create_directory(folder);
    std::ofstream(folder / "TKDAST.Logging.xml")
        << "<log4j:configuration xmlns:log4j=\"x\"><root><level value=\"trace\"/></root>"
           "</log4j:configuration>";
    std::filesystem::current_path(folder);
    {
        const ImportHook program(
            "kernel32.dll", "GetModuleFileNameW", +[](HMODULE, LPWSTR, DWORD) -> DWORD { return 0; });
        Run(L"-onetimesession");
    }
    EXPECT_FALSE(log4cxx::Logger::getRootLogger()->isErrorEnabled());
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
}

TEST_F(StartUpTest, TheFirstAgentOfADesktopIsTheOnlyOne)
{
    EXPECT_EQ(CheckInstance(), 1);
    const CKernelHandle hFirst(g_hInstanceMapping.release());
    EXPECT_EQ(CheckInstance(), 0);
    EXPECT_EQ(g_script.mappingName, L"Default Tessaran Kestrel Desk Assist Tray Icon");
    EXPECT_TRUE(g_hInstanceMapping) << "the handle is kept whatever the outcome";
}

TEST_F(StartUpTest, AnAgentThatEndsMakesRoomForAnother)
{
    EXPECT_EQ(CheckInstance(), 1);
    g_hInstanceMapping.reset();
    EXPECT_EQ(CheckInstance(), 1);
}

TEST_F(StartUpTest, ADesktopWithoutANameHasAMarkOfItsOwn)
{
    g_script.bNameIsReadable = false;
    EXPECT_EQ(CheckInstance(), 1);
    EXPECT_EQ(g_script.mappingName, L"Tessaran Site Toolbox Kestrel Desk Assist Tray Icon");
}

TEST_F(StartUpTest, AMarkThatCannotBeMadeCountsAsAnAgentAlreadyThere)
{
    g_script.bMappingFails = true;
    EXPECT_EQ(CheckInstance(), 0);
    EXPECT_EQ(Run(L""), -56);
    EXPECT_FALSE(g_hQuitEvent) << "nothing of the normal run has begun";
}

TEST_F(StartUpTest, AMarkIsCutToItsRoom)
{
    g_script.ownDesktop = std::wstring(240, L'd');
    EXPECT_EQ(CheckInstance(), 1);
    EXPECT_EQ(g_script.mappingName, g_script.ownDesktop + L" Tessaran Kestrel D");
    EXPECT_EQ(g_script.nameBytes, std::vector<DWORD>{520});
}

TEST_F(StartUpTest, AnEarlierErrorIsNotTakenForAnAgentAlreadyThere)
{
    g_script.bNameIsReadable = false;
    SetLastError(ERROR_ALREADY_EXISTS);
    EXPECT_EQ(CheckInstance(), 1);
    EXPECT_EQ(g_script.dwErrorBeforeMapping, 0U);
}

TEST_F(StartUpTest, TheLookForAnotherAgentIsTracedAndNothingElseIsLogged)
{
    g_script.bMappingFails = true;
    const LogCapture capture("TKDAST");
    CheckInstance();
    EXPECT_THAT(capture.Texts(),
                testing::ElementsAre("TRACE CheckInstance entering.", "TRACE CheckInstance exiting."));
}

TEST_F(StartUpTest, TheSystemAccountGetsNoAgentWhateverItsCase)
{
    for (const wchar_t* const pszName : {L"SYSTEM", L"System", L"system"})
    {
        g_script.userName = pszName;
        EXPECT_EQ(Run(L""), -50);
    }
    EXPECT_EQ(g_script.mappingName, L"") << "refused before the desktop was marked";
}

TEST_F(StartUpTest, AOneTimeAgentWithoutAUsablePortIsABadParameter)
{
    const std::wstring longDigits(40, L'1');
    const std::wstring veryLong(4000, L'9');
    for (const std::wstring& line :
         {std::wstring(L"-onetimesession"), std::wstring(L"-onetimesession "),
          std::wstring(L"-onetimesession  5000"), std::wstring(L"-onetimesession abc"),
          std::wstring(L"-onetimesession 0"), std::wstring(L"foo -onetimesession 5000"),
          L"-onetimesession " + longDigits, L"-onetimesession " + veryLong,
          L"-onetimesession " + longDigits + L" 5000"})
    {
        EXPECT_EQ(Run(line.c_str()), 1) << line.size();
        EXPECT_EQ(g_bOneTimeSession, 1U);
    }
    EXPECT_EQ(g_script.mappingName, L"") << "it ends before anything else starts";
}

TEST_F(StartUpTest, OneTimeModeIsCaseSensitive)
{
    g_script.userName = L"system"; // ends the run right behind the command line
    EXPECT_EQ(Run(L"-OneTimeSession"), -50);
    EXPECT_EQ(g_bOneTimeSession, 0U);
}

TEST_F(StartUpTest, WithoutALanguageModuleTheProgramItselfStandsIn)
{
    g_script.userName = L"system";
    Run(L"");
    EXPECT_EQ(g_hResourceModule, GetModuleHandleW(nullptr));
    EXPECT_EQ(std::wstring(g_szUserName), L"system");
    EXPECT_EQ(std::wstring(g_szDesktopName), L"Default");
}

namespace
{
using Calls = std::vector<std::string>;
Calls g_calls;

std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

decltype(&InitCommonControlsEx) g_pfnInitCommonControls = nullptr;
decltype(&CloseDesktop) g_pfnCloseDesktop = nullptr;
decltype(&LoadLibraryExW) g_pfnLoadLibrary = nullptr;
decltype(&RegOpenKeyExW) g_pfnRegOpenKey = nullptr;

BOOL WINAPI RecordingInitCommonControls(const INITCOMMONCONTROLSEX* pControls)
{
    g_calls.emplace_back("controls");
    return g_pfnInitCommonControls(pControls);
}

HDESK WINAPI RecordingOpenInputDesktop(DWORD dwFlags, BOOL bInherit, ACCESS_MASK access)
{
    EXPECT_EQ(dwFlags, 0U);
    EXPECT_FALSE(bInherit);
    EXPECT_EQ(access, static_cast<ACCESS_MASK>(DESKTOP_READOBJECTS));
    g_calls.emplace_back("open input desktop");
    return FAKE_DESKTOP;
}

BOOL WINAPI RecordingCloseDesktop(HDESK hDesktop)
{
    if (hDesktop == GetThreadDesktop(GetCurrentThreadId()))
    {
        g_calls.emplace_back("close own desktop");
    }
    // Else it is the input desktop of an earlier run in this process, which may have been made up.
    return hDesktop == FAKE_DESKTOP || g_pfnCloseDesktop(hDesktop);
}

BOOL WINAPI RecordingObjectInformation(HANDLE hObject, int nIndex, PVOID pvInfo, DWORD cbInfo,
                                       LPDWORD pcbNeeded)
{
    EXPECT_EQ(nIndex, UOI_NAME);
    g_calls.push_back("name " + std::to_string(cbInfo));
    return g_script.pfnGetUserObjectInformation(hObject, nIndex, pvInfo, cbInfo, pcbNeeded);
}

BOOL WINAPI RecordingUserName(LPWSTR pszName, LPDWORD pcchName)
{
    g_calls.push_back("user " + std::to_string(*pcchName));
    CopyText(pszName, *pcchName, L"system");
    SetLastError(ERROR_NO_TOKEN);
    return FALSE;
}

DWORD WINAPI RecordingEnvironment(LPCWSTR pszName, LPWSTR, DWORD)
{
    EXPECT_EQ(GetLastError(), 0U) << "a failed look for the name leaves no error behind";
    g_calls.push_back("environment " + Narrow(pszName));
    return 0;
}

HMODULE WINAPI RecordingLoadLibrary(LPCWSTR pszName, HANDLE hFile, DWORD dwFlags)
{
    g_calls.push_back("load " + Narrow(pszName));
    return g_pfnLoadLibrary(pszName, hFile, dwFlags);
}

LSTATUS WINAPI RecordingRegOpenKey(HKEY hKey, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phKey)
{
    g_calls.emplace_back("registry");
    return g_pfnRegOpenKey(hKey, pszKey, dwOptions, access, phKey);
}

// Everything that start-up asks of the system, in order; the account ends the run behind it.
Calls CallsOfStartUp(const wchar_t* pszCommandLine)
{
    g_calls.clear();
    const ImportHook controls("comctl32.dll", "InitCommonControlsEx", &RecordingInitCommonControls);
    g_pfnInitCommonControls = controls.Original();
    const ImportHook openInput("user32.dll", "OpenInputDesktop", &RecordingOpenInputDesktop);
    const ImportHook close("user32.dll", "CloseDesktop", &RecordingCloseDesktop);
    g_pfnCloseDesktop = close.Original();
    const ImportHook name("user32.dll", "GetUserObjectInformationW", &RecordingObjectInformation);
    const ImportHook user("advapi32.dll", "GetUserNameW", &RecordingUserName);
    const ImportHook environment("kernel32.dll", "GetEnvironmentVariableW", &RecordingEnvironment);
    const ImportHook load("kernel32.dll", "LoadLibraryExW", &RecordingLoadLibrary);
    g_pfnLoadLibrary = load.Original();
    const ImportHook registry("advapi32.dll", "RegOpenKeyExW", &RecordingRegOpenKey);
    g_pfnRegOpenKey = registry.Original();
    RunTrayAgent(GetModuleHandleW(nullptr), pszCommandLine);
    return g_calls;
}
} // namespace

TEST_F(StartUpTest, LooksAtDesktopsUserLanguagePortAndSessionInThatOrder)
{
    // Nothing of the module's name lies beside the tests, so the plain name is tried once more.
    EXPECT_EQ(CallsOfStartUp(L""), (Calls{"controls", "open input desktop", "name 260", "close own desktop",
                                          "user 260", "environment LangUI", "load TKDASTRES.dll",
                                          "load TKDASTRES.dll", "registry", "load Kernel32.dll"}));
}

TEST_F(StartUpTest, AOneTimeAgentAsksNoRegistryForItsPort)
{
    EXPECT_THAT(CallsOfStartUp(L"-onetimesession 5000"), testing::Not(testing::Contains("registry")));
}

TEST_F(StartUpTest, ABadParameterEndsTheRunBeforeTheSessionIsAskedFor)
{
    g_hResourceModule = nullptr;
    const Calls calls = CallsOfStartUp(L"-onetimesession");
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "load TKDASTRES.dll");
    EXPECT_EQ(g_hResourceModule, nullptr) << "the program stands in only behind the port";
}

TEST_F(StartUpTest, TellsLineAndSessionInTheLogUnderTheMainThreadsName)
{
    g_script.userName = L"system";
    const LogCapture capture("TKDAST");
    Run(L"some line");
    EXPECT_THAT(capture.Texts(), testing::ElementsAre("TRACE wWinMain entering.", "INFO lpCmdLine=some line",
                                                      "INFO SessionID is " + std::to_string(g_dwSessionId),
                                                      "TRACE wWinMain exiting."));
    for (const LogLine& line : capture.Lines())
    {
        EXPECT_EQ(line.threadName, "main");
    }
}

TEST_F(StartUpTest, TellsAOneTimeAgentsPortAndWhatIsWrongWithItInTheLog)
{
    const auto linesBehindTheFirstTwo = [](const wchar_t* pszCommandLine) {
        g_script.userName = L"system";
        const LogCapture capture("TKDAST");
        Run(pszCommandLine);
        const std::vector<std::string> texts = capture.Texts();
        return Calls(texts.begin() + 2, texts.end());
    };
    EXPECT_EQ(
        linesBehindTheFirstTwo(L"-onetimesession"),
        (Calls{"ERROR -onetimesession needs to followed by port parameter.", "TRACE wWinMain exiting."}));
    EXPECT_EQ(linesBehindTheFirstTwo(L"-onetimesession x"),
              (Calls{"ERROR Error converting one-time TKDAST port parameter.", "TRACE wWinMain exiting."}));
    const Calls started = linesBehindTheFirstTwo(L"-onetimesession 5000");
    EXPECT_EQ(started,
              (Calls{"INFO Starting one-time TKDASt on port: 5000",
                     "INFO SessionID is " + std::to_string(g_dwSessionId), "TRACE wWinMain exiting."}));
}

namespace
{
constexpr UINT SKIPPED_MESSAGE = WM_APP + 1;
constexpr UINT HANDLED_MESSAGE = WM_APP + 2;

// One round of the message loop: what is fetched, and with which result.
struct LoopRound
{
    BOOL nResult;
    UINT uMessage;
};
std::deque<LoopRound> g_rounds;
HANDLE g_hKnownEvent = nullptr;   // the quit event
HANDLE g_hKnownMapping = nullptr; // this desktop's mark
HANDLE g_hWindowsEvent = nullptr; // goes with the window object

decltype(&SetEvent) g_pfnSetEvent = nullptr;
decltype(&CloseHandle) g_pfnCloseHandle = nullptr;
decltype(&CreateEventW) g_pfnCreateEvent = nullptr;
decltype(&malloc) g_pfnMalloc = nullptr;

// The window goes as at the end of every normal run; from here on the tear-down is recorded.
void EndWindow()
{
    const HWND hWnd = FindWindowW(TRAY_WINDOW_CLASS, TRAY_WINDOW_TITLE);
    auto* const pWindow = reinterpret_cast<CTaskBarWindow*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    ASSERT_NE(pWindow, nullptr);
    EXPECT_EQ(WaitForSingleObject(g_hQuitEvent.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    pWindow->m_hDesktopEvent.reset(g_pfnCreateEvent(nullptr, TRUE, FALSE, nullptr));
    g_hWindowsEvent = pWindow->m_hDesktopEvent.get();
    g_hKnownEvent = g_hQuitEvent.get();
    g_hKnownMapping = g_hInstanceMapping.get();
    DestroyWindow(hWnd);
    g_nExitCode = 4711;
    g_calls.emplace_back("end of loop");
}

BOOL WINAPI PlayGetMessage(LPMSG pMessage, HWND hWnd, UINT uFirst, UINT uLast)
{
    EXPECT_EQ(hWnd, nullptr);
    EXPECT_EQ(uFirst, 0U);
    EXPECT_EQ(uLast, 0U);
    const LoopRound round = g_rounds.front();
    g_rounds.pop_front();
    *pMessage = {};
    pMessage->message = round.uMessage;
    if (round.nResult == 0)
    {
        EndWindow();
    }
    return round.nResult;
}

BOOL WINAPI RecordingTranslate(const MSG* pMessage)
{
    g_calls.push_back("translate " + std::to_string(pMessage->message - WM_APP));
    return FALSE;
}

LRESULT WINAPI RecordingDispatch(const MSG* pMessage)
{
    g_calls.push_back("dispatch " + std::to_string(pMessage->message - WM_APP));
    return 0;
}

void WINAPI RecordingSleep(DWORD dwMilliseconds)
{
    g_calls.push_back("sleep " + std::to_string(dwMilliseconds));
}

BOOL WINAPI RecordingSetEvent(HANDLE hEvent)
{
    g_calls.emplace_back(hEvent == g_hKnownEvent ? "set quit event" : "set event");
    return g_pfnSetEvent(hEvent);
}

BOOL WINAPI RecordingCloseHandle(HANDLE hObject)
{
    if (hObject == g_hKnownEvent)
    {
        g_calls.emplace_back("close quit event");
    }
    else if (hObject == g_hKnownMapping)
    {
        g_calls.emplace_back("close mark");
    }
    else if (hObject == g_hWindowsEvent)
    {
        g_calls.emplace_back("window object ends");
    }
    return g_pfnCloseHandle(hObject);
}

HANDLE WINAPI RecordingCreateEvent(LPSECURITY_ATTRIBUTES pAttributes, BOOL bManual, BOOL bSet,
                                   LPCWSTR pszName)
{
    g_calls.push_back("event " + std::to_string(bManual) + " " + std::to_string(bSet) +
                      (pAttributes == nullptr && pszName == nullptr ? "" : " named"));
    return g_pfnCreateEvent(pAttributes, bManual, bSet, pszName);
}

void* __cdecl NoRoomForAWindow(size_t cbWanted)
{
    return cbWanted == sizeof(CTaskBarWindow) ? nullptr : g_pfnMalloc(cbWanted);
}

// The normal run from its first step to its last, its message loop played.
class NormalRunTest : public StartUpTest
{
  protected:
    void SetUp() override
    {
        g_calls.clear();
        g_hKnownEvent = g_hKnownMapping = g_hWindowsEvent = INVALID_HANDLE_VALUE;
        g_pfnSetEvent = m_setEvent.Original();
        g_pfnCloseHandle = m_closeHandle.Original();
        g_pfnCreateEvent = m_createEvent.Original();
        g_nExitCode = EXIT_AGENT_ENDED;
        StartUpTest::SetUp();
    }

    void TearDown() override
    {
        StartUpTest::TearDown();
        g_hQuitEvent.reset();
        g_nExitCode = EXIT_AGENT_ENDED;
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) && message.message != WM_QUIT)
        {
        }
    }

    static Calls CallsBehind(const std::string& call)
    {
        const auto at = std::find(g_calls.begin(), g_calls.end(), call);
        return at == g_calls.end() ? Calls() : Calls(at + 1, g_calls.end());
    }

    ImportHook<decltype(GetMessageW)> m_getMessage{"user32.dll", "GetMessageW", &PlayGetMessage};
    ImportHook<decltype(TranslateMessage)> m_translate{"user32.dll", "TranslateMessage", &RecordingTranslate};
    ImportHook<decltype(DispatchMessageW)> m_dispatch{"user32.dll", "DispatchMessageW", &RecordingDispatch};
    ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", &RecordingSleep};
    ImportHook<decltype(SetEvent)> m_setEvent{"kernel32.dll", "SetEvent", &RecordingSetEvent};
    ImportHook<decltype(CloseHandle)> m_closeHandle{"kernel32.dll", "CloseHandle", &RecordingCloseHandle};
    ImportHook<decltype(CreateEventW)> m_createEvent{"kernel32.dll", "CreateEventW", &RecordingCreateEvent};
};
} // namespace

TEST_F(NormalRunTest, AFailedFetchCostsItsRoundAndNotTheLoop)
{
    g_rounds = {{-1, SKIPPED_MESSAGE},
                {1, HANDLED_MESSAGE},
                {-1, SKIPPED_MESSAGE},
                {1, HANDLED_MESSAGE},
                {0, WM_QUIT}};
    Run(L"");
    Calls handled;
    std::copy_if(g_calls.begin(), g_calls.end(), std::back_inserter(handled), [](const std::string& call) {
        return call.starts_with("translate") || call.starts_with("dispatch");
    });
    EXPECT_EQ(handled, (Calls{"translate 2", "dispatch 2", "translate 2", "dispatch 2"}));
    EXPECT_TRUE(g_rounds.empty());
}

TEST_F(NormalRunTest, TheEndTellsTheThreadsWaitsAndLetsGoOfWindowMarkAndEvent)
{
    g_rounds = {{0, WM_QUIT}};
    EXPECT_EQ(Run(L""), 4711) << "what the run has come to";
    EXPECT_EQ(CallsBehind("end of loop"), (Calls{"set quit event", "sleep 0", "sleep 500", "sleep 0",
                                                 "window object ends", "close mark", "close quit event"}));
    EXPECT_FALSE(g_hQuitEvent);
    EXPECT_FALSE(g_hInstanceMapping);
}

TEST_F(NormalRunTest, TheQuitEventStaysSetForAllWhoWaitOnIt)
{
    g_rounds = {{0, WM_QUIT}};
    Run(L"");
    EXPECT_THAT(g_calls, testing::Contains("event 1 0"));
}

TEST_F(NormalRunTest, WithoutMemoryForTheWindowItEndsWithACodeOfItsOwn)
{
    const ImportHook hook("msvcrt.dll", "malloc", &NoRoomForAWindow);
    g_pfnMalloc = hook.Original();
    EXPECT_EQ(Run(L""), -14);
    EXPECT_FALSE(g_script.mappingName.empty());
    EXPECT_TRUE(g_hQuitEvent);
}
