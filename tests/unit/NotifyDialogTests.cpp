#include "dialogs/NotifyDialog.h"

#include "Include/BoundedText.h"
#include "dialogs/GradientFill.h"
#include "dialogs/NotifyText.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/DialogMeasures.h"
#include "tests/unit/HeldKey.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace
{
constexpr LPARAM ALT_IS_DOWN = 1 << 29;
using Calls = std::vector<std::string>;

bool IsShown(HWND hPopup, int nControl)
{
    return IsWindowVisible(GetDlgItem(hPopup, nControl)) != FALSE;
}

RECT ControlRect(HWND hPopup, int nControl)
{
    RECT rect = {};
    GetWindowRect(GetDlgItem(hPopup, nControl), &rect);
    MapWindowPoints(nullptr, hPopup, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

std::string Place(HWND hWnd)
{
    RECT rect = {};
    GetWindowRect(hWnd, &rect);
    return std::to_string(rect.right) + "," + std::to_string(rect.bottom);
}

// Colours of one column of the popup, top to bottom, as they were painted.
std::vector<COLORREF> PaintedColumn(HWND hPopup, int nX)
{
    RECT client = {};
    GetClientRect(hPopup, &client);
    const HDC hDC = GetDC(hPopup);
    std::vector<COLORREF> column;
    column.reserve(static_cast<size_t>(client.bottom));
    for (int nY = 0; nY < client.bottom; ++nY)
    {
        column.push_back(GetPixel(hDC, nX, nY));
    }
    ReleaseDC(hPopup, hDC);
    return column;
}

std::vector<std::wstring> g_drawnTexts;
std::vector<UINT> g_drawnFormats;
std::vector<HFONT> g_drawnFonts;
std::vector<LONG> g_drawnHeights;
decltype(&DrawTextW) g_pfnDrawText = nullptr;

int WINAPI RecordDrawText(HDC hDC, LPCWSTR pszText, int cchText, LPRECT pRect, UINT uFormat)
{
    if ((uFormat & DT_CALCRECT) == 0)
    {
        g_drawnTexts.emplace_back(pszText, static_cast<size_t>(cchText));
        g_drawnFormats.push_back(uFormat);
        g_drawnFonts.push_back(static_cast<HFONT>(GetCurrentObject(hDC, OBJ_FONT)));
        LOGFONTW font = {};
        GetObjectW(g_drawnFonts.back(), sizeof(font), &font);
        g_drawnHeights.push_back(font.lfHeight);
        EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
    }
    return g_pfnDrawText(hDC, pszText, cchText, pRect, uFormat);
}

int WINAPI DoubleResolution(HDC, int nCapability)
{
    return nCapability == LOGPIXELSY ? 192 : 1;
}

std::vector<std::string> g_selections;
decltype(&SendMessageW) g_pfnSendMessage = nullptr;

LRESULT WINAPI RecordSelection(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == EM_SETSEL)
    {
        g_selections.push_back(std::to_string(wParam) + "," + std::to_string(lParam));
    }
    return g_pfnSendMessage(hWnd, uMessage, wParam, lParam);
}

std::vector<std::string> g_drawnIcons;

BOOL WINAPI RecordDrawIcon(HDC, int nX, int nY, HICON hIcon)
{
    g_drawnIcons.push_back(std::to_string(nX) + "," + std::to_string(nY));
    EXPECT_NE(hIcon, nullptr);
    return TRUE;
}

std::vector<std::string> g_fillCalls;
decltype(&ShowWindow) g_pfnShowWindow = nullptr;
decltype(&SetDlgItemTextW) g_pfnSetText = nullptr;
decltype(&PostMessageW) g_pfnPost = nullptr;

BOOL WINAPI RecordShow(HWND hWnd, int nShow)
{
    g_fillCalls.push_back((nShow == SW_HIDE ? "hide " : "show ") + std::to_string(GetDlgCtrlID(hWnd)));
    return g_pfnShowWindow(hWnd, nShow);
}

BOOL WINAPI RecordText(HWND hDlg, int nControl, LPCWSTR pszText)
{
    g_fillCalls.push_back("text " + std::to_string(nControl));
    return g_pfnSetText(hDlg, nControl, pszText);
}

BOOL WINAPI RecordPost(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_PLAY_NOTIFY_SOUND)
    {
        g_fillCalls.push_back("sound " + std::to_string(lParam));
    }
    return g_pfnPost(hWnd, uMessage, wParam, lParam);
}

class NotifyDialogTest : public DialogHarness
{
  protected:
    void SetUp() override
    {
        DialogHarness::SetUp();
        Window().m_Connection = Alice();
        CopyText(Window().m_Settings.szNotifyText, L"Head");
        CopyText(Window().m_Settings.szNotifyConnectText, L"First");
    }

    bool IsGone(HWND hPopup) { return !IsWindow(hPopup) && Window().m_hNotifyDlg == nullptr; }

    HWND ShowList(DWORD bListClients, DWORD dwConnectCount)
    {
        Window().m_Connection.bListClients = bListClients;
        Window().m_Connection.dwConnectCount = dwConnectCount;
        Window().m_ConnectedList.dwClientCount = dwConnectCount;
        CopyText(Window().m_ConnectedList.szClientList, L"Alice\r\nBob\r\nCarol");
        return ShowPopup(NOTIFY_MODE_EVERYONE);
    }
};
} // namespace

