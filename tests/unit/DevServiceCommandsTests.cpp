#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "TKDAS/SimultanousSessionMutex.h"
#include "devservice/PlayedSession.h"
#include "devservice/wtsapi32/SessionScript.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DevServiceFixture.h"
#include "tests/unit/RegistrySandbox.h"
#include "tray/TKDASTWindow.h"

#include <gtest/gtest.h>
#include <wtsapi32.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr DWORD SILENCE_MS = 50;
constexpr wchar_t LANGUAGE_ENTRY[] = L"LangUI";

class DevServiceCommands : public DevServiceRunner
{
  protected:
    template <typename Record>
    static Record Received(TestAgent& agent)
    {
        Record record = {};
        EXPECT_TRUE(agent.Receive(record));
        return record;
    }

    static void ExpectConnect(TestAgent& agent, DWORD dwType, std::wstring_view name, DWORD dwCount)
    {
        const auto record = Received<MSG_TRAYICON_CONNECT>(agent);
        EXPECT_EQ(record.dwType, dwType);
        EXPECT_EQ(FixedText(record.szClientName), name);
        EXPECT_EQ(record.dwConnectCount, dwCount);
    }

    static void ExpectList(TestAgent& agent, std::wstring_view list, DWORD dwCount)
    {
        const auto record = Received<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(agent);
        EXPECT_EQ(record.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL));
        EXPECT_EQ(FixedText(record.szClientList), list);
        EXPECT_EQ(record.dwClientCount, dwCount);
    }

    static bool SendDesktopUser(TestAgent& agent)
    {
        MSG_TRAYICON_DESKTOP_USER_INFORMATION user = {};
        user.dwType = MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION;
        return agent.Send(BytesOf(user));
    }

    static bool ChooseLanguage(TestAgent& agent, std::wstring_view language)
    {
        MSG_TRAYICON_LANGUAGE chosen = {};
        chosen.dwType = MSG_TYPE_TRAYICON_LANGUAGE;
        CopyText(chosen.szLanguage, language);
        return agent.Send(BytesOf(chosen));
    }

    void ExpectErrorWith(std::wstring_view script, const char* pszPart)
    {
        const std::string error = ErrorOf(script);
        EXPECT_NE(error.find(pszPart), std::string::npos) << error;
    }
};

std::wstring StoredLanguage(HKEY hRoot)
{
    CProfileReg profile(L"Tessaran Development", L"Kestrel Desk Assist Service");
    profile.SetRootKey(hRoot);
    return profile.GetProfileString(SETTINGS_SECTION, LANGUAGE_ENTRY, L"");
}

/// A window that an agent's notices reach in the place of an agent's.
class NoticeWindow
{
  public:
    NoticeWindow()
    {
        WNDCLASSEXW windowClass = {};
        windowClass.cbSize = sizeof(windowClass);
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.hInstance = m_hOwner;
        windowClass.lpszClassName = TRAY_WINDOW_CLASS;
        EXPECT_TRUE(RegisterClassExW(&windowClass) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS);
        m_hWnd = CreateWindowExW(0, TRAY_WINDOW_CLASS, L"", WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr,
                                 m_hOwner, nullptr);
        EXPECT_NE(m_hWnd, nullptr);
    }
    ~NoticeWindow()
    {
        DestroyWindow(m_hWnd);
        UnregisterClassW(TRAY_WINDOW_CLASS, m_hOwner);
    }
    NoticeWindow(const NoticeWindow&) = delete;
    NoticeWindow& operator=(const NoticeWindow&) = delete;

    // The session notices so far.
    std::vector<WPARAM> Notices() const
    {
        std::vector<WPARAM> notices;
        MSG message = {};
        while (PeekMessageW(&message, m_hWnd, WM_WTSSESSION_CHANGE, WM_WTSSESSION_CHANGE, PM_REMOVE))
        {
            notices.push_back(message.wParam);
        }
        return notices;
    }

  private:
    // Of another module than the agent's own class, which an earlier test may have registered.
    const HINSTANCE m_hOwner = GetModuleHandleW(L"kernel32.dll");
    HWND m_hWnd;
};

