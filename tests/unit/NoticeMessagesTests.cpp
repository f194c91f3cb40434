#include "channel/NoticeMessages.h"

#include "Include/BoundedText.h"
#include "startup/TKDAST.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/CallOrder.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;

CHAT_CONNECT_NOTICE g_notice = {};
UINT g_uNoticeMessage = 0;

LRESULT CALLBACK ChatProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_CHAT_USER_CONNECTED || uMessage == WM_CHAT_USER_DISCONNECTED)
    {
        g_uNoticeMessage = uMessage;
        g_notice = *reinterpret_cast<const CHAT_CONNECT_NOTICE*>(wParam);
        return 0;
    }
    return DefWindowProcW(hWnd, uMessage, wParam, lParam);
}

class NoticeMessagesTest : public AgentHarness
{
  protected:
    void SendSettings(DWORD bNotifyConnect, DWORD bNotifyKind2, DWORD bNotifyDisconnect)
    {
        MSG_TRAYICON_SETTINGS settings = PlainSettings();
        settings.bNotifyConnect = bNotifyConnect;
        settings.bNotifyKind2 = bNotifyKind2;
        settings.bNotifyDisconnect = bNotifyDisconnect;
        Send(settings);
        Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
        Settle();
        m_trace.Forget();
    }

    void OpenChat()
    {
        OnWindowThread([this] {
            const HWND hChat =
                CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
            SetWindowLongPtrW(hChat, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&ChatProcedure));
            Window().m_hChatWindow = hChat;
        });
    }

    // Whether a connection of that type asks for the popup.
    bool AsksForPopup(DWORD dwConnectionType)
    {
        m_trace.Forget();
        Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1, dwConnectionType));
        Settle();
        Fire(TIMER_CONNECT_NOTICE);
        return !m_trace.Calls("message 1026").empty();
    }
};

} // namespace

TEST_F(NoticeMessagesTest, ABurstOfConnectsGivesOneNotice)
{
    SendSettings(1, 0, 0);
    for (DWORD dwCount = 1; dwCount <= 5; ++dwCount)
    {
        Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, dwCount));
    }
    Settle();
    EXPECT_EQ(m_trace.Calls("timer 1002"), Calls(5, "timer 1002 2000"));
    EXPECT_TRUE(m_trace.Calls("message 1026").empty());
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_EQ(m_trace.Calls("message 1026"), Calls{"message 1026 0"});
    EXPECT_EQ(m_trace.Calls("kill"), Calls{"kill 1002"});
    EXPECT_EQ(Window().m_nNotifyMode, 1);
    EXPECT_EQ(Window().m_Connection.dwConnectCount, 5U);
    EXPECT_EQ(Window().m_bNotifyPending, 1U);
}

TEST_F(NoticeMessagesTest, AConnectBeforeTheFirstSettingsAsksForThemAndArmsNothing)
{
    Window().m_bNotifyPending = 0;
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    EXPECT_EQ(Receive<DWORD>(), static_cast<DWORD>(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
    Settle();
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    EXPECT_EQ(Window().m_bNotifyPending, 1U);
    MSG_TRAYICON_SETTINGS settings = PlainSettings();
    settings.bNotifyConnect = 1;
    Send(settings);
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    EXPECT_EQ(m_trace.Calls("timer 1002"), Calls{"timer 1002 5000"});
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_EQ(m_trace.Calls("message 1026"), Calls{"message 1026 0"});
}

TEST_F(NoticeMessagesTest, ARequestForSettingsThatCannotBeWrittenHindersNothing)
{
    Window().m_bNotifyPending = 0;
    CallOrder order(m_trace);
    order.m_nWritable = 0;
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 2));
    EXPECT_TRUE(m_trace.WaitFor("icon 1")) << "the reader goes on";
    EXPECT_EQ(order.Calls(), (Calls{"icon 0", "send 50006", "icon 1"}));
    EXPECT_EQ(Window().m_bNotifyPending, 1U);
}

