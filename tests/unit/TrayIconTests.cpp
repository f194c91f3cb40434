#include "tray/TrayIcon.h"

#include "Include/BoundedText.h"
#include "startup/TKDAST.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;

constexpr DWORD SECOND_TYPE = 2;
} // namespace

TEST(TrayIconPresence, FollowsModeTypeOneTimeAndConnection)
{
    struct Row
    {
        DWORD dwMode;
        DWORD dwType;
        bool bOneTime;
        bool bConnected;
        TRAY_ICON_PRESENCE expected;
    };
    const Row aRows[] = {
        {0, 1, false, false, TRAY_ICON_PRESENCE::Hidden},
        {0, 1, false, true, TRAY_ICON_PRESENCE::Hidden},
        {0, 1, true, false, TRAY_ICON_PRESENCE::Shown},
        {0, 2, false, false, TRAY_ICON_PRESENCE::Shown},
        {0, 0, false, true, TRAY_ICON_PRESENCE::Shown},
        {1, 1, false, false, TRAY_ICON_PRESENCE::Shown},
        {1, 2, false, true, TRAY_ICON_PRESENCE::Shown},
        {2, 1, false, false, TRAY_ICON_PRESENCE::HiddenAlways},
        {2, 1, true, false, TRAY_ICON_PRESENCE::HiddenAlways},
        {2, 1, false, true, TRAY_ICON_PRESENCE::Shown},
        {2, 2, false, false, TRAY_ICON_PRESENCE::Shown},
        {3, 1, false, false, TRAY_ICON_PRESENCE::Shown},
        {0xFFFFFFFF, 1, false, false, TRAY_ICON_PRESENCE::Shown},
    };
    for (const Row& row : aRows)
    {
        EXPECT_EQ(DecideTrayIconPresence(row.dwMode, row.dwType, row.bOneTime, row.bConnected), row.expected)
            << row.dwMode << ' ' << row.dwType << ' ' << row.bOneTime << ' ' << row.bConnected;
    }
}

TEST(TrayIconImage, AViewerOutweighsConsentAndConsentOutweighsIdleness)
{
    EXPECT_EQ(ChooseTrayIconImage(true, true), TRAY_ICON_IMAGE::Active);
    EXPECT_EQ(ChooseTrayIconImage(true, false), TRAY_ICON_IMAGE::Active);
    EXPECT_EQ(ChooseTrayIconImage(false, true), TRAY_ICON_IMAGE::Permission);
    EXPECT_EQ(ChooseTrayIconImage(false, false), TRAY_ICON_IMAGE::Idle);
}

TEST(TrayIconRetry, SlowsDownFromTheSixtyFirstAttempt)
{
    EXPECT_EQ(GetTrayRetryPeriod(1), 1000U);
    EXPECT_EQ(GetTrayRetryPeriod(60), 1000U);
    EXPECT_EQ(GetTrayRetryPeriod(61), 60000U);
    EXPECT_EQ(GetTrayRetryPeriod(100000), 60000U);
}

TEST(TrayTip, ALongTextIsCutToTheShellsRoomAndDotsAlwaysEndIt)
{
    const std::wstring longText(200, L'x');
    EXPECT_EQ(ComposeTrayTip(longText, L"", false, TIP_LENGTH), std::wstring(123, L'x') + L"...");
    EXPECT_EQ(ComposeTrayTip(longText, L"", false, TIP_LENGTH_OF_OLD_SHELL), std::wstring(59, L'x') + L"...");
    EXPECT_EQ(ComposeTrayTip(std::wstring(123, L'x'), L"", false, TIP_LENGTH),
              std::wstring(123, L'x') + L"...");
    EXPECT_EQ(ComposeTrayTip(L"Kestrel", L"", false, TIP_LENGTH), L"Kestrel...");
}

TEST(TrayTip, APrefixedShortTextLosesItsLastCharacterToTheDots)
{
    EXPECT_EQ(ComposeTrayTip(L"Kestrel", L"Asks\r\n", true, TIP_LENGTH), L"Asks\r\nKestre...");
    EXPECT_EQ(ComposeTrayTip(L"K", L"", true, TIP_LENGTH), L"...");
    EXPECT_EQ(ComposeTrayTip(std::wstring(1000, L'x'), L"A", true, TIP_LENGTH).size(), 126U);
}

TEST(TrayTip, WithoutATextThereIsNoTip)
{
    EXPECT_EQ(ComposeTrayTip(L"", L"Asks\r\n", true, TIP_LENGTH), L"");
}