/// What the playing module would answer now; false without a played session.
bool ReadPlayedSession(SESSION_SCRIPT& script)
{
    const CKernelHandle hMapping(OpenFileMappingW(FILE_MAP_READ, FALSE, SESSION_SCRIPT_NAME));
    const void* const pView =
        hMapping ? MapViewOfFile(hMapping.get(), FILE_MAP_READ, 0, 0, sizeof(script)) : nullptr;
    if (pView == nullptr)
    {
        return false;
    }
    memcpy(&script, pView, sizeof(script));
    return UnmapViewOfFile(pView) != FALSE;
}

struct WallpaperCall
{
    UINT uAction = 0;
    std::wstring file;
    UINT uFlags = 0;
    BOOL bAnswer = TRUE;
};
WallpaperCall g_wallpaper;

BOOL WINAPI TakeWallpaper(UINT uAction, UINT, PVOID pFile, UINT uFlags)
{
    g_wallpaper.uAction = uAction;
    g_wallpaper.file = static_cast<const wchar_t*>(pFile);
    g_wallpaper.uFlags = uFlags;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return g_wallpaper.bAnswer;
}
} // namespace

TEST_F(DevServiceCommands, ConnectTellsWhoCameWithAFreshIdAndTheCount)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"connect \"Alice A.\" type=2 detail1=\"from home\" detail2=x list=1\nconnect Bob");
    MSG_TRAYICON_CONNECT expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
    CopyText(expected.szClientName, L"Alice A.");
    CopyText(expected.szClientDetail1, L"from home");
    CopyText(expected.szClientDetail2, L"x");
    expected.dwConnectionType = 2;
    expected.dwConnectCount = 1;
    expected.bListClients = 1;
    auto alice = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    const auto bob = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    EXPECT_NE(alice.dwClientId, 0u);
    EXPECT_NE(bob.dwClientId, alice.dwClientId);
    alice.dwClientId = 0;
    EXPECT_EQ(memcmp(&alice, &expected, sizeof(expected)), 0);
    EXPECT_EQ(bob.dwConnectCount, 2u);
    EXPECT_EQ(bob.dwConnectionType, 1u) << "unless told otherwise";
    EXPECT_EQ(bob.bListClients, 0u);
}

TEST_F(DevServiceCommands, NamedFieldsOfAConnectGoOutAsTheyAreAndDontCount)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"connect Alice dwConnectCount=0xFFFFFFFF dwClientId=77\nconnect Bob");
    const auto alice = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    EXPECT_EQ(alice.dwConnectCount, 0xFFFFFFFFu);
    EXPECT_EQ(alice.dwClientId, 77u);
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_CONNECT_NOTIFY, L"Bob", 2);
}

TEST_F(DevServiceCommands, DisconnectTellsTheViewersOwnRecordAndWhoIsLeft)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"connect Alice type=2 detail1=home\nconnect Bob\ndisconnect Alice\ndisconnect Bob");
    const auto came = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    Received<MSG_TRAYICON_CONNECT>(*pAgent);
    const auto left = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    EXPECT_EQ(left.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY));
    EXPECT_EQ(left.dwClientId, came.dwClientId);
    EXPECT_EQ(left.dwConnectionType, 2u);
    EXPECT_EQ(FixedText(left.szClientName), L"Alice");
    EXPECT_EQ(FixedText(left.szClientDetail1), L"home");
    EXPECT_EQ(left.dwConnectCount, 1u);
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Bob", 0);
    EXPECT_EQ(ErrorOf(L"disconnect Bob"), "line 1: agent 1 has no viewer \"Bob\"");
}

TEST_F(DevServiceCommands, DisconnectAllLetsThemLeaveInTheOrderTheyCame)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"disconnect all\nconnect Alice\nconnect Bob\nconnect \"all\"\ndisconnect \"all\"\n"
               L"disconnect all dwConnectionType=0");
    for (DWORD dwCount = 1; dwCount <= 3; ++dwCount)
    {
        EXPECT_EQ(Received<MSG_TRAYICON_CONNECT>(*pAgent).dwConnectCount, dwCount);
    }
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"all", 2);
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Alice", 1);
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Bob", 0);
}