TEST_F(NoticeMessagesTest, ASessionThatRanBeforeTheAgentIsAnnouncedToo)
{
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    MSG_TRAYICON_SETTINGS settings = PlainSettings();
    settings.bNotifyConnect = 1;
    Send(settings);
    Receive<MSG_TRAYICON_DESKTOP_USER_INFORMATION>();
    Settle();
    EXPECT_TRUE(m_trace.Calls("message 1026").empty());
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 1002 5000"});
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_EQ(m_trace.Calls("message 1026"), Calls{"message 1026 0"});
}

TEST_F(NoticeMessagesTest, AConnectTakesItsTypeWhateverItsCount)
{
    SendSettings(1, 0, 0);
    Window().m_Settings.dwDefaultConnectionType = 7;
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 0, 2));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 2U);
}

TEST_F(NoticeMessagesTest, AConnectIsFollowedStepByStep)
{
    SendSettings(1, 0, 0);
    OpenChat();
    Window().m_Settings.dwTrayIcon = TRAY_ICON_HIDDEN; // of the ordinary type alone
    Window().m_bIconAdded = 0;
    const CallOrder order(m_trace);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1, 2));
    Settle();
    EXPECT_EQ(order.Calls(), (Calls{"icon 0", "sent 2091", "timer 1002 2000"}));
}

TEST_F(NoticeMessagesTest, ANoticeThatIsDueAppliesTheOptionsAgainWithNobodyConnected)
{
    SendSettings(1, 0, 0);
    Window().m_dwRequestedOptions = 0x20;
    Fire(TIMER_CONNECT_NOTICE);
    Calls calls = m_trace.Calls();
    std::erase_if(calls, [](const std::string& call) {
        return call.starts_with("get ") || call.starts_with("message ");
    });
    EXPECT_EQ(calls, (Calls{"kill 1002", "set 37 0 0", "icon 1"}));
}

TEST_F(NoticeMessagesTest, AConnectBehindADisconnectIsToldAsAConnect)
{
    SendSettings(1, 0, 0);
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 1));
    Settle();
    EXPECT_EQ(Window().m_nNotifyMode, NOTIFY_MODE_DISCONNECTED);
    EXPECT_TRUE(AsksForPopup(1));
    EXPECT_EQ(Window().m_nNotifyMode, NOTIFY_MODE_CONNECTED);
}

TEST_F(NoticeMessagesTest, EachOperationTracesItsLife)
{
    const LogCapture capture("TKDASTWindow");
    OnWindowThread([this] {
        Window().NotifyConnect();
        Window().NotifyDisconnect();
        Window().NotifyAll();
        Window().SFT_AddDropWindow({});
        Window().SFT_EraseDropWindow(0);
        Window().SFT_RemoveDropWindow(0);
    });
    OnWindowThread([] {});
    const char* const apszNames[] = {
        "NotifyConnect",       "NotifyDisconnect",     "NotifyAll", "SFT_AddDropWindow",
        "SFT_EraseDropWindow", "SFT_RemoveDropWindow", "WndProc"};
    for (const char* const pszName : apszNames)
    {
        const std::string label = std::string("TRACE CTaskBarWindow::") + pszName;
        EXPECT_THAT(capture.Texts(), testing::Contains(label + " entering."));
        EXPECT_THAT(capture.Texts(), testing::Contains(label + " exiting."));
    }
}

TEST_F(NoticeMessagesTest, WhoIsToldFollowsSettingsAndType)
{
    SendSettings(0, 1, 0);
    EXPECT_FALSE(AsksForPopup(1));
    EXPECT_TRUE(AsksForPopup(2));
    EXPECT_TRUE(AsksForPopup(0)) << "always told";
    EXPECT_FALSE(AsksForPopup(7));
    SendSettings(0, 0, 0);
    EXPECT_FALSE(AsksForPopup(2));
    SendSettings(1, 0, 0);
    EXPECT_TRUE(AsksForPopup(1));
    EXPECT_TRUE(AsksForPopup(0xFFFFFFFF));
}

