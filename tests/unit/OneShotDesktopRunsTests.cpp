#include "startup/OneShotRuns.h"

#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "channel/TrayMessages.h"
#include "startup/CommandLine.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/support/RegistryValue.h"
#include "tests/support/SettingsTrace.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/RegistrySandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::ElementsAreArray;

using Calls = std::vector<std::string>;

constexpr int WTS_CONNECT_STATE = 8;
constexpr int WTS_SESSION_INFO_EX = 25;
constexpr size_t SESSION_INFO_BYTES = 232;
constexpr size_t SESSION_FLAGS_OFFSET = 16;
constexpr ULONG_PTR FIRST_DESKTOP = 0x510000; // higher than any handle of the system's

// What the system shall say of desktops, saver, session and version, and what it was asked, in order.
struct DesktopScript
{
    std::wstring userName = L"somebody";
    std::set<int> desktopsThatDoNotOpen; // by their number, the first being that of start-up
    bool bNameIsReadable = true;
    std::wstring inputDesktop = L"Default";
    int nSaverRounds = 0; // questions that find a saver running
    bool bSaverIsTold = true;
    DWORD dwMajorVersion = 10;
    bool bLocked = false;
    bool bActive = true;
    BOOL bLogoffResult = TRUE;
    BOOL bLockResult = TRUE;

    Calls calls;
    int nDesktops = 0;
    decltype(&CloseDesktop) pfnCloseDesktop = nullptr;
    decltype(&GetUserObjectInformationW) pfnGetUserObjectInformation = nullptr;
    decltype(&SystemParametersInfoW) pfnSystemParameters = nullptr;
};
DesktopScript g_script;
int g_nEarlierDesktops; // those of runs before, which the program may still close

void Add(const std::string& call)
{
    g_script.calls.push_back(call);
}

std::string Narrow(const wchar_t* pszText)
{
    const std::wstring text(pszText);
    return std::string(text.begin(), text.end());
}

HDESK DesktopOf(int nDesktop)
{
    return reinterpret_cast<HDESK>(FIRST_DESKTOP +
                                   static_cast<ULONG_PTR>(g_nEarlierDesktops + nDesktop) * sizeof(DWORD));
}

// Its number in this run; 0 for a desktop of the real system.
int NumberOf(HANDLE hDesktop)
{
    for (int nDesktop = 1; nDesktop <= g_script.nDesktops; ++nDesktop)
    {
        if (hDesktop == DesktopOf(nDesktop))
        {
            return nDesktop;
        }
    }
    return 0;
}

HDESK OpenNext(const std::string& call)
{
    const int nDesktop = ++g_script.nDesktops;
    const bool bOpens = !g_script.desktopsThatDoNotOpen.contains(nDesktop);
    Add(call + (bOpens ? " = " + std::to_string(nDesktop) : " fails"));
    return bOpens ? DesktopOf(nDesktop) : nullptr;
}

HDESK WINAPI PlayOpenInputDesktop(DWORD dwFlags, BOOL bInherit, ACCESS_MASK dwAccess)
{
    EXPECT_EQ(dwFlags, 0U);
    EXPECT_FALSE(bInherit);
    EXPECT_EQ(dwAccess, static_cast<ACCESS_MASK>(DESKTOP_READOBJECTS));
    return OpenNext("OpenInputDesktop");
}

HDESK WINAPI PlayOpenDesktop(LPCWSTR pszName, DWORD, BOOL, ACCESS_MASK)
{
    return OpenNext("OpenDesktop " + Narrow(pszName));
}

BOOL WINAPI PlaySetThreadDesktop(HDESK hDesktop)
{
    Add("SetThreadDesktop " + std::to_string(NumberOf(hDesktop)));
    return TRUE;
}

BOOL WINAPI PlayCloseDesktop(HDESK hDesktop)
{
    const int nDesktop = NumberOf(hDesktop);
    if (nDesktop == 0)
    {
        return g_script.pfnCloseDesktop(hDesktop);
    }
    Add("CloseDesktop " + std::to_string(nDesktop));
    return TRUE;
}