using TrayIconTest = AgentHarness;

TEST_F(TrayIconTest, TheFirstSettingsAddTheIconWithAWholeStructure)
{
    Send(PlainSettings());
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    ASSERT_EQ(m_icons.size(), 1U);
    const NOTIFYICONDATAW& icon = m_icons[0];
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"});
    EXPECT_EQ(icon.cbSize, 952U);
    EXPECT_EQ(icon.hWnd, Window().m_hWnd);
    EXPECT_EQ(icon.uID, 44444U);
    EXPECT_EQ(icon.uCallbackMessage, 1025U);
    EXPECT_EQ(icon.uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_TIP));
    EXPECT_EQ(icon.hIcon, Window().m_hIconIdle);
    EXPECT_STREQ(icon.szTip, L"Kestrel...");
    EXPECT_EQ(Window().m_bIconAdded, 1U);
}

TEST_F(TrayIconTest, AnOldShellGetsTheOldStructure)
{
    Window().m_bShellV5 = 0;
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    CopyText(settings.szTrayTip, std::wstring(200, L'x'));
    Send(settings);
    Settle();
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(m_icons[0].cbSize, 168U);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), std::wstring(59, L'x') + L"...");
    EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 0);
}

TEST_F(TrayIconTest, AnIconThatIsThereIsModifiedAndTheShellsAnswerToldOn)
{
    OnWindowThread([this] {
        EXPECT_EQ(Window().AddTrayIcon(), 1);
        EXPECT_EQ(Window().SetTrayIcon(), 1);
        m_bShellAnswers = false;
        EXPECT_EQ(Window().SetTrayIcon(), 0);
        EXPECT_EQ(Window().AddTrayIcon(), 0);
        EXPECT_EQ(Window().SetTrayIcon(), 1) << "a failed addition is tried again by a timer";
    });
    EXPECT_EQ(m_trace.Calls("icon"), (Calls{"icon 0", "icon 1", "icon 1", "icon 0", "icon 0"}));
}

TEST_F(TrayIconTest, EachCallOfTheShellIsLogged)
{
    const LogCapture capture("TKDASTWindow");
    OnWindowThread([this] {
        Window().SendTrayMsg(NIM_DELETE, 0);
        Window().SendTrayMsg(NIM_MODIFY, 7);
        Window().ShowTrayBalloonMsg(nullptr);
    });
    EXPECT_THAT(capture.Texts(), testing::IsSupersetOf({"TRACE CTaskBarWindow::SendTrayMsg entering.",
                                                        "INFO dwMsg=2 bActive=0", "INFO dwMsg=1 bActive=7",
                                                        "TRACE CTaskBarWindow::SendTrayMsg exiting.",
                                                        "DEBUG ShowTrayBalloon"}));
}

TEST_F(TrayIconTest, WithoutAWindowTheShellIsNotCalled)
{
    OnWindowThread([this] {
        const HWND hWnd = std::exchange(Window().m_hWnd, nullptr);
        EXPECT_EQ(Window().SendTrayMsg(NIM_ADD, 0), 0);
        EXPECT_EQ(Window().SendTrayMsgServerReconfiguring(1, L"Please wait"), 0);
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 0);
        Window().m_hWnd = hWnd;
    });
    EXPECT_TRUE(m_trace.Calls("icon").empty());
}

TEST_F(TrayIconTest, AnEmptyTipTextLeavesTheShellsTipAlone)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.szTrayTip[0] = L'\0';
    Send(settings);
    Settle();
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(m_icons[0].uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE));
}

TEST_F(TrayIconTest, AHiddenIconIsNeverShownForTheOrdinaryTypeAndShownForAnother)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.dwTrayIcon = TRAY_ICON_HIDDEN;
    Send(settings);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    Settle();
    EXPECT_TRUE(m_trace.Calls("icon").empty());
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1, SECOND_TYPE));
    Settle();
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"});
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    Settle();
    EXPECT_EQ(m_trace.Calls("icon"), (Calls{"icon 0", "icon 2"}));
}

TEST_F(TrayIconTest, WhileConnectedTheIconComesAndGoesWithTheViewers)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.dwTrayIcon = TRAY_ICON_WHILE_CONNECTED;
    Send(settings);
    Settle();
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 2"}) << "taken away without a look whether it is there";
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 2));
    Settle();
    EXPECT_EQ(m_icons.back().hIcon, Window().m_hIconActive);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 0));
    Settle();
    EXPECT_EQ(m_trace.Calls("icon"), (Calls{"icon 2", "icon 0", "icon 2"}));
}

