#include "certificates/ValidateCertDialog.h"

#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/support/TestCertificates.h"
#include "tests/unit/BannerDialog.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/CertificateHarness.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace
{
using LINES = std::vector<std::string>;

constexpr wchar_t NAME[] = L"Example help desk & Co";

struct VIEWED
{
    DWORD dwKind;
    const void* pvContext;
};

/// The viewer of certificates as the dialog asks for it.
struct VIEWER
{
    std::vector<VIEWED> viewed;
    std::function<void()> whileOpen;
};
VIEWER g_viewer;

BOOL WINAPI RecordView(DWORD dwKind, const void* pvContext, HWND hWnd, LPCWSTR pszTitle, DWORD dwFlags,
                       void* pvReserved)
{
    EXPECT_TRUE(hWnd == nullptr && pszTitle == nullptr && dwFlags == 0 && pvReserved == nullptr);
    g_viewer.viewed.push_back({dwKind, pvContext});
    if (g_viewer.whileOpen)
    {
        g_viewer.whileOpen();
    }
    return TRUE;
}

class ValidateCertTest : public CertificateHarness
{
  protected:
    void SetUp() override
    {
        CertificateHarness::SetUp();
        g_viewer = VIEWER();
        m_binding.Set("CryptUIDlgViewContext", &RecordView);
    }

    /// Asks, with a person who does that.
    static bool Ask(const std::function<void(HWND)>& scenario)
    {
        const ModalScenario modal(scenario);
        const bool bTrusted = ValidateCertDialog();
        EXPECT_TRUE(modal.HasRun()) << "nobody was asked";
        return bTrusted;
    }
    /// Whether the certificate is trusted without a question.
    static bool IsTrustedUnasked()
    {
        const ModalScenario modal([](HWND hDialog) { PostMessageW(hDialog, WM_CLOSE, 0, 0); });
        const bool bTrusted = ValidateCertDialog();
        return bTrusted && !modal.HasRun();
    }

    static void Click(HWND hDialog, int nControl) { SendDlgItemMessageW(hDialog, nControl, BM_CLICK, 0, 0); }
    static void Accept(HWND hDialog) { Click(hDialog, IDYES); }
    static void Decline(HWND hDialog) { Click(hDialog, IDNO); }
    static void AcceptForGood(HWND hDialog)
    {
        Click(hDialog, IDC_VALIDATE_REMEMBER);
        Accept(hDialog);
    }
    static void Press(HWND hControl, WPARAM wKey)
    {
        PostMessageW(hControl, WM_KEYDOWN, wKey, 0);
        PostMessageW(hControl, WM_KEYUP, wKey, 0);
    }
    /// What stands in the place of the name when there is none.
    std::wstring WordsForNoName() const
    {
        const CWindow hDialog(CreateDialogParamW(
            g_hResourceModule, MAKEINTRESOURCEW(IDD_VALIDATE_CERTIFICATE), nullptr,
            +[](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0));
        return ControlText(hDialog.get(), IDC_VALIDATE_NAME);
    }

    StagedLanguageModule m_language;
    LateBinding m_binding;
    BoxTrace m_boxes;
    PlayedScreen m_screen;
    OpeningTrace m_opened;
};
} // namespace

TEST_F(ValidateCertTest, ATrustedCertificateIsNotAskedAbout)
{
    Put(NAME, TestCertificate("rsa"));
    PutCandidate(TestCertificate("rsa"));
    const LogCapture log("ValidateCertDialog");
    EXPECT_TRUE(IsTrustedUnasked());
    const LINES lines = log.Texts();
    EXPECT_EQ(lines.front(), "TRACE ValidateCertSession entering.");
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "TRACE ValidateCertDialog; Certificate found in HKCU registry store.");
    EXPECT_EQ(lines.back(), "TRACE ValidateCertSession exiting.");
}

TEST_F(ValidateCertTest, AnAcceptedAndRememberedCertificateIsNotAskedAboutAgain)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(Stored(NAME), TestCertificate("rsa"));
    Forget();
    EXPECT_TRUE(IsTrustedUnasked());
}

TEST_F(ValidateCertTest, ACertificateThatIsOnlyAcceptedIsAskedAboutAgain)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask(Accept));
    EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
    Forget();
    EXPECT_FALSE(Ask(Decline));
}

TEST_F(ValidateCertTest, HoweverItIsDeclinedNothingIsKept)
{
    const std::vector<std::function<void(HWND)>> ways = {
        Decline,
        [](HWND hDialog) {
            Click(hDialog, IDC_VALIDATE_REMEMBER);
            Decline(hDialog);
        },
        [](HWND hDialog) { PostMessageW(hDialog, WM_CLOSE, 0, 0); },
        [](HWND hDialog) { PostMessageW(hDialog, WM_SYSCOMMAND, SC_CLOSE, 0); },
    };
    for (const auto& decline : ways)
    {
        Forget();
        PutCandidate(TestCertificate("rsa"));
        EXPECT_FALSE(Ask(decline));
        EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
    }
}