BOOL WINAPI PlayObjectInformation(HANDLE hObject, int nIndex, PVOID pvInfo, DWORD cbInfo, LPDWORD pcbNeeded)
{
    const int nDesktop = NumberOf(hObject);
    if (nDesktop == 0)
    {
        return g_script.pfnGetUserObjectInformation(hObject, nIndex, pvInfo, cbInfo, pcbNeeded);
    }
    EXPECT_EQ(nIndex, UOI_NAME);
    Add("name of " + std::to_string(nDesktop) + ", " + std::to_string(cbInfo) + " bytes");
    if (g_script.bNameIsReadable)
    {
        CopyText(static_cast<wchar_t*>(pvInfo), cbInfo / sizeof(wchar_t), g_script.inputDesktop);
    }
    return g_script.bNameIsReadable;
}

BOOL WINAPI PlayParameters(UINT uAction, UINT uParam, PVOID pvParam, UINT uFlags)
{
    if (uAction != SPI_GETSCREENSAVERRUNNING)
    {
        return g_script.pfnSystemParameters(uAction, uParam, pvParam, uFlags);
    }
    const bool bRuns = g_script.nSaverRounds-- > 0;
    Add(bRuns ? "saver runs" : "no saver");
    *static_cast<BOOL*>(pvParam) = bRuns ? TRUE : FALSE;
    return g_script.bSaverIsTold;
}

BOOL WINAPI PlayEnumWindows(HDESK hDesktop, WNDENUMPROC, LPARAM)
{
    Add("EnumDesktopWindows " + std::to_string(NumberOf(hDesktop)));
    return TRUE;
}

BOOL WINAPI PlayWriteProfile(LPCWSTR pszSection, LPCWSTR pszKey, LPCWSTR pszText, LPCWSTR pszFile)
{
    Add("write [" + Narrow(pszSection) + "] " + Narrow(pszKey) + "=" + Narrow(pszText) + " to " +
        Narrow(pszFile));
    return FALSE; // which is to harm nothing
}

void WINAPI PlaySleep(DWORD dwMilliseconds)
{
    Add("Sleep " + std::to_string(dwMilliseconds));
}

BOOL WINAPI PlayExitWindows(UINT uFlags, DWORD dwReason)
{
    EXPECT_EQ(dwReason, 0U);
    Add("ExitWindowsEx " + std::to_string(uFlags));
    return g_script.bLogoffResult;
}

BOOL WINAPI PlayLock()
{
    Add("LockWorkStation");
    return g_script.bLockResult;
}

BOOL WINAPI PlayPost(HWND, UINT uMessage, WPARAM wParam, LPARAM)
{
    Add("PostMessage " + std::to_string(uMessage) + " " + std::to_string(wParam));
    return TRUE;
}

BOOL WINAPI PlaySession(HANDLE, DWORD, int nClass, LPWSTR* ppBuffer, DWORD* pcbReturned)
{
    static std::array<BYTE, SESSION_INFO_BYTES> s_answer;
    Add("session " + std::to_string(nClass));
    s_answer = {};
    if (nClass == WTS_CONNECT_STATE)
    {
        s_answer[0] = g_script.bActive ? 0 : 4;
        *pcbReturned = sizeof(int);
    }
    else
    {
        EXPECT_EQ(nClass, WTS_SESSION_INFO_EX);
        s_answer[0] = 1; // the level that can be read
        s_answer[SESSION_FLAGS_OFFSET] = g_script.bLocked ? 0 : 1;
        *pcbReturned = SESSION_INFO_BYTES;
    }
    *ppBuffer = reinterpret_cast<LPWSTR>(s_answer.data());
    return TRUE;
}

void WINAPI KeepMemory(PVOID) {}

LONG WINAPI PlayVersion(OSVERSIONINFOEXW* pVersion)
{
    pVersion->dwMajorVersion = g_script.dwMajorVersion;
    pVersion->dwMinorVersion = 0;
    return 0;
}

BOOL WINAPI PlayUserName(LPWSTR pszName, LPDWORD pcchName)
{
    CopyText(pszName, *pcchName, g_script.userName);
    return TRUE;
}

decltype(&CreateFileMappingW) g_pfnCreateFileMapping;