// ---- What is shown.

TEST_F(NotifyDialogTest, TellsWhoHasConnected)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    ASSERT_TRUE(IsWindowVisible(hPopup));
    EXPECT_EQ(GetWindow(hPopup, GW_OWNER), Window().m_hWnd);
    EXPECT_NE(GetWindowLongPtrW(hPopup, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_HEAD), L"Head");
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY),
              L"First\r\n" + m_language.Text(IDS_NOTIFY_NAME) + L"Alice\r\n" +
                  m_language.Text(IDS_NOTIFY_ORGANISATION) + L"Example Ltd\r\n" +
                  m_language.Text(IDS_NOTIFY_COMPUTER) + L"HELPDESK");
    EXPECT_FALSE(IsShown(hPopup, IDC_NOTIFY_BODY)) << "the window paints it";
    EXPECT_TRUE(IsShown(hPopup, IDC_NOTIFY_HEAD));
    EXPECT_FALSE(IsShown(hPopup, IDC_NOTIFY_DISCONNECT));
}

TEST_F(NotifyDialogTest, TellsWhoHasLeft)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_DISCONNECTED);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_HEAD), L"Head");
    EXPECT_TRUE(
        ControlText(hPopup, IDC_NOTIFY_BODY).starts_with(m_language.Text(IDS_NOTIFY_DISCONNECTED) + L"\r\n"));
    EXPECT_FALSE(IsShown(hPopup, IDC_NOTIFY_BODY));
}

TEST_F(NotifyDialogTest, WithoutAHeadTextAConnectionKeepsTheTemplatesAndADisconnectionHasNone)
{
    Window().m_Settings.szNotifyText[0] = L'\0';
    EXPECT_GT(ControlText(ShowPopup(NOTIFY_MODE_CONNECTED), IDC_NOTIFY_HEAD).size(), 5U);
    EXPECT_EQ(ControlText(ShowPopup(NOTIFY_MODE_DISCONNECTED), IDC_NOTIFY_HEAD), L"");
}

TEST_F(NotifyDialogTest, TheCaptionIsTheServicesIfItHasOne)
{
    wchar_t szCaption[300] = {};
    GetWindowTextW(ShowPopup(NOTIFY_MODE_CONNECTED), szCaption, 300);
    EXPECT_STREQ(szCaption, L"Kestrel Desk Assist");
    std::fill(std::begin(Window().m_Settings.szNotifyTitle), std::end(Window().m_Settings.szNotifyTitle),
              L't');
    GetWindowTextW(ShowPopup(NOTIFY_MODE_CONNECTED), szCaption, 300);
    EXPECT_EQ(szCaption, std::wstring(260, L't')) << "a field without a terminator";
}

TEST_F(NotifyDialogTest, ListsEveryoneConnected)
{
    const HWND hPopup = ShowList(0, 3);
    EXPECT_NE(ControlText(hPopup, IDC_NOTIFY_HEAD).find(L'3'), std::wstring::npos);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY), L"Alice\r\nBob\r\nCarol");
    EXPECT_TRUE(IsShown(hPopup, IDC_NOTIFY_BODY));
    const HWND hBody = GetDlgItem(hPopup, IDC_NOTIFY_BODY);
    EXPECT_NE(GetWindowLongPtrW(hBody, GWL_STYLE) & WS_VSCROLL, 0);
    EXPECT_EQ(SendMessageW(hBody, EM_GETSEL, 0, 0), 0);
    EXPECT_EQ(GetFocus(), hBody);
    EXPECT_NE(GetWindowLongPtrW(hPopup, GWL_STYLE) & WS_SYSMENU, 0);
    EXPECT_FALSE(IsShown(hPopup, IDC_NOTIFY_DISCONNECT));
    EXPECT_TRUE(m_trace.Calls("sound").empty()) << "asked for, so not announced";
}

TEST_F(NotifyDialogTest, TheHeadTellsTheListsCountAndTheBodyGoesByTheConnections)
{
    Window().m_ConnectedList.dwClientCount = 5;
    CopyText(Window().m_ConnectedList.szClientList, L"Alice");
    Window().m_Connection.dwConnectCount = 0;
    HWND hPopup = ShowPopup(NOTIFY_MODE_EVERYONE);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_HEAD), ComposeConnectedCount(5));
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY), m_language.Text(IDS_NOTIFY_NOBODY));
    Window().m_ConnectedList.dwClientCount = 0;
    Window().m_Connection.dwConnectCount = 1;
    hPopup = ShowPopup(NOTIFY_MODE_EVERYONE);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_HEAD), ComposeConnectedCount(0));
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY), L"Alice");
}

TEST_F(NotifyDialogTest, AListIsShownFromItsBeginning)
{
    const ImportHook hook("user32.dll", "SendMessageW", &RecordSelection);
    g_pfnSendMessage = hook.Original();
    g_selections.clear();
    ShowList(0, 3);
    EXPECT_EQ(g_selections, Calls{"0,0"});
    ShowList(1, 3);
    EXPECT_EQ(g_selections.size(), 2U);
}

