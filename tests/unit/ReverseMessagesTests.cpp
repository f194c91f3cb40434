#include "Include/BoundedText.h"
#include "Include/UtilLog.h"
#include "Include/UtilResource.h"
#include "channel/ReverseText.h"
#include "dialogs/ConnectInProgressDialog.h"
#include "dialogs/ConnectToClientDialog.h"
#include "dialogs/JoinAttendedSessionDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/CallOrder.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <commctrl.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;

constexpr DWORD LOOK_MS = 5;
constexpr UINT NO_SUCH_COMMAND = 77;

MSG_REVERSE_CONNECTION MakeResult(const std::wstring& error, DWORD dwError = 0, DWORD bOneTime = 0)
{
    MSG_REVERSE_CONNECTION record = {};
    record.dwType = MSG_TYPE_REVERSE_CONNECTION;
    record.dwReverseCode = REVERSE_CODE_FINISHED;
    record.dwError = dwError;
    record.bOneTime = bOneTime;
    CopyText(record.szError, error);
    CopyText(record.szInvitation, L"invitation %s");
    CopyText(record.szHost, L"viewer.example");
    record.dwPort = 6130;
    return record;
}

std::wstring SystemText(DWORD dwError)
{
    wchar_t szText[MAX_REVERSE_REASON] = {};
    FormatSystemError(szText, MAX_REVERSE_REASON, dwError);
    return szText;
}

/// What a dialog of the tray window fills in, and what it ends with.
struct DIALOG_SCRIPT
{
    INT_PTR nResult = IDOK;
    std::function<void(MSG_REVERSE_CONNECTION&)> fill;
    std::vector<int> templates;
    DLGPROC pfnProcedure = nullptr;
    HWND hWndOwner = nullptr;
    MSG_REVERSE_CONNECTION received = {};
    MSG_REVERSE_CONNECTION* pRecord = nullptr;
};
DIALOG_SCRIPT g_script;

INT_PTR WINAPI PlayDialog(HINSTANCE hModule, LPCWSTR pszTemplate, HWND hWndOwner, DLGPROC pfnProcedure,
                          LPARAM lParam)
{
    EXPECT_EQ(hModule, g_hResourceModule.load());
    g_script.templates.push_back(static_cast<int>(reinterpret_cast<ULONG_PTR>(pszTemplate)));
    g_script.pfnProcedure = pfnProcedure;
    g_script.hWndOwner = hWndOwner;
    g_script.pRecord = reinterpret_cast<MSG_REVERSE_CONNECTION*>(lParam);
    g_script.received = *g_script.pRecord;
    if (g_script.fill)
    {
        g_script.fill(*g_script.pRecord);
    }
    return g_script.nResult;
}

class ReverseTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        AgentHarness::SetUp();
        g_script = DIALOG_SCRIPT();
        m_language = std::make_unique<StagedLanguageModule>();
        Window().m_Settings.bReverseConnectMenu = 1;
    }

    void TearDown() override
    {
        AgentHarness::TearDown();
        g_hJoinAttendedSessionDlg = nullptr;
        g_hConnectToClientDlg = nullptr;
        m_language.reset();
    }

    void SendCode(DWORD dwCode)
    {
        MSG_REVERSE_CONNECTION record = {};
        record.dwType = MSG_TYPE_REVERSE_CONNECTION;
        record.dwReverseCode = dwCode;
        Send(record);
        Settle();
    }

    // Returns when the agent has the type and waits for the body.
    void SendTypeAlone()
    {
        Window().m_bReverseInProgress = 1;
        SendType(MSG_TYPE_REVERSE_CONNECTION);
        for (DWORD dwWaited = 0; Window().m_bReverseInProgress != 0 && dwWaited < PATIENCE_MS;
             dwWaited += LOOK_MS)
        {
            Sleep(LOOK_MS); // nothing else tells
        }
        EXPECT_EQ(Window().m_bReverseInProgress, 0U);
    }

    void SendBody(DWORD dwCode)
    {
        MSG_REVERSE_CONNECTION record = {};
        record.dwReverseCode = dwCode;
        ASSERT_TRUE(m_service.SendAll(reinterpret_cast<const BYTE*>(&record) + sizeof(record.dwType),
                                      sizeof(record) - sizeof(record.dwType)));
        Settle();
    }

    // The boxes that a result brings.
    std::vector<SHOWN_MESSAGE> ShownFor(const MSG_REVERSE_CONNECTION& record)
    {
        m_boxes.Forget();
        Send(record);
        Settle();
        OnWindowThread([] {});
        return m_boxes.Boxes();
    }

    void Choose(UINT uCommand) { SendMessageW(Window().m_hWnd, WM_COMMAND, uCommand, 0); }
    void TellState(JOIN_SESSION_STATE state)
    {
        SendMessageW(Window().m_hWnd, WM_JOIN_SESSION_STATE, state, 0);
    }

    Calls JoinStates() const { return m_trace.Calls("message 1041"); }

    std::unique_ptr<StagedLanguageModule> m_language;
    BoxTrace m_boxes;
    ImportHook<decltype(DialogBoxParamW)> m_dialog{"user32.dll", "DialogBoxParamW", &PlayDialog};
};
} // namespace