// Nothing but the desktop's mark is read-only.
HANDLE WINAPI RefuseMark(HANDLE hFile, LPSECURITY_ATTRIBUTES pAttributes, DWORD dwProtect, DWORD dwHigh,
                         DWORD dwLow, LPCWSTR pszName)
{
    if (dwProtect != PAGE_READONLY)
    {
        return g_pfnCreateFileMapping(hFile, pAttributes, dwProtect, dwHigh, dwLow, pszName);
    }
    Add("mark");
    return nullptr;
}

/// The runs that act on the desktop, in the whole program, on a system of the test's making.
class OneShotDesktopRunTest : public testing::Test
{
  protected:
    OneShotDesktopRunTest() { g_pfnCreateFileMapping = m_mapping.Original(); }

    void SetUp() override
    {
        g_nEarlierDesktops += g_script.nDesktops;
        g_script = DesktopScript();
        g_script.pfnCloseDesktop = m_close.Original();
        g_script.pfnGetUserObjectInformation = m_objectInformation.Original();
        g_script.pfnSystemParameters = m_parameters.Original();
        m_lateBinding.Set("WTSQuerySessionInformationW", &PlaySession);
        m_lateBinding.Set("WTSFreeMemory", &KeepMemory);
        m_lateBinding.Set("RtlGetVersion", &PlayVersion);
        m_lateBinding.Set("LockWorkStation", &PlayLock);
        g_dwDesktopState = DESKTOP_STATE_UNLOCKED;
    }

    static int Run(const wchar_t* pszLine)
    {
        Forget();
        return RunTrayAgent(GetModuleHandleW(nullptr), pszLine);
    }

    /// The run answers that, having asked the system for just these things.
    static void ExpectRun(const wchar_t* pszLine, int nAnswer, const Calls& calls)
    {
        EXPECT_EQ(Run(pszLine), nAnswer);
        EXPECT_THAT(g_script.calls, ElementsAreArray(calls));
    }

    /// What "-ConsoleLock" asks for on a system without a saver, between its beginning and its end.
    static Calls ConsoleLock(const Calls& between)
    {
        Calls calls = {"OpenInputDesktop = 1", "SetThreadDesktop 1",   "no saver",
                       "OpenInputDesktop = 2", "name of 2, 520 bytes", "CloseDesktop 2"};
        calls.insert(calls.end(), between.begin(), between.end());
        calls.emplace_back("CloseDesktop 1");
        return calls;
    }

    // The second is the system's: an answer may be that of a moment ago.
    const Calls LOCK_QUESTION = {"Sleep 0", "Sleep 1000", "session 25"};

  private:
    static void Forget()
    {
        g_nEarlierDesktops += g_script.nDesktops;
        g_script.nDesktops = 0;
        g_script.calls.clear();
    }

    LateBinding m_lateBinding;
    ImportHook<decltype(OpenInputDesktop)> m_open{"user32.dll", "OpenInputDesktop", &PlayOpenInputDesktop};
    ImportHook<decltype(OpenDesktopW)> m_openNamed{"user32.dll", "OpenDesktopW", &PlayOpenDesktop};
    ImportHook<decltype(SetThreadDesktop)> m_set{"user32.dll", "SetThreadDesktop", &PlaySetThreadDesktop};
    ImportHook<decltype(CloseDesktop)> m_close{"user32.dll", "CloseDesktop", &PlayCloseDesktop};
    ImportHook<decltype(GetUserObjectInformationW)> m_objectInformation{
        "user32.dll", "GetUserObjectInformationW", &PlayObjectInformation};
    ImportHook<decltype(SystemParametersInfoW)> m_parameters{"user32.dll", "SystemParametersInfoW",
                                                             &PlayParameters};
    ImportHook<decltype(EnumDesktopWindows)> m_windows{"user32.dll", "EnumDesktopWindows", &PlayEnumWindows};
    ImportHook<decltype(WritePrivateProfileStringW)> m_write{"kernel32.dll", "WritePrivateProfileStringW",
                                                             &PlayWriteProfile};
    ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", &PlaySleep};
    ImportHook<decltype(ExitWindowsEx)> m_exit{"user32.dll", "ExitWindowsEx", &PlayExitWindows};
    ImportHook<decltype(PostMessageW)> m_post{"user32.dll", "PostMessageW", &PlayPost};
    ImportHook<decltype(GetUserNameW)> m_userName{"advapi32.dll", "GetUserNameW", &PlayUserName};
    ImportHook<decltype(CreateFileMappingW)> m_mapping{"kernel32.dll", "CreateFileMappingW", &RefuseMark};
};
} // namespace

