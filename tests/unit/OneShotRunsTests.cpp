#include "startup/OneShotRuns.h"

#include "Include/BoundedText.h"
#include "channel/TrayMessages.h"
#include "devservice/StandInService.h"
#include "startup/CommandLine.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/RegistrySandbox.h"
#include "tests/unit/ResolverSwap.h"

#include <gtest/gtest.h>

#include <ws2tcpip.h>

#include <cstring>
#include <future>
#include <string>
#include <vector>

namespace
{
// What the runs have asked of the system.
struct SYSTEM_CALLS
{
    std::wstring userName = L"somebody";
    INT_PTR nDialogResult = 1;
    int nDialogs = 0;
    int nMappings = 0;
    int nWindows = 0;
    int nManualEvents = 0;
    decltype(&CreateEventW) pfnCreateEvent = nullptr;
    decltype(&CreateWindowExW) pfnCreateWindow = nullptr;
    decltype(&setsockopt) pfnSetSockOpt = nullptr;
};
SYSTEM_CALLS g_calls;

INT_PTR WINAPI PlayDialog(HINSTANCE, LPCWSTR, HWND, DLGPROC, LPARAM)
{
    ++g_calls.nDialogs;
    return g_calls.nDialogResult;
}

BOOL WINAPI PlayUserName(LPWSTR pszName, LPDWORD pcchName)
{
    CopyText(pszName, *pcchName, g_calls.userName);
    return TRUE;
}

HANDLE WINAPI RefuseMapping(HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR)
{
    ++g_calls.nMappings;
    return nullptr;
}

HANDLE WINAPI CountEvent(LPSECURITY_ATTRIBUTES pAttributes, BOOL bManual, BOOL bSet, LPCWSTR pszName)
{
    g_calls.nManualEvents += bManual != FALSE ? 1 : 0;
    return g_calls.pfnCreateEvent(pAttributes, bManual, bSet, pszName);
}

BOOL WINAPI PlayActiveSession(HANDLE, DWORD, int, LPWSTR* ppBuffer, DWORD* pcbReturned)
{
    static int s_nState = 0; // WTSActive
    *ppBuffer = reinterpret_cast<LPWSTR>(&s_nState);
    *pcbReturned = sizeof(s_nState);
    return TRUE;
}

void WINAPI KeepMemory(PVOID) {}

int WINAPI ShortenTimeout(SOCKET hSocket, int nLevel, int nOption, const char* pValue, int cbValue)
{
    constexpr DWORD SHORT_MS = 50;
    return nOption == SO_RCVTIMEO
               ? g_calls.pfnSetSockOpt(hSocket, nLevel, nOption, reinterpret_cast<const char*>(&SHORT_MS),
                                       sizeof(SHORT_MS))
               : g_calls.pfnSetSockOpt(hSocket, nLevel, nOption, pValue, cbValue);
}

/// Lets the program wait for an answer no longer than a moment.
class ImpatientProgram
{
  public:
    ImpatientProgram() { g_calls.pfnSetSockOpt = m_hook.Original(); }

