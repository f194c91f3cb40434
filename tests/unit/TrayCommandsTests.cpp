#include "Include/BoundedText.h"
#include "TKDAS/SimultanousSessionMutex.h"
#include "dialogs/CreateInvitationDialog.h"
#include "resources/resource.h"
#include "Include/UtilResource.h"
#include "Include/UtilTimedMessageBox.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/DialogHarness.h"
#include "tray/DesktopOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;

struct DIALOG_CALL
{
    UINT uTemplate;
    HWND hWndOwner;
    LPARAM lParam;
    Clock::time_point when;
};
std::vector<DIALOG_CALL> g_dialogs;
std::function<void()> g_whileDialog; // runs while the next dialog is open

INT_PTR WINAPI RecordDialog(HINSTANCE hModule, LPCWSTR pszTemplate, HWND hWndOwner, DLGPROC, LPARAM lParam)
{
    EXPECT_EQ(hModule, g_hResourceModule.load());
    g_dialogs.push_back(
        {static_cast<UINT>(reinterpret_cast<ULONG_PTR>(pszTemplate)), hWndOwner, lParam, Clock::now()});
    if (const std::function<void()> whileDialog = std::exchange(g_whileDialog, nullptr); whileDialog)
    {
        whileDialog();
    }
    return 0;
}

CWindow MakeWindow()
{
    return CWindow(
        CreateWindowExW(0, L"STATIC", nullptr, WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
}

struct TWO_WINDOWS
{
    HWND hFirst;
    HWND hSecond;
    HWND hUpper;
};

// Takes the first of the two, and no more.
BOOL CALLBACK TakeUpper(HWND hWnd, LPARAM lParam)
{
    TWO_WINDOWS& windows = *reinterpret_cast<TWO_WINDOWS*>(lParam);
    windows.hUpper = hWnd == windows.hFirst || hWnd == windows.hSecond ? hWnd : nullptr;
    return windows.hUpper == nullptr;
}

// Other programs' windows may come up meanwhile, so nobody is asked for the topmost one.
bool IsAbove(HWND hWnd, HWND hOther)
{
    TWO_WINDOWS windows = {hWnd, hOther, nullptr};
    EnumWindows(&TakeUpper, reinterpret_cast<LPARAM>(&windows));
    return windows.hUpper == hWnd;
}

class TrayCommandTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        AgentHarness::SetUp();
        m_boxes.m_nAnswer = IDYES;
        g_dialogs.clear();
        g_hResourceModule = m_hResources.get();
    }

    /// A text of the language module in which a count stands.
    static std::wstring Text(UINT uString, const wchar_t* pszCount = L"")
    {
        return FillPlaceholders(LoadResourceText(uString, 260), {pszCount});
    }

    /// Returns when the command is done.
    LRESULT Choose(UINT uCommand) { return SendMessageW(Window().m_hWnd, WM_COMMAND, uCommand, 0); }

    void ExpectSilence() { EXPECT_TRUE(m_service.StaysSilent(100)); }

    /// The record that comes next is this one, byte for byte, with the agent's own desktop in its block.
    template <typename Record>
    void ExpectRecord(Record expected)
    {
        CTaskBarWindow::GetDesktopUserInformation(&expected.DesktopUser);
        const Record received = Receive<Record>();
        EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
    }

    const CModule m_hResources{LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                              LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE)};
    BoxTrace m_boxes;
    ImportHook<decltype(DialogBoxParamW)> m_dialog{"user32.dll", "DialogBoxParamW", &RecordDialog};
};

constexpr int NO_ANSWER = 0; // what a box answers that its timer has ended

HWND g_hForeground;

HWND WINAPI PlayForeground()
{
    return g_hForeground;
}

class SettingsCommandTest : public TrayCommandTest
{
  protected:
    void SetUp() override
    {
        TrayCommandTest::SetUp();
        g_hForeground = nullptr;
    }

    /// What the command starts under these settings.
    std::vector<std::string> StartsWith(DWORD dwExitLock1, DWORD dwExitLock2)
    {
        m_trace.Forget();
        m_hStartOwner = nullptr;
        Window().m_Settings.dwExitLock1 = dwExitLock1;
        Window().m_Settings.dwExitLock2 = dwExitLock2;
        Choose(ID_TRAY_SETTINGS);
        return m_trace.Calls("start");
    }

