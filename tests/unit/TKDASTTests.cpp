#include "startup/TKDAST.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"

#include <gtest/gtest.h>

#include <string>

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
    std::wstring mappingName;
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
    if (hObject != FAKE_DESKTOP)
    {
        return g_script.bNameIsReadable &&
               g_script.pfnGetUserObjectInformation(hObject, nIndex, pvInfo, cbInfo, pcbNeeded);
    }
    if (!g_script.bNameIsReadable)
    {
        return FALSE;
    }
    CopyText(static_cast<wchar_t*>(pvInfo), cbInfo / sizeof(wchar_t), g_script.inputDesktop);
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
    g_script.mappingName = pszName;
    if (g_script.bMappingFails)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    EXPECT_EQ(hFile, INVALID_HANDLE_VALUE);
    EXPECT_EQ(dwProtect, static_cast<DWORD>(PAGE_READONLY));
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
        g_bOneTimeSession = 0;
    }

    void TearDown() override
    {
        g_hInstanceMapping.reset();
        g_bOneTimeSession = 0;
    }

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
