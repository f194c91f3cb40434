#include "dialogs/JoinAttendedSessionDialog.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "channel/TrayMessages.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/unit/BannerDialog.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"

#include <commctrl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{
constexpr size_t MOST_TEXT = 8095; // characters

class JoinAttendedSessionTest : public DialogHarness
{
  protected:
    INT_PTR Run(const std::function<void(HWND)>& scenario, MSG_REVERSE_CONNECTION* pRecord)
    {
        const ModalScenario modal(scenario);
        const INT_PTR nResult =
            DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_JOIN_ATTENDED_SESSION), Window().m_hWnd,
                            JoinAttendedSessionProc, reinterpret_cast<LPARAM>(pRecord));
        EXPECT_TRUE(modal.HasRun());
        PumpMessages();
        return nResult;
    }
    INT_PTR Run(const std::function<void(HWND)>& scenario) { return Run(scenario, &m_record); }

    // What the dialog makes of a text.
    std::wstring Join(const std::wstring& text)
    {
        m_record = {};
        EXPECT_EQ(Run([&](HWND hDialog) { Confirm(hDialog, text); }), 1);
        EXPECT_EQ(m_record.bOneTime, 1U);
        return std::wstring(FixedText(m_record.szInvitation));
    }

    static void Confirm(HWND hDialog, const std::wstring& text)
    {
        SetDlgItemTextW(hDialog, IDC_JOIN_INVITATION, text.c_str());
        SendDlgItemMessageW(hDialog, IDOK, BM_CLICK, 0, 0);
    }
    static void Cancel(HWND hDialog) { PostMessageW(hDialog, WM_COMMAND, IDCANCEL, 0); }

    MSG_REVERSE_CONNECTION m_record = {};
    BoxTrace m_boxes;
    PlayedScreen m_screen;
    OpeningTrace m_opened;
};
} // namespace

TEST(TrimInvitation, TakesBlanksAndLineBreaksOffTheEndsAndNothingElse)
{
    for (const auto& [pszText, pszTrimmed] : {std::pair<const wchar_t*, const wchar_t*>{L"", L""},
                                              {L" \r\n ", L""},
                                              {L"text", L"text"},
                                              {L"\r\n  two\r\nlines \n", L"two\r\nlines"},
                                              {L" \ttab first", L"\ttab first"},
                                              {L"tab last\t ", L"tab last\t"},
                                              {L"\t", L"\t"},
                                              {L"\v\f", L"\v\f"}})
    {
        EXPECT_EQ(TrimInvitation(pszText), pszTrimmed);
    }
}

TEST_F(JoinAttendedSessionTest, APastedInvitationFillsTheRecordTrimmed)
{
    EXPECT_EQ(Join(L"\r\n  first line\r\nsecond line %s \r\n"), L"first line\r\nsecond line %s");
    MSG_REVERSE_CONNECTION expected = {};
    expected.bOneTime = 1;
    CopyText(expected.szInvitation, L"first line\r\nsecond line %s");
    EXPECT_EQ(memcmp(&m_record, &expected, sizeof(expected)), 0) << "nothing lies behind the text";
}

TEST_F(JoinAttendedSessionTest, ATabIsAText)
{
    EXPECT_EQ(Join(L"\t"), L"\t");
    EXPECT_EQ(Join(L" \tinvitation"), L"\tinvitation");
}

TEST_F(JoinAttendedSessionTest, ATextThatDoesNotFitIsCut)
{
    const std::wstring longest(MOST_TEXT, L'x');
    EXPECT_EQ(Join(longest), longest);
    EXPECT_EQ(Join(longest + L'y'), longest);
    EXPECT_EQ(Join(longest + std::wstring(2000, L'y')), longest);
    EXPECT_EQ(Join(L" " + longest), longest.substr(1)) << "cut first, then trimmed";
}