    const ImportHook<decltype(GetForegroundWindow)> m_foreground{"user32.dll", "GetForegroundWindow",
                                                                 &PlayForeground};
};
} // namespace

TEST_F(SettingsCommandTest, EitherLockNeedsAnAdministrator)
{
    const std::vector<std::string> elevated = {"start runas -Settings"};
    EXPECT_EQ(StartsWith(0, 0), std::vector<std::string>{"start open -SettingsAsApplication"});
    EXPECT_EQ(StartsWith(1, 0), elevated);
    EXPECT_EQ(StartsWith(0, 1), elevated);
    EXPECT_EQ(StartsWith(0x80000000, 0x80000000), elevated);
    ExpectSilence();
}

TEST_F(SettingsCommandTest, TheWindowInFrontOwnsWhatIsAskedUnlessItIsMinimised)
{
    StartsWith(0, 0);
    EXPECT_EQ(m_hStartOwner, Window().m_hWnd) << "there is none in front";
    OnWindowThread([] {
        g_hForeground = CreateWindowExW(WS_EX_NOACTIVATE, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr,
                                        nullptr, nullptr, nullptr);
    });
    for (const DWORD dwLock : {0U, 1U})
    {
        StartsWith(dwLock, 0);
        EXPECT_EQ(m_hStartOwner, g_hForeground);
    }
    OnWindowThread([] { SetWindowLongPtrW(g_hForeground, GWL_STYLE, WS_POPUP | WS_MINIMIZE); });
    for (const DWORD dwLock : {0U, 1U})
    {
        StartsWith(dwLock, 0);
        EXPECT_EQ(m_hStartOwner, Window().m_hWnd);
    }
    OnWindowThread([] { DestroyWindow(g_hForeground); });
}

TEST_F(TrayCommandTest, EachLanguageIsSentWithTheDesktopAndKept)
{
    const wchar_t* const apszCodes[] = {L"en", L"fr", L"de"};
    for (UINT uLanguage = 0; uLanguage < 3; ++uLanguage)
    {
        Window().m_bServiceReplied = 1;
        EXPECT_EQ(Choose(ID_TRAY_LANGUAGE_EN + uLanguage), 0);
        MSG_TRAYICON_LANGUAGE expected = {};
        expected.dwType = MSG_TYPE_TRAYICON_LANGUAGE;
        CopyText(expected.szLanguage, apszCodes[uLanguage]);
        ExpectRecord(expected);
        EXPECT_EQ(FixedText(Window().m_Settings.szLanguage), apszCodes[uLanguage]);
        EXPECT_EQ(Window().m_bServiceReplied, 0U);
    }
}

TEST_F(TrayCommandTest, TheListOfEveryoneIsAskedForWithAnEmptyRecord)
{
    Choose(ID_TRAY_SHOW_CONNECTED);
    const auto received = Receive<MSG_TRAYICON_CONNECT_NOTIFY_ALL>();
    MSG_TRAYICON_CONNECT_NOTIFY_ALL expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
}

