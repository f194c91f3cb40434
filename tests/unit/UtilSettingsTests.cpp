#include "Include/UtilSettings.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/Product.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/support/SettingsTrace.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/RegistrySandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <shellapi.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char LOGGER_NAME[] = "UtilSettings";
constexpr wchar_t APPLICATION_CLASS[] = L"TkdastTestServiceWindow";
const HWND OWNER = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x4242));
const HANDLE FAKE_TOKEN = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x71238));

using Sleeps = std::vector<DWORD>;
const Sleeps PAUSE = {0, 500, 0};

// What the system shall say, and what it was asked.
struct SettingsScript
{
    std::wstring program = L"C:\\Desk Assist\\TKDAST.exe";
    DWORD cchProgram = 0; // the length answered; 0: the program's own
    bool bProgramIsKnown = true;
    INT_PTR nShellResult = 42;
    BOOL bShellExSucceeds = TRUE;
    bool bTokenOpens = true;
    bool bTokenAnswers = true;
    TOKEN_ELEVATION_TYPE elevation = TokenElevationTypeDefault;
    bool bClosesAreTaken = true; // by the windows of the service

    Sleeps sleeps;
    int nCloses = 0; // WM_CLOSE that the windows have got
    std::vector<std::wstring> calls;
    std::vector<HANDLE> closed;
    decltype(&CloseHandle) pfnCloseHandle = nullptr;
};
SettingsScript g_script;

std::wstring Text(const wchar_t* pszText)
{
    return pszText != nullptr ? std::wstring(L"\"") + pszText + L"\"" : L"null";
}

std::wstring OwnerText(HWND hWnd)
{
    return hWnd == OWNER ? L"owner" : hWnd == nullptr ? L"nobody" : L"another";
}

// Time doesn't pass, and what was posted meanwhile arrives.
void WINAPI PassTime(DWORD dwMilliseconds)
{
    g_script.sleeps.push_back(dwMilliseconds);
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        DispatchMessageW(&message);
    }
}

LRESULT CALLBACK ServiceWindow(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_CLOSE)
    {
        ++g_script.nCloses;
        return g_script.bClosesAreTaken ? DefWindowProcW(hWnd, uMessage, wParam, lParam) : 0;
    }
    return DefWindowProcW(hWnd, uMessage, wParam, lParam);
}

DWORD WINAPI NameProgram(HMODULE, LPWSTR pszPath, DWORD cchPath)
{
    EXPECT_EQ(cchPath, 260U);
    if (!g_script.bProgramIsKnown)
    {
        return 0;
    }
    const size_t cchCopied = CopyText(pszPath, cchPath, g_script.program);
    return g_script.cchProgram != 0 ? g_script.cchProgram : static_cast<DWORD>(cchCopied);
}

HINSTANCE WINAPI RecordShell(HWND hWnd, LPCWSTR pszVerb, LPCWSTR pszFile, LPCWSTR pszParameters,
                             LPCWSTR pszDirectory, INT nShow)
{
    EXPECT_EQ(nShow, SW_SHOW);
    g_script.calls.push_back(OwnerText(hWnd) + L' ' + Text(pszVerb) + L' ' + Text(pszFile) + L' ' +
                             Text(pszParameters) + L' ' + Text(pszDirectory));
    return reinterpret_cast<HINSTANCE>(g_script.nShellResult);
}

BOOL WINAPI RecordShellEx(SHELLEXECUTEINFOW* pInfo)
{
    EXPECT_EQ(pInfo->nShow, SW_SHOWNORMAL);
    g_script.calls.push_back(L"ex " + OwnerText(pInfo->hwnd) + L' ' + Text(pInfo->lpVerb) + L' ' +
                             Text(pInfo->lpFile) + L' ' + Text(pInfo->lpParameters) + L' ' +
                             Text(pInfo->lpDirectory));
    return g_script.bShellExSucceeds;
}

LSTATUS WINAPI RefuseCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, const LPSECURITY_ATTRIBUTES,
                               PHKEY, LPDWORD)
{
    return ERROR_ACCESS_DENIED;
}