TEST_F(DevServiceCommands, CountAndListTellWhoIsThere)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"count\nlist\nconnect Alice\nconnect Bob type=2\ncount\nlist\ncount dwConnectCount=9");
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_CONNECT_COUNT, L"", 0);
    ExpectList(*pAgent, L"", 0);
    Received<MSG_TRAYICON_CONNECT>(*pAgent);
    Received<MSG_TRAYICON_CONNECT>(*pAgent);
    const auto count = Received<MSG_TRAYICON_CONNECT>(*pAgent);
    EXPECT_EQ(count.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_CONNECT_COUNT));
    EXPECT_EQ(count.dwConnectCount, 2u);
    EXPECT_EQ(count.dwConnectionType, 2u) << "of who came last";
    ExpectList(*pAgent, L"Alice\r\nBob", 2);
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_CONNECT_COUNT, L"Bob", 9);
}

TEST_F(DevServiceCommands, ListThatIsTooLongIsCutWithinItsField)
{
    const auto pAgent = Arrive();
    constexpr size_t cchLongest = std::size(MSG_TRAYICON_CONNECT().szClientName) - 1;
    constexpr DWORD dwViewers = 20;
    std::wstring script;
    for (DWORD dwViewer = 0; dwViewer < dwViewers; ++dwViewer)
    {
        script += L"connect \"" + std::wstring(cchLongest, static_cast<wchar_t>(L'a' + dwViewer)) + L"\"\n";
    }
    ExpectHeld(script + L"list");
    for (DWORD dwViewer = 0; dwViewer < dwViewers; ++dwViewer)
    {
        Received<MSG_TRAYICON_CONNECT>(*pAgent);
    }
    const auto list = Received<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(*pAgent);
    EXPECT_EQ(list.dwClientCount, dwViewers);
    EXPECT_EQ(FixedText(list.szClientList).size(), std::size(list.szClientList) - 1);
}

TEST_F(DevServiceCommands, EachAgentHasViewersAndSettingsOfItsOwn)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    ExpectHeld(L"agent 1\nconnect Alice\nsettings update szTrayTip=first\n"
               L"agent 2\nconnect Alice\nconnect Bob\nsettings update szTrayTip=second\n"
               L"agent all\nsettings update dwTrayIcon=1\nlist\ndisconnect Alice");
    ExpectConnect(*pFirst, MSG_TYPE_TRAYICON_CONNECT_NOTIFY, L"Alice", 1);
    EXPECT_EQ(FixedText(Received<MSG_TRAYICON_SETTINGS>(*pFirst).szTrayTip), L"first");
    EXPECT_EQ(FixedText(Received<MSG_TRAYICON_SETTINGS>(*pFirst).szTrayTip), L"first");
    ExpectList(*pFirst, L"Alice", 1);
    ExpectConnect(*pFirst, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Alice", 0);
    EXPECT_TRUE(pFirst->Connection().StaysSilent(SILENCE_MS));

    ExpectConnect(*pSecond, MSG_TYPE_TRAYICON_CONNECT_NOTIFY, L"Alice", 1);
    ExpectConnect(*pSecond, MSG_TYPE_TRAYICON_CONNECT_NOTIFY, L"Bob", 2);
    EXPECT_EQ(FixedText(Received<MSG_TRAYICON_SETTINGS>(*pSecond).szTrayTip), L"second");
    const auto settings = Received<MSG_TRAYICON_SETTINGS>(*pSecond);
    EXPECT_EQ(FixedText(settings.szTrayTip), L"second");
    EXPECT_EQ(settings.dwTrayIcon, 1u);
    ExpectList(*pSecond, L"Alice\r\nBob", 2);
    ExpectConnect(*pSecond, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Alice", 1);
}

TEST_F(DevServiceCommands, SettingsKeepWhatWasSetBeforeAndExpectTheDesktopsUser)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(SendDesktopUser(*pAgent));
    ExpectHeld(L"settings dwTrayIcon=1 szTrayTip=\"Good day\"\nexpect nothing DESKTOP_USER_INFORMATION "
               L"within=20\nsettings update bPermissionRequired=1 dwTrayIcon=2");
    MSG_TRAYICON_SETTINGS expected = {};
    expected.dwType = MSG_TYPE_TRAYICON_SETTINGS;
    expected.dwTrayIcon = 1;
    CopyText(expected.szTrayTip, L"Good day");
    auto settings = Received<MSG_TRAYICON_SETTINGS>(*pAgent);
    EXPECT_EQ(memcmp(&settings, &expected, sizeof(expected)), 0);
    expected.dwType = MSG_TYPE_TRAYICON_SETTINGS_UPDATE;
    expected.dwTrayIcon = 2;
    expected.bPermissionRequired = 1;
    settings = Received<MSG_TRAYICON_SETTINGS>(*pAgent);
    EXPECT_EQ(memcmp(&settings, &expected, sizeof(expected)), 0);
    ExpectErrorWith(L"settings within=20", "MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION within 20 ms");
}