TEST_F(TrayCommandTest, DisconnectAllAsksForTheCountOfConnectionsAndSendsOnYes)
{
    Window().m_Connection.dwConnectCount = 12;
    Choose(ID_TRAY_DISCONNECT_ALL);
    ASSERT_EQ(m_boxes.Boxes().size(), 1U);
    const SHOWN_MESSAGE& box = m_boxes.Boxes()[0];
    EXPECT_EQ(box.uType, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
    EXPECT_EQ(box.hWndOwner, nullptr);
    EXPECT_EQ(box.text, Text(16, L"12"));
    EXPECT_NE(box.text.find(L"12"), std::wstring::npos);
    EXPECT_EQ(box.title, Text(17));
    EXPECT_EQ(m_trace.Calls("timer"), std::vector<std::string>{"timer 0 10000"});
    MSG_TRAYICON_DISCONNECT_ALL expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_DISCONNECT_ALL;
    ExpectRecord(expected);
}

TEST_F(TrayCommandTest, AQuestionSaysHowManySecondsThereAreInEveryLanguage)
{
    Window().m_Connection.dwConnectCount = 2;
    m_boxes.m_nAnswer = IDNO;
    for (const wchar_t* const pszLanguage : {L"en", L"fr", L"de"})
    {
        const StagedLanguageModule language(pszLanguage);
        for (const UINT uCommand : {ID_TRAY_DISCONNECT_ALL, ID_TRAY_EXIT})
        {
            m_boxes.Forget();
            m_trace.Forget();
            Choose(uCommand);
            ASSERT_EQ(m_boxes.Boxes().size(), 1U);
            EXPECT_EQ(m_trace.Calls("timer"), std::vector<std::string>{"timer 0 10000"});
            EXPECT_NE(m_boxes.Boxes()[0].text.find(L" 10 "), std::wstring::npos) << m_boxes.Boxes()[0].text;
        }
    }
}

TEST_F(TrayCommandTest, DisconnectAllWithNobodyConnectedAsksNothing)
{
    Choose(ID_TRAY_DISCONNECT_ALL);
    EXPECT_TRUE(m_boxes.Boxes().empty());
    ExpectSilence();
}

TEST_F(TrayCommandTest, AQuestionThatIsRefusedOrLeftUnansweredChangesNothing)
{
    Window().m_Connection.dwConnectCount = 1;
    for (const int nAnswer : {IDNO, IDCANCEL, NO_ANSWER})
    {
        m_boxes.m_nAnswer = nAnswer;
        Choose(ID_TRAY_DISCONNECT_ALL);
        Choose(ID_TRAY_EXIT);
    }
    EXPECT_EQ(m_boxes.Boxes().size(), 6U);
    ExpectSilence();
    EXPECT_TRUE(IsWindow(Window().m_hWnd));
    EXPECT_EQ(g_nExitCode, EXIT_AGENT_ENDED);
}

TEST_F(TrayCommandTest, ExitWithNobodyConnectedAsksNothingAndEndsTheAgent)
{
    Send(PlainSettings());
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    Window().m_dwAppliedOptions = DESKTOP_OPTION_DROP_SHADOW;
    m_trace.Forget();
    Choose(ID_TRAY_EXIT);
    EXPECT_EQ(m_trace.Calls(),
              (std::vector<std::string>{"message 273 40007", "get 114 0", "icon 2", "set 4133 0 1"}))
        << "the record is filled, then the icon goes, then the window";
    EXPECT_TRUE(m_boxes.Boxes().empty());
    MSG_TRAYICON_EXIT expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_EXIT;
    ExpectRecord(expected);
    EXPECT_EQ(g_nExitCode, EXIT_ASKED_TO_END);
    EXPECT_FALSE(IsWindow(Window().m_hWnd));
}

TEST_F(TrayCommandTest, ExitWithSomebodyConnectedAsksFirst)
{
    Window().m_Connection.dwConnectCount = 3;
    Choose(ID_TRAY_EXIT);
    ASSERT_EQ(m_boxes.Boxes().size(), 1U);
    EXPECT_EQ(m_boxes.Boxes()[0].uType, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
    EXPECT_EQ(m_boxes.Boxes()[0].text, Text(18, L"3"));
    EXPECT_EQ(m_boxes.Boxes()[0].title, Text(17));
    EXPECT_EQ(m_boxes.Boxes()[0].hWndOwner, nullptr);
    EXPECT_EQ(m_trace.Calls("timer"), std::vector<std::string>{"timer 0 10000"});
    EXPECT_EQ(Receive<MSG_TRAYICON_EXIT>().dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_EXIT));
}

TEST_F(TrayCommandTest, ASecondQuestionWhileOneIsOpenIsANo)
{
    Window().m_Connection.dwConnectCount = 1;
    m_boxes.m_nAnswer = IDNO;
    m_boxes.m_whileOpen = [this] {
        SendMessageW(Window().m_hWnd, WM_COMMAND, ID_TRAY_EXIT, 0);
        SendMessageW(Window().m_hWnd, WM_COMMAND, ID_TRAY_DISCONNECT_ALL, 0);
    };
    Choose(ID_TRAY_DISCONNECT_ALL);
    EXPECT_EQ(m_boxes.Boxes().size(), 1U);
    ExpectSilence();
    Choose(ID_TRAY_DISCONNECT_ALL);
    EXPECT_EQ(m_boxes.Boxes().size(), 2U) << "the next one is asked again";
}

// Both ends post a quit message, the system keeps one, and the box takes that for its own.
TEST_F(TrayCommandTest, AnAgentThatGoesWhileABoxTimesOutStillEnds)
{
    Window().m_Connection.dwConnectCount = 1;
    m_boxes.m_nAnswer = NO_ANSWER;
    m_boxes.m_whileOpen = [this] {
        MessageBoxTimer(nullptr, WM_TIMER, 0, 0);
        DestroyWindow(Window().m_hWnd);
    };
    bool bQuit = false;
    OnWindowThread([&] {
        Choose(ID_TRAY_DISCONNECT_ALL);
        MSG message = {};
        bQuit = PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE) != FALSE;
    });
    EXPECT_TRUE(bQuit);
}