TEST_F(ValidateCertTest, OnlyTheTwoAnswersAndTheCloseBoxEndIt)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(Ask([](HWND hDialog) {
        for (const int nCommand :
             {IDOK, IDCANCEL, IDRETRY, IDIGNORE, IDCLOSE, IDC_VALIDATE_REMEMBER, IDC_VALIDATE_NAME})
        {
            EXPECT_EQ(ValidateCertProc(hDialog, WM_COMMAND, static_cast<WPARAM>(nCommand), 0), 0) << nCommand;
        }
        for (const UINT uMessage : {WM_USER, WM_TIMER, WM_CTLCOLORSTATIC, WM_ACTIVATE})
        {
            EXPECT_EQ(ValidateCertProc(hDialog, uMessage, 0, 0), 0) << uMessage;
        }
        Press(GetFocus(), VK_ESCAPE);
        PumpMessages();
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    }));
}

TEST_F(ValidateCertTest, TheResultIsTheNumberOfTheAnswer)
{
    for (const auto& [nCommand, nResult] : {std::pair{IDYES, 6}, {IDNO, 7}, {0, 2}})
    {
        const ModalScenario modal([nCommand = nCommand](HWND hDialog) {
            PostMessageW(hDialog, nCommand != 0 ? WM_COMMAND : WM_CLOSE, static_cast<WPARAM>(nCommand), 0);
        });
        EXPECT_EQ(DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(137), nullptr, ValidateCertProc, 0),
                  nResult);
    }
}

TEST_F(ValidateCertTest, ADeclineAlsoTellsWhoeverOwnsTheDialog)
{
    PumpMessages();
    EXPECT_FALSE(Ask(Decline));
    MSG message = {};
    ASSERT_TRUE(PeekMessageW(&message, reinterpret_cast<HWND>(-1), WM_JOIN_SESSION_STATE,
                             WM_JOIN_SESSION_STATE, PM_REMOVE));
    EXPECT_EQ(message.wParam, JOIN_SESSION_CANCEL);
    EXPECT_EQ(message.lParam, 0);
    EXPECT_TRUE(Ask(Accept));
    EXPECT_FALSE(PeekMessageW(&message, reinterpret_cast<HWND>(-1), WM_JOIN_SESSION_STATE,
                              WM_JOIN_SESSION_STATE, PM_REMOVE));
}

TEST_F(ValidateCertTest, AnotherCertificateOfATrustedNameIsAskedAboutAndTakesItsPlace)
{
    Put(L"Twin", TestCertificate("twin-1"));
    PutCandidate(TestCertificate("twin-2"));
    EXPECT_FALSE(Ask(Decline));
    EXPECT_EQ(Stored(L"Twin"), TestCertificate("twin-1"));
    Forget();
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(Stored(L"Twin"), TestCertificate("twin-2"));
}

TEST_F(ValidateCertTest, TheQuestionShowsTheName)
{
    for (const auto& [pszFile, name] :
         {std::pair<const char*, std::wstring>{"rsa", NAME},
          {"organisation", L"Example Support Ltd"},
          {"foreign", L"Pr\u00FCfstelle \u017B\u00F3\u0142\u0107 \u8A3C\u660E\u66F8"},
          {"expired", L"Expired"}})
    {
        Forget();
        PutCandidate(TestCertificate(pszFile));
        Ask([&name = name](HWND hDialog) {
            EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME), name);
            Decline(hDialog);
        });
    }
}

TEST_F(ValidateCertTest, ANameOf250CharactersIsShownWhole)
{
    PutCandidate(TestCertificate("long"));
    Ask([](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME).size(), 250U);
        const HWND hName = GetDlgItem(hDialog, IDC_VALIDATE_NAME);
        RECT room = {};
        GetClientRect(hName, &room);
        RECT needed = room;
        const HDC hDC = GetDC(hName);
        const HGDIOBJ hOld =
            SelectObject(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(hName, WM_GETFONT, 0, 0)));
        DrawTextW(hDC, ControlText(hDialog, IDC_VALIDATE_NAME).c_str(), -1, &needed,
                  DT_CALCRECT | DT_WORDBREAK | DT_EDITCONTROL | DT_NOPREFIX);
        SelectObject(hDC, hOld);
        ReleaseDC(hName, hDC);
        EXPECT_LE(needed.bottom, room.bottom);
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, WithoutANameTheTemplatesWordsStay)
{
    const std::wstring words = WordsForNoName();
    EXPECT_FALSE(words.empty());
    const auto look = [&words](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME), words);
        Decline(hDialog);
    };
    Ask(look);
    PutCandidate(TestCertificate("nameless"));
    Ask(look);
    EXPECT_NE(g_CertContext, nullptr);
}