TEST_F(TrayIconTest, AShellThatRefusesIsAskedAgainEverySecondAndThenEveryMinute)
{
    m_bShellAnswers = false;
    OnWindowThread([this] { Window().SetTrayIcon(); });
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1006 1000"});
    for (int nAttempt = 2; nAttempt <= 61; ++nAttempt)
    {
        Fire(TIMER_TRAY_RETRY);
    }
    const Calls timers = m_trace.Calls("timer");
    ASSERT_EQ(timers.size(), 61U);
    EXPECT_EQ(timers[59], "timer 1006 1000");
    EXPECT_EQ(timers[60], "timer 1006 60000");
    m_bShellAnswers = true;
    Fire(TIMER_TRAY_RETRY);
    EXPECT_EQ(Window().m_bIconAdded, 1U);
    EXPECT_EQ(Window().m_nTrayRetries, 0);
}

TEST_F(TrayIconTest, AnAttemptThatIsDueEndsItsTimerOnceAndArmsTheNext)
{
    m_bShellAnswers = false;
    OnWindowThread([this] { Window().SetTrayIcon(); });
    m_trace.Forget();
    Fire(TIMER_TRAY_RETRY);
    EXPECT_EQ(m_trace.Calls(), (Calls{"kill 1006", "icon 0", "timer 1006 1000"}));
    EXPECT_EQ(Window().m_uTrayRetryTimer, 1006U);
}

TEST_F(TrayIconTest, AnAttemptInBetweenEndsTheRetryThatRuns)
{
    m_bShellAnswers = false;
    OnWindowThread([this] {
        Window().SetTrayIcon();
        Window().SetTrayIcon();
    });
    EXPECT_EQ(m_trace.Calls(),
              (Calls{"icon 0", "timer 1006 1000", "icon 0", "kill 1006", "timer 1006 1000"}));
    EXPECT_EQ(Window().m_nTrayRetries, 2);
    m_trace.Forget();
    m_bShellAnswers = true;
    OnWindowThread([this] { Window().SetTrayIcon(); });
    EXPECT_EQ(m_trace.Calls(), (Calls{"icon 0", "kill 1006"}));
    EXPECT_EQ(Window().m_uTrayRetryTimer, UINT_PTR{TIMER_TRAY_RETRY}) << "it keeps its value";
    EXPECT_EQ(Window().m_nTrayRetries, 0);
}

TEST_F(TrayIconTest, AShellThatHasComeAndRefusesIsCountedFromTheBeginning)
{
    m_bShellIsUp = false;
    for (int nAttempt = 1; nAttempt <= 31; ++nAttempt)
    {
        OnWindowThread([this] { Window().SetTrayIcon(); });
    }
    EXPECT_EQ(m_trace.Calls("timer").back(), "timer 1006 60000");
    m_bShellIsUp = true;
    m_bShellAnswers = false;
    Fire(TIMER_TRAY_RETRY);
    EXPECT_EQ(Window().m_nTrayRetries, 1);
    EXPECT_EQ(m_trace.Calls("timer").back(), "timer 1006 1000");
}

TEST_F(TrayIconTest, WithoutAShellAnIconCannotBeTakenAway)
{
    m_bShellIsUp = false;
    Window().m_bIconAdded = 1;
    OnWindowThread([this] { EXPECT_EQ(Window().DelTrayIcon(), 0); });
    EXPECT_TRUE(m_trace.Calls("icon").empty());
    EXPECT_EQ(Window().m_bIconAdded, 1U);
}

TEST_F(TrayIconTest, AMissingShellCountsTwiceAndIsNotCalled)
{
    m_bShellIsUp = false;
    OnWindowThread([this] { Window().SetTrayIcon(); });
    EXPECT_TRUE(m_trace.Calls("icon").empty());
    EXPECT_EQ(Window().m_nTrayRetries, 2);
    for (int nAttempt = 2; nAttempt <= 31; ++nAttempt)
    {
        Fire(TIMER_TRAY_RETRY);
    }
    EXPECT_EQ(m_trace.Calls("timer").back(), "timer 1006 60000") << "about thirty seconds, not sixty";
    m_bShellIsUp = true;
    Fire(TIMER_TRAY_RETRY);
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"});
    m_bShellIsUp = false;
    OnWindowThread([this] { Window().SetTrayIcon(); });
    EXPECT_EQ(m_trace.Calls("icon"), (Calls{"icon 0", "icon 1"})) << "once seen, it isn't looked for again";
}