TEST_F(TrayCommandTest, ABoxUnderADialogWaitsUntilTheDialogHasGone)
{
    Window().m_Connection.dwConnectCount = 1;
    Window().m_Settings.bReverseConnectMenu = 1;
    m_boxes.m_nAnswer = NO_ANSWER;
    bool bQuitInDialog = true;
    bool bQuitBehindDialog = false;
    const auto isQuitDue = [] {
        MSG message = {};
        return PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE) != FALSE;
    };
    g_whileDialog = [&] {
        MessageBoxTimer(nullptr, WM_TIMER, 0, 0);
        bQuitInDialog = isQuitDue();
    };
    m_boxes.m_whileOpen = [&] {
        Choose(ID_TRAY_CONNECT_TO_CLIENT);
        bQuitBehindDialog = isQuitDue();
    };
    Choose(ID_TRAY_DISCONNECT_ALL);
    EXPECT_EQ(g_dialogs.size(), 1U);
    EXPECT_FALSE(bQuitInDialog);
    EXPECT_TRUE(bQuitBehindDialog);
    g_whileDialog = nullptr; // nothing here may outlive the test
}

TEST_F(TrayCommandTest, AServiceMessageDuringAQuestionIsShownBehindIt)
{
    Window().m_Connection.dwConnectCount = 1;
    m_boxes.m_nAnswer = IDNO;
    CopyText(Window().m_szServiceMessage, L"The connection was refused.");
    m_boxes.m_whileOpen = [this] { SendMessageW(Window().m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0); };
    Choose(ID_TRAY_DISCONNECT_ALL);
    OnWindowThread([] {});
    ASSERT_EQ(m_boxes.Boxes().size(), 2U);
    EXPECT_EQ(m_boxes.Boxes()[1].text, L"The connection was refused.");
}

TEST_F(TrayCommandTest, AServiceMessageIsShownAsItIsForTwentySeconds)
{
    for (const DWORD bIsError : {0U, 1U})
    {
        m_trace.Forget();
        m_boxes.Forget();
        CopyText(Window().m_szServiceMessage, L"100 %s of %d");
        CopyText(Window().m_szServiceMessageTitle, L"Title %n");
        Window().m_bServiceMessageIsError = bIsError;
        SendMessageW(Window().m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0);
        ASSERT_EQ(m_boxes.Boxes().size(), 1U);
        EXPECT_EQ(m_boxes.Boxes()[0].text, L"100 %s of %d");
        EXPECT_EQ(m_boxes.Boxes()[0].title, L"Title %n");
        EXPECT_EQ(m_boxes.Boxes()[0].uType, bIsError != 0 ? 0x40010U : 0x40040U);
        EXPECT_EQ(m_boxes.Boxes()[0].hWndOwner, nullptr);
        EXPECT_EQ(m_trace.Calls("timer"), std::vector<std::string>{"timer 0 20000"});
    }
}

TEST_F(TrayCommandTest, OnlyAnInvitedOneTimeAgentEndsBehindAServiceMessage)
{
    g_bOneTimeSession = 1;
    SendMessageW(Window().m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0);
    OnWindowThread([] {});
    EXPECT_TRUE(IsWindow(Window().m_hWnd));
    g_bOtiInvitation = 1;
    SendMessageW(Window().m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0);
    EXPECT_EQ(Receive<MSG_TRAYICON_EXIT>().dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_EXIT));
}