TEST_F(NotifyDialogTest, APopupIsFilledBeforeItsSoundIsAskedFor)
{
    const ImportHook show("user32.dll", "ShowWindow", &RecordShow);
    const ImportHook text("user32.dll", "SetDlgItemTextW", &RecordText);
    const ImportHook post("user32.dll", "PostMessageW", &RecordPost);
    g_pfnShowWindow = show.Original();
    g_pfnSetText = text.Original();
    g_pfnPost = post.Original();
    g_fillCalls.clear();
    ShowPopup(NOTIFY_MODE_CONNECTED);
    const auto isOfPopup = [](const std::string& call) { return call.ends_with(" 0") && call != "sound 0"; };
    std::erase_if(g_fillCalls, isOfPopup);
    EXPECT_EQ(g_fillCalls, (Calls{"hide 1001", "text 1002", "text 1001", "sound 0"}));
    g_fillCalls.clear();
    ShowPopup(NOTIFY_MODE_DISCONNECTED);
    std::erase_if(g_fillCalls, isOfPopup);
    EXPECT_EQ(g_fillCalls, (Calls{"hide 1001", "text 1002", "text 1001", "sound 1"}));
}

TEST_F(NotifyDialogTest, SaysSoWhenNobodyIsConnected)
{
    const HWND hPopup = ShowList(0, 0);
    EXPECT_NE(ControlText(hPopup, IDC_NOTIFY_HEAD).find(L'0'), std::wstring::npos);
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY), m_language.Text(IDS_NOTIFY_NOBODY));
    EXPECT_TRUE(IsShown(hPopup, IDC_NOTIFY_BODY));
    EXPECT_EQ(GetWindowLongPtrW(GetDlgItem(hPopup, IDC_NOTIFY_BODY), GWL_STYLE) & WS_VSCROLL, 0);
}

TEST_F(NotifyDialogTest, AnUnknownModeShowsAnEmptyPopup)
{
    const HWND hPopup = ShowPopup(static_cast<NOTIFY_MODE>(4));
    ASSERT_TRUE(IsWindow(hPopup));
    EXPECT_EQ(ControlText(hPopup, IDC_NOTIFY_BODY), L"");
    EXPECT_TRUE(m_trace.Calls("sound").empty());
}

TEST_F(NotifyDialogTest, WithoutAnObjectNothingHappens)
{
    const HWND hPopup = CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_NOTIFY), Window().m_hWnd,
                                           NotifyWndProc, 0);
    ASSERT_TRUE(IsWindow(hPopup));
    EXPECT_FALSE(IsWindowVisible(hPopup));
    for (const UINT uMessage :
         std::initializer_list<UINT>{WM_TIMER, WM_CLOSE, WM_COMMAND, WM_PLAY_NOTIFY_SOUND})
    {
        SendMessageW(hPopup, uMessage, 0, 0);
    }
    EXPECT_TRUE(IsWindow(hPopup));
    DestroyWindow(hPopup);
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    EXPECT_TRUE(m_trace.Calls("sound").empty());
}

// ---- The fixed form.

TEST_F(NotifyDialogTest, TheFixedFormHasNoSystemMenuAndAButtonThatAsksToDisconnect)
{
    const HWND hPopup = ShowList(1, 2);
    EXPECT_EQ(GetWindowLongPtrW(hPopup, GWL_STYLE) & WS_SYSMENU, 0);
    EXPECT_TRUE(IsShown(hPopup, IDC_NOTIFY_DISCONNECT));
    EXPECT_NE(GetFocus(), GetDlgItem(hPopup, IDC_NOTIFY_BODY)) << "nobody asked for it";
    SendMessageW(GetDlgItem(hPopup, IDC_NOTIFY_DISCONNECT), BM_CLICK, 0, 0);
    PumpMessages();
    EXPECT_EQ(m_trace.Calls("message"), Calls{"message 273 40005"});
    EXPECT_TRUE(IsWindow(hPopup));
}