TEST_F(TrayIconTest, ARestartedShellGetsTheIconBackInItsActiveImage)
{
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    Settle();
    m_trace.Forget();
    Window().m_dwRequestedOptions = 0x20;
    for (int nRestart = 0; nRestart < 10; ++nRestart)
    {
        EXPECT_EQ(SendMessageW(Window().m_hWnd, g_uTaskbarCreatedMessage, 0, 0), 1);
    }
    EXPECT_TRUE(m_trace.Calls("set").empty()) << "the desktop's options are not the shell's";
    EXPECT_EQ(m_trace.Calls("icon"), Calls(10, "icon 0"));
    EXPECT_EQ(m_icons.back().hIcon, Window().m_hIconActive);
}

TEST_F(TrayIconTest, ReconfiguringIsAnnouncedOnceWithABalloonAndTakenBack)
{
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    MSG_TRAYICON_SERVER_RECONFIGURE record = {MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 1, {}};
    CopyText(record.szMessage, L"Please wait");
    Send(record);
    Send(record);
    Settle();
    ASSERT_EQ(m_trace.Calls("icon"), (Calls{"icon 0", "icon 1"})) << "no second balloon";
    const NOTIFYICONDATAW announced = m_icons.back();
    EXPECT_EQ(announced.hIcon, Window().m_hIconReconfiguring);
    EXPECT_EQ(announced.uFlags,
              static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_TIP | NIF_INFO | NIF_REALTIME));
    EXPECT_STREQ(announced.szTip, L"Please wait");
    EXPECT_STREQ(announced.szInfo, L"Please wait");
    EXPECT_STREQ(announced.szInfoTitle, L"Tessaran Kestrel Desk Assist");
    EXPECT_EQ(announced.dwInfoFlags, static_cast<DWORD>(NIIF_INFO));
    EXPECT_EQ(announced.uTimeout, 10000U);
    record.bReconfiguring = 0;
    Send(record);
    Settle();
    const NOTIFYICONDATAW over = m_icons.back();
    EXPECT_EQ(over.hIcon, Window().m_hIconIdle);
    EXPECT_EQ(over.uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_TIP | NIF_INFO | NIF_REALTIME));
    EXPECT_STREQ(over.szTip, L"Kestrel...");
    EXPECT_STREQ(over.szInfo, L"");
    EXPECT_EQ(over.uTimeout, 0U);
}

TEST_F(TrayIconTest, AnotherCallOfTheShellTakesTheAnnouncementAway)
{
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        Window().SendTrayMsgServerReconfiguring(1, L"Please wait");
        Window().SetTrayIcon();
        Window().SendTrayMsgServerReconfiguring(1, L"Please wait");
    });
    ASSERT_EQ(m_icons.size(), 3U) << "and a later announcement is one again";
    EXPECT_EQ(m_icons[1].hIcon, Window().m_hIconIdle);
    EXPECT_EQ(m_icons[1].uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_TIP));
    EXPECT_EQ(m_icons[1].dwInfoFlags, 0U);
    EXPECT_EQ(m_icons[1].uTimeout, 0U);
    EXPECT_STREQ(m_icons[1].szInfo, L"");
    EXPECT_STREQ(m_icons[1].szInfoTitle, L"");
    EXPECT_EQ(m_icons[2].uTimeout, 10000U);
}

TEST_F(TrayIconTest, AnAnnouncementIsCutToTheShellsRoom)
{
    OnWindowThread([this] { Window().SendTrayMsgServerReconfiguring(1, std::wstring(300, L'x').c_str()); });
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(m_icons[0].cbSize, 952U);
    EXPECT_EQ(m_icons[0].uID, 44444U);
    EXPECT_EQ(m_icons[0].uCallbackMessage, 1025U);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), std::wstring(127, L'x'));
    EXPECT_EQ(std::wstring(m_icons[0].szInfo), std::wstring(255, L'x'));
}

TEST_F(TrayIconTest, AnAnnouncementWithoutATextKeepsTheTip)
{
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        Window().SetTrayIcon();
        EXPECT_EQ(Window().SendTrayMsgServerReconfiguring(1, nullptr), 1);
    });
    EXPECT_STREQ(m_icons.back().szTip, L"Kestrel...");
    EXPECT_STREQ(m_icons.back().szInfo, L"");
}