TEST_F(TrayCommandTest, AboutAsksForTheAddressesAndOpensAsSoonAsTheyAreThere)
{
    Window().m_bServiceReplied = 1;
    Window().m_bDialogReserved = 1;
    g_whileDialog = [this] { EXPECT_EQ(Window().m_bDialogReserved, 1U); };
    std::future<LRESULT> chosen = std::async(std::launch::async, [this] { return Choose(ID_TRAY_ABOUT); });
    EXPECT_EQ(Receive<MSG_TRAYICON_TYPE_ONLY>().dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_IP_ADDRESSES));
    EXPECT_TRUE(g_dialogs.empty());
    MSG_TRAYICON_IP_ADDRESSES addresses = {};
    addresses.dwType = MSG_TYPE_TRAYICON_IP_ADDRESSES;
    CopyText(addresses.szInfo55, L"DESK-17");
    const Clock::time_point answered = Clock::now();
    Send(addresses);
    chosen.wait();
    ASSERT_EQ(g_dialogs.size(), 1U);
    EXPECT_EQ(g_dialogs[0].uTemplate, static_cast<UINT>(IDD_ABOUT));
    EXPECT_EQ(g_dialogs[0].lParam, reinterpret_cast<LPARAM>(&Window().m_IpAddresses));
    EXPECT_STREQ(Window().m_IpAddresses.szInfo55, L"DESK-17");
    EXPECT_LT(g_dialogs[0].when - answered, std::chrono::seconds(4)) << "not after the whole wait";
    EXPECT_EQ(Window().m_bDialogReserved, 0U);
}

TEST_F(TrayCommandTest, AboutOpensWithoutAnAnswerAfterAboutFiveSeconds)
{
    const Clock::time_point chosen = Clock::now();
    Choose(ID_TRAY_ABOUT);
    ASSERT_EQ(g_dialogs.size(), 1U);
    EXPECT_GE(g_dialogs[0].when - chosen, std::chrono::milliseconds(4900));
}

TEST_F(TrayCommandTest, TheWaitForAnAnswerHasFiveHundredRounds)
{
    static DWORD s_dwMainThread;
    static std::vector<DWORD> s_pauses;
    s_dwMainThread = GetWindowThreadProcessId(Window().m_hWnd, nullptr);
    s_pauses.clear();
    {
        const ImportHook hook(
            "kernel32.dll", "Sleep", +[](DWORD dwMilliseconds) {
                if (GetCurrentThreadId() == s_dwMainThread)
                {
                    s_pauses.push_back(dwMilliseconds);
                }
            });
        Choose(ID_TRAY_ABOUT);
    }
    EXPECT_EQ(g_dialogs.size(), 1U);
    ASSERT_EQ(s_pauses.size(), 3U * 500U);
    for (size_t nPause = 0; nPause < s_pauses.size(); ++nPause)
    {
        EXPECT_EQ(s_pauses[nPause], nPause % 3 == 1 ? 10U : 0U) << nPause;
    }
}