TEST(ReverseText, TheServicesWordsComeBeforeTheSystems)
{
    EXPECT_EQ(ComposeReverseReason(MakeResult(L"100 %s busy", 5)), L"100 %s busy");
    EXPECT_EQ(ComposeReverseReason(MakeResult(L"", 5)), SystemText(5));
    EXPECT_EQ(ComposeReverseReason(MakeResult(L"", 0)), SystemText(0));
    EXPECT_TRUE(ComposeReverseReason(MakeResult(L"", 10060))
                    .starts_with(L"System Error: 10060\r\nSystem "
                                 L"Message: "));
}

TEST(ReverseText, AHostsResultEndsWithHostAndPort)
{
    EXPECT_EQ(ComposeReverseResult(MakeResult(L"busy %d"), L"Sorry: %s!"),
              L"Sorry: busy %d!\r\nHost: viewer.example\r\nPort: 6130");
    EXPECT_EQ(ComposeReverseResult(MakeResult(L"busy"), L"100 %% lost"),
              L"100 % lost\r\nHost: viewer.example\r\nPort: 6130");
}

TEST(ReverseText, AJoinsResultNamesTheInvitationAndNoReason)
{
    EXPECT_EQ(ComposeReverseResult(MakeResult(L"busy", 5, 1), L"Sorry: %s!"), L"Sorry: invitation %s!");
}

TEST(ReverseText, OnlyAOneTimeJoinKnowsTheWordForSuccess)
{
    EXPECT_TRUE(HasJoined(MakeResult(L"NOERROR", 0, 1)));
    EXPECT_FALSE(HasJoined(MakeResult(L"NOERROR", 0, 0)));
    EXPECT_FALSE(HasJoined(MakeResult(L"noerror", 0, 1)));
    EXPECT_FALSE(HasJoined(MakeResult(L"NOERROR ", 0, 1)));
}

TEST(ReverseText, TextsWithoutAnEndAreReadNoFurtherThanTheirFields)
{
    MSG_REVERSE_CONNECTION full = MakeResult(L"");
    std::fill(std::begin(full.szError), std::end(full.szError), L'e');
    std::fill(std::begin(full.szHost), std::end(full.szHost), L'h');
    std::fill(std::begin(full.szInvitation), std::end(full.szInvitation), L'i');
    EXPECT_EQ(ComposeReverseReason(full), std::wstring(2047, L'e'));
    EXPECT_EQ(ComposeReverseResult(full, L"%s"),
              std::wstring(2047, L'e') + L"\r\nHost: " + std::wstring(1025, L'h') + L"\r\nPort: 6130");
    full.bOneTime = 1;
    EXPECT_EQ(ComposeReverseResult(full, L"%s"), std::wstring(8096, L'i'));
}

TEST_F(ReverseTest, EachCodeReachesTheWindowAsItsState)
{
    SendCode(101);
    SendCode(102);
    EXPECT_EQ(JoinStates(), (Calls{"message 1041 0", "message 1041 1"}));
    for (const DWORD dwCode : {0U, 1U, 99U, 103U, 104U, 0xFFFFFFFFU})
    {
        SendCode(dwCode);
    }
    EXPECT_EQ(JoinStates().size(), 2U) << "no other code has a meaning";
    EXPECT_TRUE(m_boxes.Boxes().empty());
}