BOOL WINAPI PlayOpenToken(HANDLE hProcess, DWORD dwAccess, PHANDLE phToken)
{
    EXPECT_EQ(hProcess, GetCurrentProcess());
    EXPECT_EQ(dwAccess, static_cast<DWORD>(TOKEN_QUERY));
    if (!g_script.bTokenOpens)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *phToken = FAKE_TOKEN;
    return TRUE;
}

BOOL WINAPI PlayTokenInformation(HANDLE hToken, TOKEN_INFORMATION_CLASS information, LPVOID pvInformation,
                                 DWORD cbInformation, PDWORD pcbReturned)
{
    EXPECT_EQ(hToken, FAKE_TOKEN);
    EXPECT_EQ(static_cast<int>(information), 18);
    EXPECT_EQ(cbInformation, 4U);
    if (!g_script.bTokenAnswers)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *static_cast<TOKEN_ELEVATION_TYPE*>(pvInformation) = g_script.elevation;
    *pcbReturned = cbInformation;
    return TRUE;
}

BOOL WINAPI RecordCloseHandle(HANDLE h)
{
    g_script.closed.push_back(h);
    return h == FAKE_TOKEN ? TRUE : g_script.pfnCloseHandle(h);
}

class UtilSettings : public testing::Test
{
  public:
    ~UtilSettings() override { UnregisterClassW(APPLICATION_CLASS, GetModuleHandleW(nullptr)); }

  protected:
    UtilSettings()
    {
        g_script = SettingsScript();
        const WNDCLASSW windowClass = {0,       &ServiceWindow, 0,       0,       GetModuleHandleW(nullptr),
                                       nullptr, nullptr,        nullptr, nullptr, APPLICATION_CLASS};
        RegisterClassW(&windowClass);
    }

    /// A window as the service has it where it is an application.
    static CWindow ServiceApplication(const wchar_t* pszTitle = L"TKKDAS")
    {
        return CWindow(CreateWindowExW(WS_EX_NOACTIVATE, APPLICATION_CLASS, pszTitle, WS_POPUP, 0, 0, 1, 1,
                                       nullptr, nullptr, GetModuleHandleW(nullptr), nullptr));
    }
    /// So many pauses.
    static Sleeps Pauses(int nPauses)
    {
        Sleeps sleeps;
        for (int nPause = 0; nPause < nPauses; ++nPause)
        {
            sleeps.insert(sleeps.end(), PAUSE.begin(), PAUSE.end());
        }
        return sleeps;
    }
    /// Lets the program find the test's settings module that lacks the entry beside itself.
    void UseModuleWithout(const wchar_t* pszEntry) const
    {
        g_script.program = (m_testPrograms / TestSettingsFolder(pszEntry) / L"TKDAST.exe").wstring();
    }

    const LogCapture m_fileLog{"UtilFile"};

  private:
    const std::filesystem::path m_testPrograms = TestProgramFolder(); // before the name is the test's
    const ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", &PassTime};
    const ImportHook<decltype(GetModuleFileNameW)> m_program{"kernel32.dll", "GetModuleFileNameW",
                                                             &NameProgram};
    const ImportHook<decltype(ShellExecuteW)> m_shell{"shell32.dll", "ShellExecuteW", &RecordShell};
    const ImportHook<decltype(ShellExecuteExW)> m_shellEx{"shell32.dll", "ShellExecuteExW", &RecordShellEx};
};
} // namespace

TEST_F(UtilSettings, WithoutAnApplicationThereIsNothingToEndAndOnePause)
{
    EXPECT_TRUE(KillApplication());
    EXPECT_EQ(g_script.sleeps, PAUSE);
}

TEST_F(UtilSettings, OnlyTheServicesOwnTitleMeansTheService)
{
    const CWindow hOther = ServiceApplication(L"TKKDAS 2");
    EXPECT_TRUE(KillApplication());
    EXPECT_EQ(g_script.sleeps, PAUSE);
    EXPECT_TRUE(IsWindow(hOther.get()));
}

TEST_F(UtilSettings, AnApplicationThatClosesIsWaitedForOnce)
{
    const HWND hWnd = ServiceApplication().release();
    EXPECT_TRUE(KillApplication());
    EXPECT_FALSE(IsWindow(hWnd));
    EXPECT_EQ(g_script.nCloses, 1);
    EXPECT_EQ(g_script.sleeps, Pauses(2));
}