TEST_F(DevServiceCommands, AddressesKeepWhatWasSetBefore)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"addresses szInfo56=127.0.0.1\naddresses bInfoFlag89=1");
    auto addresses = Received<MSG_TRAYICON_IP_ADDRESSES>(*pAgent);
    EXPECT_EQ(addresses.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_IP_ADDRESSES));
    EXPECT_EQ(addresses.bInfoFlag89, 0u);
    addresses = Received<MSG_TRAYICON_IP_ADDRESSES>(*pAgent);
    EXPECT_EQ(FixedText(addresses.szInfo56), L"127.0.0.1");
    EXPECT_EQ(addresses.bInfoFlag89, 1u);
}

TEST_F(DevServiceCommands, RefusedFieldsSendNothingAndChangeNothing)
{
    const auto pAgent = Arrive();
    ExpectErrorWith(L"connect Alice dwNone=1", "MSG_TRAYICON_CONNECT has no field dwNone");
    ExpectErrorWith(L"connect Alice type=x", "dwConnectionType takes a 32-bit number, not \"x\"");
    ExpectErrorWith(L"connect Alice type!=1", "not a field=value: \"type!=1\"");
    ExpectErrorWith(L"connect type=1", "line 1: connect needs a name first, not type=1");
    ExpectErrorWith(L"connect " + std::wstring(260, L'x'),
                    "szClientName takes a text of at most 259 characters");
    ExpectErrorWith(L"settings update dwTrayIcon=1 dwNone=1", "MSG_TRAYICON_SETTINGS has no field dwNone");
    ExpectErrorWith(L"settings update within=1", "MSG_TRAYICON_SETTINGS has no field within");
    ExpectErrorWith(L"settings later", "not a field=value: \"later\"");
    ExpectErrorWith(L"addresses szInfo1=x", "MSG_TRAYICON_IP_ADDRESSES has no field szInfo1");
    ExpectErrorWith(L"list dwNone=1", "MSG_TRAYICON_CONNECT_NOTIFY_ALL has no field dwNone");
    ExpectErrorWith(L"reconfigure on " + std::wstring(260, L'x'), "szMessage takes a text of at most 259");
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
    ExpectHeld(L"count\nsettings update");
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_CONNECT_COUNT, L"", 0);
    EXPECT_EQ(Received<MSG_TRAYICON_SETTINGS>(*pAgent).dwTrayIcon, 0u);

    ExpectHeld(L"connect Alice");
    ExpectConnect(*pAgent, MSG_TYPE_TRAYICON_CONNECT_NOTIFY, L"Alice", 1);
    ExpectErrorWith(L"connect Alice", "agent 1 has a viewer \"Alice\" already");
    ExpectErrorWith(L"disconnect Alice dwNone=1", "MSG_TRAYICON_CONNECT has no field dwNone");
    EXPECT_EQ(ErrorOf(L"disconnect Carol"), "line 1: agent 1 has no viewer \"Carol\"; it has Alice");
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