TEST_F(NotifyDialogTest, TheFixedFormIgnoresCloseBoxAndTimer)
{
    const HWND hPopup = ShowList(1, 0);
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(m_trace.Calls("kill").empty());
    SendMessageW(hPopup, WM_TIMER, TIMER_CLOSE_NOTIFY, 0);
    EXPECT_TRUE(IsWindow(hPopup)) << "outlives its timer";
    SendMessageW(Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
    EXPECT_TRUE(IsGone(hPopup)) << "the agent takes it down";
}

TEST_F(NotifyDialogTest, TheFixedFormsButtonIsReachedByTabBothWaysAndPressedByItsLetter)
{
    const HWND hPopup = ShowList(1, 2);
    const HWND hBody = GetDlgItem(hPopup, IDC_NOTIFY_BODY);
    const HWND hButton = GetDlgItem(hPopup, IDC_NOTIFY_DISCONNECT);
    SetForegroundWindow(hPopup);
    PumpMessages();
    ASSERT_EQ(GetFocus(), hBody);
    const auto press = [](WPARAM wKey) {
        SendMessageW(GetFocus(), WM_KEYDOWN, wKey, 0);
        SendMessageW(GetFocus(), WM_CHAR, wKey, 0);
    };
    press(VK_TAB);
    EXPECT_EQ(GetFocus(), hButton);
    EXPECT_EQ(SendMessageW(hButton, WM_QUERYUISTATE, 0, 0), 0) << "and is seen to be";
    press(VK_TAB);
    EXPECT_EQ(GetFocus(), hBody);
    {
        const HeldKey held(VK_SHIFT);
        press(VK_TAB);
    }
    EXPECT_EQ(GetFocus(), hButton);
    press(VK_RETURN);
    press(VK_ESCAPE);
    SendMessageW(hBody, WM_SYSCHAR, L'x', ALT_IS_DOWN);
    PumpMessages();
    EXPECT_TRUE(m_trace.Calls("message").empty()) << "nobody was to be disconnected by that";
    SendMessageW(hBody, WM_SYSCHAR, MarkedKey(TextOf(hButton)), ALT_IS_DOWN);
    PumpMessages();
    EXPECT_EQ(m_trace.Calls("message"), Calls{"message 273 40005"});
    EXPECT_TRUE(IsWindow(hPopup));
}

TEST_F(NotifyDialogTest, AButtonThatIsNotShownHasNoLetter)
{
    const HWND hPopup = ShowList(0, 2);
    SendMessageW(GetDlgItem(hPopup, IDC_NOTIFY_BODY), WM_SYSCHAR,
                 MarkedKey(TextOf(GetDlgItem(hPopup, IDC_NOTIFY_DISCONNECT))), ALT_IS_DOWN);
    PumpMessages();
    EXPECT_TRUE(m_trace.Calls("message").empty());
}

TEST_F(NotifyDialogTest, EnterEscapeAndClicksDoNothing)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    for (const int nCommand : {0, IDOK, IDCANCEL, IDC_NOTIFY_BODY})
    {
        EXPECT_EQ(NotifyWndProc(hPopup, WM_COMMAND, static_cast<WPARAM>(nCommand), 0), 1);
    }
    SendMessageW(hPopup, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(60, 60));
    SendMessageW(hPopup, WM_LBUTTONUP, 0, MAKELPARAM(60, 60));
    PumpMessages();
    EXPECT_TRUE(IsWindowVisible(hPopup));
    EXPECT_TRUE(m_trace.Calls("message").empty());
}

// ---- Closing.

TEST_F(NotifyDialogTest, ClosesByItsTimerAfterTheSecondsOfTheSettings)
{
    Window().m_Settings.dwNotifySeconds = 7;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(m_trace.Calls("timer"), Calls{"timer 222 7000"});
    SendMessageW(hPopup, WM_TIMER, TIMER_CLOSE_NOTIFY, 0);
    EXPECT_TRUE(IsGone(hPopup)) << "though a session is running";
    EXPECT_EQ(m_trace.Calls("kill").front(), "kill 222");
}

TEST_F(NotifyDialogTest, ARealTimerClosesIt)
{
    Window().m_Settings.dwNotifySeconds = 1;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_DISCONNECTED);
    while (IsWindow(hPopup)) // the watchdog bounds it
    {
        WaitMessage();
        PumpMessages();
    }
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, WithoutSecondsThereIsNoTimerAndTheCloseBoxCloses)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_TRUE(m_trace.Calls("timer").empty());
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, AnyTimerClosesIt)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    SendMessageW(hPopup, WM_TIMER, TIMER_CLOSE_NOTIFY + 1, 0);
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, AnAnnouncedConnectionThatRunsStaysAndIsNotTriedAgain)
{
    Window().m_Settings.dwNotifySeconds = 7;
    Window().m_Connection.dwConnectionType = 0;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    m_trace.Forget();
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(m_trace.Calls().empty()) << "the close box leaves the timer its try";
    SendMessageW(hPopup, WM_TIMER, TIMER_CLOSE_NOTIFY, 0);
    EXPECT_TRUE(IsWindowVisible(hPopup));
    EXPECT_EQ(Window().m_hNotifyDlg, hPopup);
    EXPECT_EQ(m_trace.Calls(), Calls{"kill 222"}) << "the system would try again and again";
    EXPECT_FALSE(KillTimer(hPopup, TIMER_CLOSE_NOTIFY)) << "there is none any more";
    Window().m_Connection.dwConnectCount = 0;
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, ANoticeToBeKeptStaysWhileSessionsRun)
{
    Window().m_Settings.bKeepNoticeOpen = 1;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsWindow(hPopup));
    Window().m_Connection.dwConnectCount = 0;
    SendMessageW(hPopup, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, APopupThatTheAgentHasForgottenTakesTheOtherAlong)
{
    const HWND hForgotten = ShowPopup(NOTIFY_MODE_CONNECTED);
    Window().m_hNotifyDlg = nullptr;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    SendMessageW(hForgotten, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hForgotten));
    EXPECT_TRUE(IsGone(hPopup));
}

TEST_F(NotifyDialogTest, ItsEndStopsTheTimerAndForgetsTheWindow)
{
    Window().m_Settings.dwNotifySeconds = 7;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    m_trace.Forget();
    DestroyWindow(hPopup);
    EXPECT_TRUE(IsGone(hPopup));
    EXPECT_EQ(m_trace.Calls(), Calls{"kill 222"});
}