TEST_F(JoinAttendedSessionTest, NothingButBlanksIsAskedForAgain)
{
    EXPECT_EQ(Run([this](HWND hDialog) {
                  for (const wchar_t* const pszText : {L"", L" \r\n \r\n"})
                  {
                      m_boxes.Forget();
                      Confirm(hDialog, pszText);
                      ASSERT_EQ(m_boxes.Boxes().size(), 1U);
                      EXPECT_EQ(m_boxes.Boxes()[0].text, m_language.Text(IDS_JOIN_TEXT_EMPTY));
                      EXPECT_EQ(m_boxes.Boxes()[0].title, PRODUCT_NAME);
                      EXPECT_EQ(m_boxes.Boxes()[0].uType, 64U);
                      EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDC_JOIN_INVITATION));
                      EXPECT_TRUE(IsWindowVisible(hDialog));
                      EXPECT_EQ(m_record.szInvitation[0], L'\0');
                      EXPECT_EQ(m_record.bOneTime, 1U);
                  }
                  Cancel(hDialog);
              }),
              2);
}

TEST_F(JoinAttendedSessionTest, HoweverItIsCancelledItEndsWithTwo)
{
    for (const auto& way : {std::pair<UINT, WPARAM>{WM_COMMAND, IDCANCEL},
                            {WM_CLOSE, 0},
                            {static_cast<UINT>(WM_HIDE_JOIN_INTERNET_SESSION_DLG), 0}})
    {
        const LogCapture capture("JoinAttendedSessionDialog", log4cxx::Level::getDebug());
        EXPECT_EQ(Run([&](HWND hDialog) {
                      EXPECT_EQ(g_hJoinAttendedSessionDlg, hDialog);
                      PostMessageW(hDialog, way.first, way.second, 0);
                  }),
                  2);
        EXPECT_EQ(g_hJoinAttendedSessionDlg, nullptr);
        const std::vector<std::string> texts = capture.Texts();
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "DEBUG WM_HIDE_JOIN_INTERNET_SESSION_DLG"),
                  way.first == WM_HIDE_JOIN_INTERNET_SESSION_DLG ? 1 : 0);
    }
}

TEST_F(JoinAttendedSessionTest, TheServiceTakingOverEndsItEvenBehindItsOwnBox)
{
    m_boxes.m_whileOpen = [] {
        PostMessageW(g_hJoinAttendedSessionDlg, WM_HIDE_JOIN_INTERNET_SESSION_DLG, 0, 0);
        PumpMessages();
    };
    EXPECT_EQ(Run([](HWND hDialog) { Confirm(hDialog, L""); }), 2);
}

TEST_F(JoinAttendedSessionTest, ADialogWithoutARecordSaysSoRefusesOkAndGoesOn)
{
    const LogCapture capture("JoinAttendedSessionDialog", log4cxx::Level::getError());
    EXPECT_EQ(Run(
                  [](HWND hDialog) {
                      Confirm(hDialog, L"invitation");
                      EXPECT_TRUE(IsWindowVisible(hDialog));
                      Cancel(hDialog);
                  },
                  nullptr),
              2);
    EXPECT_EQ(capture.Texts(), std::vector<std::string>{"ERROR WM_INITDIALOG: pJoinAttendedSession is NULL"});
}

TEST_F(JoinAttendedSessionTest, TheLinkOpensItsAddressAndTheDialogStays)
{
    Run([this](HWND hDialog) {
        NotifyFrom(hDialog, IDC_JOIN_HELP, static_cast<UINT>(NM_CLICK));
        ASSERT_EQ(m_opened.Documents().size(), 1U);
        EXPECT_EQ(m_opened.Documents()[0].verb, L"open");
        EXPECT_EQ(m_opened.Documents()[0].address, m_language.Text(IDS_JOIN_HELP_ADDRESS));
        EXPECT_TRUE(m_opened.Documents()[0].address.starts_with(L"https://"));
        EXPECT_EQ(m_opened.Documents()[0].nShow, SW_SHOWNORMAL);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        NotifyFrom(hDialog, IDC_JOIN_HELP, static_cast<UINT>(NM_RETURN));
        EXPECT_EQ(m_opened.Documents().size(), 2U) << "by keyboard, too";
        NotifyFrom(hDialog, IDC_JOIN_HELP, static_cast<UINT>(NM_SETFOCUS));
        NotifyFrom(hDialog, IDC_JOIN_BANNER, static_cast<UINT>(NM_CLICK));
        EXPECT_EQ(m_opened.Documents().size(), 2U);
        Cancel(hDialog);
    });
}

