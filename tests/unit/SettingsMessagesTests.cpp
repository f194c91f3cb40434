#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "startup/TKDAST.h"
#include "tests/unit/AgentHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
using SettingsMessagesTest = AgentHarness;
} // namespace

TEST_F(SettingsMessagesTest, InitIsAcknowledgedThenEchoedWithSessionAndState)
{
    g_dwSessionId = 4711;
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    init.dwSessionId = 99;
    init.dwDesktopState = 99;
    init.dwDesktopEffects = 1;
    init.bOneTimeInvitation = 1;
    CopyText(init.szInvitation, L"an invitation");
    Send(init);
    const auto acknowledgement = Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    EXPECT_EQ(acknowledgement.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK));
    EXPECT_EQ(acknowledgement.dwDesktopEffects, 0U);
    const auto echo = Receive<MSG_TRAYICON_INIT>();
    EXPECT_EQ(echo.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_INIT));
    EXPECT_EQ(echo.dwSessionId, 4711U);
    EXPECT_EQ(echo.dwDesktopState, g_dwDesktopState);
    EXPECT_EQ(echo.dwDesktopEffects, 1U);
    EXPECT_EQ(echo.bOneTimeInvitation, 1U);
    EXPECT_EQ(FixedText(echo.szInvitation), L"an invitation");
    Settle();
    EXPECT_EQ(g_bOtiInvitation, 1U);
    EXPECT_EQ(std::wstring(g_szOtiInvitation), L"an invitation");
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1002 1000"});
    EXPECT_TRUE(m_trace.Calls("set").empty()) << "a mask of 1 asks for nothing";
}

TEST_F(SettingsMessagesTest, AnInvitationWithoutATerminatorIsCut)
{
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    std::fill(std::begin(init.szInvitation), std::end(init.szInvitation), L'x');
    Send(init);
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    Receive<MSG_TRAYICON_INIT>();
    EXPECT_EQ(std::wstring(g_szOtiInvitation), std::wstring(8095, L'x'));
}

TEST_F(SettingsMessagesTest, EffectsOfInitTakeEffectBeforeTheAcknowledgement)
{
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    init.dwDesktopEffects = 0x20;
    Send(init);
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 37 0 0"});
    Receive<MSG_TRAYICON_INIT>();
}

TEST_F(SettingsMessagesTest, SettingsAreKeptWholeAndAnsweredWithTheDesktopUser)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings();
    settings.dwDefaultConnectionType = 2;
    settings.dwNotifySeconds = 77;
    CopyText(settings.szLanguage, L"fr");
    Send(settings);
    const auto user = Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    EXPECT_EQ(user.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION));
    EXPECT_EQ(FixedText(user.szDesktop), L"Default");
    Settle();
    EXPECT_EQ(memcmp(&Window().m_Settings, &settings, sizeof(settings)), 0);
    EXPECT_EQ(Window().m_dwConnectionType, 2U);
    EXPECT_EQ(Window().m_bAwaitingFirstSettings, 0U);
    EXPECT_EQ(Window().m_bServiceReplied, 1U);
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1002 5000"});
}

TEST_F(SettingsMessagesTest, TwoSettingsInARowArmTheNoticeAnew)
{
    Send(PlainSettings());
    Send(PlainSettings());
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    EXPECT_EQ(m_trace.Calls("timer"), (Calls{"timer 1002 5000", "timer 1002 5000"}));
}

TEST_F(SettingsMessagesTest, AnUpdateIsNotAnsweredAndLeavesTheFirstSettingsAwaited)
{
    Window().m_dwConnectionType = 2;
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    Settle(); // nothing but the echo has come
    EXPECT_EQ(Window().m_bAwaitingFirstSettings, 1U);
    EXPECT_EQ(Window().m_bServiceReplied, 1U);
    EXPECT_EQ(Window().m_dwConnectionType, 1U) << "overwritten even while a session runs";
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"});
}