TEST_F(UtilSettings, EachOfTwoApplicationsIsClosed)
{
    const HWND hFirst = ServiceApplication().release();
    const HWND hSecond = ServiceApplication().release();
    EXPECT_TRUE(KillApplication());
    EXPECT_FALSE(IsWindow(hFirst) || IsWindow(hSecond));
    EXPECT_EQ(g_script.sleeps, Pauses(3));
}

TEST_F(UtilSettings, AnApplicationThatStaysIsAskedTwelveTimes)
{
    g_script.bClosesAreTaken = false;
    const CWindow hWnd = ServiceApplication();
    EXPECT_FALSE(KillApplication());
    EXPECT_EQ(g_script.nCloses, 12);
    EXPECT_EQ(g_script.sleeps, Pauses(13));
    EXPECT_FALSE(RestartService());
    EXPECT_THAT(g_script.calls, IsEmpty()) << "nothing is started beside it";
}

TEST_F(UtilSettings, TheServiceIsStartedFromTheProgramsOwnFolder)
{
    EXPECT_TRUE(StartAsService());
    EXPECT_THAT(g_script.calls,
                ElementsAre(L"nobody \"open\" \"C:\\Desk Assist\\TKDAS.EXE\" \"-service\" null"));
}

TEST_F(UtilSettings, AShellsAnswerBelowThirtyTwoIsNoStartOfTheService)
{
    for (const auto& [nResult, bStarted] : {std::pair{0, false}, {2, false}, {31, false}, {32, true}})
    {
        g_script.nShellResult = nResult;
        EXPECT_EQ(StartAsService(), bStarted) << nResult;
        EXPECT_EQ(RestartService(), bStarted) << nResult;
    }
}

TEST_F(UtilSettings, AServiceInAnUnknownFolderIsNotSearchedFor)
{
    g_script.bProgramIsKnown = false;
    EXPECT_FALSE(StartAsService());
    EXPECT_THAT(g_script.calls, IsEmpty());
}

TEST_F(UtilSettings, ARestartEndsTheApplicationBeforeTheServiceStarts)
{
    const HWND hWnd = ServiceApplication().release();
    EXPECT_TRUE(RestartService());
    EXPECT_FALSE(IsWindow(hWnd));
    EXPECT_EQ(g_script.calls.size(), 1U);
}

TEST_F(UtilSettings, ElevatedSettingsRunThisProgramWithAnAdministratorsRights)
{
    const LogCapture log(LOGGER_NAME);
    EXPECT_TRUE(ExecuteSettingsDialog(OWNER, 1));
    EXPECT_THAT(g_script.calls,
                ElementsAre(L"ex owner \"runas\" \"\"C:\\Desk Assist\\TKDAST.exe\"\" \"-Settings\" null"));
    EXPECT_THAT(log.Texts(),
                ElementsAre("TRACE ExecuteSettingsDialog entering.", "INFO Running self with -Settings",
                            "TRACE ExecuteSettingsDialog exiting."));
}

TEST_F(UtilSettings, OtherSettingsRunThisProgramAsItIs)
{
    const LogCapture log(LOGGER_NAME);
    EXPECT_TRUE(ExecuteSettingsDialog(OWNER, 0));
    EXPECT_THAT(
        g_script.calls,
        ElementsAre(L"owner \"open\" \"\"C:\\Desk Assist\\TKDAST.exe\"\" \"-SettingsAsApplication\" \"\""));
    EXPECT_THAT(log.Texts(), ElementsAre("TRACE ExecuteSettingsDialog entering.",
                                         "INFO Running self with -SettingsAsApplication",
                                         "TRACE ExecuteSettingsDialog exiting."));
}

TEST_F(UtilSettings, SettingsThatDoNotStartAreTold)
{
    g_script.bShellExSucceeds = FALSE; // as when consent is refused
    EXPECT_FALSE(ExecuteSettingsDialog(OWNER, 1));
    for (const auto& [nResult, bStarted] : {std::pair{0, false}, {5, false}, {32, false}, {33, true}})
    {
        g_script.nShellResult = nResult;
        EXPECT_EQ(ExecuteSettingsDialog(OWNER, 0), bStarted) << nResult;
    }
}