TEST_F(NoticeMessagesTest, TheListFormAsksForTheListInPlaceOfANotice)
{
    SendSettings(1, 0, 0);
    MSG_TRAYICON_CONNECT connection = Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1);
    connection.bListClients = 1;
    Send(connection);
    Settle();
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_EQ(m_trace.Calls("message 273"), Calls{"message 273 40003"});
    EXPECT_EQ(Receive<MSG_TRAYICON_CONNECT_NOTIFY_ALL>().dwType,
              static_cast<DWORD>(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL));
    EXPECT_TRUE(m_trace.Calls("message 1026").empty());
    connection.dwConnectCount = 0;
    Send(connection);
    Settle();
    m_trace.Forget();
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_TRUE(m_trace.Calls("message").empty()) << "nobody is connected";
}

TEST_F(NoticeMessagesTest, TheCountMessageFollowsItsTypeAndNeverTells)
{
    SendSettings(1, 1, 1);
    Window().m_Settings.dwDefaultConnectionType = 2;
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 3, 0));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 0U);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 0, 7));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 2U) << "the default of the settings";
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    EXPECT_TRUE(m_trace.Calls("message").empty());
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_COUNT, 0xFFFFFFFF, 9));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 9U);
}

TEST_F(NoticeMessagesTest, TheLastDisconnectTakesTheOrdinaryTypeAndNotTheDefault)
{
    SendSettings(1, 0, 1);
    Window().m_Settings.dwDefaultConnectionType = 2;
    Window().m_dwConnectionType = 0;
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 1, 2));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 0U) << "others remain";
    EXPECT_TRUE(m_trace.Calls("icon").empty());
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0, 2));
    Settle();
    EXPECT_EQ(Window().m_dwConnectionType, 1U);
    EXPECT_EQ(m_trace.Calls("icon"), Calls{"icon 1"});
    EXPECT_EQ(m_trace.Calls("message"),
              (Calls{"message 1031 0", "message 1034 0", "message 1031 0", "message 1034 0"}));
    EXPECT_EQ(Window().m_nNotifyMode, 2);
}

TEST_F(NoticeMessagesTest, ADisconnectIsToldOnlyWhenConnectsAreToo)
{
    for (const auto& [bConnect, bDisconnect, bTold] :
         {std::tuple(0UL, 1UL, false), std::tuple(1UL, 0UL, false), std::tuple(1UL, 1UL, true)})
    {
        SendSettings(bConnect, 0, bDisconnect);
        Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
        Settle();
        EXPECT_EQ(!m_trace.Calls("message 1034").empty(), bTold) << bConnect << bDisconnect;
        EXPECT_EQ(m_trace.Calls("message 1031").size(), 1U) << "an older popup is down in any case";
    }
}

TEST_F(NoticeMessagesTest, DesktopOptionsComeBackOnlyWithTheLastViewer)
{
    SendSettings(0, 0, 0);
    Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, 0x20});
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    Settle();
    m_trace.Forget();
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 1));
    Settle();
    EXPECT_TRUE(m_trace.Calls("set").empty());
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    Settle();
    EXPECT_EQ(m_trace.Calls("set"), Calls{"set 37 1 0"});
    EXPECT_EQ(Window().m_dwAppliedOptions, 1U);
    EXPECT_EQ(Window().m_dwRequestedOptions, 1U);
}

TEST_F(NoticeMessagesTest, EveryoneConnectedIsKeptAndShown)
{
    SendSettings(0, 0, 0);
    MSG_TRAYICON_CONNECT_NOTIFY_ALL list = {};
    list.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
    CopyText(list.szClientList, L"Alice\r\nBob");
    list.dwClientCount = 2;
    Send(list);
    Settle();
    EXPECT_EQ(m_trace.Calls("message"), Calls{"message 1026 1"});
    EXPECT_EQ(Window().m_nNotifyMode, 3);
    EXPECT_EQ(FixedText(Window().m_ConnectedList.szClientList), L"Alice\r\nBob");
}

