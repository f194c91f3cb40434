#include "tests/e2e/MenuTest.h"

#include "resources/resource.h"

#include <string>

namespace
{
constexpr wchar_t LIST_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist\\Reverse Connection";
constexpr wchar_t CONNECT_TITLE[] = L"Connect to a helper";
constexpr wchar_t JOIN_TITLE[] = L"Join a session";
constexpr wchar_t WAIT_TITLE[] = L"Connecting";
constexpr wchar_t LINE_BREAKS[] = L"\r\n";

/// What the real agent does when the person at the desktop calls out or joins; it remembers no hosts at
/// first.
class ReverseConnectionTest : public MenuTest
{
  protected:
    void SetUp() override
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, LIST_KEY);
        MenuTest::SetUp();
        MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.bReverseConnectMenu = 1;
        settings.bProxyAllowed = 1;
        CopyText(settings.szLanguage, L"en");
        ASSERT_TRUE(m_channel->Send(settings));
        ExpectEcho();
    }

    void TearDown() override { RegDeleteTreeW(HKEY_CURRENT_USER, LIST_KEY); }

    static HWND Control(const wchar_t* pszTitle, int nControl)
    {
        return GetDlgItem(FindShownWindow(pszTitle), nControl);
    }
    static void Type(const wchar_t* pszTitle, int nControl, const std::wstring& text)
    {
        SendMessageW(Control(pszTitle, nControl), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }
    static void Click(const wchar_t* pszTitle, int nControl)
    {
        PostMessageW(Control(pszTitle, nControl), BM_CLICK, 0, 0);
    }
    static std::wstring Text(const wchar_t* pszTitle, int nControl)
    {
        wchar_t szText[256] = {};
        SendMessageW(Control(pszTitle, nControl), WM_GETTEXT, 256, reinterpret_cast<LPARAM>(szText));
        return szText;
    }

    void ExpectRequest(MSG_REVERSE_CONNECTION expected)
    {
        expected.dwType = MSG_TYPE_REVERSE_CONNECTION;
        const auto bytes = m_channel->TakeRecord(MSG_TYPE_REVERSE_CONNECTION, PATIENCE_MS);
        ASSERT_TRUE(bytes.has_value());
        ASSERT_EQ(bytes->size(), sizeof(expected));
        EXPECT_EQ(memcmp(bytes->data(), &expected, sizeof(expected)), 0);
    }

    void SendResult(DWORD dwCode, const wchar_t* pszError = L"", DWORD bOneTime = 0)
    {
        MSG_REVERSE_CONNECTION record = {};
        record.dwType = MSG_TYPE_REVERSE_CONNECTION;
        record.dwReverseCode = dwCode;
        record.bOneTime = bOneTime;
        CopyText(record.szError, pszError);
        CopyText(record.szHost, L"viewer.example");
        record.dwPort = 6130;
        ASSERT_TRUE(m_channel->Send(record));
        ExpectEcho();
    }

    // The service's message is shown; it is read and closed.
    std::wstring CloseBox()
    {
        EXPECT_TRUE(WaitForWindow(QUESTION_TITLE, true));
        const HWND hBox = FindShownWindow(QUESTION_TITLE);
        std::wstring text;
        EnumChildWindows(
            hBox,
            [](HWND hChild, LPARAM lParam) -> BOOL {
                wchar_t szText[4096] = {};
                SendMessageW(hChild, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(szText));
                reinterpret_cast<std::wstring*>(lParam)->append(szText);
                return TRUE;
            },
            reinterpret_cast<LPARAM>(&text));
        PostMessageW(hBox, WM_COMMAND, IDOK, 0);
        EXPECT_TRUE(WaitForWindow(QUESTION_TITLE, false));
        return text;
    }

    // As the person at the desktop joins by that text.
    void Join(const std::wstring& text)
    {
        ChooseByKeys(L"J");
        ASSERT_TRUE(WaitForWindow(JOIN_TITLE, true));
        Type(JOIN_TITLE, IDC_JOIN_INVITATION, text);
        Click(JOIN_TITLE, IDOK);
        ASSERT_TRUE(WaitForWindow(JOIN_TITLE, false));
    }
};
} // namespace