TEST_F(ValidateCertTest, TheCertificateIsShownAsOftenAsOneAsksAndTheQuestionStays)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(Ask([](HWND hDialog) {
        g_viewer.whileOpen = [hDialog] { EXPECT_TRUE(IsWindowVisible(hDialog)); };
        for (int nTime = 0; nTime < 3; ++nTime)
        {
            EXPECT_EQ(ValidateCertProc(hDialog, WM_COMMAND, IDC_VALIDATE_SHOW, 0), 1);
        }
        ASSERT_EQ(g_viewer.viewed.size(), 3U);
        EXPECT_EQ(g_viewer.viewed[0].dwKind, 1U);
        EXPECT_EQ(g_viewer.viewed[0].pvContext, g_CertContext);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    }));
    EXPECT_TRUE(m_boxes.Boxes().empty());
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(ValidateCertTest, AnAnswerBehindAnOpenViewerCounts)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask([](HWND hDialog) {
        g_viewer.whileOpen = [hDialog] { AcceptForGood(hDialog); };
        Click(hDialog, IDC_VALIDATE_SHOW);
    }));
    EXPECT_EQ(Stored(NAME), TestCertificate("rsa"));
}

TEST_F(ValidateCertTest, ASystemWithoutAViewerShowsNothing)
{
    m_binding.SetMissing("CryptUIDlgViewContext");
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask([](HWND hDialog) {
        Click(hDialog, IDC_VALIDATE_SHOW);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Accept(hDialog);
    }));
    EXPECT_TRUE(m_boxes.Boxes().empty());
}

TEST_F(ValidateCertTest, WithoutACertificateTheShowButtonComplainsAndTheQuestionStays)
{
    for (const int nAnswer : {IDOK, IDCANCEL})
    {
        m_boxes.m_nAnswer = nAnswer;
        m_boxes.Forget();
        const LogCapture log("ValidateCertDialog", log4cxx::Level::getError());
        EXPECT_FALSE(Ask([](HWND hDialog) {
            Click(hDialog, IDC_VALIDATE_SHOW);
            EXPECT_TRUE(IsWindowVisible(hDialog));
            Decline(hDialog);
        }));
        ASSERT_EQ(m_boxes.Boxes().size(), 1U);
        EXPECT_EQ(m_boxes.Boxes()[0].text,
                  L"There was an error when displaying certificate, certificate wasn't properly processed");
        EXPECT_EQ(m_boxes.Boxes()[0].title, L"Error displaying certificate");
        EXPECT_EQ(m_boxes.Boxes()[0].uType, 1U);
        EXPECT_EQ(log.Texts(), LINES{"ERROR Certificate context is null, cert hasn't been shown in "
                                     "CryptUIDlgViewContext dialog."});
        EXPECT_TRUE(g_viewer.viewed.empty());
    }
}

TEST_F(ValidateCertTest, WithoutACertificateAnAcceptCountsAndKeepsNothing)
{
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getWarn());
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(log.Texts(), (LINES{"WARN GetCertFromACRegistry returning false",
                                  "WARN Certificate not assigned, OK clicked - no cert hash is saved"}));
    EXPECT_EQ(CountStored(), 0U);
    EXPECT_TRUE(Ask(Accept));
}

TEST_F(ValidateCertTest, ACertificateThatCannotBeKeptIsAcceptedForThisRun)
{
    PutCandidate(TestCertificate("nameless"));
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getError());
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_THAT(log.Texts().back(), testing::HasSubstr("registry key), result = 0"));
    EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
}

TEST_F(ValidateCertTest, WithoutItsTemplateTheAnswerIsNo)
{
    g_hResourceModule = GetModuleHandleW(nullptr);
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(ValidateCertDialog());
    Put(NAME, TestCertificate("rsa"));
    Forget();
    EXPECT_TRUE(ValidateCertDialog()) << "what is trusted needs no dialog";
}