TEST_F(NoticeMessagesTest, AnOpenChatWindowHearsWhoComesAndGoes)
{
    SendSettings(0, 0, 0);
    OpenChat();
    MSG_TRAYICON_CONNECT connection = Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 2);
    Send(connection);
    Settle();
    EXPECT_EQ(g_uNoticeMessage, static_cast<UINT>(WM_CHAT_USER_CONNECTED));
    EXPECT_EQ(g_notice.bConnected, 1U);
    EXPECT_EQ(FixedText(g_notice.szNotice), L"Alice connected");
    EXPECT_EQ(g_notice.dwConnectCount, 2U);
    connection = Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 1);
    std::fill(std::begin(connection.szClientName), std::end(connection.szClientName), L'x');
    Send(connection);
    Settle();
    EXPECT_EQ(g_uNoticeMessage, static_cast<UINT>(WM_CHAT_USER_DISCONNECTED));
    EXPECT_EQ(g_notice.bConnected, 0U);
    EXPECT_EQ(FixedText(g_notice.szNotice), std::wstring(259, L'x')) << "an unterminated name is cut";
}

TEST_F(NoticeMessagesTest, LinesOfWhoCameAndWentAreNotKeptForALaterChatWindow)
{
    SendSettings(0, 0, 0);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    Settle();
    g_uNoticeMessage = 0;
    OpenChat();
    Settle();
    Fire(TIMER_CONNECT_NOTICE);
    EXPECT_EQ(g_uNoticeMessage, 0U);
    Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    Settle();
    EXPECT_EQ(g_uNoticeMessage, static_cast<UINT>(WM_CHAT_USER_CONNECTED)) << "the window does listen";
}

TEST_F(NoticeMessagesTest, AConnectNoticeOfTheOrdinaryTypeIsHeldBackAgainWhenItIsDue)
{
    const auto isHeldBack = [this](NOTICE_KIND kind, DWORD dwConnectionType, DWORD bNotifyConnect) {
        Window().m_dwConnectionType = dwConnectionType;
        Window().m_Settings.bNotifyConnect = bNotifyConnect;
        return SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, kind, 0) == 1;
    };
    EXPECT_TRUE(isHeldBack(SHOW_CONNECT_NOTICE, 1, 0));
    EXPECT_FALSE(isHeldBack(SHOW_CONNECT_NOTICE, 1, 1));
    EXPECT_FALSE(isHeldBack(SHOW_CONNECT_NOTICE, 2, 0));
    EXPECT_FALSE(isHeldBack(SHOW_CONNECT_NOTICE, 0, 0));
    EXPECT_FALSE(isHeldBack(SHOW_EVERYONE_NOTICE, 1, 0)) << "that one was asked for";
}

namespace
{
UINT g_uDefaulted = 0;
decltype(&DefWindowProcW) g_pfnDefault = nullptr;

LRESULT WINAPI RecordingDefault(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    g_uDefaulted = uMessage;
    return g_pfnDefault(hWnd, uMessage, wParam, lParam);
}
} // namespace

TEST_F(NoticeMessagesTest, ATimerThatIsNotTheAgentsIsLeftAlone)
{
    constexpr UINT_PTR ANOTHER_TIMER = 1003;
    SendSettings(1, 0, 0);
    Fire(ANOTHER_TIMER);
    EXPECT_TRUE(m_trace.Calls().empty());
}

TEST_F(NoticeMessagesTest, AChangeOfTheUserIsSwallowed)
{
    const ImportHook hook("user32.dll", "DefWindowProcW", &RecordingDefault);
    g_pfnDefault = hook.Original();
    g_uDefaulted = 0;
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_USERCHANGED, 1, 2), 0);
    EXPECT_EQ(g_uDefaulted, 0U);
    SendMessageW(Window().m_hWnd, WM_USERCHANGED + 1, 0, 0);
    EXPECT_EQ(g_uDefaulted, static_cast<UINT>(WM_USERCHANGED + 1)) << "unlike others";
}