TEST_F(ReverseConnectionTest, ACallThroughAProxyGoesOutByteForByteAndIsRemembered)
{
    ChooseByKeys(L"C");
    ASSERT_TRUE(WaitForWindow(CONNECT_TITLE, true));
    EXPECT_EQ(Text(CONNECT_TITLE, IDC_CONNECT_PORT), L"6130");
    Type(CONNECT_TITLE, IDC_CONNECT_HOST, L"\\\\viewer.example");
    Type(CONNECT_TITLE, IDC_CONNECT_PORT, L"4711");
    SendMessageW(Control(CONNECT_TITLE, IDC_CONNECT_USE_PROXY), BM_CLICK, 0, 0);
    Type(CONNECT_TITLE, IDC_CONNECT_PROXY_HOST, L"proxy.example");
    Type(CONNECT_TITLE, IDC_CONNECT_PROXY_PORT, L"8080");
    SendMessageW(Control(CONNECT_TITLE, IDC_CONNECT_USE_PROXY_SECRET), BM_CLICK, 0, 0);
    Type(CONNECT_TITLE, IDC_CONNECT_PROXY_SECRET, L"open sesame");
    Click(CONNECT_TITLE, IDOK);
    MSG_REVERSE_CONNECTION expected = {};
    expected.bProxyAllowed = 1;
    CopyText(expected.szHost, L"viewer.example");
    expected.dwPort = 4711;
    expected.bUseProxy = 1;
    CopyText(expected.szProxyHost, L"proxy.example");
    expected.dwProxyPort = 8080;
    CopyText(expected.szProxySecret, L"open sesame");
    ExpectRequest(expected);

    SendResult(REVERSE_CODE_SHOW_WAIT);
    EXPECT_TRUE(WaitForWindow(WAIT_TITLE, true));
    SendResult(REVERSE_CODE_FINISHED, L"Nobody answers.");
    EXPECT_TRUE(WaitForWindow(WAIT_TITLE, false));
    const std::wstring text = CloseBox();
    EXPECT_NE(text.find(L"Nobody answers."), std::wstring::npos);
    EXPECT_NE(text.find(std::wstring(LINE_BREAKS) + L"Host: viewer.example"), std::wstring::npos);

    ChooseByKeys(L"C");
    ASSERT_TRUE(WaitForWindow(CONNECT_TITLE, true));
    EXPECT_EQ(Text(CONNECT_TITLE, IDC_CONNECT_HOST), L"viewer.example");
    EXPECT_EQ(Text(CONNECT_TITLE, IDC_CONNECT_PORT), L"4711");
    EXPECT_EQ(Text(CONNECT_TITLE, IDC_CONNECT_PROXY_HOST), L"proxy.example");
    EXPECT_EQ(Text(CONNECT_TITLE, IDC_CONNECT_PROXY_SECRET), L"");
    ASSERT_TRUE(PressKey(L"Escape"));
    EXPECT_TRUE(WaitForWindow(CONNECT_TITLE, false));
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_REVERSE_CONNECTION), 0U);
    ExpectEndWithService();
}

TEST_F(ReverseConnectionTest, AJoinThatIsCancelledTellsTheServiceAndWaitsForItsWord)
{
    Join(L" \r\nan invitation\r\nof two lines \r\n");
    MSG_REVERSE_CONNECTION expected = {};
    expected.bProxyAllowed = 1;
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, L"an invitation\r\nof two lines");
    ExpectRequest(expected);

    SendResult(REVERSE_CODE_SHOW_WAIT);
    ASSERT_TRUE(WaitForWindow(WAIT_TITLE, true));
    ASSERT_TRUE(PressKey(L"Escape"));
    EXPECT_TRUE(WaitForWindow(WAIT_TITLE, false));
    MSG_REVERSE_CONNECTION cancel = {};
    cancel.dwReverseCode = 103;
    ExpectRequest(cancel);
    SendResult(REVERSE_CODE_CLOSE_WAIT);
    SendResult(REVERSE_CODE_FINISHED, L"NOERROR", 1);
    EXPECT_EQ(FindShownWindow(QUESTION_TITLE), nullptr);

    Join(std::wstring(9000, L'x'));
    expected = MSG_REVERSE_CONNECTION();
    expected.bProxyAllowed = 1;
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, std::wstring(8095, L'x'));
    ExpectRequest(expected);
    ExpectEndWithService();
}

TEST_F(ReverseConnectionTest, ASecondJoinBringsTheFirstToTheFrontAndTheServiceSendsItAway)
{
    ChooseByKeys(L"J");
    ASSERT_TRUE(WaitForWindow(JOIN_TITLE, true));
    const HWND hDialog = FindShownWindow(JOIN_TITLE);
    ChooseByKeys(L"J");
    EXPECT_TRUE(m_folder.WaitForLog("Join Internet Session dialog exists, bringing to top.", PATIENCE_MS));
    EXPECT_EQ(FindShownWindow(JOIN_TITLE), hDialog);
    SendResult(REVERSE_CODE_SHOW_WAIT);
    EXPECT_TRUE(WaitForWindow(JOIN_TITLE, false));
    EXPECT_TRUE(WaitForWindow(WAIT_TITLE, true));
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_REVERSE_CONNECTION), 0U);
    ExpectEndWithService();
}

TEST_F(ReverseConnectionTest, AnEndOfTheServiceClosesEveryDialog)
{
    ChooseByKeys(L"C");
    ASSERT_TRUE(WaitForWindow(CONNECT_TITLE, true));
    ChooseByKeys(L"J");
    ASSERT_TRUE(WaitForWindow(JOIN_TITLE, true));
    ExpectEndWithService();
}

TEST_F(ReverseConnectionTest, AnInvitedOneTimeAgentEndsWithItsFailedJoin)
{
    ExpectEndWithService();
    StartAgent(L"-onetimesession " + ServicePort());
    AcceptAgent();
    ShakeHands();
    m_hTray = m_agent->WaitForTrayWindow(PATIENCE_MS);
    ASSERT_TRUE(m_channel->Send(PlainSettings()));
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    init.bOneTimeInvitation = 1;
    CopyText(init.szInvitation, L"the service's invitation");
    ASSERT_TRUE(m_channel->Send(init));
    ExpectEcho();
    ChooseByKeys(L"J");
    MSG_REVERSE_CONNECTION expected = {};
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, L"the service's invitation");
    ExpectRequest(expected);
    SendResult(REVERSE_CODE_FINISHED, L"busy", 1);
    CloseBox();
    EXPECT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_EXIT, PATIENCE_MS).has_value());
    ExpectExit(*m_agent, EXIT_CODE_ASKED_TO_END);
}