TEST_F(TrayIconTest, AnOldShellIsToldOfAReconfigurationWithoutABalloon)
{
    OnWindowThread([this] {
        Window().m_bShellV5 = 0;
        Window().m_Settings = PlainSettings();
        Window().SendTrayMsgServerReconfiguring(1, L"Please wait");
        Window().SendTrayMsgServerReconfiguring(0, L"Please wait");
    });
    ASSERT_EQ(m_icons.size(), 2U);
    for (const NOTIFYICONDATAW& icon : m_icons)
    {
        EXPECT_EQ(icon.cbSize, 168U);
        EXPECT_EQ(icon.uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_TIP));
    }
}

TEST_F(TrayIconTest, TheTipOfAOneTimeAgentBeginsWithThatAndThenAsksForConsent)
{
    const StagedLanguageModule language;
    g_bOneTimeSession = 1;
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        Window().m_Settings.bPermissionRequired = 1;
        Window().SetTrayIcon();
    });
    EXPECT_EQ(std::wstring(m_icons.at(0).szTip), language.Text(75) + language.Text(89) + L"\r\nKestre...");
}

TEST_F(TrayIconTest, TheEndOfAReconfigurationShowsTheStateOfTheMoment)
{
    const StagedLanguageModule language;
    g_bOneTimeSession = 1;
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        Window().m_Settings.bPermissionRequired = 1;
        Window().SendTrayMsgServerReconfiguring(0, nullptr);
        Window().m_Settings.szTrayTip[0] = L'\0';
        Window().m_Connection.dwConnectCount = 1;
        Window().SendTrayMsgServerReconfiguring(0, L"Please wait");
    });
    ASSERT_EQ(m_icons.size(), 2U);
    EXPECT_EQ(m_icons[0].hIcon, Window().m_hIconPermission);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), language.Text(89) + L"\r\nKestre...");
    EXPECT_EQ(m_icons[1].hIcon, Window().m_hIconActive);
    EXPECT_EQ(m_icons[1].uFlags, static_cast<UINT>(NIF_ICON | NIF_MESSAGE | NIF_INFO | NIF_REALTIME));
}

TEST_F(TrayIconTest, AnUnknownModeIsToldOfAReconfigurationAndGetsNoBalloon)
{
    OnWindowThread([this] {
        Window().m_Settings.dwTrayIcon = 3;
        EXPECT_EQ(Window().SendTrayMsgServerReconfiguring(1, L"Please wait"), 1);
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 1);
        EXPECT_EQ(Window().ShowTrayBalloonMsg(nullptr), 0);
        Window().m_bShellV5 = 0;
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 1) << "the mode is looked at first";
    });
    EXPECT_EQ(m_icons.size(), 1U);
}

TEST_F(TrayIconTest, ABalloonSaysItsTextUnderTheProductsName)
{
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 1);
        EXPECT_EQ(Window().ShowTrayBalloonMsg(std::wstring(300, L'x').c_str()), 1);
        EXPECT_EQ(Window().ShowTrayBalloonMsg(nullptr), 0);
        m_bShellAnswers = false;
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 0);
    });
    EXPECT_EQ(m_trace.Calls("icon"), Calls(3, "icon 1"));
    const NOTIFYICONDATAW& balloon = m_icons[0];
    EXPECT_EQ(balloon.cbSize, 952U);
    EXPECT_EQ(balloon.hWnd, Window().m_hWnd);
    EXPECT_EQ(balloon.uID, 44444U);
    EXPECT_EQ(balloon.uFlags, static_cast<UINT>(NIF_INFO | NIF_REALTIME));
    EXPECT_EQ(balloon.dwInfoFlags, static_cast<DWORD>(NIIF_INFO));
    EXPECT_EQ(balloon.uTimeout, 0U);
    EXPECT_STREQ(balloon.szInfoTitle, L"Tessaran Kestrel Desk Assist");
    EXPECT_STREQ(balloon.szInfo, L"text");
    EXPECT_EQ(std::wstring(m_icons[1].szInfo), std::wstring(255, L'x'));
}

TEST_F(TrayIconTest, ReconfiguringChangesNothingWhileTheIconIsNotAlwaysShown)
{
    for (const DWORD dwMode : {TRAY_ICON_HIDDEN, TRAY_ICON_WHILE_CONNECTED})
    {
        MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.dwTrayIcon = dwMode;
        Send(settings);
        Settle();
        m_trace.Forget();
        Send(MSG_TRAYICON_SERVER_RECONFIGURE{MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 1, L"Please wait"});
        Settle();
        EXPECT_TRUE(m_trace.Calls("icon").empty()) << dwMode;
        EXPECT_EQ(Window().ShowTrayBalloonMsg(L"text"), 1) << "reports success and shows nothing";
        EXPECT_TRUE(m_trace.Calls("icon").empty()) << dwMode;
    }
}