TEST_F(ValidateCertTest, TheLinkOpensItsAddressByMouseAndByEnter)
{
    Ask([this](HWND hDialog) {
        EXPECT_EQ(NotifyFrom(hDialog, IDC_VALIDATE_HELP, static_cast<UINT>(NM_SETFOCUS)), 0);
        EXPECT_EQ(NotifyFrom(hDialog, IDC_VALIDATE_BANNER, static_cast<UINT>(NM_CLICK)), 0);
        NMHDR other = {GetDlgItem(hDialog, IDC_VALIDATE_HELP), IDC_VALIDATE_HELP,
                       static_cast<UINT>(NM_RETURN)};
        EXPECT_EQ(ValidateCertProc(hDialog, WM_NOTIFY, other.idFrom, reinterpret_cast<LPARAM>(&other)), 0);
        EXPECT_TRUE(m_opened.Documents().empty());
        other.code = static_cast<UINT>(NM_CLICK);
        EXPECT_EQ(ValidateCertProc(hDialog, WM_NOTIFY, other.idFrom, reinterpret_cast<LPARAM>(&other)), 1);
        ASSERT_EQ(m_opened.Documents().size(), 1U);
        EXPECT_EQ(m_opened.Documents()[0].hWnd, nullptr);
        EXPECT_EQ(m_opened.Documents()[0].verb, L"open");
        EXPECT_EQ(m_opened.Documents()[0].address, m_language.Text(76));
        EXPECT_TRUE(m_opened.Documents()[0].address.starts_with(L"https://"));
        EXPECT_EQ(m_opened.Documents()[0].nShow, SW_SHOWNORMAL);
        SetFocus(GetDlgItem(hDialog, IDC_VALIDATE_HELP));
        Press(GetFocus(), VK_RETURN);
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            if (!IsDialogMessageW(hDialog, &message))
            {
                DispatchMessageW(&message);
            }
        }
        EXPECT_EQ(m_opened.Documents().size(), 2U);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, OnlyAFinerScreenGetsTheFinerBanner)
{
    for (const auto& [nDotsPerInch, nWidth] : {std::pair<int, LONG>{72, USUAL_BANNER},
                                               {USUAL_SCREEN, USUAL_BANNER},
                                               {97, FINE_BANNER},
                                               {FINE_SCREEN, FINE_BANNER},
                                               {192, FINE_BANNER}})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        Ask([nWidth = nWidth](HWND hDialog) {
            EXPECT_EQ(BannerWidth(hDialog, IDC_VALIDATE_BANNER), nWidth);
            Decline(hDialog);
        });
    }
}

TEST_F(ValidateCertTest, WithoutAFinerBannerTheTemplatesOwnStays)
{
    m_screen.nDotsPerInch = FINE_SCREEN;
    const ImportHook hook(
        "user32.dll", "LoadImageW",
        +[](HINSTANCE, LPCWSTR, UINT, int, int, UINT) -> HANDLE { return nullptr; });
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    Ask([](HWND hDialog) {
        EXPECT_EQ(BannerWidth(hDialog, IDC_VALIDATE_BANNER), USUAL_BANNER);
        Decline(hDialog);
    });
    EXPECT_THAT(log.Texts(),
                testing::Contains("DEBUG Failed to load IDB_BITMAP_INTERNET_SESSION_BANNER scale bitmap."));
}

TEST_F(ValidateCertTest, TheKeyboardStartsAtTheRefusalAndReachesEverything)
{
    Ask([](HWND hDialog) {
        EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDNO));
        EXPECT_EQ(LOWORD(SendMessageW(hDialog, DM_GETDEFID, 0, 0)), IDNO);
        EXPECT_FALSE(IsDlgButtonChecked(hDialog, IDC_VALIDATE_REMEMBER));
        HWND hControl = nullptr;
        for (const int nControl : {IDNO, IDC_VALIDATE_SHOW, IDC_VALIDATE_REMEMBER, IDC_VALIDATE_HELP, IDYES})
        {
            hControl = GetNextDlgTabItem(hDialog, hControl, FALSE);
            EXPECT_EQ(GetDlgCtrlID(hControl), nControl);
        }
        EXPECT_EQ(ControlText(hDialog, IDYES).find(L'&'), std::wstring::npos)
            << "a letter meant for another window must not trust anybody";
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, EachMessageIsLogged)
{
    const LogCapture log("ValidateCertDialog");
    Ask(Decline);
    const LINES lines = log.Texts();
    const auto init = std::find(lines.begin(), lines.end(), "DEBUG iMsg=272");
    ASSERT_NE(init, lines.end());
    EXPECT_EQ(*(init - 1), "TRACE ValidateCertProc entering.");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "TRACE ValidateCertProc entering."),
              std::count(lines.begin(), lines.end(), "TRACE ValidateCertProc exiting."));
}

TEST_F(ValidateCertTest, ManyInARowLeaveNothingBehindOnAnyScreen)
{
    for (const int nDotsPerInch : {USUAL_SCREEN, FINE_SCREEN})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        Ask(Decline);
        PumpMessages();
        const ObjectCounts before = CountObjects();
        for (int nRound = 0; nRound < 50; ++nRound)
        {
            Ask(Decline);
            PumpMessages();
        }
        ExpectNoMoreThan(before);
    }
}