TEST_F(DevServiceCommands, WordsThatACommandDoesntKnowAreNamed)
{
    const auto pAgent = Arrive();
    EXPECT_EQ(ErrorOf(L"answers maybe"), "line 1: not on or off: \"maybe\"");
    EXPECT_EQ(ErrorOf(L"marker wide on"), "line 1: not local or oti: \"wide\"");
    EXPECT_EQ(ErrorOf(L"marker oti true"), "line 1: not on or off: \"true\"");
    EXPECT_EQ(ErrorOf(L"played-session away"), "line 1: not locked or unlocked: \"away\"");
    EXPECT_EQ(ErrorOf(L"reconfigure text"), "line 1: not on or off: \"text\"");
    EXPECT_EQ(ErrorOf(L"reconfigure off text"), "line 1: reconfigure off takes no text");
    EXPECT_EQ(ErrorOf(L"effects all"), "line 1: dwDesktopEffects takes a 32-bit number, not \"all\"");
    EXPECT_EQ(ErrorOf(L"agent 9\nconnect Alice"), "line 2: there is no agent 9");
}

TEST_F(DevServiceCommands, ReconfigureTellsItsTextAndItsEnd)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"reconfigure on \"Please wait\"\nreconfigure on\nreconfigure off");
    auto record = Received<MSG_TRAYICON_SERVER_RECONFIGURE>(*pAgent);
    EXPECT_EQ(record.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_SERVER_RECONFIGURE));
    EXPECT_EQ(record.bReconfiguring, 1u);
    EXPECT_EQ(FixedText(record.szMessage), L"Please wait");
    record = Received<MSG_TRAYICON_SERVER_RECONFIGURE>(*pAgent);
    EXPECT_EQ(record.bReconfiguring, 1u);
    EXPECT_EQ(FixedText(record.szMessage), L"");
    EXPECT_EQ(Received<MSG_TRAYICON_SERVER_RECONFIGURE>(*pAgent).bReconfiguring, 0u);
}

TEST_F(DevServiceCommands, EffectsExpectTheirMaskBack)
{
    const auto pAgent = Arrive();
    ASSERT_TRUE(
        pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, 0x7FF7})));
    ExpectHeld(L"effects 0x7FF7");
    const auto effects = Received<MSG_TRAYICON_DESKTOP_EFFECTS>(*pAgent);
    EXPECT_EQ(effects.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS));
    EXPECT_EQ(effects.dwDesktopEffects, 0x7FF7u);
    ASSERT_TRUE(
        pAgent->Send(BytesOf(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, 2})));
    AwaitRecords(*pAgent);
    ExpectErrorWith(L"effects 4 within=20", "dwDesktopEffects=2");
}

TEST_F(DevServiceCommands, LockStateIsItsTypeAlone)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"lock-state");
    EXPECT_EQ(Received<MSG_TRAYICON_TYPE_ONLY>(*pAgent).dwType,
              static_cast<DWORD>(MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE));
}

TEST_F(DevServiceCommands, ExitExpectsTheConnectionsEnd)
{
    const auto pAgent = Arrive();
    ExpectErrorWith(L"exit within=20", "agent 1 was to close its connection within 20 ms");
    EXPECT_EQ(Received<MSG_TRAYICON_EXIT>(*pAgent).dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_EXIT));
    std::thread agent([&pAgent] {
        Received<MSG_TRAYICON_EXIT>(*pAgent);
        pAgent->Connection().Close();
    });
    ExpectHeld(L"exit");
    agent.join();
}