TEST_F(ReverseTest, AnyCodeOpensTheCommandsAgainBeforeItsBodyIsRead)
{
    SendTypeAlone();
    EXPECT_TRUE(JoinStates().empty()) << "the body isn't there";
    Window().m_bReverseInProgress = 1;
    SendBody(REVERSE_CODE_SHOW_WAIT);
    EXPECT_EQ(JoinStates(), Calls{"message 1041 0"});
    EXPECT_EQ(Window().m_bReverseInProgress, 1U) << "asked for again meanwhile";
}

TEST_F(ReverseTest, ACodeWithoutAMeaningOpensTheCommandsAgainBehindItsBodyToo)
{
    for (const DWORD dwCode : {0U, 103U, 104U})
    {
        SendTypeAlone();
        Window().m_bReverseInProgress = 1;
        SendBody(dwCode);
        EXPECT_EQ(Window().m_bReverseInProgress, 0U) << dwCode;
    }
}

TEST_F(ReverseTest, AFailedConnectionIsToldWithReasonHostAndPort)
{
    const std::vector<SHOWN_MESSAGE> boxes = ShownFor(MakeResult(L"Nobody answers %s."));
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_EQ(boxes[0].text, FillPlaceholders(m_language->Text(IDS_REVERSE_FAILED), {L"Nobody answers %s."}) +
                                 L"\r\nHost: viewer.example\r\nPort: 6130");
    EXPECT_EQ(boxes[0].title, m_language->Text(IDS_ASK_TITLE));
    EXPECT_EQ(boxes[0].uType, static_cast<UINT>(MB_TOPMOST | MB_ICONHAND));
    EXPECT_EQ(JoinStates(), Calls{"message 1041 1"}) << "the waiting window goes";
    EXPECT_EQ(m_trace.Calls("timer 0"), Calls{"timer 0 20000"});
}

TEST_F(ReverseTest, TheWaitingWindowIsSentAwayBeforeTheBoxComes)
{
    CallOrder order(m_trace);
    order.m_note = [this] { return " error " + std::to_string(Window().m_bServiceMessageIsError); };
    Send(MakeResult(L"busy"));
    Settle();
    EXPECT_EQ(m_trace.Calls("posted"), (Calls{"posted 1041 error 0", "posted 1032 error 1"}));
}

