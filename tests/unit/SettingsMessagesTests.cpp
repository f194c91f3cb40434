#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "Include/UtilWTS.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/RegistryValue.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/CallOrder.h"
#include "tests/unit/DialogHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
using SettingsMessagesTest = AgentHarness;

constexpr wchar_t LANGUAGE_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";

HDESK WINAPI NoInputDesktop(DWORD, BOOL, ACCESS_MASK)
{
    return nullptr;
}

std::wstring LanguageOfEnvironment()
{
    wchar_t szLanguage[16] = {};
    GetEnvironmentVariableW(L"LangUI", szLanguage, 16);
    return szLanguage;
}

// All zero but for the type and one effect.
std::vector<BYTE> PlainRecord(DWORD dwType, size_t nBytes)
{
    std::vector<BYTE> bytes(nBytes);
    const auto set = [&bytes](size_t nOffset, DWORD dwValue) {
        memcpy(bytes.data() + nOffset, &dwValue, sizeof(dwValue));
    };
    set(0, dwType);
    if (dwType == MSG_TYPE_TRAYICON_INIT)
    {
        set(offsetof(MSG_TRAYICON_INIT, dwDesktopEffects), 0x20);
        set(offsetof(MSG_TRAYICON_INIT, bOneTimeInvitation), 1);
    }
    if (dwType == MSG_TYPE_TRAYICON_DESKTOP_EFFECTS)
    {
        set(offsetof(MSG_TRAYICON_DESKTOP_EFFECTS, dwDesktopEffects), 0x20);
    }
    return bytes;
}
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
    Settle();
    m_trace.Forget();
    MSG_TRAYICON_EXIT leave = {};
    leave.dwType = MSG_TYPE_TRAYICON_EXIT;
    Send(leave);
    EXPECT_TRUE(m_service.WaitForEnd(PATIENCE_MS));
    JoinReader();
    EXPECT_EQ(g_nExitCode, -56);
    EXPECT_EQ(m_trace.Calls("set").front(), "set 37 1 0");
}

TEST_F(SettingsMessagesTest, TheFirstRecordIsFollowedStepByStep)
{
    const CallOrder order(m_trace);
    const std::vector<BYTE> init = PlainRecord(MSG_TYPE_TRAYICON_INIT, sizeof(MSG_TRAYICON_INIT));
    ASSERT_TRUE(m_service.SendAll(init.data(), init.size()));
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    Receive<MSG_TRAYICON_INIT>();
    Settle();
    EXPECT_EQ(order.Calls(), (Calls{"set 37 0 0", "send 50005", "look", "send 40000", "timer 1002 1000"}));
}

TEST_F(SettingsMessagesTest, SettingsAreFollowedStepByStep)
{
    const CallOrder order(m_trace);
    Send(PlainSettings());
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    EXPECT_EQ(order.Calls(), (Calls{"icon 0", "look", "send 50000", "timer 1002 5000"}));
}

TEST_F(SettingsMessagesTest, TheIconFollowsTheTypeThatTheSameSettingsBring)
{
    for (const DWORD dwType : {MSG_TYPE_TRAYICON_SETTINGS, MSG_TYPE_TRAYICON_SETTINGS_UPDATE})
    {
        m_trace.Forget();
        Window().m_bIconAdded = 0;
        Window().m_dwConnectionType = 1;
        MSG_TRAYICON_SETTINGS settings = PlainSettings(dwType);
        settings.dwTrayIcon = TRAY_ICON_HIDDEN; // of the ordinary type alone
        settings.dwDefaultConnectionType = 2;
        Send(settings);
        if (dwType == MSG_TYPE_TRAYICON_SETTINGS)
        {
            Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
        }
        Settle();
        EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"}) << dwType;
    }
}