TEST_F(DevServiceCommands, WithoutAnswersAgentsAskInVain)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on\nanswers off");
    ASSERT_TRUE(pAgent->SendType(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
    ASSERT_TRUE(pAgent->SendType(MSG_TYPE_TRAYICON_IP_ADDRESSES));
    ExpectHeld(L"expect SETTINGS_REQUEST\nexpect IP_ADDRESSES");
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

TEST_F(DevServiceCommands, AnswerToASettingsRequestIsAnUpdateOnceSettingsWereSent)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on\nsettings update dwTrayIcon=2");
    EXPECT_EQ(Received<MSG_TRAYICON_SETTINGS>(*pAgent).dwTrayIcon, 2u);
    for (const DWORD dwType : {MSG_TYPE_TRAYICON_SETTINGS, MSG_TYPE_TRAYICON_SETTINGS_UPDATE})
    {
        ASSERT_TRUE(pAgent->SendType(MSG_TYPE_TRAYICON_SETTINGS_REQUEST));
        const auto settings = Received<MSG_TRAYICON_SETTINGS>(*pAgent);
        EXPECT_EQ(settings.dwType, dwType);
        EXPECT_EQ(settings.dwTrayIcon, 2u);
    }
    ExpectHeld(L"expect SETTINGS_REQUEST\nexpect SETTINGS_REQUEST");
}

TEST_F(DevServiceCommands, RequestsForAddressesAndListAreAnsweredFromWhatIsKept)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on\naddresses szInfo55=\"10.0.0.1\"\nconnect Alice");
    Received<MSG_TRAYICON_IP_ADDRESSES>(*pAgent);
    Received<MSG_TRAYICON_CONNECT>(*pAgent);
    ASSERT_TRUE(pAgent->SendType(MSG_TYPE_TRAYICON_IP_ADDRESSES));
    EXPECT_EQ(FixedText(Received<MSG_TRAYICON_IP_ADDRESSES>(*pAgent).szInfo55), L"10.0.0.1");
    MSG_TRAYICON_CONNECT_NOTIFY_ALL request = {};
    request.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
    ASSERT_TRUE(pAgent->Send(BytesOf(request)));
    ExpectList(*pAgent, L"Alice", 1);
}

TEST_F(DevServiceCommands, DisconnectAllOfAnAgentEndsItsConnectionsOnly)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    ExpectHeld(L"answers on\nagent all\nconnect Alice\nconnect Bob");
    MSG_TRAYICON_DISCONNECT_ALL request = {};
    request.dwType = MSG_TYPE_TRAYICON_DISCONNECT_ALL;
    ASSERT_TRUE(pSecond->Send(BytesOf(request)));
    for (DWORD dwCount = 1; dwCount <= 2; ++dwCount)
    {
        EXPECT_EQ(Received<MSG_TRAYICON_CONNECT>(*pFirst).dwConnectCount, dwCount);
        EXPECT_EQ(Received<MSG_TRAYICON_CONNECT>(*pSecond).dwConnectCount, dwCount);
    }
    ExpectConnect(*pSecond, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Alice", 1);
    ExpectConnect(*pSecond, MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, L"Bob", 0);
    ExpectHeld(L"agent 1\nlist");
    ExpectList(*pFirst, L"Alice\r\nBob", 2);
}

TEST_F(DevServiceCommands, ChosenLanguageIsStoredWhereTheAgentLooksAndThenReconfigured)
{
    const RegistrySandbox machine(HKEY_LOCAL_MACHINE);
    const RegistrySandbox user(HKEY_CURRENT_USER);
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    ASSERT_TRUE(ChooseLanguage(*pAgent, L"de"));
    EXPECT_EQ(Received<MSG_TRAYICON_SERVER_RECONFIGURE>(*pAgent).bReconfiguring, 0u);
    EXPECT_EQ(StoredLanguage(HKEY_CURRENT_USER), L"de");
    EXPECT_EQ(StoredLanguage(HKEY_LOCAL_MACHINE), L"");

    ExpectHeld(L"settings update dwExitLock2=1");
    EXPECT_EQ(FixedText(Received<MSG_TRAYICON_SETTINGS>(*pAgent).szLanguage), L"de");
    ASSERT_TRUE(ChooseLanguage(*pAgent, L"fr"));
    EXPECT_EQ(Received<MSG_TRAYICON_SERVER_RECONFIGURE>(*pAgent).dwType,
              static_cast<DWORD>(MSG_TYPE_TRAYICON_SERVER_RECONFIGURE));
    EXPECT_EQ(StoredLanguage(HKEY_CURRENT_USER), L"de");
    EXPECT_EQ(StoredLanguage(HKEY_LOCAL_MACHINE), L"fr");
}