  private:
    ImportHook<decltype(setsockopt)> m_hook{"ws2_32.dll", "setsockopt", &ShortenTimeout};
};

// The test system knows "localhost" by its IPv4 address alone.
int WSAAPI ResolveToIPv6(const char* pszNode, const char* pszService, const addrinfo* pHints,
                         addrinfo** ppResult)
{
    EXPECT_STREQ(pszNode, "localhost");
    EXPECT_EQ(pHints->ai_family, AF_INET6);
    return ResolverSwap::TableGetAddrInfo()("::1", pszService, pHints, ppResult);
}

HWND WINAPI CountWindow(DWORD dwExStyle, LPCWSTR pszClass, LPCWSTR pszTitle, DWORD dwStyle, int nX, int nY,
                        int nWidth, int nHeight, HWND hParent, HMENU hMenu, HINSTANCE hInstance,
                        LPVOID pParam)
{
    ++g_calls.nWindows;
    return g_calls.pfnCreateWindow(dwExStyle, pszClass, pszTitle, dwStyle, nX, nY, nWidth, nHeight, hParent,
                                   hMenu, hInstance, pParam);
}

/// The one-shot runs of the whole program, on a system that shows no dialog and lets no agent start.
class OneShotRunTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_calls = SYSTEM_CALLS();
        g_calls.pfnCreateEvent = m_event.Original();
        g_calls.pfnCreateWindow = m_window.Original();
        // The test system takes a second for each look at the session.
        m_lateBinding.Set("WTSQuerySessionInformationW", &PlayActiveSession);
        m_lateBinding.Set("WTSFreeMemory", &KeepMemory);
    }

    static int Run(const std::wstring& line) { return RunTrayAgent(GetModuleHandleW(nullptr), line.c_str()); }

    /// Runs beside the test, which plays the service.
    std::future<int> Start(const std::wstring& line)
    {
        return std::async(std::launch::async, [line] { return Run(line); });
    }

    /// Takes the prompt's opening datagram and answers it with so many bytes of a prompt.
    void AnswerPrompt(size_t cbAnswer = sizeof(MSG_PERMISSION_PROMPT))
    {
        MSG_PERMISSION_PROMPT prompt = {};
        prompt.dwType = MSG_TYPE_PERMISSION_PROMPT;
        const std::vector<BYTE> opening = m_service.Receive(PATIENCE_MS).value_or(std::vector<BYTE>());
        ASSERT_EQ(opening.size(), sizeof(prompt));
        EXPECT_EQ(memcmp(opening.data(), &prompt, sizeof(prompt)), 0);
        std::vector<BYTE> answer(cbAnswer);
        memcpy(answer.data(), &prompt, std::min(cbAnswer, sizeof(prompt)));
        ASSERT_TRUE(m_service.Reply(answer.data(), answer.size()));
    }

    std::wstring Port() const { return std::to_wstring(m_service.Port()); }

    static void ExpectNoAgentWasMade()
    {
        EXPECT_EQ(g_calls.nMappings, 0);
        EXPECT_EQ(g_calls.nWindows, 0);
        EXPECT_EQ(g_calls.nManualEvents, 0);
        EXPECT_FALSE(g_hQuitEvent);
        EXPECT_FALSE(g_hInstanceMapping);
    }

    LoopbackResponder m_service;
    LateBinding m_lateBinding;
    ImportHook<decltype(DialogBoxParamW)> m_dialog{"user32.dll", "DialogBoxParamW", &PlayDialog};
    ImportHook<decltype(GetUserNameW)> m_userName{"advapi32.dll", "GetUserNameW", &PlayUserName};
    ImportHook<decltype(CreateFileMappingW)> m_mapping{"kernel32.dll", "CreateFileMappingW", &RefuseMapping};
    ImportHook<decltype(CreateEventW)> m_event{"kernel32.dll", "CreateEventW", &CountEvent};
    ImportHook<decltype(CreateWindowExW)> m_window{"user32.dll", "CreateWindowExW", &CountWindow};
};

std::wstring SwitchOf(const wchar_t* pszLine)
{
    const ONE_SHOT_RUN* const pRun = FindOneShotRun(pszLine);
    return pRun != nullptr ? pRun->pszSwitch : L"";
}
} // namespace

TEST(OneShotRuns, ThePromptsSwitchesAreFoundAnywhereInTheLine)
{
    for (const wchar_t* const pszLine :
         {L"-Permission 5 2", L" -Permission 5 2", L"foo -Permission 5 2", L"-Permission", L"x-Permissiony"})
    {
        EXPECT_EQ(SwitchOf(pszLine), PERMISSION_SWITCH);
    }
    EXPECT_EQ(SwitchOf(L"foo -Invitation"), INVITATION_SWITCH);
    EXPECT_EQ(SwitchOf(L"-Permission -Invitation"), INVITATION_SWITCH) << "the order is the table's";
}