TEST_F(OneShotDesktopRunTest, AnUnlockedSessionCanBeReached)
{
    ExpectRun(L"-ConsoleLock", -44, ConsoleLock(LOCK_QUESTION));
    EXPECT_EQ(g_dwDesktopState, static_cast<DWORD>(DESKTOP_STATE_UNLOCKED)) << "left as it was";
}

TEST_F(OneShotDesktopRunTest, ALockedSessionCannotBeReached)
{
    g_script.bLocked = true;
    ExpectRun(L"-ConsoleLock", -50, ConsoleLock(LOCK_QUESTION));
}

TEST_F(OneShotDesktopRunTest, OlderSystemsGoByTheSessionsState)
{
    g_script.dwMajorVersion = 6;
    g_script.bLocked = true;
    ExpectRun(L"-ConsoleLock", -44, ConsoleLock({"session 8"}));
    g_script.bActive = false;
    ExpectRun(L"-ConsoleLock", -50, ConsoleLock({"session 8"}));
}

TEST_F(OneShotDesktopRunTest, AForeignDesktopIsWrittenDownAndCanBeReached)
{
    g_script.inputDesktop = L"Kiosk";
    const Calls written = {"write [Desktop] Desktop=Kiosk to \\tkdas\\TKDAST.data", "Sleep 0", "Sleep 1000",
                           "session 25"};
    ExpectRun(L"-ConsoleLock", -44, ConsoleLock(written));
    EXPECT_EQ(g_dwDesktopState, static_cast<DWORD>(DESKTOP_STATE_LOCKED));
    g_script.bLocked = true;
    ExpectRun(L"-ConsoleLock", -50, ConsoleLock(written));
}

TEST_F(OneShotDesktopRunTest, TheOwnDesktopIsNotWrittenDownWhateverItsCase)
{
    g_script.inputDesktop = L"DEFAULT";
    ExpectRun(L"-ConsoleLock", -44, ConsoleLock(LOCK_QUESTION));
}

TEST_F(OneShotDesktopRunTest, TheLockScreenCannotBeReachedWhateverItsCase)
{
    for (const wchar_t* const pszName : {L"Winlogon", L"WINLOGON", L"winlogon"})
    {
        g_script.inputDesktop = pszName;
        ExpectRun(L"-ConsoleLock", -50, ConsoleLock({}));
    }
}

TEST_F(OneShotDesktopRunTest, AScreenSaversDesktopCanBeReachedEvenInALockedSession)
{
    g_script.bLocked = true;
    for (const wchar_t* const pszName : {L"Screen-saver", L"SCREEN-SAVER"})
    {
        g_script.inputDesktop = pszName;
        ExpectRun(L"-ConsoleLock", -44, ConsoleLock({}));
    }
}

TEST_F(OneShotDesktopRunTest, AScreenSaverIsClosedBeforeTheDesktopIsLookedAt)
{
    g_script.nSaverRounds = 1;
    ExpectRun(L"-ConsoleLock", -44,
              {"OpenInputDesktop = 1", "SetThreadDesktop 1", "saver runs", "OpenDesktop Screen-saver = 2",
               "EnumDesktopWindows 2", "CloseDesktop 2", "Sleep 0", "Sleep 500", "Sleep 0", "no saver",
               "OpenInputDesktop = 3", "name of 3, 520 bytes", "CloseDesktop 3", "Sleep 0", "Sleep 1000",
               "session 25", "CloseDesktop 1"});
}

TEST_F(OneShotDesktopRunTest, WhatIsBehindAClosedScreenSaverGivesTheAnswer)
{
    g_script.nSaverRounds = 1;
    g_script.inputDesktop = L"Winlogon";
    EXPECT_EQ(Run(L"-ConsoleLock"), -50);
}