TEST_F(ReverseTest, ASecondResultBeforeTheFirstIsShownIsShownTwice)
{
    OnWindowThread([this] { // which shows nothing meanwhile
        Send(MakeResult(L"the first"));
        Send(MakeResult(L"the second"));
        SendType(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
        Receive<DWORD>();
    });
    OnWindowThread([] {});
    const std::vector<SHOWN_MESSAGE>& boxes = m_boxes.Boxes();
    ASSERT_EQ(boxes.size(), 2U);
    EXPECT_NE(boxes[0].text.find(L"the second"), std::wstring::npos);
    EXPECT_EQ(boxes[1].text, boxes[0].text);
}

TEST_F(ReverseTest, WithoutWordsTheSystemsOwnAreShownEvenForSuccess)
{
    for (const DWORD dwError : {0U, 5U})
    {
        const std::vector<SHOWN_MESSAGE> boxes = ShownFor(MakeResult(L"", dwError));
        ASSERT_EQ(boxes.size(), 1U);
        EXPECT_NE(boxes[0].text.find(SystemText(dwError)), std::wstring::npos);
    }
}

TEST_F(ReverseTest, ASilentResultClosesTheWaitingWindowAndShowsNothing)
{
    CopyText(Window().m_szServiceMessage, L"as before");
    MSG_REVERSE_CONNECTION silent = MakeResult(L"busy");
    silent.bSilent = 1;
    EXPECT_TRUE(ShownFor(silent).empty());
    EXPECT_EQ(JoinStates(), Calls{"message 1041 1"});
    EXPECT_EQ(Window().m_bServiceMessageIsError, 1U);
    EXPECT_STREQ(Window().m_szServiceMessage, L"as before");
}

TEST_F(ReverseTest, NoErrorIsAReasonForAHostAndSilenceForAJoin)
{
    const std::vector<SHOWN_MESSAGE> boxes = ShownFor(MakeResult(L"NOERROR"));
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_NE(boxes[0].text.find(L"NOERROR"), std::wstring::npos);
    EXPECT_TRUE(ShownFor(MakeResult(L"NOERROR", 0, 1)).empty());
    EXPECT_EQ(JoinStates().size(), 2U);
}

TEST_F(ReverseTest, AFailedJoinIsToldWithItsInvitation)
{
    const std::vector<SHOWN_MESSAGE> boxes = ShownFor(MakeResult(L"busy", 5, 1));
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_EQ(boxes[0].text, FillPlaceholders(m_language->Text(IDS_JOIN_FAILED), {L"invitation %s"}));
    EXPECT_EQ(boxes[0].text.find(L"busy"), std::wstring::npos);
}

TEST_F(ReverseTest, LongTextsAreCutToFourThousandAndNinetyFiveCharacters)
{
    MSG_REVERSE_CONNECTION full = MakeResult(std::wstring(2047, L'e'));
    std::fill(std::begin(full.szHost), std::end(full.szHost), L'h');
    std::fill(std::begin(full.szInvitation), std::end(full.szInvitation), L'i');
    EXPECT_TRUE(ShownFor(full)[0].text.ends_with(L"\r\nPort: 6130")) << "there is room for all of it";
    full.bOneTime = 1;
    EXPECT_EQ(ShownFor(full)[0].text.size(), 4095U);
}

TEST_F(ReverseTest, AFailedJoinEndsTheAgentThatWasInvitedForIt)
{
    g_bOneTimeSession = 1;
    g_bOtiInvitation = 1;
    Send(MakeResult(L"busy", 5, 1));
    EXPECT_EQ(Receive<MSG_TRAYICON_EXIT>().dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_EXIT));
    g_bOneTimeSession = 0;
}

TEST_F(ReverseTest, ConnectToClientSendsWhatTheDialogHasFilledInAndOnlyOnce)
{
    Window().m_Settings.bProxyAllowed = 7;
    MSG_REVERSE_CONNECTION expected = {};
    expected.bProxyAllowed = 7;
    CopyText(expected.szHost, L"viewer");
    CopyText(expected.szProxySecret, L"secret");
    g_script.fill = [&](MSG_REVERSE_CONNECTION& record) { record = expected; };
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    expected.dwType = MSG_TYPE_REVERSE_CONNECTION;
    const auto received = Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
    EXPECT_EQ(g_script.templates, std::vector<int>{IDD_CONNECT_TO_CLIENT});
    EXPECT_EQ(g_script.pfnProcedure, &ConnectToClient);
    EXPECT_EQ(g_script.hWndOwner, Window().m_hWnd);
    MSG_REVERSE_CONNECTION given = {};
    given.bProxyAllowed = 7;
    EXPECT_EQ(memcmp(&g_script.received, &given, sizeof(given)), 0);
    EXPECT_EQ(Window().m_bReverseInProgress, 1U);
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    Choose(ID_TRAY_JOIN_SESSION);
    EXPECT_EQ(g_script.templates.size(), 1U) << "not until the first has a result";
    SendCode(REVERSE_CODE_SHOW_WAIT);
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_EQ(g_script.templates.size(), 2U);
}

TEST_F(ReverseTest, WithoutItsSettingOrWithoutOkNothingIsSent)
{
    g_script.nResult = IDCANCEL;
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    Choose(ID_TRAY_JOIN_SESSION);
    EXPECT_EQ(g_script.templates, (std::vector<int>{IDD_CONNECT_TO_CLIENT, IDD_JOIN_ATTENDED_SESSION}));
    g_script.nResult = -1; // there is no such dialog
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    Choose(ID_TRAY_JOIN_SESSION);
    g_script.nResult = IDOK;
    Window().m_Settings.bReverseConnectMenu = 0;
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    EXPECT_EQ(g_script.templates.size(), 4U);
    EXPECT_EQ(Window().m_bReverseInProgress, 0U);
    EXPECT_TRUE(m_service.StaysSilent(100));
}

