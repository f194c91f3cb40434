#include "Include/UtilWTS.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <wtsapi32.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD NO_SESSION = 0xFFFFFFFF;
constexpr DWORD THIS_SESSION = 3;
const HWND FAKE_WINDOW = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x81230));

// What the session functions shall say, and the order of what was asked of the system.
struct SessionAnswers
{
    std::vector<DWORD> consoleIds = {THIS_SESSION, THIS_SESSION};
    bool bQueryWorks = true;
    std::vector<BYTE> answer;
    std::vector<WTS_SESSION_INFOW> sessions;
    BOOL bRegisters = TRUE;

    std::vector<std::string> calls;
    DWORD dwSessionAsked = 0;
    DWORD dwClassAsked = 0;
    size_t nConsoleCalls = 0;
    UINT uiErrorMode = 0;
    std::vector<UINT> systemDirectorySizes;
};
SessionAnswers g_answers;

DWORD WINAPI FakeConsoleId()
{
    g_answers.calls.emplace_back("console");
    return g_answers.consoleIds.at(g_answers.nConsoleCalls++);
}

void WINAPI RecordSleep(DWORD dwMilliseconds)
{
    g_answers.calls.push_back("sleep " + std::to_string(dwMilliseconds));
}

UINT WINAPI RecordErrorMode(UINT uiMode)
{
    g_answers.uiErrorMode = uiMode;
    return 0;
}

BOOL WINAPI FakeQuery(HANDLE hServer, DWORD dwSession, WTS_INFO_CLASS nClass, wchar_t** ppAnswer,
                      DWORD* pcbAnswer)
{
    EXPECT_EQ(hServer, nullptr);
    g_answers.calls.emplace_back("query");
    g_answers.dwSessionAsked = dwSession;
    g_answers.dwClassAsked = nClass;
    if (!g_answers.bQueryWorks)
    {
        return FALSE;
    }
    *ppAnswer = reinterpret_cast<wchar_t*>(g_answers.answer.data());
    *pcbAnswer = static_cast<DWORD>(g_answers.answer.size());
    return TRUE;
}

void WINAPI FakeFree(void*)
{
    g_answers.calls.emplace_back("free");
}

BOOL WINAPI FakeEnumerate(HANDLE, DWORD dwReserved, DWORD dwVersion, WTS_SESSION_INFOW** ppSessions,
                          DWORD* pnSessions)
{
    EXPECT_EQ(dwReserved, 0u);
    EXPECT_EQ(dwVersion, 1u);
    *ppSessions = g_answers.sessions.data();
    *pnSessions = static_cast<DWORD>(g_answers.sessions.size());
    return g_answers.bQueryWorks;
}

BOOL WINAPI FakeRegister(HWND hWnd, DWORD dwFlags)
{
    EXPECT_EQ(hWnd, FAKE_WINDOW);
    EXPECT_EQ(dwFlags, 0u);
    g_answers.calls.emplace_back("register");
    return g_answers.bRegisters;
}

BOOL WINAPI FakeUnRegister(HWND hWnd)
{
    EXPECT_EQ(hWnd, FAKE_WINDOW);
    g_answers.calls.emplace_back("unregister");
    return TRUE;
}

UINT WINAPI FakeSystemDirectory(wchar_t* pszPath, UINT cchPath)
{
    g_answers.systemDirectorySizes.push_back(cchPath);
    return static_cast<UINT>(std::wstring(L"C:\\windows\\system32").copy(pszPath, cchPath - 1));
}

HWND WINAPI FindNoWindow(const wchar_t* pszClass, const wchar_t* pszTitle)
{
    EXPECT_STREQ(pszClass, L"Shell_TrayWnd");
    EXPECT_EQ(pszTitle, nullptr);
    return nullptr;
}

// An answer of the extended query with the fields that matter.
std::vector<BYTE> ExtendedAnswer(DWORD dwLevel, LONG nFlags, size_t cbAnswer = 232)
{
    std::vector<BYTE> answer(cbAnswer, 0xEE);
    std::memcpy(answer.data(), &dwLevel, sizeof(dwLevel));
    std::memcpy(answer.data() + 16, &nFlags, sizeof(nFlags));
    return answer;
}

class UtilWTS : public testing::Test
{
  public:
    UtilWTS() : m_dwOldSessionId(g_dwSessionId)
    {
        g_answers = {};
        g_dwSessionId = THIS_SESSION;
        m_binding.Set("WTSGetActiveConsoleSessionId", &FakeConsoleId);
        m_binding.Set("WTSQuerySessionInformationW", &FakeQuery);
        m_binding.Set("WTSEnumerateSessionsW", &FakeEnumerate);
        m_binding.Set("WTSFreeMemory", &FakeFree);
        m_binding.Set("WTSRegisterSessionNotification", &FakeRegister);
        m_binding.Set("WTSUnRegisterSessionNotification", &FakeUnRegister);
    }
    ~UtilWTS() override
    {
        g_dwSessionId = m_dwOldSessionId;
        EXPECT_EQ(m_binding.OpenModules(), 0);
    }