namespace
{
MSG_TRAYICON_SFT_DROP_CLIENT DropClient(DWORD dwClientId)
{
    MSG_TRAYICON_SFT_DROP_CLIENT client = {};
    client.dwType = MSG_TYPE_TRAYICON_SFT_DROP_CLIENT;
    client.dwClientId = dwClientId;
    client.dwListSlot = 99;
    client.ullWindowSlot = 99;
    client.ullOwnerSlot = 99;
    return client;
}
} // namespace

namespace
{
/// Drop windows of the agent, played by windows of the harness's own: each counts what asks it to close, and
/// tells the agent as it goes.
class DropWindowTest : public NoticeMessagesTest
{
  protected:
    void SetUp() override
    {
        NoticeMessagesTest::SetUp();
        m_asked.clear();
        s_pThis = this;
    }

    /// Gives the listed client a window.
    void OpenWindow(DWORD dwClientId)
    {
        OnWindowThread([&] {
            const HWND hDrop =
                CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
            SetWindowLongPtrW(hDrop, GWLP_USERDATA, static_cast<LONG_PTR>(dwClientId));
            SetWindowLongPtrW(hDrop, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&DropProcedure));
            for (const auto& pEntry : Window().m_DropWindows)
            {
                if (pEntry->dwClientId == dwClientId)
                {
                    pEntry->ullWindowSlot = reinterpret_cast<ULONG_PTR>(hDrop);
                }
            }
        });
    }

    void AddWindow(DWORD dwClientId)
    {
        Send(DropClient(dwClientId));
        Settle();
        OpenWindow(dwClientId);
    }

    /// What was asked to close so far, by client.
    std::vector<DWORD> Asked()
    {
        Settle();
        OnWindowThread([] {}); // what was posted to the windows is handled, too
        return m_asked;
    }

    void Disconnect(DWORD dwClientId, DWORD dwRemaining)
    {
        MSG_TRAYICON_CONNECT connection = Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, dwRemaining);
        connection.dwClientId = dwClientId;
        Send(connection);
    }

  private:
    static LRESULT CALLBACK DropProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
    {
        const auto dwClientId = static_cast<DWORD>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
        if (uMessage == WM_SFT_DROP_WINDOW || uMessage == WM_CLOSE)
        {
            s_pThis->m_asked.push_back(dwClientId);
            DestroyWindow(hWnd);
            if (uMessage == WM_CLOSE)
            {
                SendMessageW(s_pThis->Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_FORGET, dwClientId);
            }
            return 0;
        }
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }

    static DropWindowTest* s_pThis;
    std::vector<DWORD> m_asked;
};

DropWindowTest* DropWindowTest::s_pThis = nullptr;
using Clients = std::vector<DWORD>;
} // namespace

TEST_F(DropWindowTest, ADisconnectWithOthersRemainingClosesOnlyThatClientsWindow)
{
    for (const DWORD dwClientId : {5UL, 6UL, 7UL})
    {
        AddWindow(dwClientId);
    }
    Disconnect(6, 2);
    EXPECT_EQ(Asked(), Clients{6});
    EXPECT_EQ(Window().m_DropWindows.size(), 2U);
    Disconnect(5, 0);
    EXPECT_EQ(Asked(), (Clients{6, 5, 7})) << "the last viewer takes all along";
    EXPECT_TRUE(Window().m_DropWindows.empty());
}

TEST_F(DropWindowTest, ADisconnectOfAnUnknownClientClosesNoWindow)
{
    AddWindow(5);
    AddWindow(6);
    Disconnect(1234, 2);
    EXPECT_TRUE(Asked().empty());
    EXPECT_TRUE(Window().m_DropWindows.empty()) << "though the list forgets them";
    EXPECT_EQ(m_trace.Calls("message 1031").size(), 1U) << "the disconnect itself is followed all the same";
}