TEST_F(OneShotDesktopRunTest, AScreenSaverThatStaysIsTold)
{
    g_script.nSaverRounds = 2;
    ExpectRun(L"-ConsoleLock", -64,
              {"OpenInputDesktop = 1", "SetThreadDesktop 1", "saver runs", "OpenDesktop Screen-saver = 2",
               "EnumDesktopWindows 2", "CloseDesktop 2", "Sleep 0", "Sleep 500", "Sleep 0", "saver runs",
               "CloseDesktop 1"});
}

TEST_F(OneShotDesktopRunTest, AScreenSaverWithoutADesktopIsWaitedForAllTheSame)
{
    g_script.nSaverRounds = 1;
    g_script.desktopsThatDoNotOpen = {2};
    ExpectRun(L"-ConsoleLock", -44,
              {"OpenInputDesktop = 1", "SetThreadDesktop 1", "saver runs", "OpenDesktop Screen-saver fails",
               "Sleep 0", "Sleep 500", "Sleep 0", "no saver", "OpenInputDesktop = 3", "name of 3, 520 bytes",
               "CloseDesktop 3", "Sleep 0", "Sleep 1000", "session 25", "CloseDesktop 1"});
}

TEST_F(OneShotDesktopRunTest, ASystemThatDoesNotTellOfSaversHasNone)
{
    g_script.nSaverRounds = 1;
    g_script.bSaverIsTold = false;
    EXPECT_EQ(Run(L"-ConsoleLock"), -44);
    EXPECT_EQ(g_script.nDesktops, 2) << "no saver's desktop was looked for";
}

TEST_F(OneShotDesktopRunTest, WithoutAnInputDesktopAtTheStartTheRunStaysWhereItIs)
{
    g_script.desktopsThatDoNotOpen = {1};
    ExpectRun(L"-ConsoleLock", -44,
              {"OpenInputDesktop fails", "no saver", "OpenInputDesktop = 2", "name of 2, 520 bytes",
               "CloseDesktop 2", "Sleep 0", "Sleep 1000", "session 25"});
    ExpectRun(L"-Logoff", 1, {"OpenInputDesktop fails", "ExitWindowsEx 0"});
    ExpectRun(L"-LockWorkstation", 1, {"OpenInputDesktop fails", "LockWorkStation"});
}

TEST_F(OneShotDesktopRunTest, AnInputDesktopThatGoesOrHasNoNameCannotBeReached)
{
    g_script.bNameIsReadable = false;
    ExpectRun(L"-ConsoleLock", -50, ConsoleLock({}));
    g_script.desktopsThatDoNotOpen = {2};
    ExpectRun(L"-ConsoleLock", -50,
              {"OpenInputDesktop = 1", "SetThreadDesktop 1", "no saver", "OpenInputDesktop fails",
               "CloseDesktop 1"});
}

TEST_F(OneShotDesktopRunTest, TheAnswerIsTracedUnderItsOwnName)
{
    const LogCapture log("TKDAST");
    Run(L"-ConsoleLock");
    EXPECT_THAT(log.Texts(), testing::Contains("TRACE CheckDesktopStateCommandLine entering."));
    EXPECT_THAT(log.Texts(), testing::Contains("TRACE CheckDesktopStateCommandLine exiting."));
}

TEST_F(OneShotDesktopRunTest, LoggingOffHappensOnTheInputDesktopWhichStaysOpen)
{
    ExpectRun(L"-Logoff", 1, {"OpenInputDesktop = 1", "SetThreadDesktop 1", "ExitWindowsEx 0"});
    ExpectRun(L"-LogoffForce", 1, {"OpenInputDesktop = 1", "SetThreadDesktop 1", "ExitWindowsEx 4"});
    g_script.bLogoffResult = FALSE;
    ExpectRun(L"-Logoff", 0, {"OpenInputDesktop = 1", "SetThreadDesktop 1", "ExitWindowsEx 0"});
    ExpectRun(L"-LogoffForce", 0, {"OpenInputDesktop = 1", "SetThreadDesktop 1", "ExitWindowsEx 4"});
}