TEST_F(NotifyDialogTest, ItsEndTakesTheGradientAwayFromAllDialogs)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    RECT rect = {0, 0, 1, 1};
    const HDC hDC = GetDC(nullptr);
    const HDC hMemory = CreateCompatibleDC(hDC);
    EXPECT_EQ(FillGradientRect(hMemory, &rect, 0, 0, FALSE), 1);
    DestroyWindow(hPopup);
    EXPECT_EQ(FillGradientRect(hMemory, &rect, 0, 0, FALSE), 0);
    DeleteDC(hMemory);
    ReleaseDC(nullptr, hDC);
}

TEST_F(NotifyDialogTest, TheNextPopupReplacesTheLast)
{
    const HWND hFirst = ShowPopup(NOTIFY_MODE_CONNECTED);
    const HWND hSecond = ShowPopup(NOTIFY_MODE_DISCONNECTED);
    EXPECT_FALSE(IsWindow(hFirst));
    EXPECT_TRUE(IsWindowVisible(hSecond));
}

// ---- The agent's messages.

TEST_F(NotifyDialogTest, AConnectNoticeIsNoLongerPendingWhenItsPopupStands)
{
    Window().m_Settings.bNotifyConnect = 1;
    ASSERT_EQ(Window().m_bNotifyPending, 1U);
    SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_CONNECT_NOTICE, 0);
    EXPECT_TRUE(IsWindowVisible(Window().m_hNotifyDlg));
    EXPECT_EQ(GetWindowLongPtrW(Window().m_hNotifyDlg, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&Window()));
    EXPECT_EQ(Window().m_bNotifyPending, 0U);
}

TEST_F(NotifyDialogTest, SettingsHoldBackOnlyTheConnectNoticeOfAnOrdinaryConnection)
{
    Window().m_dwConnectionType = 1;
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_CONNECT_NOTICE, 0), 1);
    EXPECT_EQ(Window().m_hNotifyDlg, nullptr);
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_EVERYONE_NOTICE, 0), 0);
    EXPECT_TRUE(IsWindow(Window().m_hNotifyDlg));
    SendMessageW(Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
    EXPECT_EQ(Window().m_hNotifyDlg, nullptr);
    Window().m_dwConnectionType = 2;
    SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_CONNECT_NOTICE, 0);
    EXPECT_TRUE(IsWindow(Window().m_hNotifyDlg));
}

TEST_F(NotifyDialogTest, ADisconnectNoticeLeavesWhatIsPending)
{
    ShowPopup(NOTIFY_MODE_DISCONNECTED);
    EXPECT_TRUE(IsWindow(Window().m_hNotifyDlg));
    EXPECT_EQ(Window().m_bNotifyPending, 1U);
}

TEST_F(NotifyDialogTest, WithoutATemplateThereIsNoPopupAndTheNextMessageTriesAgain)
{
    const HMODULE hLanguage = g_hResourceModule;
    g_hResourceModule = GetModuleHandleW(nullptr);
    EXPECT_EQ(ShowPopup(NOTIFY_MODE_CONNECTED), nullptr);
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_EVERYONE_NOTICE, 0), 0);
    EXPECT_EQ(Window().m_bNotifyPending, 1U);
    g_hResourceModule = hLanguage;
    EXPECT_TRUE(IsWindow(ShowPopup(NOTIFY_MODE_CONNECTED)));
}

TEST_F(NotifyDialogTest, TheEndOfTheAgentEndsItsPopup)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    SendMessageW(Window().m_hWnd, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsGone(hPopup));
}

// ---- The sound.

TEST_F(NotifyDialogTest, IsOnTheScreenBeforeItsSoundIsPlayed)
{
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(m_trace.Calls(), Calls{"sound WindowsLogon 73730 painted"});
    m_trace.Forget();
    ShowPopup(NOTIFY_MODE_DISCONNECTED);
    EXPECT_EQ(m_trace.Calls("sound"), Calls{"sound WindowsLogoff 73730 painted"});
}

TEST_F(NotifyDialogTest, AMissingSoundGivesABeep)
{
    m_bSoundWorks = false;
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(m_trace.Calls(), (Calls{"sound WindowsLogon 73730 painted", "beep 0"}));
}

TEST_F(NotifyDialogTest, TheSystemsAccountIsSilent)
{
    for (const wchar_t* pszName : {L"system", L"SYSTEM", L"System"})
    {
        m_userName = pszName;
        ShowPopup(NOTIFY_MODE_CONNECTED);
    }
    EXPECT_TRUE(m_trace.Calls("sound").empty());
    EXPECT_TRUE(m_trace.Calls("beep").empty());
    m_userName = L"systemd";
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(m_trace.Calls("sound").size(), 1U);
}

TEST_F(NotifyDialogTest, AQuietNoticeIsSilentForTheOrdinaryDefaultOnly)
{
    Window().m_Settings.bQuietNotify = 1;
    Window().m_Settings.dwDefaultConnectionType = 1;
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_TRUE(m_trace.Calls("sound").empty());
    Window().m_Settings.dwDefaultConnectionType = 0;
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(m_trace.Calls("sound").size(), 1U);
}

// ---- Place and focus.