TEST_F(DropWindowTest, TheLastDisconnectIsFollowedStepByStep)
{
    SendSettings(1, 0, 1);
    Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, 0x20});
    Receive<MSG_TRAYICON_DESKTOP_EFFECTS>();
    AddWindow(5);
    OpenChat();
    Window().m_dwConnectionType = 2;
    Window().m_bNotifyPending = 0;
    m_trace.Forget();
    CallOrder order(m_trace);
    order.m_note = [this] {
        return " type " + std::to_string(Window().m_dwConnectionType) + " mode " +
               std::to_string(Window().m_nNotifyMode) + " pending " +
               std::to_string(Window().m_bNotifyPending);
    };
    Disconnect(5, 0);
    Settle();
    EXPECT_EQ(order.Calls(),
              (Calls{"sent 2090 type 2 mode 1 pending 0", "posted 1038 type 2 mode 1 pending 0",
                     "sent 1031 type 1 mode 1 pending 1", "posted 1034 type 1 mode 2 pending 1", "set 37 1 0",
                     "icon 1"}));
    EXPECT_TRUE(Window().m_DropWindows.empty());
    EXPECT_EQ(Window().m_dwAppliedOptions, 1U);
}

TEST_F(DropWindowTest, TheReaderWaitsUntilTheWindowStands)
{
    const CallOrder order(m_trace);
    Send(DropClient(5));
    Settle();
    EXPECT_EQ(order.Calls(), Calls{"sent 1038"});
}

TEST_F(DropWindowTest, WindowsThatAreOnlyForgottenAreNotAskedToClose)
{
    const auto forget = [this](LPARAM lClient) {
        SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_FORGET, lClient);
    };
    for (const DWORD dwClientId : {5UL, 6UL, 7UL})
    {
        AddWindow(dwClientId);
    }
    constexpr LPARAM BEYOND_AN_ID = LPARAM{1} << 32;
    forget(BEYOND_AN_ID | 6); // an id has 32 bits
    EXPECT_EQ(Window().m_DropWindows.size(), 2U);
    forget(1234);
    EXPECT_TRUE(Window().m_DropWindows.empty()) << "an unknown one empties the list";
    AddWindow(8);
    forget(BEYOND_AN_ID);
    EXPECT_TRUE(Window().m_DropWindows.empty()) << "none means all";
    EXPECT_TRUE(Asked().empty());
}

TEST_F(DropWindowTest, AWindowThatHasGoneIsForgottenAllTheSame)
{
    AddWindow(5);
    AddWindow(6);
    OnWindowThread([this] {
        DestroyWindow(
            reinterpret_cast<HWND>(static_cast<ULONG_PTR>(Window().m_DropWindows.front()->ullWindowSlot)));
    });
    Disconnect(5, 1);
    EXPECT_TRUE(Asked().empty());
    EXPECT_EQ(Window().m_DropWindows.size(), 1U);
    Disconnect(6, 0);
    EXPECT_EQ(Asked(), Clients{6});
}

TEST_F(DropWindowTest, ASecondRecordOfAClientClosesItsWindowAndAThirdOpensANewOne)
{
    AddWindow(5);
    Send(DropClient(5));
    EXPECT_EQ(Asked(), Clients{5});
    EXPECT_EQ(m_trace.Calls("message 1038 1000").size(), 1U);
    EXPECT_TRUE(Window().m_DropWindows.empty());
    Send(DropClient(5));
    Settle();
    EXPECT_EQ(m_trace.Calls("message 1038 1000").size(), 2U);
    EXPECT_EQ(Window().m_DropWindows.size(), 1U);
}