  protected:
    LateBinding m_binding;

  private:
    DWORD m_dwOldSessionId;
    ImportHook<decltype(RecordSleep)> m_sleep{"kernel32.dll", "Sleep", &RecordSleep};
    ImportHook<decltype(RecordErrorMode)> m_errorMode{"kernel32.dll", "SetErrorMode", &RecordErrorMode};
};
} // namespace

TEST_F(UtilWTS, ConsoleIsAskedTwiceASecondApartAndTheSecondAnswerCounts)
{
    g_answers.consoleIds = {9, 2};
    unsigned long dwId = 77;
    SetLastError(4711);
    EXPECT_TRUE(GetActiveConsoleID(&dwId));
    EXPECT_EQ(dwId, 2u);
    EXPECT_THAT(g_answers.calls, ElementsAre("console", "sleep 0", "sleep 1000", "console"));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
}

TEST_F(UtilWTS, NoConsoleSessionLeavesTheIdUnchanged)
{
    g_answers.consoleIds = {2, NO_SESSION};
    unsigned long dwId = 77;
    EXPECT_FALSE(GetActiveConsoleID(&dwId));
    EXPECT_EQ(dwId, 77u);
}

TEST_F(UtilWTS, SystemThatKnowsNoConsoleCostsNoSecond)
{
    m_binding.SetMissing("WTSGetActiveConsoleSessionId");
    unsigned long dwId = 77;
    SetLastError(4711);
    EXPECT_FALSE(GetActiveConsoleID(&dwId));
    EXPECT_EQ(dwId, 77u);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_THAT(g_answers.calls, IsEmpty());
}

TEST_F(UtilWTS, FirstActiveSessionIsTheActiveOne)
{
    wchar_t szStation[] = L"x";
    g_answers.sessions = {
        {0, szStation, WTSDisconnected}, {5, szStation, WTSActive}, {6, szStation, WTSActive}};
    unsigned long dwId = 77;
    SetLastError(4711);
    EXPECT_TRUE(GetActiveSessionID(&dwId));
    EXPECT_EQ(dwId, 5u);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_THAT(g_answers.calls, ElementsAre("free"));
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
}

TEST_F(UtilWTS, NoActiveSessionLeavesTheIdUnchanged)
{
    wchar_t szStation[] = L"x";
    unsigned long dwId = 77;
    g_answers.sessions = {{0, szStation, WTSListen}};
    EXPECT_FALSE(GetActiveSessionID(&dwId));
    g_answers.sessions[0].State = WTSActive;
    m_binding.SetMissing("WTSFreeMemory");
    g_answers.calls.clear();
    EXPECT_TRUE(GetActiveSessionID(&dwId));
    EXPECT_THAT(g_answers.calls, IsEmpty());
    dwId = 77;
    g_answers.bQueryWorks = false;
    EXPECT_FALSE(GetActiveSessionID(&dwId));
    m_binding.SetMissingModule(L"wtsapi32.dll");
    EXPECT_FALSE(GetActiveSessionID(&dwId));
    EXPECT_EQ(dwId, 77u);
}

TEST_F(UtilWTS, SessionOfThisProcessIsTheSystemsAnswer)
{
    DWORD dwExpected = NO_SESSION;
    ProcessIdToSessionId(GetCurrentProcessId(), &dwExpected);
    EXPECT_EQ(GetSessionID(), dwExpected);
    m_binding.Set(
        "ProcessIdToSessionId", +[](DWORD, DWORD* pdwSession) -> BOOL {
            *pdwSession = 12;
            return TRUE;
        });
    EXPECT_EQ(GetSessionID(), 12u);
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
}

TEST_F(UtilWTS, SessionThatCannotBeAskedForIsZero)
{
    m_binding.SetMissing("ProcessIdToSessionId");
    EXPECT_EQ(GetSessionID(), 0u);
    m_binding.Set(
        "ProcessIdToSessionId", +[](DWORD, DWORD* pdwSession) -> BOOL {
            *pdwSession = 12;
            return FALSE;
        });
    EXPECT_EQ(GetSessionID(), 0u);
}