TEST_F(NotifyDialogTest, StandsInTheTrayCornerAndReturnsThereWhenTheScreenChanges)
{
    g_taskbarAnswer.bAnswers = true;
    g_taskbarAnswer.uEdge = ABE_BOTTOM;
    g_taskbarAnswer.rect = {0, GetSystemMetrics(SM_CYSCREEN) - 50, GetSystemMetrics(SM_CXSCREEN),
                            GetSystemMetrics(SM_CYSCREEN)};
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    const std::string corner = std::to_string(GetSystemMetrics(SM_CXSCREEN) - 4) + "," +
                               std::to_string(GetSystemMetrics(SM_CYSCREEN) - 54);
    EXPECT_EQ(Place(hPopup), corner);
    SetWindowPos(hPopup, nullptr, 10, 10, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    ASSERT_NE(Place(hPopup), corner);
    SendMessageW(hPopup, WM_DISPLAYCHANGE, 32, MAKELPARAM(1024, 768));
    EXPECT_EQ(Place(hPopup), corner);
}

TEST_F(NotifyDialogTest, LooksForAShellEachTimeItIsShown)
{
    static std::vector<std::wstring> s_classes;
    const ImportHook hook(
        "user32.dll", "FindWindowW", +[](LPCWSTR pszClass, LPCWSTR) -> HWND {
            s_classes.emplace_back(pszClass);
            return nullptr;
        });
    s_classes.clear();
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(s_classes, std::vector<std::wstring>{L"Shell_TrayWnd"});
    ShowPopup(NOTIFY_MODE_DISCONNECTED);
    EXPECT_EQ(s_classes.size(), 2U);
}

TEST_F(NotifyDialogTest, NeverTakesTheFocusByItself)
{
    const HWND hOther = CreateWindowExW(0, L"STATIC", L"other", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 300,
                                        200, nullptr, nullptr, nullptr, nullptr);
    const HWND hEdit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE, 0, 0, 100, 30, hOther, nullptr,
                                       nullptr, nullptr);
    SetForegroundWindow(hOther);
    SetFocus(hEdit);
    PumpMessages();
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        for (const NOTIFY_MODE mode : {NOTIFY_MODE_CONNECTED, NOTIFY_MODE_DISCONNECTED})
        {
            ShowPopup(mode);
            EXPECT_EQ(GetForegroundWindow(), hOther);
            EXPECT_EQ(GetFocus(), hEdit);
        }
        ShowList(1, 2);
        EXPECT_EQ(GetForegroundWindow(), hOther);
        EXPECT_EQ(GetFocus(), hEdit);
        SendMessageW(GetFocus(), WM_CHAR, L'x', 0);
        SendMessageW(Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
        EXPECT_EQ(GetForegroundWindow(), hOther);
    }
    wchar_t szText[8] = {};
    GetWindowTextW(hEdit, szText, 8);
    EXPECT_STREQ(szText, L"xxx");
    DestroyWindow(hOther);
}

// ---- Painting.

TEST_F(NotifyDialogTest, PaintsTheGradientAndTheBodyOnIt)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    const std::vector<COLORREF> column = PaintedColumn(hPopup, 0);
    ASSERT_GT(column.size(), 50U);
    EXPECT_NEAR(GetRValue(column.front()), 0xDD, 2);
    EXPECT_NEAR(GetBValue(column.front()), 0xFE, 2);
    EXPECT_NEAR(GetRValue(column.back()), 0x81, 3);
    EXPECT_NEAR(GetGValue(column.back()), 0xA9, 3);
    EXPECT_TRUE(std::is_sorted(column.begin(), column.end(), [](COLORREF crLeft, COLORREF crRight) {
        return GetRValue(crLeft) > GetRValue(crRight);
    }));
    const RECT body = ControlRect(hPopup, IDC_NOTIFY_BODY);
    size_t nDark = 0;
    for (int nX = body.left; nX < body.left + 40; ++nX)
    {
        const std::vector<COLORREF> text = PaintedColumn(hPopup, nX);
        nDark += static_cast<size_t>(std::count_if(text.begin() + body.top, text.begin() + body.bottom,
                                                   [](COLORREF cr) { return GetRValue(cr) < 0x40; }));
    }
    EXPECT_GT(nDark, 50U) << "black letters";
}

TEST_F(NotifyDialogTest, DrawsTheBodyInTheStockFontAndANameWithAnAmpersandInFull)
{
    g_drawnTexts.clear();
    g_drawnFormats.clear();
    g_drawnFonts.clear();
    const ImportHook hook("user32.dll", "DrawTextW", &RecordDrawText);
    g_pfnDrawText = hook.Original();
    CopyText(Window().m_Connection.szClientName, L"R&D && Co");
    ShowPopup(NOTIFY_MODE_CONNECTED);
    ASSERT_FALSE(g_drawnTexts.empty());
    EXPECT_EQ(g_drawnFormats.front(), 8208U);
    EXPECT_EQ(g_drawnFonts.front(), static_cast<HFONT>(GetStockObject(ANSI_VAR_FONT)));
    EXPECT_NE(g_drawnTexts.front().find(L"R&&D &&&& Co\r\n"), std::wstring::npos);
    g_drawnTexts.clear();
    ShowList(0, 3);
    EXPECT_TRUE(g_drawnTexts.empty()) << "the control shows itself";
}