TEST_F(UtilSettings, AProgramWhosePathIsNotWhollyKnownIsNotStarted)
{
    constexpr size_t LONGEST = 257; // two quotes and a terminator beside it
    g_script.program = std::wstring(LONGEST, L'x');
    EXPECT_TRUE(ExecuteSettingsDialog(OWNER, 1));
    EXPECT_TRUE(ExecuteSettingsDialog(OWNER, 0));
    g_script.calls.clear();
    for (const size_t cch : {LONGEST + 1, LONGEST + 2, LONGEST + 100})
    {
        g_script.program = std::wstring(cch, L'x');
        g_script.cchProgram = cch >= MAX_PATH ? MAX_PATH : 0;
        EXPECT_FALSE(ExecuteSettingsDialog(OWNER, 1)) << cch;
        EXPECT_FALSE(ExecuteSettingsDialog(OWNER, 0)) << cch;
    }
    g_script.bProgramIsKnown = false;
    EXPECT_FALSE(ExecuteSettingsDialog(OWNER, 1));
    EXPECT_FALSE(ExecuteSettingsDialog(OWNER, 0));
    EXPECT_THAT(g_script.calls, IsEmpty());
}

namespace
{
/// The settings dialog of the test's module, for a user who may change the machine's settings.
class SettingsDialogTest : public UtilSettings
{
  protected:
    SettingsDialogTest() { UseModuleWithout(L"nothing"); }
    void SetUp() override { g_hResourceModule = m_hResources.get(); }
    void TearDown() override { EXPECT_EQ(m_trace->nLoads, m_trace->nFreed); }

    const CModule m_hResources{LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                              LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE)};
    const RegistrySandbox m_machine{HKEY_LOCAL_MACHINE};
    SettingsTrace m_trace;
    BoxTrace m_boxes;
};

/// Takes the right to change the machine's settings away.
class NoRights
{
    ImportHook<decltype(RegCreateKeyExW)> m_create{"advapi32.dll", "RegCreateKeyExW", &RefuseCreateKey};
};
} // namespace

TEST_F(SettingsDialogTest, TheModulesAnswerIsTheAnswer)
{
    const LogCapture log(LOGGER_NAME);
    for (const auto& [nResult, bExpected] : {std::pair{0, false}, {1, true}, {-1, true}, {256, true}})
    {
        m_trace->nResult = nResult;
        EXPECT_EQ(DisplaySettingsDialog(OWNER, 1), bExpected) << nResult;
        EXPECT_EQ(m_trace->hOwner, OWNER);
    }
    EXPECT_EQ(m_trace->nDialogs, 4);
    EXPECT_EQ(m_trace->nModes, 0) << "the machine's settings are at stake";
    EXPECT_TRUE(m_boxes.Boxes().empty()) << "this user may store them";
    EXPECT_EQ(log.Texts().front(), "TRACE DisplaySettingsDialog entering.");
    EXPECT_EQ(log.Texts().back(), "TRACE DisplaySettingsDialog exiting.");
}

TEST_F(SettingsDialogTest, WithoutACheckOfRightsTheModuleKeepsToTheApplication)
{
    const NoRights noRights;
    const LogCapture log(LOGGER_NAME, log4cxx::Level::getInfo());
    EXPECT_TRUE(DisplaySettingsDialog(nullptr, 0));
    EXPECT_EQ(m_trace->hOwner, nullptr);
    EXPECT_EQ(m_trace->nModesBeforeDialog, 1);
    EXPECT_EQ(m_trace->nModes, 1);
    EXPECT_TRUE(m_boxes.Boxes().empty()) << "nobody asks";
    EXPECT_THAT(log.Texts(), ElementsAre("INFO SetApplicationMode"));
}