TEST_F(OneShotDesktopRunTest, LockingIsOneWhateverCameOfIt)
{
    ExpectRun(L"-LockWorkstation", 1, {"OpenInputDesktop = 1", "SetThreadDesktop 1", "LockWorkStation"});
    g_script.bLockResult = FALSE;
    ExpectRun(L"-LockWorkstation", 1,
              {"OpenInputDesktop = 1", "SetThreadDesktop 1", "LockWorkStation", "PostMessage 274 61760"});
}

TEST_F(OneShotDesktopRunTest, TheSystemsAccountMayUseEverySwitch)
{
    for (const wchar_t* const pszName : {L"SYSTEM", L"System", L"system"})
    {
        g_script.userName = pszName;
        EXPECT_EQ(Run(L"-ConsoleLock"), -44);
        EXPECT_EQ(Run(L"-Logoff"), 1);
        EXPECT_EQ(Run(L"-LogoffForce"), 1);
        EXPECT_EQ(Run(L"-LockWorkstation"), 1);
        ExpectRun(L"-logoff", EXIT_SYSTEM_ACCOUNT, {"OpenInputDesktop = 1"});
    }
}

TEST_F(OneShotDesktopRunTest, NearMissesGoOnToTheNormalRun)
{
    for (const wchar_t* const pszLine : {L"-ConsoleLock ",
                                         L" -ConsoleLock",
                                         L"-consolelock",
                                         L"-ConsoleLockNow",
                                         L"foo -ConsoleLock",
                                         L"-LogoffForceNow",
                                         L"-LogoffForce ",
                                         L" -LogoffForce",
                                         L" -Logoff",
                                         L"-Logoff ",
                                         L"-Logoff 1",
                                         L"-logoff",
                                         L"-LOGOFF",
                                         L"Logoff",
                                         L"-LogOff",
                                         L"-Log",
                                         L"-Logoff-Logoff",
                                         L"-LockWorkStation",
                                         L"-lockworkstation",
                                         L" -LockWorkstation",
                                         L"-LockWorkstation now",
                                         L"-Logoff -LockWorkstation"})
    {
        ExpectRun(pszLine, EXIT_ALREADY_RUNNING, {"OpenInputDesktop = 1", "mark"});
    }
}

TEST_F(OneShotDesktopRunTest, AOneTimeLineIsNoWholeLineOfAnother)
{
    EXPECT_EQ(Run(L"-onetimesession -Logoff"), EXIT_BAD_PARAMETER);
    EXPECT_THAT(g_script.calls, ElementsAre("OpenInputDesktop = 1"));
    EXPECT_EQ(FindOneShotRun(L"-onetimesession 5000 -Logoff"), nullptr);
}

namespace
{
std::wstring SwitchOf(const wchar_t* pszLine)
{
    const ONE_SHOT_RUN* const pRun = FindOneShotRun(pszLine);
    return pRun != nullptr ? pRun->pszSwitch : L"";
}

constexpr wchar_t SERVICE_KEY[] = L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";

std::wstring g_program;

DWORD WINAPI NameProgram(HMODULE, LPWSTR pszPath, DWORD cchPath)
{
    return static_cast<DWORD>(CopyText(pszPath, cchPath, g_program));
}

LSTATUS WINAPI RefuseCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, const LPSECURITY_ATTRIBUTES,
                               PHKEY, LPDWORD)
{
    return ERROR_ACCESS_DENIED;
}

/// The runs that show the settings, with the test's module beside the program.
class OneShotSettingsRunTest : public OneShotDesktopRunTest
{
  protected:
    void SetUp() override
    {
        OneShotDesktopRunTest::SetUp();
        g_program = (m_testPrograms / TestSettingsFolder(L"nothing") / L"TKDAST.exe").wstring();
        SetEnvironmentVariableW(L"LangUI", L"xx");
    }

    const LogCapture m_quiet{"UtilFile"};
    RegistrySandbox m_machine{HKEY_LOCAL_MACHINE};
    SettingsTrace m_trace;
    BoxTrace m_boxes;