TEST_F(NotifyDialogTest, DrawsTheProductsIconInItsCornerInEachForm)
{
    const ImportHook hook("user32.dll", "DrawIcon", &RecordDrawIcon);
    for (const NOTIFY_MODE mode : {NOTIFY_MODE_CONNECTED, NOTIFY_MODE_EVERYONE})
    {
        g_drawnIcons.clear();
        ShowPopup(mode);
        ASSERT_FALSE(g_drawnIcons.empty());
        EXPECT_EQ(g_drawnIcons.front(), "2,2");
    }
}

TEST_F(NotifyDialogTest, HasAPlainColourInReserve)
{
    static std::vector<COLORREF> s_colours;
    static decltype(&CreateSolidBrush) s_pfnCreate = nullptr;
    const ImportHook hook(
        "gdi32.dll", "CreateSolidBrush", +[](COLORREF crColor) -> HBRUSH {
            s_colours.push_back(crColor);
            return s_pfnCreate(crColor);
        });
    s_pfnCreate = hook.Original();
    s_colours.clear();
    ShowPopup(NOTIFY_MODE_CONNECTED);
    EXPECT_EQ(s_colours, std::vector<COLORREF>{0xF6DAC4});
}

TEST_F(NotifyDialogTest, AtTwiceTheResolutionTheBodyIsTwiceAsLarge)
{
    g_drawnHeights.clear();
    const ImportHook drawText("user32.dll", "DrawTextW", &RecordDrawText);
    g_pfnDrawText = drawText.Original();
    ShowPopup(NOTIFY_MODE_CONNECTED);
    const ImportHook deviceCaps("gdi32.dll", "GetDeviceCaps", &DoubleResolution);
    ShowPopup(NOTIFY_MODE_CONNECTED);
    ASSERT_GE(g_drawnHeights.size(), 2U);
    EXPECT_EQ(g_drawnHeights.back(), 2 * g_drawnHeights.front());
}

TEST_F(NotifyDialogTest, WithoutAGradientThePlainDialogIsReadable)
{
    m_binding.SetMissing("GradientFill");
    UnloadGradientFill();
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    const std::vector<COLORREF> column = PaintedColumn(hPopup, 0);
    EXPECT_EQ(column.front(), GetSysColor(COLOR_3DFACE));
    EXPECT_EQ(column.back(), GetSysColor(COLOR_3DFACE));
    const HDC hDC = GetDC(hPopup);
    EXPECT_NE(SendMessageW(hPopup, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC),
                           reinterpret_cast<LPARAM>(GetDlgItem(hPopup, IDC_NOTIFY_HEAD))),
              reinterpret_cast<LRESULT>(GetStockObject(NULL_BRUSH)));
    ReleaseDC(hPopup, hDC);
}

TEST_F(NotifyDialogTest, AGradientThatIsTakenAwayGivesWayToThePlainDialog)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    UnloadGradientFill(); // another dialog has ended
    InvalidateRect(hPopup, nullptr, TRUE);
    PumpMessages();
    EXPECT_EQ(PaintedColumn(hPopup, 0).back(), GetSysColor(COLOR_3DFACE));
}

TEST_F(NotifyDialogTest, ControlsStandTransparentlyOnTheGradient)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    const HDC hDC = GetDC(hPopup);
    SetTextColor(hDC, RGB(9, 9, 9));
    for (const UINT uMessage : std::initializer_list<UINT>{WM_CTLCOLORDLG, WM_CTLCOLORSTATIC})
    {
        SetWindowLongPtrW(hPopup, DWLP_MSGRESULT, 0);
        EXPECT_EQ(
            SendMessageW(hPopup, uMessage, reinterpret_cast<WPARAM>(hDC), reinterpret_cast<LPARAM>(hPopup)),
            reinterpret_cast<LRESULT>(GetStockObject(NULL_BRUSH)));
        EXPECT_EQ(GetWindowLongPtrW(hPopup, DWLP_MSGRESULT), 1);
        EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
        EXPECT_EQ(GetTextColor(hDC), 0U);
    }
    ReleaseDC(hPopup, hDC);
}

TEST_F(NotifyDialogTest, ColourAndCompositionChangesPaintItAtOnce)
{
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    for (const UINT uMessage : {21U, 785U, 798U})
    {
        const HDC hDC = GetDC(hPopup);
        SetPixel(hDC, 0, 0, RGB(255, 0, 0));
        ReleaseDC(hPopup, hDC);
        SendMessageW(hPopup, uMessage, 0, 0);
        EXPECT_NE(PaintedColumn(hPopup, 0).front(), static_cast<COLORREF>(RGB(255, 0, 0))) << uMessage;
        EXPECT_FALSE(GetUpdateRect(hPopup, nullptr, FALSE)) << uMessage;
    }
}