TEST_F(ReverseTest, JoinSendsTheInvitationOfTheDialog)
{
    Window().m_Settings.bProxyAllowed = 1;
    g_script.fill = [](MSG_REVERSE_CONNECTION& record) {
        record.bOneTime = 1;
        CopyText(record.szInvitation, L"pasted");
    };
    Choose(ID_TRAY_JOIN_SESSION);
    MSG_REVERSE_CONNECTION expected = {};
    expected.dwType = MSG_TYPE_REVERSE_CONNECTION;
    expected.bProxyAllowed = 1;
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, L"pasted");
    const auto received = Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
    EXPECT_EQ(g_script.pfnProcedure, &JoinAttendedSessionProc);
    EXPECT_EQ(Window().m_bReverseInProgress, 1U);
}

TEST_F(ReverseTest, ADialogThatIsOpenAlreadyComesToTheTopInsteadOfASecond)
{
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getInfo());
    const CWindow hOpen(CreateWindowExW(0, L"STATIC", L"open", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr,
                                        nullptr, nullptr, nullptr));
    static HWND s_hOnTop;
    s_hOnTop = nullptr;
    const ImportHook hook(
        "user32.dll", "BringWindowToTop", +[](HWND hWnd) -> BOOL {
            s_hOnTop = hWnd;
            return TRUE;
        });
    g_hJoinAttendedSessionDlg = hOpen.get();
    Choose(ID_TRAY_JOIN_SESSION);
    EXPECT_EQ(s_hOnTop, hOpen.get());
    EXPECT_THAT(capture.Texts(),
                testing::Contains("INFO Join Internet Session dialog exists, bringing to top."));
    g_hJoinAttendedSessionDlg = nullptr;
    s_hOnTop = nullptr;
    g_hConnectToClientDlg = hOpen.get();
    Choose(ID_TRAY_CONNECT_TO_CLIENT);
    EXPECT_EQ(s_hOnTop, hOpen.get());
    g_hConnectToClientDlg = nullptr;
    EXPECT_TRUE(g_script.templates.empty());
    EXPECT_TRUE(m_service.StaysSilent(100));
}

TEST_F(ReverseTest, TheWaitingWindowComesOnceAndGoes)
{
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getInfo());
    TellState(JOIN_SESSION_SHOW_WAIT);
    const HWND hFirst = Window().m_hJoinWaitDlg;
    EXPECT_TRUE(IsWindowVisible(hFirst));
    EXPECT_EQ(GetWindow(hFirst, GW_OWNER), Window().m_hWnd);
    TellState(JOIN_SESSION_SHOW_WAIT);
    const HWND hSecond = Window().m_hJoinWaitDlg;
    EXPECT_TRUE(IsWindowVisible(hSecond));
    EXPECT_FALSE(IsWindow(hFirst));
    TellState(static_cast<JOIN_SESSION_STATE>(3));
    EXPECT_TRUE(IsWindowVisible(hSecond)) << "another state says nothing";
    TellState(JOIN_SESSION_CLOSE_WAIT);
    EXPECT_FALSE(IsWindow(hSecond));
    EXPECT_EQ(Window().m_hJoinWaitDlg, nullptr);
    TellState(JOIN_SESSION_CLOSE_WAIT);
    EXPECT_THAT(capture.Texts(),
                testing::IsSupersetOf({"INFO Displaying Join Internet Session Wait Dialog.",
                                       "INFO Destroying Join Internet Session Wait Dialog."}));
}