TEST_F(SettingsMessagesTest, AnUpdateReleasesAWaiterOnlyWhenTheIconIsRefreshed)
{
    static std::atomic<DWORD> s_bReplied;
    s_bReplied = 99;
    static CTaskBarWindow* s_pWindow;
    s_pWindow = &Window();
    const ImportHook icon(
        "shell32.dll", "Shell_NotifyIconW", +[](DWORD, PNOTIFYICONDATAW) -> BOOL {
            s_bReplied = s_pWindow->m_bServiceReplied.load();
            return TRUE;
        });
    Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE));
    Settle();
    EXPECT_EQ(s_bReplied, 0U);
    Window().m_bServiceReplied = 0;
    Send(PlainSettings());
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    EXPECT_EQ(s_bReplied, 1U) << "settings release it before";
}

TEST_F(SettingsMessagesTest, EffectsThatCannotBeSwitchedAreAcknowledgedAllTheSame)
{
    m_bParametersCanBeSet = false;
    const CallOrder order(m_trace);
    Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, 0x20});
    EXPECT_EQ(Receive<MSG_TRAYICON_DESKTOP_EFFECTS>().dwDesktopEffects, 0x20U);
    Settle();
    EXPECT_EQ(order.Calls(), (Calls{"icon 0", "set 37 0 0", "send 50005"}));
    EXPECT_EQ(Window().m_dwAppliedOptions, 1U);
}

TEST_F(SettingsMessagesTest, APossibleUnlockIsLookedAtAndFollowedLikeAConnection)
{
    g_dwSessionId = GetSessionID();
    g_dwDesktopState = DESKTOP_STATE_LOCKED;
    Window().m_Settings.bNotifyConnect = 1;
    Window().m_Connection.dwConnectCount = 1;
    SendType(MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE);
    Settle(); // nothing but the echo has come
    EXPECT_EQ(g_dwDesktopState, static_cast<DWORD>(DESKTOP_STATE_UNLOCKED));
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 0"});
    EXPECT_EQ(m_trace.Calls("message 1026"), Calls{"message 1026 0"});
}

TEST_F(SettingsMessagesTest, ALockIsLookedAtAndNothingElse)
{
    g_dwDesktopState = DESKTOP_STATE_UNLOCKED;
    Window().m_Settings.bNotifyConnect = 1;
    Window().m_Connection.dwConnectCount = 1;
    const ImportHook desktop("user32.dll", "OpenInputDesktop", &NoInputDesktop);
    SendType(MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE);
    Settle();
    EXPECT_EQ(g_dwDesktopState, static_cast<DWORD>(DESKTOP_STATE_LOCKED));
    EXPECT_TRUE(m_trace.Calls("icon").empty());
    EXPECT_TRUE(m_trace.Calls("message").empty());
}

TEST_F(SettingsMessagesTest, ExitIsFollowedStepByStep)
{
    Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, 0x20});
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    Settle();
    m_trace.Forget();
    CallOrder order(m_trace);
    order.m_note = [] { return " exit " + std::to_string(g_nExitCode); };
    MSG_TRAYICON_EXIT leave = {};
    leave.dwType = MSG_TYPE_TRAYICON_EXIT;
    Send(leave);
    JoinReader();
    JoinWindow();
    Calls calls = order.Calls();
    ASSERT_GE(calls.size(), 3U);
    calls.resize(3); // behind them the window goes
    EXPECT_EQ(calls, (Calls{"set 37 1 0", "shutdown", "posted 16 exit 0"}));
    EXPECT_EQ(g_nExitCode, -56);
}

namespace
{
/// An answer, or the second of two, that the agent can't write.
struct UNWRITABLE_ANSWER
{
    DWORD dwType;
    size_t nBytes;
    int nWritten;
};

class UnwritableAnswerTest : public SettingsMessagesTest,
                             public testing::WithParamInterface<UNWRITABLE_ANSWER>
{
};
} // namespace