TEST_F(JoinAttendedSessionTest, OnlyTheHintIsGreyed)
{
    Run([](HWND hDialog) {
        const HDC hDC = GetDC(hDialog);
        SetTextColor(hDC, RGB(1, 2, 3));
        EXPECT_EQ(JoinAttendedSessionProc(hDialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC),
                                          reinterpret_cast<LPARAM>(GetDlgItem(hDialog, IDC_JOIN_HELP))),
                  0);
        EXPECT_EQ(GetTextColor(hDC), RGB(1, 2, 3));
        EXPECT_EQ(JoinAttendedSessionProc(hDialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC),
                                          reinterpret_cast<LPARAM>(GetDlgItem(hDialog, IDC_JOIN_HINT))),
                  reinterpret_cast<INT_PTR>(GetStockObject(NULL_BRUSH)));
        EXPECT_EQ(GetTextColor(hDC), GetSysColor(COLOR_GRAYTEXT));
        EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
        ReleaseDC(hDialog, hDC);
        Cancel(hDialog);
    });
}

TEST_F(JoinAttendedSessionTest, AFinerScreenGetsTheFinerBanner)
{
    for (const auto& [nDotsPerInch, nWidth] : {std::pair<int, LONG>{72, USUAL_BANNER},
                                               {USUAL_SCREEN, USUAL_BANNER},
                                               {FINE_SCREEN, FINE_BANNER},
                                               {192, FINE_BANNER}})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        Run([nWidth = nWidth](HWND hDialog) {
            EXPECT_EQ(BannerWidth(hDialog, IDC_JOIN_BANNER), nWidth);
            Cancel(hDialog);
        });
    }
}

TEST_F(JoinAttendedSessionTest, WithoutAFinerBannerTheTemplatesOwnStays)
{
    m_screen.nDotsPerInch = FINE_SCREEN;
    const ImportHook hook(
        "user32.dll", "LoadImageW",
        +[](HINSTANCE, LPCWSTR, UINT, int, int, UINT) -> HANDLE { return nullptr; });
    const LogCapture capture("JoinAttendedSessionDialog", log4cxx::Level::getDebug());
    Run([](HWND hDialog) {
        EXPECT_EQ(BannerWidth(hDialog, IDC_JOIN_BANNER), USUAL_BANNER);
        Cancel(hDialog);
    });
    EXPECT_THAT(capture.Texts(),
                testing::Contains("DEBUG Failed to load IDB_BITMAP_INTERNET_SESSION_BANNER scale bitmap."));
}

TEST_F(JoinAttendedSessionTest, TheKeyboardStartsAtTheTextAndEnterJoins)
{
    Run([](HWND hDialog) {
        EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDC_JOIN_INVITATION));
        HWND hControl = nullptr;
        for (const int nControl : {IDC_JOIN_INVITATION, IDC_JOIN_HELP, IDOK, IDCANCEL})
        {
            hControl = GetNextDlgTabItem(hDialog, hControl, FALSE);
            EXPECT_EQ(GetDlgCtrlID(hControl), nControl);
        }
        EXPECT_EQ(LOWORD(SendMessageW(hDialog, DM_GETDEFID, 0, 0)), IDOK);
        Cancel(hDialog);
    });
}

TEST_F(JoinAttendedSessionTest, LogsEveryMessage)
{
    const LogCapture capture("JoinAttendedSessionDialog", log4cxx::Level::getDebug());
    Run([](HWND hDialog) {
        SendMessageW(hDialog, WM_NULL, 0, 0);
        Cancel(hDialog);
    });
    for (const char* const pszLine : {"DEBUG iMsg=272", "DEBUG iMsg=0", "DEBUG iMsg=2"})
    {
        EXPECT_THAT(capture.Texts(), testing::Contains(pszLine));
    }
}

TEST_F(JoinAttendedSessionTest, ManyInARowLeaveNothingBehindOnAnyScreen)
{
    for (const int nDotsPerInch : {USUAL_SCREEN, FINE_SCREEN})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        ExpectNothingLeftBy(100, [this](int) { Run(Cancel); });
    }
}