TEST_F(UtilWTS, SessionIsActiveExactlyInTheActiveState)
{
    g_answers.answer = {0, 0, 0xFF, 0xFF};
    EXPECT_TRUE(IsSessionActive());
    EXPECT_EQ(g_answers.dwSessionAsked, THIS_SESSION);
    EXPECT_EQ(g_answers.dwClassAsked, 8u);
    EXPECT_THAT(g_answers.calls, ElementsAre("query", "free"));
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
    for (const BYTE nState : {1, 4, 5})
    {
        g_answers.answer = {nState, 0, 0, 0};
        EXPECT_FALSE(IsSessionActive());
    }
}

TEST_F(UtilWTS, EmptyStateIsNotActiveAndNeedsNoConsole)
{
    EXPECT_FALSE(IsSessionActive());
    EXPECT_THAT(g_answers.calls, ElementsAre("query", "free"));
}

TEST_F(UtilWTS, UnansweredStateFallsBackToTheConsole)
{
    g_answers.bQueryWorks = false;
    EXPECT_TRUE(IsSessionActive());
    EXPECT_THAT(g_answers.calls, ElementsAre("query", "console", "sleep 0", "sleep 1000", "console"));
    g_answers.nConsoleCalls = 0;
    g_answers.consoleIds = {THIS_SESSION, THIS_SESSION + 1};
    EXPECT_FALSE(IsSessionActive());
    g_answers.nConsoleCalls = 0;
    g_answers.consoleIds = {THIS_SESSION, NO_SESSION};
    g_dwSessionId = NO_SESSION;
    EXPECT_FALSE(IsSessionActive());
}

TEST_F(UtilWTS, MissingStateFunctionsFallBackToTheConsole)
{
    m_binding.SetMissing("WTSFreeMemory");
    EXPECT_TRUE(IsSessionActive());
    EXPECT_THAT(g_answers.calls, ElementsAre("console", "sleep 0", "sleep 1000", "console"));
    g_answers.nConsoleCalls = 0;
    m_binding.SetMissing("WTSQuerySessionInformationW");
    EXPECT_TRUE(IsSessionActive());
    g_answers.nConsoleCalls = 0;
    m_binding.SetMissingModule(L"wtsapi32.dll");
    EXPECT_TRUE(IsSessionActive());
}

TEST_F(UtilWTS, LockIsAskedOfTheCallingSessionAfterTheConsolesSecond)
{
    g_answers.answer = ExtendedAnswer(1, 1);
    EXPECT_FALSE(IsSessionLockedWindows10());
    EXPECT_EQ(g_answers.dwSessionAsked, 0xFFFFFFFFu);
    EXPECT_EQ(g_answers.dwClassAsked, 25u);
    EXPECT_THAT(g_answers.calls, ElementsAre("console", "sleep 0", "sleep 1000", "console", "query", "free"));
}

TEST_F(UtilWTS, OnlyAZeroFlagOfLevelOneOrAnUnknownLevelMeansLocked)
{
    const auto lockedWith = [](const std::vector<BYTE>& answer) {
        g_answers.nConsoleCalls = 0;
        g_answers.answer = answer;
        return IsSessionLockedWindows10();
    };
    EXPECT_TRUE(lockedWith(ExtendedAnswer(1, 0)));
    EXPECT_FALSE(lockedWith(ExtendedAnswer(1, 1)));
    EXPECT_FALSE(lockedWith(ExtendedAnswer(1, -1)));
    EXPECT_TRUE(lockedWith(ExtendedAnswer(2, 1)));
    EXPECT_TRUE(lockedWith(ExtendedAnswer(2, 0)));
    EXPECT_TRUE(lockedWith(ExtendedAnswer(1, 0, 400)));
}

TEST_F(UtilWTS, LockThatIsNotAnsweredIsNoLock)
{
    g_answers.bQueryWorks = false;
    EXPECT_FALSE(IsSessionLockedWindows10());
    g_answers.bQueryWorks = true;
    g_answers.nConsoleCalls = 0;
    g_answers.calls.clear();
    EXPECT_FALSE(IsSessionLockedWindows10());
    EXPECT_EQ(g_answers.calls.back(), "free");
}

TEST_F(UtilWTS, ShortLockAnswerIsNoLockAndStaysUnfreed)
{
    const LogCapture capture("UtilWTS", log4cxx::Level::getInfo());
    g_answers.answer = ExtendedAnswer(1, 0, 231);
    EXPECT_FALSE(IsSessionLockedWindows10());
    EXPECT_EQ(g_answers.calls.back(), "query");
    EXPECT_THAT(capture.Texts(),
                ElementsAre("ERROR IsSessionLockedWindows10; Returned data for TK_WTSSessionInfoEx "
                            "query is less then size of TK_WTSINFOEXW structure."));
}