TEST_P(UnwritableAnswerTest, EndsTheChannelThoughTheRecordHasTakenEffect)
{
    const auto [dwType, nBytes, nWritten] = GetParam();
    CallOrder order(m_trace);
    order.m_nWritable = nWritten;
    const std::vector<BYTE> record = PlainRecord(dwType, nBytes);
    ASSERT_TRUE(m_service.SendAll(record.data(), record.size()));
    JoinReader();
    EXPECT_TRUE(m_trace.WaitFor("message 1036 0")) << "the channel is lost";
    JoinWindow();
    EXPECT_TRUE(m_trace.Calls("timer").empty()) << "no notice is due";
    const bool bEffects = dwType == MSG_TYPE_TRAYICON_INIT || dwType == MSG_TYPE_TRAYICON_DESKTOP_EFFECTS;
    EXPECT_EQ(!m_trace.Calls("set 37 0 0").empty(), bEffects);
    EXPECT_EQ(g_bOtiInvitation, dwType == MSG_TYPE_TRAYICON_INIT ? 1U : 0U);
    EXPECT_EQ(Window().m_bAwaitingFirstSettings, dwType == MSG_TYPE_TRAYICON_SETTINGS ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UnwritableAnswerTest,
    testing::Values(UNWRITABLE_ANSWER{MSG_TYPE_TRAYICON_INIT, sizeof(MSG_TRAYICON_INIT), 0},
                    UNWRITABLE_ANSWER{MSG_TYPE_TRAYICON_INIT, sizeof(MSG_TRAYICON_INIT), 1},
                    UNWRITABLE_ANSWER{MSG_TYPE_TRAYICON_SETTINGS, sizeof(MSG_TRAYICON_SETTINGS), 0},
                    UNWRITABLE_ANSWER{MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION,
                                      sizeof(MSG_TRAYICON_DESKTOP_USER_INFORMATION), 0},
                    UNWRITABLE_ANSWER{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, sizeof(MSG_TRAYICON_DESKTOP_EFFECTS),
                                      0}),
    [](const testing::TestParamInfo<UNWRITABLE_ANSWER>& info) {
        return "Type" + std::to_string(info.param.dwType) + "Behind" + std::to_string(info.param.nWritten);
    });

TEST_F(SettingsMessagesTest, AReconfigurationFollowsTheUsersLanguageOnlyWhereNothingIsLocked)
{
    const RegistryValue user(HKEY_CURRENT_USER, LANGUAGE_KEY, L"LangUI", std::wstring(L"fr"));
    const RegistryValue machine(HKEY_LOCAL_MACHINE, LANGUAGE_KEY, L"LangUI", std::wstring(L"de"));
    for (const DWORD bLocked : {1UL, 0UL})
    {
        MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.dwExitLock2 = bLocked;
        Send(settings);
        Send(MSG_TRAYICON_SERVER_RECONFIGURE{MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 0, {}});
        Settle();
        EXPECT_EQ(LanguageOfEnvironment(), bLocked != 0 ? L"de" : L"fr");
    }
}

TEST_F(SettingsMessagesTest, AReconfigurationIsToldInTheLanguageBeforeIt)
{
    const StagedLanguageModule language;
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.bPermissionRequired = 1;
    Send(settings);
    Send(MSG_TRAYICON_SERVER_RECONFIGURE{MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 0, {}});
    Settle();
    ASSERT_FALSE(m_icons.empty());
    EXPECT_EQ(m_icons.back().szTip, language.Text(IDS_TIP_PERMISSION) + L"\r\nKestre...");
    EXPECT_EQ(g_hResourceModule, g_hInstance) << "then it has changed";
}

TEST_F(SettingsMessagesTest, AReconfigurationWithNoLanguageStoredTakesEnglish)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    settings.dwExitLock2 = 1;
    Send(settings);
    SetEnvironmentVariableW(L"LangUI", L"xx");
    Send(MSG_TRAYICON_SERVER_RECONFIGURE{MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 0, {}});
    Settle();
    EXPECT_EQ(LanguageOfEnvironment(), L"en") << "nothing stored";
    EXPECT_EQ(g_hResourceModule, g_hInstance) << "no module beside the test program";
}