TEST_F(DevServiceCommands, LanguageThatDoesntExistIsNotStored)
{
    const RegistrySandbox machine(HKEY_LOCAL_MACHINE);
    const RegistrySandbox user(HKEY_CURRENT_USER);
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    ASSERT_TRUE(ChooseLanguage(*pAgent, L"..\\"));
    ExpectHeld(L"expect LANGUAGE");
    EXPECT_TRUE(Logged(L"not answered: there is no language \"..\\\\\""));
    EXPECT_EQ(StoredLanguage(HKEY_CURRENT_USER), L"");
    EXPECT_TRUE(pAgent->Connection().StaysSilent(SILENCE_MS));
}

// The agent sees changes and answers in one order: whatever it has been told last is what the next list says.
TEST_F(DevServiceCommands, AnswersAndChangesNeverOvertakeEachOther)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"answers on");
    constexpr DWORD dwRequests = 200;
    std::thread asker([&pAgent] {
        MSG_TRAYICON_CONNECT_NOTIFY_ALL request = {};
        request.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
        for (DWORD dwRequest = 0; dwRequest < dwRequests; ++dwRequest)
        {
            EXPECT_TRUE(pAgent->Send(BytesOf(request)));
        }
    });
    std::thread reader([&pAgent] {
        DWORD dwTold = 0;
        for (DWORD dwLists = 0; dwLists < dwRequests;)
        {
            const DWORD dwType = Received<DWORD>(*pAgent);
            std::vector<BYTE> rest(FindMessageDescription(dwType, MESSAGE_FROM_SERVICE)->pRecord->uSize -
                                   sizeof(dwType));
            ASSERT_TRUE(pAgent->Connection().ReceiveExactly(rest.data(), rest.size(), PATIENCE_MS));
            if (dwType == MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL)
            {
                DWORD dwListed = 0;
                memcpy(&dwListed, rest.data() + rest.size() - sizeof(dwListed), sizeof(dwListed));
                EXPECT_EQ(dwListed, dwTold);
                ++dwLists;
            }
            else
            {
                memcpy(&dwTold, rest.data() + offsetof(MSG_TRAYICON_CONNECT, dwConnectCount) - sizeof(dwType),
                       sizeof(dwTold));
            }
        }
    });
    ExpectHeld(L"repeat 40\nconnect Alice\nconnect Bob\ndisconnect Alice\ndisconnect all\nend");
    asker.join();
    reader.join();
}

TEST_F(DevServiceCommands, MarkersAreSetAndRemovedByName)
{
    ExpectHeld(L"marker oti on\nmarker oti on");
    EXPECT_TRUE(CSimultanousSessionMutex::IsOtiSession());
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
    ExpectHeld(L"marker local on\nmarker oti off");
    EXPECT_FALSE(CSimultanousSessionMutex::IsOtiSession());
    EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession());
    ExpectHeld(L"marker local off\nmarker local off");
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
}

TEST_F(DevServiceCommands, LocalSessionIsMarkedWhileAnybodyIsConnectedAnywhere)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    ExpectHeld(L"agent all\nconnect Alice\nagent 1\ndisconnect Alice");
    EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession());
    EXPECT_FALSE(CSimultanousSessionMutex::IsOtiSession());
    ExpectHeld(L"marker local on\nmarker local off");
    EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession()) << "the viewers' marker is their own";
    ExpectHeld(L"agent 2\ndisconnect Alice");
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
}