TEST_F(UtilWTS, MissingLockFunctionsAreLoggedAndNoLock)
{
    const LogCapture capture("UtilWTS", log4cxx::Level::getInfo());
    m_binding.SetMissing("WTSFreeMemory");
    EXPECT_FALSE(IsSessionLockedWindows10());
    m_binding.SetMissing("WTSQuerySessionInformationW");
    EXPECT_FALSE(IsSessionLockedWindows10());
    m_binding.SetMissingModule(L"wtsapi32.dll");
    EXPECT_FALSE(IsSessionLockedWindows10());
    EXPECT_EQ(g_answers.uiErrorMode, 0u) << "left to those who ask for more";
    EXPECT_THAT(
        capture.Texts(),
        ElementsAre("ERROR IsSessionLockedWindows10; Unable to load query for WTSFreeMemory function in  "
                    "wtsapi32.dll.",
                    "ERROR IsSessionLockedWindows10; Unable to load query for WTSQuerySessionInformationW "
                    "function in  wtsapi32.dll.",
                    "ERROR IsSessionLockedWindows10; Unable to load wtsapi32.dll."));
    EXPECT_THAT(g_answers.calls, IsEmpty());
}

TEST_F(UtilWTS, SessionWithoutAShellHasNoDesktopYet)
{
    const ImportHook hook("user32.dll", "FindWindowW", &FindNoWindow);
    EXPECT_FALSE(IsUserDesktopInitialized());
    EXPECT_FALSE(IsUserDesktopInitialized());
    EXPECT_EQ(g_answers.uiErrorMode, 0u);
}

TEST_F(UtilWTS, SessionWithAShellHasItsDesktop)
{
    const ImportHook hook(
        "user32.dll", "FindWindowW", +[](const wchar_t*, const wchar_t*) { return FAKE_WINDOW; });
    EXPECT_TRUE(IsUserDesktopInitialized());
}

TEST_F(UtilWTS, NotificationsAreAskedOfTheSystemsOwnModule)
{
    const ImportHook directory("kernel32.dll", "GetSystemDirectoryW", &FakeSystemDirectory);
    SetLastError(4711);
    EXPECT_TRUE(RegisterSessionNotification(FAKE_WINDOW));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
    SetLastError(4711);
    g_answers.uiErrorMode = 0;
    UnRegisterSessionNotification(FAKE_WINDOW);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(g_answers.uiErrorMode, 0x8001u);
    EXPECT_THAT(g_answers.calls, ElementsAre("register", "unregister"));
    EXPECT_THAT(g_answers.systemDirectorySizes, ElementsAre(260u, 520u));
    m_binding.SetMissingModule(L"C:\\windows\\system32\\wtsapi32.dll");
    EXPECT_FALSE(RegisterSessionNotification(FAKE_WINDOW));
    UnRegisterSessionNotification(FAKE_WINDOW);
    EXPECT_EQ(g_answers.calls.size(), 2u);
}

TEST_F(UtilWTS, RefusedOrMissingNotificationsAreFalse)
{
    g_answers.bRegisters = FALSE;
    EXPECT_FALSE(RegisterSessionNotification(FAKE_WINDOW));
    m_binding.SetMissing("WTSRegisterSessionNotification");
    m_binding.SetMissing("WTSUnRegisterSessionNotification");
    EXPECT_FALSE(RegisterSessionNotification(FAKE_WINDOW));
    UnRegisterSessionNotification(FAKE_WINDOW);
    EXPECT_THAT(g_answers.calls, ElementsAre("register"));
}

TEST_F(UtilWTS, EachOperationTracesItsScope)
{
    const LogCapture capture("UtilWTS");
    unsigned long dwId = 0;
    GetActiveConsoleID(&dwId);
    GetActiveSessionID(&dwId);
    GetSessionID();
    IsSessionActive();
    g_answers.nConsoleCalls = 0;
    g_answers.bQueryWorks = false;
    IsSessionLockedWindows10();
    IsUserDesktopInitialized();
    RegisterSessionNotification(FAKE_WINDOW);
    UnRegisterSessionNotification(FAKE_WINDOW);
    std::vector<std::string> entries;
    for (const LogLine& line : capture.Lines())
    {
        if (line.message.ends_with(" entering."))
        {
            entries.push_back(line.message.substr(0, line.message.find(' ')));
        }
    }
    EXPECT_THAT(entries,
                ElementsAre("GetActiveConsoleID", "GetActiveSessionID", "GetSessionID", "IsSessionActive",
                            "IsSessionLockedWindows10", "GetActiveConsoleID", "IsUserDesktopInitialized",
                            "RegisterSessionNotification", "UnRegisterSessionNotification"));
}