TEST(OneShotRuns, TheCertificatesSwitchIsFoundAnywhereInTheLineBehindThePrompts)
{
    for (const wchar_t* const pszLine :
         {L"-ValidateCert", L"foo -ValidateCert", L"x-ValidateCerty", L"-ValidateCert 5"})
    {
        EXPECT_EQ(SwitchOf(pszLine), VALIDATE_CERT_SWITCH);
    }
    EXPECT_EQ(SwitchOf(L"-ValidateCert -Permission 5 2"), PERMISSION_SWITCH) << "the order is the table's";
    EXPECT_EQ(FindOneShotRun(L"-validatecert"), nullptr);
    EXPECT_EQ(FindOneShotRun(L"-ValidateCer"), nullptr);
}

TEST(OneShotRuns, NearMissesAreLinesOfTheNormalRun)
{
    for (const wchar_t* const pszLine :
         {L"", L"5000", L"-permission 5 2", L"-PERMISSION 5 2", L"Permission 5 2", L"- Permission 5 2",
          L"-Permissio", L"/Permission 5 2", L"-invitation"})
    {
        EXPECT_EQ(FindOneShotRun(pszLine), nullptr);
    }
}

TEST_F(OneShotRunTest, AShownPromptIsOneAndMakesNoAgent)
{
    for (const INT_PTR nResult : {1, 2, 3})
    {
        g_calls.nDialogResult = nResult;
        std::future<int> run = Start(L"-Permission " + Port() + L" 2");
        AnswerPrompt();
        EXPECT_EQ(run.get(), 1) << "whatever the person says";
    }
    EXPECT_EQ(g_calls.nDialogs, 3);
    ExpectNoAgentWasMade();
}

TEST_F(OneShotRunTest, BothSwitchesShowThePromptOfThePortThatTheyAreGiven)
{
    for (const std::wstring& line : {L"-Invitation " + Port() + L" 2", L"foo -Permission " + Port() + L" 2",
                                     L" -Permission " + Port() + L" 2"})
    {
        std::future<int> run = Start(line);
        AnswerPrompt();
        EXPECT_EQ(run.get(), 1);
    }
}

TEST_F(OneShotRunTest, TheSystemsAccountMayAsk)
{
    for (const wchar_t* const pszName : {L"SYSTEM", L"System", L"system"})
    {
        g_calls.userName = pszName;
        std::future<int> run = Start(L"-Permission " + Port() + L" 2");
        AnswerPrompt();
        EXPECT_EQ(run.get(), 1);
    }
    EXPECT_EQ(Run(L"-permission " + Port() + L" 2"), EXIT_SYSTEM_ACCOUNT) << "but runs no agent";
}

TEST_F(OneShotRunTest, APromptOfAnotherSizeIsNoneAndNothingIsShown)
{
    for (const size_t cb : {sizeof(MSG_PERMISSION_PROMPT) - 1, sizeof(MSG_PERMISSION_PROMPT) + 1, size_t{0}})
    {
        std::future<int> run = Start(L"-Permission " + Port() + L" 2");
        AnswerPrompt(cb);
        EXPECT_EQ(run.get(), 0) << cb;
    }
    EXPECT_EQ(g_calls.nDialogs, 0);
}

TEST_F(OneShotRunTest, WithoutABlankNobodyIsAsked)
{
    EXPECT_EQ(Run(L"-Permission"), 0);
    EXPECT_EQ(Run(L"-Invitation"), 0);
    EXPECT_EQ(g_calls.nDialogs, 0);
    ExpectNoAgentWasMade();
}