TEST_F(SettingsMessagesTest, DesktopEffectsRefreshTheIconFirstAndAreEchoed)
{
    for (const DWORD dwEffects : {0UL, 1UL, 0x40UL})
    {
        m_trace.Forget();
        Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, dwEffects});
        const auto acknowledgement = Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
        EXPECT_EQ(acknowledgement.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK));
        EXPECT_EQ(acknowledgement.dwDesktopEffects, dwEffects);
        EXPECT_EQ(m_trace.Calls("set"), dwEffects > 1 ? Calls{"set 4133 0 0"} : Calls{});
        EXPECT_EQ(m_trace.Calls().front().substr(0, 4), "icon");
    }
}

TEST_F(SettingsMessagesTest, TheIconIsRefreshedBeforeTheEffectsValueHasArrived)
{
    SendType(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS);
    EXPECT_TRUE(m_trace.WaitFor("icon 0"));
    const DWORD dwEffects = 0;
    ASSERT_TRUE(m_service.SendAll(&dwEffects, sizeof(dwEffects)));
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
}

TEST_F(SettingsMessagesTest, ARequestForTheDesktopUserIsAnsweredWhateverItHolds)
{
    MSG_TRAYICON_DESKTOP_USER_INFORMATION request = {};
    request.dwType = MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION;
    std::fill(std::begin(request.szUsername), std::end(request.szUsername), L'x');
    Send(request);
    const auto user = Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    EXPECT_EQ(user.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION));
    EXPECT_NE(FixedText(user.szUsername).find(L'\\'), std::wstring_view::npos);
    EXPECT_EQ(user.dwDesktopFlags, static_cast<DWORD>(DESKTOP_FLAG_INPUT_DESKTOP));
}

TEST_F(SettingsMessagesTest, AddressesAreKeptAndReleaseAWaiter)
{
    MSG_TRAYICON_IP_ADDRESSES addresses = {};
    addresses.dwType = MSG_TYPE_TRAYICON_IP_ADDRESSES;
    CopyText(addresses.szInfo56, L"host");
    addresses.bInfoFlag119 = 1;
    Send(addresses);
    Settle();
    EXPECT_EQ(FixedText(Window().m_IpAddresses.szInfo56), L"host");
    EXPECT_EQ(Window().m_IpAddresses.bInfoFlag119, 1U);
    EXPECT_EQ(Window().m_bServiceReplied, 1U);
}

TEST_F(SettingsMessagesTest, TheSettingsDialogOpensAfterHalfASecond)
{
    Send(MSG_TRAYICON_SETTINGS_DIALOG{MSG_TYPE_TRAYICON_SETTINGS_DIALOG, {1, 2, 3}});
    Settle();
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1010 500"});
    EXPECT_TRUE(m_trace.Calls("start").empty());
    Fire(TIMER_SETTINGS_DIALOG);
    EXPECT_EQ(m_trace.Calls("kill"), Calls{"kill 1010"});
    EXPECT_EQ(m_trace.Calls("message 273"), Calls{"message 273 40008"});
    EXPECT_EQ(m_trace.Calls("start"), Calls{"start open -SettingsAsApplication"});
}

TEST_F(SettingsMessagesTest, ExitRestoresTheDesktopAndEndsInOrder)
{
    Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, 0x20});
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    m_trace.Forget();
    MSG_TRAYICON_EXIT leave = {};
    leave.dwType = MSG_TYPE_TRAYICON_EXIT;
    Send(leave);
    EXPECT_TRUE(m_service.WaitForEnd(WAIT_MS));
    JoinReader();
    EXPECT_EQ(g_nExitCode, -56);
    EXPECT_EQ(m_trace.Calls("set").front(), "set 37 1 0");
}

TEST_F(SettingsMessagesTest, AReconfigurationChoosesTheLanguageOfTheUserUnlessLocked)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.dwExitLock2 = 1;
    Send(settings);
    SetEnvironmentVariableW(L"LangUI", L"xx");
    Send(MSG_TRAYICON_SERVER_RECONFIGURE{MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 0, {}});
    Settle();
    wchar_t szLanguage[16] = {};
    EXPECT_EQ(GetEnvironmentVariableW(L"LangUI", szLanguage, 16), 2U);
    EXPECT_STREQ(szLanguage, L"en") << "nothing stored";
    EXPECT_EQ(g_hResourceModule, g_hInstance) << "no module beside the test program";
    SetEnvironmentVariableW(L"LangUI", nullptr);
}