TEST_F(NotifyDialogTest, AListThatIsScrolledLeavesNoTraces)
{
    CopyText(Window().m_ConnectedList.szClientList, L"");
    const HWND hPopup = ShowList(0, 3);
    const HWND hBody = GetDlgItem(hPopup, IDC_NOTIFY_BODY);
    std::wstring list;
    for (int nLine = 0; nLine < 60; ++nLine)
    {
        list += L"MMMMMMMM\r\n";
    }
    SetWindowTextW(hBody,
                   (list + L"\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n\r\n").c_str());
    PumpMessages();
    const auto countDark = [&] {
        const RECT body = ControlRect(hPopup, IDC_NOTIFY_BODY);
        size_t nDark = 0;
        for (int nX = body.left + 8; nX < body.left + 40; ++nX)
        {
            const std::vector<COLORREF> text = PaintedColumn(hPopup, nX);
            nDark += static_cast<size_t>(std::count_if(text.begin() + body.top, text.begin() + body.bottom,
                                                       [](COLORREF cr) { return GetRValue(cr) < 0x40; }));
        }
        return nDark;
    };
    EXPECT_GT(countDark(), 100U);
    SendMessageW(hBody, WM_VSCROLL, SB_BOTTOM, 0);
    PumpMessages();
    EXPECT_LT(countDark(), 5U) << "the end of the text is empty lines";
}

// ---- Long texts.

TEST_F(NotifyDialogTest, TheLongestTextsHaveTheRoomTheyNeed)
{
    MSG_TRAYICON_SETTINGS& settings = Window().m_Settings;
    MSG_TRAYICON_CONNECT& connection = Window().m_Connection;
    const auto fill = [](wchar_t* pField, size_t cch) {
        for (size_t nAt = 0; nAt < cch; ++nAt)
        {
            pField[nAt] = nAt % 9 == 8 ? L' ' : L'W';
        }
    };
    fill(settings.szNotifyText, 260);
    fill(settings.szNotifyConnectText, 780);
    fill(connection.szClientDetail1, 260);
    std::fill_n(connection.szClientName, 260, L'n');
    std::fill_n(connection.szClientDetail2, 262, L'c');
    connection.dwConnectionType = 2;
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);

    const RECT body = ControlRect(hPopup, IDC_NOTIFY_BODY);
    const RECT head = ControlRect(hPopup, IDC_NOTIFY_HEAD);
    const HDC hDC = GetDC(hPopup);
    const HGDIOBJ hOldFont = SelectObject(hDC, GetStockObject(ANSI_VAR_FONT));
    RECT needed = {0, 0, body.right - body.left, 0};
    DrawTextW(hDC, ControlText(hPopup, IDC_NOTIFY_BODY).c_str(), -1, &needed, 8208 | DT_CALCRECT);
    EXPECT_GE(body.bottom - body.top, needed.bottom);
    SelectObject(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(hPopup, WM_GETFONT, 0, 0)));
    needed = {0, 0, head.right - head.left, 0};
    DrawTextW(hDC, ControlText(hPopup, IDC_NOTIFY_HEAD).c_str(), -1, &needed,
              DT_WORDBREAK | DT_NOPREFIX | DT_CALCRECT);
    EXPECT_GE(head.bottom - head.top, needed.bottom);
    EXPECT_LE(head.bottom, body.top);
    SelectObject(hDC, hOldFont);
    ReleaseDC(hPopup, hDC);

    RECT window = {};
    GetWindowRect(hPopup, &window);
    RECT client = {};
    GetClientRect(hPopup, &client);
    EXPECT_LT(body.bottom, client.bottom);
    EXPECT_GE(window.left, 0);
    EXPECT_GE(window.top, 0);
    EXPECT_LE(window.right, GetSystemMetrics(SM_CXSCREEN));
    EXPECT_LE(window.bottom, GetSystemMetrics(SM_CYSCREEN));
}

// ---- Traces in the log, and none in the system.

TEST_F(NotifyDialogTest, LogsEveryMessage)
{
    const LogCapture capture("NotifyDialog", log4cxx::Level::getDebug());
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    SendMessageW(hPopup, WM_NULL, 0, 0);
    const std::vector<std::string> texts = capture.Texts();
    for (const char* pszLine :
         {"DEBUG NotifyWndProc iMsg=272", "INFO SetNotifyDialogLocation", "DEBUG NotifyWndProc iMsg=1027",
          "INFO KDAPlaySound WindowsLogon", "DEBUG NotifyWndProc iMsg=0"})
    {
        EXPECT_THAT(texts, testing::Contains(pszLine));
    }
}

TEST_F(NotifyDialogTest, FiveHundredInARowLeaveNothingBehind)
{
    m_binding.SetMissingModule(L"Winmm.DLL"); // the test system's own leaves handles behind when it goes
    const auto showOne = [this](int nRound) {
        Window().m_Connection = Alice();
        Window().m_Settings.dwNotifySeconds = 100;
        switch (nRound % 4)
        {
        case 0:
            ShowPopup(NOTIFY_MODE_CONNECTED);
            break;
        case 1:
            ShowPopup(NOTIFY_MODE_DISCONNECTED);
            break;
        case 2:
            ShowList(0, 3);
            break;
        default:
            ShowList(1, 3);
            break;
        }
    };
    for (int nRound = 0; nRound < 8; ++nRound) // what is made once, is made now
    {
        showOne(nRound);
    }
    SendMessageW(Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
    PumpMessages();
    const ObjectCounts before = CountObjects();
    for (int nRound = 0; nRound < 500; ++nRound)
    {
        showOne(nRound);
    }
    SendMessageW(Window().m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
    PumpMessages();
    ExpectNoMoreThan(before);
}