TEST_F(OneShotRunTest, ALineWithoutAUsablePortShowsNothing)
{
    const ImpatientProgram impatience;
    for (const std::wstring& line :
         {std::wstring(L"-Permission "), std::wstring(L"-Permission port 2"),
          std::wstring(L"foo -Permission"), std::wstring(L"-Permission 0 2"),
          L"-Permission " + std::wstring(4000, L'1') + L" 2", L"-Permission  " + Port() + L" 2"})
    {
        EXPECT_EQ(Run(line), 0);
    }
    EXPECT_EQ(g_calls.nDialogs, 0);
    EXPECT_FALSE(m_service.Receive(0).has_value());
}

TEST_F(OneShotRunTest, APortWithoutAServiceShowsNothing)
{
    const ImpatientProgram impatience;
    m_service.Close();
    EXPECT_EQ(Run(L"-Permission " + Port() + L" 2"), 0);
    EXPECT_EQ(g_calls.nDialogs, 0);
}

TEST_F(OneShotRunTest, AOneTimeLineMustHaveItsPortFirst)
{
    EXPECT_EQ(Run(L"-onetimesession -Permission 5 2"), EXIT_BAD_PARAMETER);
    EXPECT_EQ(g_calls.nDialogs, 0);
    std::future<int> run = Start(L"-onetimesession " + Port() + L" -Permission 5 2");
    AnswerPrompt();
    EXPECT_EQ(run.get(), 1) << "the port is the one-time port";
    EXPECT_EQ(g_bOneTimeSession, 1U);
    ExpectNoAgentWasMade();
}

TEST_F(OneShotRunTest, ThePromptSpeaksIPv6WhereTheLineSaysSo)
{
    const ResolverSwap resolver(&ResolveToIPv6);
    MSG_PERMISSION_PROMPT question = {};
    question.dwType = MSG_TYPE_PERMISSION_PROMPT;
    CStandInService service;
    const unsigned int uPrompt = service.Prompts().Open(question, AF_INET6);
    ASSERT_NE(uPrompt, 0U);
    EXPECT_EQ(Run(L"-Permission " + std::to_wstring(service.Prompts().GetPort(uPrompt)) + L" 23"), 1);
    EXPECT_EQ(service.Prompts().Get(uPrompt)->stage, PROMPT_STAGE::Asked);
    EXPECT_EQ(service.Prompts().TakeFault(), L"");
}

TEST_F(OneShotRunTest, OtherLinesStartTheNormalRun)
{
    EXPECT_EQ(Run(L"-permission " + Port() + L" 2"), EXIT_ALREADY_RUNNING) << "no mark could be made";
    EXPECT_EQ(g_calls.nMappings, 1);
    EXPECT_FALSE(m_service.Receive(0).has_value());
}

TEST_F(OneShotRunTest, OnlyAnAcceptedCertificateIsZero)
{
    const RegistrySandbox hives(HKEY_USERS);
    const RegistrySandbox user(HKEY_CURRENT_USER);
    const LogCapture quiet("ValidateCertDialog");
    for (const auto& [nResult, nExitCode] :
         {std::pair<INT_PTR, int>{IDYES, 0}, {IDNO, 1}, {IDCANCEL, 1}, {-1, 1}, {0, 1}, {1, 1}})
    {
        g_calls.nDialogResult = nResult;
        const LogCapture log("TKDAST", log4cxx::Level::getInfo());
        EXPECT_EQ(Run(L"foo -ValidateCert"), nExitCode) << nResult;
        EXPECT_EQ(log.Texts().back(), "INFO Displaying ValidateCert dialog");
    }
    EXPECT_EQ(g_calls.nDialogs, 6);
    ExpectNoAgentWasMade();
}

TEST_F(OneShotRunTest, AOneTimeLineNeedsItsPortForACertificateToo)
{
    EXPECT_EQ(Run(L"-onetimesession -ValidateCert"), EXIT_BAD_PARAMETER);
    EXPECT_EQ(g_calls.nDialogs, 0);
}