TEST_F(ReverseTest, CancellingHidesTheWaitingWindowAndTellsTheServiceWhoseWordDestroysIt)
{
    SendCode(REVERSE_CODE_SHOW_WAIT);
    const HWND hDialog = Window().m_hJoinWaitDlg;
    ASSERT_TRUE(IsWindowVisible(hDialog));
    SendMessageW(GetDlgItem(hDialog, IDCANCEL), BM_CLICK, 0, 0);
    MSG_REVERSE_CONNECTION expected = {};
    expected.dwType = MSG_TYPE_REVERSE_CONNECTION;
    expected.dwReverseCode = 103;
    const auto received = Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_EQ(memcmp(&received, &expected, sizeof(expected)), 0);
    EXPECT_TRUE(IsWindow(hDialog));
    EXPECT_FALSE(IsWindowVisible(hDialog));
    SendCode(REVERSE_CODE_CLOSE_WAIT);
    EXPECT_FALSE(IsWindow(hDialog));
    EXPECT_EQ(JoinStates(), (Calls{"message 1041 0", "message 1041 2", "message 1041 1"}));
}

TEST_F(ReverseTest, TheCloseBoxOfTheWaitingWindowCancelsToo)
{
    TellState(JOIN_SESSION_SHOW_WAIT);
    SendMessageW(Window().m_hJoinWaitDlg, WM_CLOSE, 0, 0);
    EXPECT_EQ(Receive<MSG_REVERSE_CONNECTION>().dwReverseCode, 103U);
}

TEST_F(ReverseTest, EveryStateSendsAnOpenJoinDialogAway)
{
    TellState(JOIN_SESSION_CLOSE_WAIT);
    g_hJoinAttendedSessionDlg = Window().m_hWnd; // which records what it is posted
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getDebug());
    for (const JOIN_SESSION_STATE state : {JOIN_SESSION_SHOW_WAIT, JOIN_SESSION_CLOSE_WAIT,
                                           JOIN_SESSION_CANCEL, static_cast<JOIN_SESSION_STATE>(3)})
    {
        m_trace.Forget();
        TellState(state);
        OnWindowThread([] {});
        EXPECT_EQ(m_trace.Calls("message 32769"), Calls{"message 32769 0"});
    }
    Receive<MSG_REVERSE_CONNECTION>();
    EXPECT_THAT(capture.Texts(),
                testing::ElementsAre("DEBUG PostMessage WM_HIDE_JOIN_INTERNET_SESSION_DLG.",
                                     "INFO Displaying Join Internet Session Wait Dialog.",
                                     "DEBUG PostMessage WM_HIDE_JOIN_INTERNET_SESSION_DLG.",
                                     "INFO Destroying Join Internet Session Wait Dialog.",
                                     "DEBUG PostMessage WM_HIDE_JOIN_INTERNET_SESSION_DLG.",
                                     "INFO Canceling OTI connection attempt.",
                                     "DEBUG PostMessage WM_HIDE_JOIN_INTERNET_SESSION_DLG."));
}

TEST_F(ReverseTest, TheBarStartsToMoveAndOtherCommandsAreIgnored)
{
    OnWindowThread([] {
        const LogCapture capture("ConnectInProgressDialog", log4cxx::Level::getDebug());
        const CWindow hDialog(CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CONNECT_IN_PROGRESS),
                                                 nullptr, ConnectInProgressProc, 0));
        ASSERT_TRUE(hDialog);
        MSG message = {};
        ASSERT_TRUE(PeekMessageW(&message, GetDlgItem(hDialog.get(), IDC_PROGRESS_BAR), PBM_SETMARQUEE,
                                 PBM_SETMARQUEE, PM_REMOVE));
        EXPECT_EQ(message.message, 1034U);
        EXPECT_EQ(message.wParam, 1U);
        EXPECT_EQ(message.lParam, 0);
        EXPECT_EQ(ConnectInProgressProc(hDialog.get(), WM_COMMAND, NO_SUCH_COMMAND, 0), TRUE);
        EXPECT_EQ(ConnectInProgressProc(hDialog.get(), WM_COMMAND, IDOK, 0), TRUE);
        EXPECT_EQ(ConnectInProgressProc(hDialog.get(), WM_INITDIALOG, 0, 0), 1);
        EXPECT_EQ(ConnectInProgressProc(hDialog.get(), WM_NULL, 0, 0), FALSE);
        for (const char* const pszLine : {"DEBUG iMsg=272", "DEBUG iMsg=273", "DEBUG iMsg=0"})
        {
            EXPECT_THAT(capture.Texts(), testing::Contains(pszLine));
        }
    });
    EXPECT_TRUE(m_service.StaysSilent(100));
}