TEST_F(SettingsDialogTest, AUserWithoutRightsIsAskedAndMayGoOn)
{
    const NoRights noRights;
    m_boxes.m_nAnswer = IDYES;
    EXPECT_TRUE(DisplaySettingsDialog(OWNER, 1));
    ASSERT_EQ(m_boxes.Boxes().size(), 1U);
    const SHOWN_MESSAGE& box = m_boxes.Boxes()[0];
    EXPECT_EQ(box.hWndOwner, OWNER);
    EXPECT_EQ(box.uType, 324U);
    EXPECT_EQ(box.title, L"Tessaran Kestrel Desk Assist");
    wchar_t szQuestion[260] = {};
    EXPECT_GT(LoadStringW(m_hResources.get(), 7, szQuestion, 260), 0);
    EXPECT_EQ(box.text, szQuestion);
    EXPECT_EQ(m_trace->nDialogs, 1);
}

TEST_F(SettingsDialogTest, OnlyANoKeepsTheDialogFromAUserWithoutRights)
{
    const NoRights noRights;
    m_boxes.m_nAnswer = IDNO;
    EXPECT_FALSE(DisplaySettingsDialog(OWNER, 1));
    EXPECT_EQ(m_trace->nLoads, 0);
    m_boxes.m_nAnswer = 0; // the box couldn't be shown
    EXPECT_TRUE(DisplaySettingsDialog(OWNER, 1));
}

TEST_F(SettingsDialogTest, AModuleWithoutAModeShowsItsDialogAllTheSame)
{
    UseModuleWithout(L"mode");
    EXPECT_TRUE(DisplaySettingsDialog(OWNER, 0));
    EXPECT_EQ(m_trace->nDialogs, 1);
    EXPECT_EQ(m_trace->nModes, 0);
}

TEST_F(SettingsDialogTest, AModuleWithoutADialogIsFalse)
{
    UseModuleWithout(L"dialog");
    EXPECT_FALSE(DisplaySettingsDialog(OWNER, 0));
    EXPECT_EQ(m_trace->nModes, 1);
    EXPECT_FALSE(DisplaySettingsDialog(OWNER, 1));
    EXPECT_EQ(m_trace->nLoads, 2);
}

TEST_F(SettingsDialogTest, AMissingModuleIsFalseWithoutAWord)
{
    g_script.program = L"C:\\nowhere\\TKDAST.exe";
    EXPECT_FALSE(DisplaySettingsDialog(OWNER, 0));
    EXPECT_FALSE(DisplaySettingsDialog(OWNER, 1));
    EXPECT_TRUE(m_boxes.Boxes().empty());
    EXPECT_EQ(m_trace->nLoads, 0);
}

namespace
{
class ElevationTest : public UtilSettings
{
  protected:
    void SetUp() override { g_script.pfnCloseHandle = m_close.Original(); }

    static void ExpectLimited(bool bTold, unsigned int uLimited)
    {
        unsigned int uAnswer = 4711;
        EXPECT_EQ(GetElevationLimited(&uAnswer), bTold);
        EXPECT_EQ(uAnswer, uLimited);
    }

    const ImportHook<decltype(OpenProcessToken)> m_open{"advapi32.dll", "OpenProcessToken", &PlayOpenToken};
    const ImportHook<decltype(GetTokenInformation)> m_information{"advapi32.dll", "GetTokenInformation",
                                                                  &PlayTokenInformation};
    const ImportHook<decltype(CloseHandle)> m_close{"kernel32.dll", "CloseHandle", &RecordCloseHandle};
};
} // namespace

TEST_F(ElevationTest, OnlyTheReducedHalfOfAnAdministratorIsLimited)
{
    g_script.elevation = TokenElevationTypeDefault;
    ExpectLimited(true, 0);
    g_script.elevation = TokenElevationTypeFull;
    ExpectLimited(true, 0);
    g_script.elevation = TokenElevationTypeLimited;
    ExpectLimited(true, 1);
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_TOKEN, FAKE_TOKEN, FAKE_TOKEN));
}

TEST_F(ElevationTest, WhatCannotBeToldIsNotLimited)
{
    g_script.elevation = TokenElevationTypeLimited;
    g_script.bTokenAnswers = false;
    ExpectLimited(false, 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_TOKEN));
    g_script.bTokenOpens = false;
    ExpectLimited(false, 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_TOKEN));
}

TEST(UtilSettingsOnThisMachine, TheTestSystemsAdministratorIsNotLimited)
{
    unsigned int uLimited = 4711;
    EXPECT_TRUE(GetElevationLimited(&uLimited));
    EXPECT_EQ(uLimited, 0U);
}