TEST_F(DevServiceCommands, ViewersGoWithTheAgentsConnection)
{
    const auto pAgent = Arrive();
    ExpectHeld(L"connect Alice");
    EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession());
    pAgent->Connection().Close();
    ASSERT_EQ(m_service.WaitForClose(1, PATIENCE_MS), WAIT_RESULT::Met);
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
    EXPECT_EQ(ErrorOf(L"disconnect Alice"), "line 1: agent 1 has no viewer \"Alice\"");
    EXPECT_EQ(ErrorOf(L"connect Bob"), "line 1: agent 1 is gone or takes nothing");
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
}

TEST_F(DevServiceCommands, PlayedSessionAnswersAndNotifiesAllAgents)
{
    const NoticeWindow first;
    const NoticeWindow second;
    SESSION_SCRIPT script = {};
    EXPECT_FALSE(ReadPlayedSession(script)) << "nobody plays yet";
    ExpectHeld(L"played-session locked");
    ASSERT_TRUE(ReadPlayedSession(script));
    EXPECT_EQ(script.nConnectState, WTSDisconnected);
    EXPECT_EQ(script.nSessionFlags, SESSION_FLAGS_LOCKED);
    EXPECT_EQ(script.nLevel, SESSION_KNOWN_LEVEL);
    EXPECT_EQ(first.Notices(), std::vector<WPARAM>{WTS_SESSION_LOCK});
    ExpectHeld(L"played-session unlocked");
    ASSERT_TRUE(ReadPlayedSession(script));
    EXPECT_EQ(script.nConnectState, WTSActive);
    EXPECT_EQ(script.nSessionFlags, SESSION_FLAGS_UNLOCKED);
    EXPECT_EQ(first.Notices(), std::vector<WPARAM>{WTS_SESSION_UNLOCK});
    EXPECT_EQ(second.Notices(), (std::vector<WPARAM>{WTS_SESSION_LOCK, WTS_SESSION_UNLOCK}));
}

TEST_F(DevServiceCommands, PlayedTellsWhetherTheModuleLiesBesideTheProgram)
{
    wchar_t szSystem[MAX_PATH] = {};
    ASSERT_NE(GetSystemDirectoryW(szSystem, MAX_PATH), 0u);
    EXPECT_TRUE(CPlayedSession::IsModuleIn(szSystem)) << "any wtsapi32.dll does";
    EXPECT_FALSE(CPlayedSession::IsModuleIn(Settings().programFolder));
    ExpectHeld(L"say played $played\nrepeat $played\nquit 1\nend");
    EXPECT_TRUE(Logged(L"played 0"));
}

TEST_F(DevServiceCommands, WallpaperGoesIntoTheUsersProfile)
{
    const ImportHook hook("user32.dll", "SystemParametersInfoW", &TakeWallpaper);
    g_wallpaper = {};
    ExpectHeld(L"wallpaper \"C:\\\\a b.bmp\"");
    EXPECT_EQ(g_wallpaper.uAction, static_cast<UINT>(SPI_SETDESKWALLPAPER));
    EXPECT_EQ(g_wallpaper.file, L"C:\\a b.bmp");
    EXPECT_EQ(g_wallpaper.uFlags, static_cast<UINT>(SPIF_UPDATEINIFILE | SPIF_SENDCHANGE));
    ExpectHeld(L"wallpaper \"\"");
    EXPECT_EQ(g_wallpaper.file, L"");
    g_wallpaper.bAnswer = FALSE;
    ExpectErrorWith(L"wallpaper none.bmp", "line 1: cannot show none.bmp: ");
}

TEST_F(DevServiceCommands, HelpListsEveryCommandInOrder)
{
    ExpectHeld(L"help");
    size_t nLast = 0;
    for (const wchar_t* const pszName :
         {L"addresses", L"agent", L"answers", L"connect", L"count", L"deletions", L"disconnect", L"effects",
          L"exit", L"invitations", L"list", L"listen", L"lock-state", L"marker", L"played-session",
          L"reconfigure", L"reverse", L"settings", L"wallpaper"})
    {
        const size_t nFound = Log().find(L" " + std::wstring(pszName) + L" ", nLast);
        ASSERT_NE(nFound, std::wstring::npos) << ToUtf8(pszName);
        nLast = nFound;
    }
}