TEST_F(TrayIconTest, AOneTimeAgentGreetsWithABalloonAsItsIconAppears)
{
    const StagedLanguageModule language;
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getDebug());
    g_bOneTimeSession = 1;
    OnWindowThread([this] {
        Window().m_Settings = PlainSettings();
        Window().SetTrayIcon();
    });
    OnWindowThread([] {});
    EXPECT_EQ(m_trace.Calls("message 32770"), Calls{"message 32770 0"});
    ASSERT_EQ(m_icons.size(), 2U);
    EXPECT_EQ(std::wstring(m_icons[0].szTip), language.Text(75) + L"Kestre...");
    EXPECT_EQ(m_icons[1].uFlags, static_cast<UINT>(NIF_INFO | NIF_REALTIME));
    EXPECT_EQ(m_icons[1].uTimeout, 0U);
    EXPECT_EQ(std::wstring(m_icons[1].szInfo), language.Text(69));
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG WM_SHOW_ONE_TIME_AGENT_BALLON"));
}

TEST_F(TrayIconTest, TheGreetingIsInTheLanguageModulesWordsAndIsLogged)
{
    const StagedLanguageModule language;
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getDebug());
    SendMessageW(Window().m_hWnd, WM_SHOW_ONE_TIME_AGENT_BALLON, 0, 0);
    ASSERT_EQ(m_icons.size(), 1U);
    EXPECT_EQ(m_icons[0].szInfo, language.Text(69));
    EXPECT_THAT(capture.Texts(),
                testing::ElementsAre("DEBUG WM_SHOW_ONE_TIME_AGENT_BALLON", "DEBUG ShowTrayBalloon"));
}

TEST_F(TrayIconTest, EveryWayOutDeletesTheIcon)
{
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    Settle();
    OnWindowThread([this] { EXPECT_EQ(Window().ChangeTrayIcon(1), 1); });
    EXPECT_EQ(m_icons.back().hIcon, Window().m_hIconActive);
    OnWindowThread([this] { EXPECT_EQ(Window().DelTrayIcon(), 1); });
    EXPECT_EQ(m_trace.Calls("icon").back(), "icon 2");
    EXPECT_EQ(Window().m_bIconAdded, 0U);
    m_bShellAnswers = false;
    Window().m_bIconAdded = 1;
    OnWindowThread([this] { EXPECT_EQ(Window().DelTrayIcon(), 0); });
    EXPECT_EQ(Window().m_bIconAdded, 1U);
}

namespace
{
WNDCLASSEXW g_windowClass;

// An icon is its own number.
HICON WINAPI NumberAsIcon(HINSTANCE hModule, LPCWSTR pszIcon)
{
    EXPECT_EQ(hModule, g_hResourceModule.load());
    return reinterpret_cast<HICON>(reinterpret_cast<ULONG_PTR>(pszIcon));
}

ATOM WINAPI RecordClass(const WNDCLASSEXW* pClass)
{
    g_windowClass = *pClass;
    return 0;
}

HICON Icon(ULONG_PTR uNumber)
{
    return reinterpret_cast<HICON>(uNumber);
}
} // namespace

TEST(TrayIconImages, ComeFromTheLanguageModuleByNumberOnceForAll)
{
    // A window that is there already has the class.
    g_hInstance = g_hResourceModule = GetModuleHandleW(nullptr);
    g_windowClass = {};
    CTaskBarWindow first(0);
    const ImportHook load("user32.dll", "LoadIconW", &NumberAsIcon);
    const ImportHook registration("user32.dll", "RegisterClassExW", &RecordClass);
    {
        const CTaskBarWindow window(0);
        EXPECT_EQ(window.m_hIconActive, Icon(130));
        EXPECT_EQ(window.m_hIconIdle, Icon(7));
        EXPECT_EQ(window.m_hIconPermission, Icon(107));
        EXPECT_EQ(window.m_hIconReconfiguring, Icon(131));
        DestroyWindow(window.m_hWnd);
    }
    EXPECT_EQ(g_windowClass.hIcon, Icon(7));
    EXPECT_EQ(g_windowClass.hIconSm, Icon(7));
    DestroyWindow(first.m_hWnd);
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
    }
}