TEST_F(TrayCommandTest, AnInvitationIsMadeWithTheSettingsOfTheMoment)
{
    Window().m_bServiceReplied = 1; // an earlier answer
    std::future<LRESULT> chosen =
        std::async(std::launch::async, [this] { return Choose(ID_TRAY_CREATE_INVITATION); });
    EXPECT_EQ(Receive<MSG_TRAYICON_TYPE_ONLY>().dwType,
              static_cast<DWORD>(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
    EXPECT_TRUE(g_dialogs.empty()) << "not before the answer";
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.bInviteOption1017 = 1;
    Send(settings);
    chosen.wait();
    ASSERT_EQ(g_dialogs.size(), 1U);
    EXPECT_EQ(g_dialogs[0].uTemplate, 115U);
    EXPECT_EQ(g_dialogs[0].hWndOwner, Window().m_hWnd);
    EXPECT_EQ(g_dialogs[0].lParam, reinterpret_cast<LPARAM>(&Window()));
    EXPECT_EQ(Window().m_Settings.bInviteOption1017, 1U);
}

TEST_F(TrayCommandTest, AnInvitationDialogThatIsOpenIsBroughtToTheTopInstead)
{
    OnWindowThread([this] {
        const CWindow hOpen = MakeWindow();
        const CWindow hAbove = MakeWindow();
        ASSERT_TRUE(IsAbove(hAbove.get(), hOpen.get()));
        g_hCreateInvitationDlg = hOpen.get();
        Choose(ID_TRAY_CREATE_INVITATION);
        EXPECT_TRUE(IsAbove(hOpen.get(), hAbove.get()));
        g_hCreateInvitationDlg = nullptr;
    });
    EXPECT_TRUE(g_dialogs.empty());
    ExpectSilence();
}

TEST_F(TrayCommandTest, AnotherAnswerEndsTheWaitEarly)
{
    std::future<LRESULT> chosen = std::async(std::launch::async, [this] { return Choose(ID_TRAY_ABOUT); });
    Receive<MSG_TRAYICON_TYPE_ONLY>();
    const Clock::time_point answered = Clock::now();
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    chosen.wait();
    ASSERT_EQ(g_dialogs.size(), 1U);
    EXPECT_LT(g_dialogs[0].when - answered, std::chrono::seconds(4));
}

TEST_F(TrayCommandTest, AnInvitedAgentJoinsWithItsInvitationAndOnlyOnce)
{
    g_bOtiInvitation = 1;
    CopyText(g_szOtiInvitation, L"invitation %s");
    Window().m_Settings.bProxyAllowed = 1;
    Choose(ID_TRAY_JOIN_SESSION);
    MSG_REVERSE_CONNECTION expected = {};
    expected.dwType = MSG_TYPE_REVERSE_CONNECTION;
    expected.bProxyAllowed = 1;
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, L"invitation %s");
    const auto received = Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
    EXPECT_TRUE(m_boxes.Boxes().empty()) << "no session is in progress";
    EXPECT_EQ(Window().m_bReverseInProgress, 1U);
    Choose(ID_TRAY_JOIN_SESSION);
    ExpectSilence();
}

TEST_F(TrayCommandTest, JoiningDuringASessionIsWarnedOfAndOnlyYesGoesOn)
{
    g_bOtiInvitation = 1;
    for (const bool bOti : {true, false})
    {
        const CSimultanousSessionMutex session(bOti);
        for (const int nAnswer : {IDNO, IDYES})
        {
            m_boxes.Forget();
            m_boxes.m_nAnswer = nAnswer;
            Window().m_bReverseInProgress = 0;
            Choose(ID_TRAY_JOIN_SESSION);
            ASSERT_EQ(m_boxes.Boxes().size(), 1U);
            EXPECT_EQ(m_boxes.Boxes()[0].uType,
                      static_cast<UINT>(MB_TOPMOST | MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2));
            EXPECT_EQ(m_boxes.Boxes()[0].hWndOwner, Window().m_hWnd);
            EXPECT_EQ(m_boxes.Boxes()[0].text, Text(19));
            EXPECT_EQ(m_boxes.Boxes()[0].title, Text(17));
            if (nAnswer == IDYES)
            {
                Receive<MSG_REVERSE_CONNECTION>();
            }
            EXPECT_EQ(Window().m_bReverseInProgress, nAnswer == IDYES ? 1U : 0U);
        }
    }
    ExpectSilence();
}

TEST_F(TrayCommandTest, NumbersThatAreNoCommandsDoNothing)
{
    for (const UINT uCommand : {0U, 1U, 1043U, 1047U, 40001U, 40004U, 40010U, 40012U, 0xFFFFU})
    {
        EXPECT_EQ(Choose(uCommand), 0);
    }
    EXPECT_TRUE(m_boxes.Boxes().empty() && g_dialogs.empty());
    ExpectSilence();
}

TEST_F(TrayCommandTest, ACommandIsTheSameWhereverItComesFrom)
{
    constexpr WORD FROM_AN_ACCELERATOR = 1;
    SendMessageW(Window().m_hWnd, WM_COMMAND, MAKEWPARAM(ID_TRAY_SHOW_CONNECTED, FROM_AN_ACCELERATOR), 0);
    EXPECT_EQ(Receive<MSG_TRAYICON_CONNECT_NOTIFY_ALL>().dwType,
              static_cast<DWORD>(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL));
}

TEST_F(TrayCommandTest, ACommandWithoutAChannelIsDropped)
{
    const std::shared_ptr<CTKSocket> pSocket = Window().m_pSocket.exchange(nullptr);
    Choose(ID_TRAY_SHOW_CONNECTED);
    g_bOtiInvitation = 1;
    Choose(ID_TRAY_JOIN_SESSION);
    EXPECT_EQ(Window().m_bReverseInProgress, 1U) << "cleared by a result alone";
    ExpectSilence();
    Window().m_pSocket = pSocket;
}