TEST_F(DropWindowTest, TheEndOfTheSessionClosesAllWindowsAndIsReported)
{
    AddWindow(5);
    AddWindow(6);
    m_trace.Forget();
    {
        const CallOrder order(m_trace);
        OnWindowThread([this] { SendMessageW(Window().m_hWnd, WM_ENDSESSION, TRUE, 0); });
        EXPECT_EQ(order.Calls(), (Calls{"sent 22", "posted 1038", "posted 1038", "send 50010"}));
    }
    const auto ending = Receive<MSG_TRAYICON_SESSION_ENDING>();
    EXPECT_EQ(ending.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_SESSION_ENDING));
    EXPECT_EQ(ending.dwSessionId, g_dwSessionId);
    EXPECT_EQ(ending.dwExitCode, 0xFFFFFFC8U);
    EXPECT_EQ(Asked(), (Clients{5, 6}));
    EXPECT_EQ(g_nExitCode, -56);
}

TEST_F(DropWindowTest, AQuestionWhetherTheSessionMayEndIsAYesAndSetsTheExitCode)
{
    AddWindow(5);
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_QUERYENDSESSION, 0, 0), TRUE);
    EXPECT_EQ(g_nExitCode, -56);
    EXPECT_TRUE(Asked().empty()) << "and nothing but the echo has come";
    EXPECT_EQ(Window().m_DropWindows.size(), 1U);
}

TEST_F(DropWindowTest, AnEndOfTheSessionThatIsCalledOffLeavesWindowsAndChannelAloneButForTheExitCode)
{
    AddWindow(5);
    SendMessageW(Window().m_hWnd, WM_ENDSESSION, FALSE, 0);
    EXPECT_EQ(g_nExitCode, -56);
    EXPECT_TRUE(Asked().empty()) << "and nothing but the echo has come";
    EXPECT_EQ(Window().m_DropWindows.size(), 1U);
}

TEST_F(NoticeMessagesTest, EachDropClientIsListedOnceWithSlotsOfItsOwn)
{
    Send(DropClient(5));
    Send(DropClient(6));
    Send(DropClient(5));
    Settle();
    EXPECT_EQ(m_trace.Calls("message 1038"), Calls(2, "message 1038 1000"));
    ASSERT_EQ(Window().m_DropWindows.size(), 2U);
    const MSG_TRAYICON_SFT_DROP_CLIENT& second = *Window().m_DropWindows.back();
    EXPECT_EQ(second.dwClientId, 6U);
    EXPECT_EQ(second.dwListSlot, 1U);
    EXPECT_EQ(second.ullWindowSlot, 0U);
    EXPECT_EQ(second.ullOwnerSlot, reinterpret_cast<ULONG_PTR>(Window().m_hWnd));
}

TEST_F(NoticeMessagesTest, ADisconnectForgetsItsClientAndAnUnknownOneForgetsAll)
{
    for (const DWORD dwClientId : {5UL, 6UL, 7UL})
    {
        Send(DropClient(dwClientId));
    }
    MSG_TRAYICON_CONNECT connection = Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 2);
    connection.dwClientId = 6;
    Send(connection);
    Settle();
    ASSERT_EQ(Window().m_DropWindows.size(), 2U);
    EXPECT_EQ(Window().m_DropWindows.back()->dwClientId, 7U);
    connection.dwClientId = 1234;
    Send(connection);
    Settle();
    EXPECT_TRUE(Window().m_DropWindows.empty());
    EXPECT_EQ(m_trace.Calls("message 1031").size(), 2U) << "the disconnect itself is followed all the same";
}

TEST_F(NoticeMessagesTest, AWindowThatClosesByItselfIsForgotten)
{
    Send(DropClient(5));
    Send(DropClient(6));
    Settle();
    SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_FORGET, 5);
    EXPECT_EQ(Window().m_DropWindows.size(), 1U);
    SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_FORGET, 0);
    EXPECT_TRUE(Window().m_DropWindows.empty()) << "no id means all";
}