  private:
    const std::filesystem::path m_testPrograms = TestProgramFolder(); // before the name is the test's
    ImportHook<decltype(GetModuleFileNameW)> m_program{"kernel32.dll", "GetModuleFileNameW", &NameProgram};
};
} // namespace

TEST(OneShotSettingsRuns, AreWholeLinesAndComeBeforeTheCertificate)
{
    EXPECT_EQ(SwitchOf(L"-Settings"), SETTINGS_SWITCH);
    EXPECT_EQ(SwitchOf(L"-SettingsAsApplication"), SETTINGS_AS_APPLICATION_SWITCH);
    for (const wchar_t* const pszLine :
         {L"-Settings x", L"-Settings ", L" -Settings", L"-settings", L"-SETTINGS", L"-Setting",
          L"-SettingsAs", L"-SettingsAsApplication ", L" -SettingsAsApplication", L"-settingsasapplication"})
    {
        EXPECT_EQ(FindOneShotRun(pszLine), nullptr) << SwitchOf(pszLine);
    }
    EXPECT_EQ(SwitchOf(L"-Settings -ValidateCert"), VALIDATE_CERT_SWITCH);
}

TEST_F(OneShotSettingsRunTest, TheDialogsSuccessIsOne)
{
    for (const wchar_t* const pszLine : {L"-Settings", L"-SettingsAsApplication"})
    {
        m_trace->nResult = 7;
        ExpectRun(pszLine, 1, {"OpenInputDesktop = 1"});
        m_trace->nResult = 0;
        ExpectRun(pszLine, 0, {"OpenInputDesktop = 1"});
        EXPECT_EQ(m_trace->hOwner, nullptr);
    }
    EXPECT_EQ(m_trace->nDialogs, 4);
    EXPECT_TRUE(m_boxes.Boxes().empty());
}

TEST_F(OneShotSettingsRunTest, OnlyTheApplicationsSettingsAreToldSo)
{
    Run(L"-Settings");
    EXPECT_EQ(m_trace->nModes, 0);
    Run(L"-SettingsAsApplication");
    EXPECT_EQ(m_trace->nModesBeforeDialog, 1);
}

TEST_F(OneShotSettingsRunTest, TheMachinesSettingsSpeakTheMachinesLanguage)
{
    const RegistryValue language(HKEY_LOCAL_MACHINE, SERVICE_KEY, L"LangUI", std::wstring(L"fr"));
    Run(L"-SettingsAsApplication");
    EXPECT_STREQ(m_trace->szLanguage, L"xx") << "the language of whoever started the run";
    Run(L"-Settings");
    EXPECT_STREQ(m_trace->szLanguage, L"fr");
}

TEST_F(OneShotSettingsRunTest, WithoutAStoredLanguageTheMachinesSettingsSpeakTheProductsOwn)
{
    Run(L"-Settings");
    EXPECT_STREQ(m_trace->szLanguage, L"en");
    EXPECT_EQ(g_hResourceModule, g_hInstance) << "no module beside the tests";
}

TEST_F(OneShotSettingsRunTest, AUserWithoutRightsWhoSaysNoEndsTheRunWithZero)
{
    const ImportHook noRights("advapi32.dll", "RegCreateKeyExW", &RefuseCreateKey);
    m_boxes.m_nAnswer = IDNO;
    EXPECT_EQ(Run(L"-Settings"), 0);
    EXPECT_EQ(m_boxes.Boxes().size(), 1U);
    EXPECT_EQ(m_trace->nDialogs, 0) << "the question comes first";
    m_boxes.m_nAnswer = IDYES;
    EXPECT_EQ(Run(L"-Settings"), 1);
    EXPECT_EQ(Run(L"-SettingsAsApplication"), 1);
    EXPECT_EQ(m_boxes.Boxes().size(), 2U) << "for the machine's settings alone";
}

TEST_F(OneShotSettingsRunTest, TheSystemsAccountMayUseThem)
{
    g_script.userName = L"System";
    EXPECT_EQ(Run(L"-Settings"), 1);
    EXPECT_EQ(Run(L"-SettingsAsApplication"), 1);
}
